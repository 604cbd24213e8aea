// Inputs the fuzz targets found, cut down to what they need.
#include <gtest/gtest.h>

#include "support/test_support.h"

namespace mergedb {
namespace {

using test::Bytes;
using test::bytesOf;

std::string firstValue(uint32_t table) {
    char value[255] = {};
    uint16_t length = 0;
    EXPECT_EQ(dbGetFieldValueHMerge(table, 0, value, DB_TYPE_TEXT, &length), 0u);
    return value;
}

void put(uint32_t table, const char *value) {
    ASSERT_EQ(dbPutFieldValueHMerge(table, 0, value, DB_TYPE_TEXT, static_cast<uint16_t>(strlen(value))), 0u);
}

// After an insert the list's cursor stood on an edit far in front of the
// new record, so the move back missed the delete of the record before it:
// the deleted record came back, and the next delete hit it again.
TEST(FuzzFindings, AMoveBackFromAnInsertedRecordSeesTheDeleteInFrontOfIt) {
    test::TempDir dir;
    dir.write("t.txt", "a\nb\n");
    uint32_t database = test::openDatabase(dir);
    uint32_t table = 0;
    ASSERT_EQ(test::openDelimited(database, "t.txt", &table, ",", "\n", "", ""), 0u);
    ASSERT_EQ(dbFirstMerge(table), 0u);
    ASSERT_EQ(dbNextMerge(table, 0, nullptr), 0u);
    ASSERT_EQ(dbDeleteMerge(table), 0u);
    ASSERT_EQ(dbFirstMerge(table), 0u);
    put(table, "a2");
    ASSERT_EQ(dbUpdateMerge(table, 0, nullptr), 0u);
    put(table, "c");
    ASSERT_EQ(dbInsertMerge(table, 0, nullptr), 0u);
    ASSERT_EQ(dbPrevMerge(table, 0, nullptr), 0u);
    EXPECT_EQ(firstValue(table), "a2");
    ASSERT_EQ(dbDeleteMerge(table), 0u);
    ASSERT_EQ(dbCloseTableMerge(&table), 0u);
    EXPECT_EQ(dir.read("t.txt"), bytesOf("c\n"));
    dbCloseDBMerge(&database);
}

// A variable token whose sub-code reads 52 from its end but not from its
// front is a record end to the walk back and none to the walk forward, so
// the record before the second record was found to be the second record
// itself, and the walk back never ended.
TEST(FuzzFindings, AWalkBackThatFindsNoEarlierRecordEnds) {
    const Bytes fieldEnd = {222, 49, 4, 0, 4, 0, 49, 222, 10};
    const Bytes recordEnd = {222, 52, 6, 0, 0, 0, 6, 0, 52, 222, 12};
    const Bytes halfRecordEnd = {222, 155, 6, 0, 0, 0, 6, 0, 52, 222, 12};
    Bytes stream = {222, 98, 4, 0, 4, 0, 98, 222, 10, 'A', '~', '~'};
    for (const Bytes &part : {recordEnd, bytesOf("x"), fieldEnd, halfRecordEnd, fieldEnd, recordEnd, bytesOf("y"),
                              fieldEnd, recordEnd}) {
        stream.insert(stream.end(), part.begin(), part.end());
    }
    test::TempDir dir;
    dir.write("t.doc", test::taggedDocument(1, stream));
    uint32_t database = test::openDatabase(dir, DB_SUBTYPE_TAGGED);
    uint32_t table = 0;
    ASSERT_EQ(test::openTagged(database, "t.doc", &table), 0u);
    ASSERT_EQ(dbFirstMerge(table), 0u);
    EXPECT_EQ(firstValue(table), "x");
    ASSERT_EQ(dbNextMerge(table, 0, nullptr), 0u);
    EXPECT_EQ(firstValue(table), "y");
    EXPECT_EQ(dbPrevMerge(table, 0, nullptr), DB_RESULT_END_OF_DATA);
    EXPECT_EQ(firstValue(table), "y");
    EXPECT_EQ(dbCloseTableMerge(&table), 0u);
    dbCloseDBMerge(&database);
}

}  // namespace
}  // namespace mergedb
