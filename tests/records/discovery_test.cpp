// Field discovery as the host sees it: the names, numbers and kind that a
// table opens with, and the documents that do not open.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/table_test.h"

namespace mergedb {
namespace {

using test::Bytes;
using test::bytesOf;

Bytes operator+(Bytes a, const Bytes &b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

const Bytes NAME_ON = {0xC3, 0x0C, 0xC3};
const Bytes NAME_OFF = {0xC4, 0x0C, 0xC4};
const Bytes NAME_LIST = {0xDE, 0x62, 4, 0, 4, 0, 0x62, 0xDE};
const Bytes RECORD_END_1 = {0xDE, 0x34, 6, 0, 0, 0, 6, 0, 0x34, 0xDE, 0x0C};
const Bytes E_ACUTE = {0xC0, 0x29, 0x01, 0xC0};  // é, OEM 0x82

class DiscoveryTest : public test::TableTest {
protected:
    // Opens the document, gives the result, and collects names and info.
    DbResult openDocument(uint8_t minor, const Bytes &stream) {
        dir.write("d.doc", test::taggedDocument(minor, stream));
        return collect(test::openTagged(database, "d.doc", &table));
    }

    DbResult openText(const std::string &text, const char *field, const char *record, const char *quote,
                      const char *ignore) {
        dir.write("t.txt", text);
        return collect(test::openDelimited(database, "t.txt", &table, field, record, quote, ignore));
    }

    // The kind and the fields of the table that opened, which then closes.
    DbResult collect(DbResult opened) {
        if (opened != 0) return opened;
        names.clear();
        info.clear();
        dbGetTableInfoMerge(table, &kind, 1);
        char name[40];
        uint16_t index = 0;
        for (uint16_t mode = 1; dbGetFieldNamesMerge(table, name, &index, mode) == 0; mode = 0) {
            names.emplace_back(name);
            uint16_t numbers[4];
            dbGetFieldInfoHMerge(table, index, numbers, 4);
            info.push_back({numbers[0], numbers[1], numbers[2], numbers[3]});
        }
        EXPECT_EQ(dbCloseTableMerge(&table), 0u);
        return opened;
    }

    uint16_t kind = 0;
    std::vector<std::string> names;
    std::vector<std::vector<uint16_t>> info;
};

TEST_F(DiscoveryTest, PlainHeadsOfBothDialects) {
    // Dialect 0, with an extended character, an attribute of another code
    // and an unknown variable token.
    Bytes head0 = Bytes{0x0A, 0x0E, 0x0A} + NAME_ON + bytesOf("Caf") + E_ACUTE + NAME_OFF + bytesOf("1,2,3,4,\n") +
                  Bytes{0xC3, 0x05, 0xC3, 0xD1, 0, 4, 0, 4, 0, 0, 0xD1} + NAME_ON + bytesOf("City") + NAME_OFF +
                  Bytes{0x0A, 0x12, 0x0A, 0x05, 0x0A};
    ASSERT_EQ(openDocument(0, head0), 0u);
    EXPECT_EQ(kind, DB_KIND_TAGGED_0);
    EXPECT_EQ(names, (std::vector<std::string>{"Caf\x82", "City"}));
    EXPECT_EQ(info[0], (std::vector<uint16_t>{0, 0, 0, 0}));

    // Dialect 1 names, each on a line of its own, in a dialect 0 file.
    Bytes head1 = NAME_LIST + bytesOf("\na~\nb") + E_ACUTE + bytesOf("~\n~") + RECORD_END_1;
    ASSERT_EQ(openDocument(0, head1), 0u);
    EXPECT_EQ(kind, DB_KIND_TAGGED_0);
    EXPECT_EQ(names, (std::vector<std::string>{"a", "b\x82"}));

    ASSERT_EQ(openDocument(1, NAME_LIST + bytesOf("\n~") + RECORD_END_1), 0u);
    EXPECT_EQ(kind, DB_KIND_TAGGED_1);
    EXPECT_TRUE(names.empty());
}

TEST_F(DiscoveryTest, NumberedHeadsReadTheFourNumbersCrossed) {
    Bytes head0 = Bytes{0x0E, 0x0A} + NAME_ON + bytesOf("Name") + NAME_OFF + bytesOf("12,34,56,78,xyz\n") + NAME_ON +
                  bytesOf("Plain") + NAME_OFF + bytesOf("\n") + Bytes{0x12, 0x0A, 0x05, 0x0A};
    ASSERT_EQ(openDocument(0, head0), 0u);
    EXPECT_EQ(names, (std::vector<std::string>{"Name", "Plain"}));
    EXPECT_EQ(info[0], (std::vector<uint16_t>{34, 12, 78, 56}));
    EXPECT_EQ(info[1], (std::vector<uint16_t>{0, 0, 0, 0}));

    Bytes head1 = Bytes{0xDE, 0x48, 4, 0, 4, 0, 0x48, 0xDE, 'j', 'u', 'n', 'k'} + NAME_LIST +
                  bytesOf("A~B~~rest\n1,2,3,4,\n1234567,-1,,9,\n") + RECORD_END_1;
    ASSERT_EQ(openDocument(1, head1), 0u);
    EXPECT_EQ(names, (std::vector<std::string>{"A", "B"}));
    EXPECT_EQ(info[0], (std::vector<uint16_t>{2, 1, 4, 3}));
    EXPECT_EQ(info[1], (std::vector<uint16_t>{65535, 1234567 & 0xFFFF, 9, 0}));
}

TEST_F(DiscoveryTest, DocumentsWithoutAGoodHeadDoNotOpen) {
    const DbResult format = DB_RESULT_ERROR(ERR_FORMAT);
    EXPECT_EQ(openDocument(0, bytesOf("text first\n\x05\n")), format);
    EXPECT_EQ(openDocument(0, Bytes{0x01, 0x02, 0x05, 0x0A}), format);
    EXPECT_EQ(openDocument(0, Bytes{0x12, 0x0E, 0x0A, 0x05, 0x0A}), format);
    EXPECT_EQ(openDocument(0, Bytes{0x0E, 0x0A, 0x12, 0x0A, 0x05, 0x0A}), format);
    // A byte 0 or a broken token inside the head.
    EXPECT_EQ(openDocument(0, Bytes{0x0E, 0x0A} + NAME_ON + Bytes{'a', 0, 'b'} + NAME_OFF + Bytes{0x12, 0x05, 0x0A}),
              format);
    EXPECT_EQ(openDocument(1, NAME_LIST + Bytes{'a', 0xC8, '~', '~'} + RECORD_END_1), format);
    // A token whose length runs past the end of the file.
    EXPECT_EQ(openDocument(1, NAME_LIST + Bytes{'a', 0xD5, 1, 0x40, 0x00} + RECORD_END_1),
              DB_RESULT_ERROR(ERR_END_OF_FILE));
    // A head that ends before its end mark.
    EXPECT_EQ(openDocument(0, Bytes{0x0E, 0x0A} + NAME_ON + bytesOf("Name") + Bytes{0x05, 0x0A}), format);
    // With a byte 10 in front, a head with no name lines opens with no fields.
    ASSERT_EQ(openDocument(0, Bytes{0x0A, 0x0E, 0x0A, 0x12, 0x0A, 0x05, 0x0A}), 0u);
    EXPECT_TRUE(names.empty());
}

TEST_F(DiscoveryTest, DelimitedFieldsAreCountedInTheFirstRecord) {
    ASSERT_EQ(openText("a,\"b,c\",d\r\ne\r\n", ",", "\r\n", "\"", ""), 0u);
    EXPECT_EQ(kind, DB_KIND_DELIMITED);
    EXPECT_EQ(names, (std::vector<std::string>{"1", "2", "3"}));
    ASSERT_EQ(openText("a\t;;b  ;;x\"q\";;c||rest", ";;", "||", "\"", " "), 0u);
    EXPECT_EQ(names.size(), 4u);
    ASSERT_EQ(openText("\n", ",", "\n", "", ""), 0u);
    EXPECT_EQ(names, (std::vector<std::string>{"1"}));
    ASSERT_EQ(openText("", ",", "\n", "", ""), 0u);
    EXPECT_TRUE(names.empty());
    std::string wide;
    for (int i = 0; i < 1000; ++i) wide += "x,";
    EXPECT_EQ(openText(wide + "\n", ",", "\n", "", ""), DB_RESULT_ERROR(ERR_TOO_MANY_FIELDS));
    wide.pop_back();
    ASSERT_EQ(openText(wide + "\n", ",", "\n", "", ""), 0u);
    EXPECT_EQ(names.size(), 1000u);
    EXPECT_EQ(names.back(), "1000");
}

}  // namespace
}  // namespace mergedb
