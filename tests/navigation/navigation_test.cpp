// Moving through tables as the host does: forward and backward walks give
// the same records, also where they turn in a large table; the change list
// is merged in, and the end of the data leaves the current record where it
// was.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "support/table_test.h"

namespace mergedb {
namespace {

using test::Bytes;
using test::bytesOf;
using Records = std::vector<Bytes>;

class NavigationTest : public test::TableTest {
protected:
    void openText(const Bytes &bytes) { openWith("t.txt", bytes, "\r\n"); }

    // The records of a walk; moves that fail to split still count.
    Records walkAll(bool forward) {
        Records seen;
        uint32_t mark = 0;
        DbResult result = forward ? dbFirstMerge(table) : dbLastMerge(table, 1, &mark);
        while (result != DB_RESULT_END_OF_DATA) {
            seen.push_back(current());
            result = forward ? dbNextMerge(table, 1, &mark) : dbPrevMerge(table, 1, &mark);
        }
        return seen;
    }

    void expectWalks(const Records &expected) {
        EXPECT_EQ(walkAll(true), expected);
        EXPECT_EQ(walkAll(false), Records(expected.rbegin(), expected.rend()));
    }
};

TEST_F(NavigationTest, TaggedWalksMeetInReverseWhereverTheFillsFall) {
    // An extended character, and a variable token with a byte 5 inside.
    const std::string tokens("\xC0\x29\x01\xC0\xD3\0\x06\0\x05\xDE\x06\0\0\xD3", 14);
    std::mt19937 random(11);
    for (uint8_t minor : {0, 1}) {
        for (int shift = 0; shift < 12; ++shift) {
            Records records;
            for (int i = 0; i < 60; ++i) {
                // An empty first field opens some records with a token.
                std::string value = i % 5 == 0 ? "" : std::string(random() % 700 + (i == 1 ? shift : 0), 'v');
                records.push_back(test::taggedRecord(minor, {value + tokens}));
            }
            Bytes stream = test::taggedHead(minor, {"A"});
            Bytes body = test::join(records);
            stream.insert(stream.end(), body.begin(), body.end());
            openWith("d.doc", test::taggedDocument(minor, stream));
            SCOPED_TRACE(testing::Message() << "dialect " << int(minor) << " shift " << shift);
            expectWalks(records);
        }
    }
    // A document with only its head has no records either way.
    openWith("d.doc", test::taggedDocument(1, test::taggedHead(1, {"A"})));
    expectWalks({});
}

// The file is read in pieces that grow while the reads keep one way and
// start small again where they turn: walks forward, backward and to and
// fro over a table many times the largest piece meet every record.
TEST_F(NavigationTest, WalksThatTurnOverALargeTableMeetEveryRecordWhereItIs) {
    std::mt19937 random(5);
    Records records;
    for (int i = 0; i < 1000; ++i) {
        records.push_back(bytesOf(std::to_string(i) + "," + std::string(random() % 1500, 'v') + "\r\n"));
    }
    openText(test::join(records));
    expectWalks(records);
    ASSERT_EQ(dbFirstMerge(table), 0u);
    int at = 0;
    for (int target : {400, 250, 600, 0, 999}) {
        while (at != target) {
            uint32_t mark = 0;
            bool forward = at < target;
            ASSERT_EQ(forward ? dbNextMerge(table, 1, &mark) : dbPrevMerge(table, 1, &mark), 0u) << at;
            at += forward ? 1 : -1;
            ASSERT_EQ(current(), records[at]) << at;
        }
    }
}

TEST_F(NavigationTest, TheEndOfTheDataKeepsTheCurrentRecord) {
    openText(bytesOf("a\r\nb\r\nc\r\n"));
    uint32_t mark = 0;
    ASSERT_EQ(dbLastMerge(table, 1, &mark), 0u);
    EXPECT_EQ(mark, 1u);
    EXPECT_EQ(dbNextMerge(table, 0, nullptr), DB_RESULT_END_OF_DATA);
    EXPECT_EQ(current(), bytesOf("c\r\n"));
    ASSERT_EQ(dbPrevMerge(table, 0, nullptr), 0u);
    EXPECT_EQ(current(), bytesOf("b\r\n"));
    ASSERT_EQ(dbFirstMerge(table), 0u);
    EXPECT_EQ(dbPrevMerge(table, 0, nullptr), DB_RESULT_END_OF_DATA);
    EXPECT_EQ(current(), bytesOf("a\r\n"));
    ASSERT_EQ(dbNextMerge(table, 0, nullptr), 0u);
    EXPECT_EQ(current(), bytesOf("b\r\n"));

    // A jump reads what the file holds at an offset; past the end it fails.
    ASSERT_EQ(dbGetRecordMerge(table, 1, &mark, 6), 0u);
    EXPECT_EQ(mark, 6u);
    EXPECT_EQ(current(), bytesOf("c\r\n"));
    EXPECT_EQ(dbGetRecordMerge(table, 0, nullptr, 9), DB_RESULT_ERROR(ERR_END_OF_FILE));

    openText(Bytes{});
    EXPECT_EQ(dbFirstMerge(table), DB_RESULT_END_OF_DATA);
    EXPECT_EQ(dbLastMerge(table, 0, nullptr), DB_RESULT_END_OF_DATA);
    EXPECT_EQ(dbNextMerge(table, 0, nullptr), DB_RESULT_END_OF_DATA);
    EXPECT_EQ(dbPrevMerge(table, 0, nullptr), DB_RESULT_END_OF_DATA);
}

TEST_F(NavigationTest, TheChangeListIsMergedBothWays) {
    Records records;
    for (char c = '0'; c <= '9'; ++c) records.push_back(bytesOf(std::string(1 + (c - '0') % 3, c) + "\r\n"));
    openText(test::join(records));
    std::vector<uint32_t> offsets;
    uint32_t offset = 0;
    for (const Bytes &r : records) {
        offsets.push_back(offset);
        offset += static_cast<uint32_t>(r.size());
    }
    // The first and last records go, and three in a row; the third gets a
    // longer image.
    moveTo(2);
    put(0, "two, now longer");
    ASSERT_EQ(dbUpdateMerge(table, 0, nullptr), 0u);
    for (int i : {9, 6, 5, 4, 0}) {
        moveTo(i);
        ASSERT_EQ(dbDeleteMerge(table), 0u);
    }
    const Bytes longer = bytesOf("\"two, now longer\"\r\n");
    expectWalks({records[1], longer, records[3], records[7], records[8]});

    // A walk that ends the data keeps the cursor beside the current record.
    ASSERT_EQ(dbLastMerge(table, 0, nullptr), 0u);
    EXPECT_EQ(dbNextMerge(table, 0, nullptr), DB_RESULT_END_OF_DATA);
    EXPECT_EQ(dbNextMerge(table, 0, nullptr), DB_RESULT_END_OF_DATA);
    ASSERT_EQ(dbPrevMerge(table, 0, nullptr), 0u);
    EXPECT_EQ(current(), records[7]);
    // A jump onto a deleted record reads the file; the next move goes on
    // from there with the list merged.
    ASSERT_EQ(dbGetRecordMerge(table, 0, nullptr, offsets[4]), 0u);
    EXPECT_EQ(current(), records[4]);
    ASSERT_EQ(dbNextMerge(table, 0, nullptr), 0u);
    EXPECT_EQ(current(), records[7]);
    ASSERT_EQ(dbGetRecordMerge(table, 0, nullptr, offsets[3]), 0u);
    ASSERT_EQ(dbPrevMerge(table, 0, nullptr), 0u);
    EXPECT_EQ(current(), longer);
}

// Found by the fuzz targets. After an insert the list's cursor stood on an edit far in front of the
// new record, so the move back missed the delete of the record before it:
// the deleted record came back, and the next delete hit it again.
TEST_F(NavigationTest, AMoveBackFromAnInsertedRecordSeesTheDeleteInFrontOfIt) {
    openWith("t.txt", bytesOf("a\nb\n"));
    moveTo(1);
    ASSERT_EQ(dbDeleteMerge(table), 0u);
    ASSERT_EQ(dbFirstMerge(table), 0u);
    put(0, "a2");
    ASSERT_EQ(dbUpdateMerge(table, 0, nullptr), 0u);
    put(0, "c");
    ASSERT_EQ(dbInsertMerge(table, 0, nullptr), 0u);
    ASSERT_EQ(dbPrevMerge(table, 0, nullptr), 0u);
    EXPECT_EQ(value(0), "a2");
    ASSERT_EQ(dbDeleteMerge(table), 0u);
    close();
    EXPECT_EQ(dir.read("t.txt"), bytesOf("\"c\"\n"));
}

// Found by the fuzz targets. A variable token whose sub-code reads 52 from its end but not from its
// front is a record end to the walk back and none to the walk forward, so
// the record before the second record was found to be the second record
// itself, and the walk back never ended.
TEST_F(NavigationTest, AWalkBackThatFindsNoEarlierRecordEnds) {
    const Bytes fieldEnd = {222, 49, 4, 0, 4, 0, 49, 222, 10};
    const Bytes recordEnd = {222, 52, 6, 0, 0, 0, 6, 0, 52, 222, 12};
    const Bytes halfRecordEnd = {222, 155, 6, 0, 0, 0, 6, 0, 52, 222, 12};
    openWith("t.doc", test::taggedDocument(1, test::join({test::taggedHead(1, {"A"}), bytesOf("x"), fieldEnd,
                                                          halfRecordEnd, fieldEnd, recordEnd, bytesOf("y"), fieldEnd,
                                                          recordEnd})));
    ASSERT_EQ(dbFirstMerge(table), 0u);
    EXPECT_EQ(value(0), "x");
    ASSERT_EQ(dbNextMerge(table, 0, nullptr), 0u);
    EXPECT_EQ(value(0), "y");
    EXPECT_EQ(dbPrevMerge(table, 0, nullptr), DB_RESULT_END_OF_DATA);
    EXPECT_EQ(value(0), "y");
}

}  // namespace
}  // namespace mergedb
