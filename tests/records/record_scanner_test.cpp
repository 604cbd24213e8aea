// The scanner copies each record with its exact bytes and terminator, in
// both formats, wherever the window's fills fall.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "records/record_scanner.h"
#include "support/table_test.h"
#include "tablefile/window.h"

namespace mergedb {
namespace {

using test::Bytes;
using test::bytesOf;

class ScannerTest : public test::TableTest {
protected:
    DbResult openText(const Bytes &bytes, const char *record) {
        dir.write("t.txt", bytes);
        return test::openDelimited(database, "t.txt", &table, ",", record);
    }

    // Every record from the first on, as the scanner delivers them, and the
    // code that ended the walk.
    std::vector<std::string> scanAll(uint16_t *endCode = nullptr) {
        MergeTable *t = tableLock(table);
        std::vector<std::string> records;
        uint32_t offset = t->firstRecordOffset;
        for (;;) {
            uint16_t code = windowSeek(*t, offset);
            if (code == 0) code = readRecord(*t);
            if (code != 0) {
                if (endCode != nullptr) *endCode = code;
                return records;
            }
            const auto *node = blockLockAs<EditNode>(t->current);
            EXPECT_EQ(node->offset, offset);
            EXPECT_EQ(node->dataLength, node->originalLength);
            EXPECT_EQ(blockSize(node->data), node->dataLength);
            records.emplace_back(blockLockAs<char>(node->data), node->dataLength);
            offset += node->originalLength;
        }
    }
};

TEST_F(ScannerTest, RecordLengthLimits) {
    auto recordOf = [](size_t size) { return std::string(size - 1, 'v') + "\n"; };
    ASSERT_EQ(openText(bytesOf(recordOf(4096) + recordOf(28672) + recordOf(28673) + "z\n"), "\n"), 0u);
    MergeTable *t = tableLock(table);
    auto *node = blockLockAs<EditNode>(t->current);
    EXPECT_EQ(node->dataLength, 4096u);
    ASSERT_EQ(windowSeek(*t, 4096), 0);
    ASSERT_EQ(readRecord(*t), 0);
    node = blockLockAs<EditNode>(t->current);
    EXPECT_EQ(node->dataLength, 28672u);
    ASSERT_EQ(windowSeek(*t, 4096 + 28672), 0);
    EXPECT_EQ(readRecord(*t), ERR_RECORD_TOO_LONG);
    node = blockLockAs<EditNode>(t->current);
    EXPECT_EQ(node->offset, 4096u + 28672u);
    EXPECT_EQ(node->originalLength, 0u);
}

TEST_F(ScannerTest, AFinalByte26AndAnUnterminatedLineDeliverNoRecord) {
    ASSERT_EQ(openText(Bytes{'a', '\n', 'b', '\n', 26}, "\n"), 0u);
    uint16_t end = 0;
    EXPECT_EQ(scanAll(&end).size(), 2u);
    EXPECT_EQ(end, ERR_END_OF_FILE);
    EXPECT_EQ(dbCloseTableMerge(&table), 0u);
    EXPECT_EQ(openText(bytesOf("only line"), "\r\n"), DB_RESULT_ERROR(ERR_END_OF_FILE));
}

// Tagged records end at the first byte 5 or record-end token, through the
// next line end, seeing through tokens.
TEST_F(ScannerTest, TaggedRecordsEndBehindTheLineEndOfTheirMark) {
    const Bytes head = test::taggedHead(1, {"N"});
    Bytes stream = head;
    const Bytes records[] = {
        // A byte 5 inside a variable token's body, and a 10 inside a fixed token.
        {'a', 0xD0, 1, 6, 0, 5, 10, 6, 0, 1, 0xD0, 0x12, 0x0A, 0x05, 0xC1, 1, 2, 10, 4, 5, 6, 7, 0xC1, 0x0A},
        // A dialect 1 record end; a byte 140 does not end the line.
        {'b', 0xDE, 0x31, 4, 0, 4, 0, 0x31, 0xDE, 0x0A, 0xDE, 0x34, 6, 0, 0, 0, 6, 0, 0x34, 0xDE, 0x8C, 0x0C},
    };
    Bytes big(5000, 'c');  // crosses the first fill
    big.insert(big.end(), {0x12, 0x0A, 0x05, 0x0A});
    for (const Bytes &r : records) stream.insert(stream.end(), r.begin(), r.end());
    stream.insert(stream.end(), big.begin(), big.end());
    stream.insert(stream.end(), {'d', 0x12, 0x0A, 0x05});  // its line end is missing at the file's end
    dir.write("t.doc", test::taggedDocument(1, stream));
    ASSERT_EQ(test::openTagged(database, "t.doc", &table), 0u);
    EXPECT_EQ(tableLock(table)->firstRecordOffset, 16 + head.size());
    uint16_t end = 0;
    std::vector<std::string> got = scanAll(&end);
    ASSERT_EQ(got.size(), 4u);
    EXPECT_EQ(bytesOf(got[0]), records[0]);
    EXPECT_EQ(bytesOf(got[1]), records[1]);
    EXPECT_EQ(bytesOf(got[2]), big);
    EXPECT_EQ(got[3], "d\x12\n\x05");
    EXPECT_EQ(end, ERR_END_OF_FILE);
}

}  // namespace
}  // namespace mergedb
