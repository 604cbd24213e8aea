// Inserts, updates and deletes: the exact bytes they leave in the file, and
// tables that read back after close as the walk showed them before.
#include "support/table_test.h"
#include "support/fault_env.h"

namespace mergedb {
namespace {

using test::Bytes;
using test::bytesOf;
using test::join;

class RecordEditsTest : public test::TableTest {};

TEST_F(RecordEditsTest, DelimitedInsertUpdateDeleteLeaveExactBytes) {
    openWith("t.txt", "a,b\nc,d\ne,f\n\x1A");
    // The insert writes over the final byte 26 at once.
    putAll({"x", "y,z"});
    uint32_t mark = 0;
    ASSERT_EQ(dbInsertMerge(table, 1, &mark), 0u);
    EXPECT_EQ(mark, 1u);
    EXPECT_EQ(dir.read("t.txt"), bytesOf("a,b\nc,d\ne,f\n\"x\",\"y,z\"\n"));
    moveTo(1);
    putAll({"", "longer value"});
    ASSERT_EQ(dbUpdateMerge(table, 0, nullptr), 0u);
    moveTo(2);
    ASSERT_EQ(dbDeleteMerge(table), 0u);
    // Nothing but the insert reaches the file before the close.
    EXPECT_EQ(dir.read("t.txt"), bytesOf("a,b\nc,d\ne,f\n\"x\",\"y,z\"\n"));
    close();
    EXPECT_EQ(dir.read("t.txt"), bytesOf("a,b\n\"\",\"longer value\"\n\"x\",\"y,z\"\n"));
    EXPECT_FALSE(dir.exists("t.bk"));
}

// A full disk, or any failed write, in the middle of an append: the file
// keeps its old end, the final byte 26 included, and the next insert is a
// record of its own.
TEST_F(RecordEditsTest, AnAppendThatFailsLeavesTheFileAsItWas) {
    const Bytes before = bytesOf("a,b\n\x1A");
    openWith("t.txt", before);
    putAll({std::string(3000, 'x'), "y"});
    faultArm(FaultKind::ShortWrite, 1);
    EXPECT_EQ(dbInsertMerge(table, 0, nullptr), DB_RESULT_ERROR(ERR_WRITE));
    faultReset();
    EXPECT_EQ(dir.read("t.txt"), before);
    putAll({"c", "d"});
    ASSERT_EQ(dbInsertMerge(table, 0, nullptr), 0u);
    EXPECT_EQ(dir.read("t.txt"), bytesOf("a,b\n\"c\",\"d\"\n"));
    EXPECT_EQ(walk().size(), 2u);
}

TEST_F(RecordEditsTest, TaggedEditsKeepHeaderPrefixAndHead) {
    for (uint8_t minor : {0, 1}) {
        auto record = [&](const std::string &a, const std::string &b) { return test::taggedRecord(minor, {a, b}); };
        Bytes prefix = test::taggedDocument(minor, test::taggedHead(minor, {"A", "B"}));
        Bytes original = join({prefix, record("1", "one"), record("2", "two"), record("3", "three")});
        openWith("t.doc", original);
        moveTo(1);
        put(1, "TWO\x01\xC0");  // control and high bytes do not reach a tagged table
        ASSERT_EQ(dbUpdateMerge(table, 0, nullptr), 0u);
        moveTo(0);
        ASSERT_EQ(dbDeleteMerge(table), 0u);
        ASSERT_EQ(dbClearRecordMerge(table), 0u);
        putAll({"4", "four"});
        ASSERT_EQ(dbInsertMerge(table, 0, nullptr), 0u);
        close();
        EXPECT_EQ(dir.read("t.doc"), join({prefix, record("2", "TWO"), record("3", "three"), record("4", "four")}))
            << "dialect " << int(minor);
    }
}

TEST_F(RecordEditsTest, OddOrdersLoseNothing) {
    openWith("t.txt", "a,1\nb,2\nc,3\n");
    // Update right after the open: the current record is the first one.
    putAll({"A", "1"});
    ASSERT_EQ(dbUpdateMerge(table, 0, nullptr), 0u);
    // Update after the end of the data lands on the last record.
    ASSERT_EQ(dbLastMerge(table, 0, nullptr), 0u);
    EXPECT_EQ(dbNextMerge(table, 0, nullptr), DB_RESULT_END_OF_DATA);
    putAll({"C", "3"});
    ASSERT_EQ(dbUpdateMerge(table, 0, nullptr), 0u);
    // Insert, then update and delete the new record; delete b twice.
    putAll({"d", "4"});
    ASSERT_EQ(dbInsertMerge(table, 0, nullptr), 0u);
    putAll({"D", "4"});
    ASSERT_EQ(dbUpdateMerge(table, 0, nullptr), 0u);
    putAll({"e", "5"});
    ASSERT_EQ(dbInsertMerge(table, 0, nullptr), 0u);
    ASSERT_EQ(dbDeleteMerge(table), 0u);
    moveTo(1);
    ASSERT_EQ(dbDeleteMerge(table), 0u);
    ASSERT_EQ(dbDeleteMerge(table), 0u);
    EXPECT_EQ(tableLock(table)->pendingDeletes, 3u);
    std::vector<Bytes> before = walk();
    close();
    EXPECT_EQ(dir.read("t.txt"), bytesOf("\"A\",\"1\"\n\"C\",\"3\"\n\"D\",\"4\"\n"));
    open("t.txt");
    EXPECT_EQ(walk().size(), before.size());

    // A record too long to read back is refused, and nothing changes.
    moveTo(0);
    put(1, std::string(30000, 'L'));
    EXPECT_EQ(dbUpdateMerge(table, 0, nullptr), DB_RESULT_ERROR(ERR_RECORD_TOO_LONG));
    EXPECT_EQ(dbInsertMerge(table, 0, nullptr), DB_RESULT_ERROR(ERR_RECORD_TOO_LONG));
    close();
    EXPECT_EQ(dir.read("t.txt"), bytesOf("\"A\",\"1\"\n\"C\",\"3\"\n\"D\",\"4\"\n"));
}

}  // namespace
}  // namespace mergedb
