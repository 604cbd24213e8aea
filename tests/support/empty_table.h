// A fixture: a delimited table opened on an empty file, so that tests can
// give it fields by hand.
#pragma once

#include <gtest/gtest.h>

#include "support/test_support.h"
#include "tablefile/table.h"

namespace mergedb::test {

class EmptyTableTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir.write("t.csv", "");
        database = openDatabase(dir);
        ASSERT_EQ(openDelimited(database, "t.csv", &table), DB_RESULT_OK);
    }
    void TearDown() override {
        dbCloseTableMerge(&table);
        dbCloseDBMerge(&database);
    }
    MergeTable &record() { return *tableLock(table); }

    TempDir dir;
    uint32_t database = 0;
    uint32_t table = 0;
};

}  // namespace mergedb::test
