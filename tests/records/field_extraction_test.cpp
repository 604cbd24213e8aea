// Splitting the current record into the field array, in both formats.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "edits/change_list.h"
#include "records/field_extraction.h"
#include "support/test_support.h"

using namespace mergedb;
using namespace mergedb::test;

namespace {

// A table on an empty file, whose fields, kind and current record the test
// sets by hand.
class Extract : public ::testing::Test {
protected:
    void SetUp() override {
        dir.write("t.csv", "");
        database = openDatabase(dir);
        ASSERT_EQ(openDelimited(database, "t.csv", &handle, ",", "\r\n", "\"", " "), DB_RESULT_OK);
    }
    void TearDown() override {
        dbCloseTableMerge(&handle);
        dbCloseDBMerge(&database);
    }
    MergeTable &table() { return *tableLock(handle); }
    void addFields(int count, uint16_t kind) {
        table().kind = kind;
        for (int i = 0; i < count; ++i) ASSERT_EQ(fieldsAdd(&table().fields, &table().fieldCount), 0);
    }
    uint16_t load(const Bytes &record) {
        if (table().current == 0) table().current = nodeAlloc();
        auto *node = blockLockAs<EditNode>(table().current);
        blockFree(&node->data);
        node->data = blockAlloc(static_cast<uint16_t>(record.size()));
        std::memcpy(blockLock(node->data), record.data(), record.size());
        node->dataLength = static_cast<uint32_t>(record.size());
        return loadFields(table(), table().fields);
    }
    uint16_t load(const std::string &record) { return load(bytesOf(record)); }
    FieldEntry &field(int i) { return blockLockAs<FieldEntry>(table().fields)[i]; }
    // "text|block size|capacity" of a field, the text cut at its length,
    // which must be followed by a NUL.
    std::string state(int i) {
        const char *text = blockLockAs<char>(field(i).value);
        EXPECT_EQ(text[field(i).length], '\0') << i;
        return std::string(text, field(i).length) + "|" + std::to_string(blockSize(field(i).value)) + "|" +
               std::to_string(field(i).capacity);
    }

    TempDir dir;
    uint32_t database = 0;
    uint32_t handle = 0;
};

Bytes join(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes &part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

const Bytes FUNCTION_FIELD_END = {0xDE, 0x31, 4, 0, 4, 0, 0x31, 0xDE};
const Bytes FUNCTION_RECORD_END = {0xDE, 0x34, 6, 0, 0, 0, 6, 0, 0x34, 0xDE};

TEST_F(Extract, DelimitedQuotesIgnoreAndWholeStrings) {
    addFields(6, DB_KIND_DELIMITED);
    ASSERT_EQ(load(" a b ,\"x \"\"y\",ab\"cd\",\"e,f\" g,h\"i\"j,k\",1\r2\r\n"), 0);
    std::string all;
    for (int i = 0; i < 6; ++i) all += state(i) + " ";
    EXPECT_EQ(all, "ab|3|2 x \"\"y|6|5 abcd|5|4 e,fg|5|4 hi\"j,k|7|6 1\r2|4|3 ");
    std::strcpy(table().fieldDelimiter, "::");
    std::strcpy(table().quote, "''");
    std::strcpy(table().ignore, "--");
    EXPECT_EQ(load("a:b-c--d''e:f''::g\r\n"), ERR_FORMAT);  // too few fields
    EXPECT_EQ(state(0), "a:b-cde:f|10|9");
    EXPECT_EQ(state(1), "g|2|1");
    EXPECT_EQ(field(2).length, 4);  // the field that failed keeps its length
}

TEST_F(Extract, DelimitedBlocksGrowShrinkAndStayWhenEmpty) {
    addFields(2, DB_KIND_DELIMITED);
    EXPECT_EQ(load("\r\n"), ERR_FORMAT);  // a blank line is one empty field
    EXPECT_EQ(state(0), "|128|128");       // a new entry grows once for the NUL
    EXPECT_EQ(state(1), "|4096|0");
    ASSERT_EQ(load(std::string(300, 'x') + ",\r\n"), 0);
    ASSERT_EQ(load(",\"\"\r\n"), 0);
    EXPECT_EQ(state(0), "|301|300");
    EXPECT_EQ(load("ab,\"c\r\n"), ERR_FORMAT);  // a stretch that never closes
    EXPECT_EQ(state(0), "ab|3|2");
    EXPECT_EQ(field(1).length, 0);
    ASSERT_EQ(load(std::string(32005, 'a') + ",b\r\n"), 0);  // the rest starts the next field
    EXPECT_EQ(state(0), std::string(32000, 'a') + "|32001|32000");
    EXPECT_EQ(state(1), "aaaaa|6|5");
}

TEST_F(Extract, TaggedTextTokensAndEnds) {
    addFields(5, DB_KIND_TAGGED_0);
    ASSERT_EQ(load(join({{'a', 169, 'b', 140, 'c', 128, 191, 18, 10, 'x', 192, 0x41, 1, 192, 'y'},
                         FUNCTION_FIELD_END,
                         {10, 'p', 195, 1, 195, 'q', 9, 10, 'r', 7, 0xDE, 0x63, 4, 0, 4, 0, 0x63, 0xDE, 18, 10},
                         FUNCTION_RECORD_END, {12}})),
              0);
    EXPECT_EQ(state(0), "a-bc|8|8");
    EXPECT_EQ(state(1), "x\xC0\x41\x01\xC0y|10|10");
    EXPECT_EQ(state(2), "pq\t\nr\a|10|10");
    EXPECT_EQ(state(3) + " " + state(4), "|128|128 |128|128");  // behind the record's end
    ASSERT_EQ(load(Bytes{'z', 5, 10}), 0);
    EXPECT_EQ(state(0) + " " + state(1), "z|5|5 |10|10");
    ASSERT_EQ(load(Bytes{'a', 'b', 0, 'c', 18, 10, 'd', 18, 10}), 0);  // a byte 0 ends them all
    EXPECT_EQ(state(0) + " " + state(1), "ab|6|6 |10|10");
    // The value stops at 32000 bytes, a token takes it past, and the rest of
    // its line is lost.
    ASSERT_EQ(load(join({Bytes(31998, 'a'), {192, 0x41, 1, 192, 'z', 18, 10, 'b', 18, 10}})), 0);
    EXPECT_EQ(field(0).length, 32002);
    EXPECT_EQ(blockSize(field(0).value), 32006);
    EXPECT_EQ(state(1), "b|5|5");
}

TEST_F(Extract, FailuresLeaveTheFailingFieldsLength) {
    EXPECT_EQ(load("a\r\n"), 0);  // no fields: nothing read
    addFields(2, DB_KIND_TAGGED_1);
    ASSERT_EQ(load(Bytes{'o', 'l', 'd', 18, 10, 'v', 18, 10}), 0);
    for (const Bytes &broken : {Bytes{'w', 192, 0x41}, Bytes{200, 'w'}, Bytes{0xDE, 0x63, 9, 0, 9, 0}}) {
        EXPECT_EQ(load(join({{'n', 18, 10}, broken})), ERR_FORMAT);
        EXPECT_EQ(state(0), "n|5|5");
        EXPECT_EQ(field(1).length, 1);
    }
    table().kind = 42;
    EXPECT_EQ(load("a\r\n"), ERR_FORMAT);
    nodeFree(table().current);
    table().current = 0;
    EXPECT_EQ(loadFields(table(), table().fields), ERR_MEMORY);
}

}  // namespace
