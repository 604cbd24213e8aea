// Typed reads of field values through the exports: the bytes in the host's
// buffer, the length result, and the failures.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "fields/field_array.h"
#include "records/record_format.h"
#include "support/table_test.h"

using namespace mergedb;
using namespace mergedb::test;

namespace {

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
class ValueRead : public TableTest {
protected:
    void SetUp() override {
        TableTest::SetUp();
        dir.write("t.csv", "");
        open("t.csv");
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
    blockFree(&entry(0).value);
    EXPECT_EQ(get(1, "FirstName"), "error 6");
    fieldsFree(&record().fields, &record().fieldCount);
    EXPECT_EQ(get(1, nullptr, 0), "error 6");  // no field array
}

}  // namespace
