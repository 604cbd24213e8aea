// Puts of every value type store the text the record will hold, size the
// value block, and grow a delimited table's fields.
#include <cstring>

#include "support/table_test.h"
#include "fields/field_array.h"

namespace mergedb {
namespace {

using test::bytesOf;

class ValueWriteTest : public test::TableTest {
protected:
    const FieldEntry &entry(int index) { return blockLockAs<FieldEntry>(tableLock(table)->fields)[index]; }
    std::string text(int index) { return std::string(blockLockAs<char>(entry(index).value), entry(index).length); }

    template <typename T>
    void putValue(uint16_t number, T value, uint16_t type) {
        ASSERT_EQ(dbPutFieldValueHMerge(table, number, &value, type, sizeof value), 0u);
    }
};

TEST_F(ValueWriteTest, EveryTypeBecomesItsText) {
    dir.write("v.txt", "");
    open("v.txt");
    putValue<int16_t>(0, -5, DB_TYPE_INT16);
    putValue<int32_t>(1, 2000000000, DB_TYPE_INT32);
    putValue<float>(2, 1.5f, DB_TYPE_FLOAT);
    putValue<float>(3, 100.0f, DB_TYPE_FLOAT);
    putValue<double>(4, 1.0 / 3.0, DB_TYPE_DOUBLE);
    putValue<uint32_t>(5, (1997u << 16) | (12u << 8) | 25u, DB_TYPE_DATE);
    putValue<uint32_t>(6, (13u << 24) | (5u << 16) | (9u << 8) | 50u, DB_TYPE_TIME);
    putValue<uint32_t>(7, 0x10000, DB_TYPE_LOGICAL);
    putValue<uint32_t>(8, 0x10001, DB_TYPE_LOGICAL);
    uint32_t both[2] = {(2001u << 16) | (1u << 8) | 2u, 0};
    ASSERT_EQ(dbPutFieldValueHMerge(table, 9, both, DB_TYPE_DATE_TIME, 8), 0u);
    putValue<uint32_t>(10, 0, DB_TYPE_DATE);
    const char *expected[] = {"-5",  "2000000000", "1.5", "100.", "0.333333333333333", "12/25/1997",
                              "13:05:09.50", "F", "T", "01/02/2001 00:00:00.00", ""};
    for (int i = 0; i < 11; ++i) EXPECT_EQ(text(i), expected[i]) << "field " << i;
    EXPECT_EQ(entry(10).blankCriterion, 0u);
    EXPECT_EQ(blockSize(entry(0).value), 132);
    EXPECT_EQ(tableLock(table)->fieldCount, 11);
    EXPECT_STREQ(entry(10).name, "10");

    // Text blocks are four times the stated length and one, up to 32000.
    std::string long8000(8000, 't');
    ASSERT_EQ(dbPutFieldValueMerge(table, "0", long8000.c_str(), DB_TYPE_TEXT, 8000), 0u);
    EXPECT_EQ(blockSize(entry(0).value), 32000);
    ASSERT_EQ(dbPutFieldValueMerge(table, "0", long8000.c_str(), DB_TYPE_LONG_TEXT, 7999), 0u);
    EXPECT_EQ(blockSize(entry(0).value), 31997);
    // The host's text is read no further than the block holds.
    ASSERT_EQ(dbPutFieldValueMerge(table, "0", long8000.c_str(), DB_TYPE_TEXT, 2), 0u);
    EXPECT_EQ(text(0), "tttttttt");
    // Unknown types write nothing and succeed.
    ASSERT_EQ(dbPutFieldValueMerge(table, "0", "zz", 13, 2), 0u);
    EXPECT_EQ(text(0), "tttttttt");
}

TEST_F(ValueWriteTest, BlankPutsClearingAndNumberedFields) {
    dir.write("n.txt", "a,b\n");
    open("n.txt");
    ASSERT_EQ(dbFirstMerge(table), 0u);
    // A put by a number beyond the fields adds one named by that number.
    ASSERT_EQ(dbPutFieldValueHMerge(table, 5, "five", DB_TYPE_TEXT, 4), 0u);
    EXPECT_STREQ(entry(2).name, "5");
    char buffer[16];
    uint16_t length = 0;
    EXPECT_EQ(dbGetFieldValueHMerge(table, 5, buffer, DB_TYPE_TEXT, &length), DB_RESULT_ERROR(ERR_NO_FIELD));
    ASSERT_EQ(dbPutFieldValueMerge(table, "3", "three", DB_TYPE_TEXT, 5), 0u);
    EXPECT_STREQ(entry(2).name, "3");
    EXPECT_STREQ(entry(3).name, "5");

    // A blank put keeps the old text but writes an empty field.
    ASSERT_EQ(dbPutFieldValueMerge(table, "1", "x", DB_TYPE_TEXT, 0), 0u);
    EXPECT_EQ(entry(0).blankCriterion, 1u);
    EXPECT_STREQ(blockLockAs<char>(entry(0).value), "a");
    ASSERT_EQ(dbInsertMerge(table, 0, nullptr), 0u);
    EXPECT_EQ(current(), bytesOf("\"\",\"b\",\"three\",\"five\"\n"));

    uint16_t size = blockSize(entry(3).value);
    ASSERT_EQ(dbClearRecordMerge(table), 0u);
    EXPECT_EQ(entry(0).blankCriterion, 0u);
    EXPECT_EQ(entry(3).length, 0);
    EXPECT_EQ(blockSize(entry(3).value), size);

    // The conversion option turns the host's OEM text into the ANSI page.
    ASSERT_EQ(dbSetTableOptionMerge(table, DB_OPTION_ANSI_TEXT), 0u);
    ASSERT_EQ(dbPutFieldValueMerge(table, "2", "caf\x82", DB_TYPE_TEXT, 4), 0u);
    EXPECT_EQ(text(1), "caf\xE9");
}

TEST_F(ValueWriteTest, TaggedTablesTakePlainTextAndKnownFieldsOnly) {
    dir.write("t.doc", test::taggedDocument(0, test::taggedHead(0, {"A"})));
    open("t.doc");
    ASSERT_EQ(dbPutFieldValueMerge(table, "a", "x\x01y\xC0\x41\x01\xC0z", DB_TYPE_TEXT, 9), 0u);
    EXPECT_EQ(text(0), "xyAz");
    EXPECT_EQ(dbPutFieldValueMerge(table, "B", "x", DB_TYPE_TEXT, 1), DB_RESULT_ERROR(ERR_NO_FIELD));
    EXPECT_EQ(dbPutFieldValueHMerge(table, 1, "x", DB_TYPE_TEXT, 1), DB_RESULT_ERROR(ERR_NO_FIELD));

    dir.write("none.doc", test::taggedDocument(0, {0x0A, 0x0E, 0x0A, 0x12, 0x0A, 0x05, 0x0A}));
    open("none.doc");
    EXPECT_EQ(dbClearRecordMerge(table), DB_RESULT_ERROR(ERR_NOT_BOUND));
}

}  // namespace
}  // namespace mergedb
