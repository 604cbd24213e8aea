// Commit at close and compaction: every failure point leaves the old bytes
// whole under the table's name or the backup name, and the 200th delete
// rewrites the table behind the same handle.
#include <cstdio>
#if !defined(_WIN32)
#include <sys/stat.h>
#include <unistd.h>
#endif

#include "edits/edits_test_support.h"
#include "support/fault_env.h"

namespace mergedb {
namespace {

using test::Bytes;
using test::bytesOf;

class CommitTest : public test::EditsTest {
protected:
    void TearDown() override {
        faultReset();
        test::EditsTest::TearDown();
    }

    // Opens a fresh table of 400 records and updates and deletes a few.
    void editFreshTable() {
        std::string text;
        for (int i = 0; i < 400; ++i) text += std::to_string(i) + ",record number " + std::to_string(i) + "\n";
        original = bytesOf(text);
        dir.write("big.txt", original);
        open("big.txt");
        moveTo(10);
        putAll({"ten", "changed"});
        ASSERT_EQ(dbUpdateMerge(table, 0, nullptr), 0u);
        moveTo(200);
        ASSERT_EQ(dbDeleteMerge(table), 0u);
    }

    // After a failed close: the table stays open; the old bytes are whole
    // under oldName, and the table's own name holds nothing when they
    // moved to the backup. The table holds its file without sharing, so it
    // goes first, without a second commit; then the file is put back.
    void expectOldBytesUnder(const std::string &oldName) {
        ASSERT_NE(table, 0u);
        tableLock(table)->dirty = 0;
        ASSERT_EQ(dbCloseTableMerge(&table), 0u);
        EXPECT_EQ(dir.read(oldName), original);
        if (oldName != "big.txt") {
            EXPECT_FALSE(dir.exists("big.txt"));
            std::rename(dir.file(oldName).c_str(), dir.file("big.txt").c_str());
        }
    }

    // Sweeps a fault over every call of kind that a commit makes; gives the
    // number of failure points tried.
    int sweep(FaultKind kind, uint16_t expectedCode, const std::string &oldName) {
        for (uint32_t nth = 1;; ++nth) {
            editFreshTable();
            faultReset();
            faultArm(kind, nth);
            DbResult result = dbCloseTableMerge(&table);
            bool struck = faultCalls(kind) >= nth;
            faultReset();
            if (!struck) {
                EXPECT_EQ(result, 0u);
                table = 0;
                return static_cast<int>(nth - 1);
            }
            EXPECT_EQ(result, DB_RESULT_ERROR(expectedCode)) << "call " << nth;
            expectOldBytesUnder(oldName);
        }
    }

    Bytes original;
};

TEST_F(CommitTest, EveryFailurePointKeepsTheOldBytesWhole) {
    EXPECT_EQ(sweep(FaultKind::Rename, ERR_RENAME, "big.txt"), 1);
    // The first open is the backup's, the second the new file's creation.
    editFreshTable();
    faultArm(FaultKind::Open, 1);
    EXPECT_EQ(dbCloseTableMerge(&table), DB_RESULT_ERROR(ERR_OPEN));
    expectOldBytesUnder("big.bk");
    editFreshTable();
    faultArm(FaultKind::Open, 2);
    EXPECT_EQ(dbCloseTableMerge(&table), DB_RESULT_ERROR(ERR_CREATE));
    expectOldBytesUnder("big.bk");
    // A read for each of the three stretches around the edits; the new
    // file, which is small, goes in one write.
    EXPECT_EQ(sweep(FaultKind::Read, ERR_READ, "big.bk"), 3);
    EXPECT_GE(sweep(FaultKind::Write, ERR_WRITE, "big.bk"), 1);
    EXPECT_GE(sweep(FaultKind::ShortWrite, ERR_WRITE, "big.bk"), 1);
}

TEST_F(CommitTest, ALeftoverBackupStopsTheCommitAndASecondCloseRepeatsIt) {
    editFreshTable();
    dir.write("big.bk", "leftover");
    EXPECT_EQ(dbCloseTableMerge(&table), DB_RESULT_ERROR(ERR_RENAME));
    EXPECT_EQ(dir.read("big.txt"), original);
    std::remove(dir.file("big.bk").c_str());
    ASSERT_EQ(dbCloseTableMerge(&table), 0u);
    table = 0;
    EXPECT_NE(dir.read("big.txt"), original);

    // After a failed create, a second close is refused again and the
    // backup stays whole.
    editFreshTable();
    faultArm(FaultKind::Open, 2);
    EXPECT_EQ(dbCloseTableMerge(&table), DB_RESULT_ERROR(ERR_CREATE));
    faultReset();
    EXPECT_EQ(dbCloseTableMerge(&table), DB_RESULT_ERROR(ERR_CREATE));
    expectOldBytesUnder("big.bk");
}

#if !defined(_WIN32)
// The new file of a commit is the table still: its permission bits, and
// where the process may set them (as root), its owner and group.
TEST_F(CommitTest, TheNewFileKeepsTheModeAndTheOwner) {
    editFreshTable();
    const std::string path = dir.file("big.txt");
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    bool asRoot = geteuid() == 0;
    if (asRoot) {
        ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0);
    }
    ASSERT_EQ(dbCloseTableMerge(&table), 0u);
    table = 0;
    struct stat info;
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640u);
    if (asRoot) {
        EXPECT_EQ(info.st_uid, 65534u);
        EXPECT_EQ(info.st_gid, 65534u);
    }
    EXPECT_NE(dir.read("big.txt"), original);
}
#endif

TEST_F(CommitTest, TheTwoHundredthDeleteCompactsBehindTheSameHandle) {
    std::string text;
    for (int i = 0; i < 250; ++i) text += std::to_string(i) + ",x\n";
    dir.write("c.txt", text);
    open("c.txt");
    uint32_t handle = table;
    ASSERT_EQ(dbFirstMerge(table), 0u);
    for (int i = 0; i < 199; ++i) {
        ASSERT_EQ(dbDeleteMerge(table), 0u);
        ASSERT_EQ(dbNextMerge(table, 0, nullptr), 0u);
    }
    EXPECT_EQ(dir.read("c.txt"), bytesOf(text));
    ASSERT_EQ(dbDeleteMerge(table), 0u);
    EXPECT_EQ(table, handle);
    EXPECT_EQ(tableLock(table)->pendingDeletes, 0u);
    EXPECT_EQ(tableLock(table)->dirty, 0u);
    EXPECT_FALSE(dir.exists("c.bk"));
    std::string rest;
    for (int i = 200; i < 250; ++i) rest += std::to_string(i) + ",x\n";
    EXPECT_EQ(dir.read("c.txt"), bytesOf(rest));
    std::vector<Bytes> records = walk();
    ASSERT_EQ(records.size(), 50u);
    EXPECT_EQ(records.front(), bytesOf("200,x\n"));
    putAll({"new", "y"});
    ASSERT_EQ(dbInsertMerge(table, 0, nullptr), 0u);
    EXPECT_EQ(walk().size(), 51u);
}

}  // namespace
}  // namespace mergedb
