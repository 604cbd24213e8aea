// Typed reads and writes of field values through the exports: the bytes in
// the host's buffer and the length result, the text a put stores and the
// value block it sizes, the fields a put adds, and the failures.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "fields/field_array.h"
#include "records/record_format.h"
#include "support/table_test.h"

namespace mergedb {
namespace {

using test::bytesOf;

constexpr char SENTINEL = '\xAA';
constexpr uint16_t UNSET = 9999;

// The bytes of the values, end to end.
template <typename... T>
std::string raw(T... values) {
    std::string bytes;
    (bytes.append(reinterpret_cast<const char *>(&values), sizeof values), ...);
    return bytes;
}

std::string ended(const std::string &text) { return text + '\0'; }

// A delimited table opened on an empty file, given fields by hand.
class ValueRead : public test::TableTest {
protected:
    void SetUp() override {
        TableTest::SetUp();
        openWith("t.csv", "");
    }
    FieldEntry &entry(int index) { return blockLockAs<FieldEntry>(record().fields)[index]; }
    // The value block of field index, added under name when missing, holds
    // exactly the value, and a NUL when ended.
    void setValue(const std::string &value, int index = 0, bool withEnd = true, const char *name = "v") {
        if (index >= record().fieldCount) {
            ASSERT_EQ(fieldsAdd(&record().fields, &record().fieldCount), 0);
            std::strcpy(entry(index).name, name);
        }
        FieldEntry &field = entry(index);
        field.value = blockResize(field.value, static_cast<uint16_t>(value.size() + withEnd));
        std::memcpy(blockLock(field.value), value.c_str(), value.size() + withEnd);
    }
    // "length|written bytes", the buffer's untouched tail cut, or "error N".
    // By name, or by number when name is null. The buffer has the largest
    // size, so that a byte written beyond the type's size shows.
    std::string get(uint16_t type, const char *name = "v", uint16_t number = 0) {
        std::vector<char> buffer(32001, SENTINEL);
        uint16_t length = UNSET;
        DbResult result = name ? dbGetFieldValueMerge(table, name, buffer.data(), type, &length)
                               : dbGetFieldValueHMerge(table, number, buffer.data(), type, &length);
        if (result != DB_RESULT_OK) return "error " + std::to_string(DB_RESULT_CODE(result));
        std::string bytes(buffer.begin(), buffer.end());
        return std::to_string(length) + "|" + bytes.erase(bytes.find_last_not_of(SENTINEL) + 1);
    }
};

TEST_F(ValueRead, EachTypeFromDelimitedText) {
    const uint32_t date = 1997 << 16 | 12 << 8 | 25, time = 0x0D050932;
    const std::string x(32100, 'x'), x300 = x.substr(0, 300), blanks(50, ' '), kept = "9999|";
    const std::string dateTime = "12/25/1997 13:05:09.50", short254 = "254|" + ended(x.substr(0, 254));
    struct Case { std::string value; uint16_t type; std::string want; bool withEnd = true; };
    const Case cases[] = {
        {x300, 1, short254}, {x300, 15, short254}, {x300, 9, "300|" + ended(x300)},
        {x, 9, "32000|" + ended(x.substr(0, 32000))}, {"12345", 9, "5|" + ended("12345"), false},
        {"12345", 3, "4|" + raw(0), false}, {"  -42xyz", 2, "2|" + raw(int16_t{-42})},
        {"70000", 2, "2|" + raw(int16_t{4464})}, {"99999999999", 3, "4|" + raw(INT_MAX)},
        {"-99999999999", 3, "4|" + raw(INT_MIN)}, {"abc", 3, "4|" + raw(0)},
        {"1.5e2", 4, "4|" + raw(150.0f)}, {"0.1", 5, "8|" + raw(0.1)}, {"12/25/1997", 6, "4|" + raw(date)},
        {"1/2/1997", 6, "4|" + raw(1997 << 16 | 1 << 8 | 2)}, {"12-25-1997", 6, "0|"}, {"1997/12", 6, "0|"},
        {"13:05:09.50", 7, "4|" + raw(time)}, {"13x05y09z50", 7, "4|" + raw(time)}, {"13:05:09", 7, kept},
        {dateTime, 14, "8|" + raw(date, time)}, {dateTime, 14, "8|" + raw(date, time), false},
        {"12/25/1997 \t  13:05:09.50", 14, "8|" + raw(date, time)}, {"12/25/1997" + blanks, 14, "8|" + raw(date, 0)},
        {"12/25/1997" + blanks + "13:05:09.50", 14, "8|" + raw(date, 0)}, {"T", 12, "4|" + raw(1)},
        {"Yes", 12, "4|" + raw(1)}, {"t", 12, "4|" + raw(0)}, {" T", 12, "4|" + raw(0)}, {"x", 0, kept},
        {"x", 13, kept}, {"x", 16, kept}, {"", 1, "0|"}, {"", 7, "0|"}, {"", 9, "0|"}, {"", 14, "0|"},
    };
    for (const Case &c : cases) {
        setValue(c.value, 0, c.withEnd);
        EXPECT_TRUE(get(c.type) == c.want) << c.value.substr(0, 30) << " as type " << c.type;
    }
}

TEST_F(ValueRead, TaggedTextMapsCharactersAndDelimitedTextConvertsOnRequest) {
    setValue("caf\xE9");
    setValue("12", 1, true, "n");
    EXPECT_EQ(get(1) + get(9), "4|" + ended("caf\xE9") + "4|" + ended("caf\xE9"));
    ASSERT_EQ(dbSetTableOptionMerge(table, DB_OPTION_ANSI_TEXT), 0u);
    EXPECT_EQ(get(1) + get(9) + get(3, "n"), "4|" + ended("caf\x82") + "4|" + ended("caf\x82") + "4|" + raw(12));

    record().subtype = DB_SUBTYPE_TAGGED;
    record().kind = DB_KIND_TAGGED_0;
    record().format = recordFormatOf(DB_KIND_TAGGED_0);
    setValue(std::string("ab\xC0\x17\x01\xC0\tc\xC0" "A\0\xC0", 12));
    EXPECT_EQ(get(1) + get(9), "5|" + ended("ab\xE1" "cA") + "5|" + ended("ab\xE1" "cA"));
    setValue(std::string(300, 'x'));
    EXPECT_EQ(get(1), "254|" + ended(std::string(254, 'x')));
}

TEST_F(ValueRead, FindsFieldsByNameOrNumberAndRefusesWhatItCannotRead) {
    setValue("Ann", 0, true, "FirstName");
    setValue("first", 1, true, "NAME");
    setValue("second", 2, true, "name");
    EXPECT_EQ(get(1, "FIRSTNAME") + get(1, "Name") + get(1, nullptr, 2), "3|" + ended("Ann") + "5|" +
              ended("first") + "6|" + ended("second"));
    EXPECT_EQ(get(1, nullptr, 3) + get(1, nullptr, 65535) + get(1, "none"), "error 15error 15error 15");

    char buffer[255];
    uint16_t length = 0;
    constexpr DbResult NO_MEMORY = DB_RESULT_ERROR(ERR_MEMORY);
    EXPECT_EQ(dbGetFieldValueMerge(table, nullptr, buffer, 1, &length), NO_MEMORY);
    EXPECT_EQ(dbGetFieldValueMerge(table, "NAME", nullptr, 1, &length), NO_MEMORY);
    EXPECT_EQ(dbGetFieldValueHMerge(table, 0, buffer, 1, nullptr), NO_MEMORY);
}

// Puts into tables of the test's own files.
class ValueWriteTest : public ValueRead {
protected:
    std::string text(int index) { return std::string(blockLockAs<char>(entry(index).value), entry(index).length); }

    template <typename T>
    void putValue(uint16_t number, T value, uint16_t type) {
        ASSERT_EQ(dbPutFieldValueHMerge(table, number, &value, type, sizeof value), 0u);
    }
};

TEST_F(ValueWriteTest, EveryTypeBecomesItsText) {
    openWith("v.txt", "");
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
    openWith("n.txt", "a,b\n");
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

TEST_F(ValueWriteTest, ReadsByNameFollowTheFieldArrayAsPutsAddFields) {
    openWith("grow.txt", "a,b\n");
    ASSERT_EQ(dbFirstMerge(table), 0u);
    // Each put adds a field, and the array grows and may move, while the
    // reads by name in field order keep a guess of where it was.
    for (int added = 3; added <= 300; ++added) {
        EXPECT_EQ(get(1, "1") + get(1, "2"), "1|" + ended("a") + "1|" + ended("b")) << added;
        std::string name = std::to_string(added);
        std::string value = "v" + name;
        ASSERT_EQ(dbPutFieldValueMerge(table, name.c_str(), value.c_str(), DB_TYPE_TEXT, value.size()), 0u);
        ASSERT_EQ(get(1, name.c_str()), std::to_string(value.size()) + "|" + ended(value));
    }
    EXPECT_EQ(get(1, "150") + get(1, nullptr, 299), "4|" + ended("v150") + "4|" + ended("v300"));
    EXPECT_EQ(get(1, "301"), "error 15");
}

TEST_F(ValueWriteTest, TaggedTablesTakePlainTextAndKnownFieldsOnly) {
    openWith("t.doc", test::taggedDocument(0, test::taggedHead(0, {"A"})));
    ASSERT_EQ(dbPutFieldValueMerge(table, "a", "x\x01y\xC0\x41\x01\xC0z", DB_TYPE_TEXT, 9), 0u);
    EXPECT_EQ(text(0), "xyAz");
    EXPECT_EQ(dbPutFieldValueMerge(table, "B", "x", DB_TYPE_TEXT, 1), DB_RESULT_ERROR(ERR_NO_FIELD));
    EXPECT_EQ(dbPutFieldValueHMerge(table, 1, "x", DB_TYPE_TEXT, 1), DB_RESULT_ERROR(ERR_NO_FIELD));

    // A record's plain text is read as it stands. A put changes what is read,
    // here to text with a byte that is no character; a blank put leaves the
    // record's text there to be read.
    test::Bytes stream = test::taggedHead(1, {"A"});
    for (const char *value : {"Smith", "Jones"}) {
        test::Bytes record = test::taggedRecord(1, {value});
        stream.insert(stream.end(), record.begin(), record.end());
    }
    openWith("r.doc", test::taggedDocument(1, stream));
    ASSERT_EQ(dbFirstMerge(table), 0u);
    EXPECT_EQ(get(1, "A"), "5|" + ended("Smith"));
    ASSERT_EQ(dbPutFieldValueMerge(table, "A", "caf\xC0\x7F\x01\xC0", DB_TYPE_TEXT, 7), 0u);
    EXPECT_EQ(get(1, "A"), "3|" + ended("caf"));
    ASSERT_EQ(dbNextMerge(table, 0, nullptr), 0u);
    ASSERT_EQ(dbPutFieldValueMerge(table, "A", "x", DB_TYPE_TEXT, 0), 0u);
    EXPECT_EQ(get(1, "A"), "5|" + ended("Jones"));

    openWith("none.doc", test::taggedDocument(0, {0x0A, 0x0E, 0x0A, 0x12, 0x0A, 0x05, 0x0A}));
    EXPECT_EQ(dbClearRecordMerge(table), DB_RESULT_ERROR(ERR_NOT_BOUND));
}

}  // namespace
}  // namespace mergedb
