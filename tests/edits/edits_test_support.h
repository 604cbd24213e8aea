// A fixture for tests that change tables through the exports and look at
// the files they leave.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "edits/change_list.h"
#include "support/test_support.h"
#include "tablefile/table.h"

namespace mergedb::test {

class EditsTest : public ::testing::Test {
protected:
    void SetUp() override { database = openDatabase(dir); }
    void TearDown() override {
        if (table != 0) {
            EXPECT_EQ(dbCloseTableMerge(&table), 0u);
        }
        dbCloseDBMerge(&database);
    }

    // Opens name, a delimited table (comma, line end, double quote) or a
    // tagged document by its ending.
    void open(const std::string &name) {
        if (table != 0) {
            ASSERT_EQ(dbCloseTableMerge(&table), 0u);
        }
        bool tagged = name.size() > 4 && name.substr(name.size() - 4) == ".doc";
        DbResult result = tagged ? openTagged(database, name, &table) : openDelimited(database, name, &table, ",", "\n");
        ASSERT_EQ(result, 0u) << name;
        tableName = name;
    }

    void close() {
        ASSERT_EQ(dbCloseTableMerge(&table), 0u);
        table = 0;
    }

    void put(uint16_t number, const std::string &text) {
        ASSERT_EQ(dbPutFieldValueHMerge(table, number, text.c_str(), DB_TYPE_TEXT,
                                        static_cast<uint16_t>(text.size())),
                  0u);
    }

    // Puts the values into fields 0, 1, ...
    void putAll(const std::vector<std::string> &values) {
        for (size_t i = 0; i < values.size(); ++i) put(static_cast<uint16_t>(i), values[i]);
    }

    Bytes current() {
        const auto *node = blockLockAs<EditNode>(tableLock(table)->current);
        const auto *bytes = blockLockAs<uint8_t>(node->data);
        return Bytes(bytes, bytes + node->dataLength);
    }

    // The records of a forward walk, as record images.
    std::vector<Bytes> walk() {
        std::vector<Bytes> records;
        for (DbResult r = dbFirstMerge(table); r != DB_RESULT_END_OF_DATA; r = dbNextMerge(table, 0, nullptr)) {
            EXPECT_EQ(r, 0u);
            records.push_back(current());
        }
        return records;
    }

    // Moves to the record at index of a forward walk.
    void moveTo(int index) {
        ASSERT_EQ(dbFirstMerge(table), 0u);
        for (int i = 0; i < index; ++i) ASSERT_EQ(dbNextMerge(table, 0, nullptr), 0u);
    }

    TempDir dir;
    uint32_t database = 0;
    uint32_t table = 0;
    std::string tableName;
};

}  // namespace mergedb::test
