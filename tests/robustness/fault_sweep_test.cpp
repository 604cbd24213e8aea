// Every file call of a commit, and of a compaction, made to fail in turn:
// each time the host is told the right error, the records survive whole, in
// the table or in its backup, and the host can still close its handle.
#include <gtest/gtest.h>

#include <cstdio>

#include "support/fault_env.h"
#include "robustness/robustness_support.h"
#include "tablefile/table.h"

namespace mergedb {
namespace {

using test::Bytes;
using test::Edit;
using test::LargeTable;
using test::Where;

constexpr FaultKind KINDS[] = {FaultKind::Open,  FaultKind::Close,    FaultKind::Read,
                               FaultKind::Write, FaultKind::ShortWrite, FaultKind::Truncate,
                               FaultKind::Sync,  FaultKind::Rename,     FaultKind::Delete};

// Updates and deletes spread over the table, fewer than compact it.
const std::vector<Edit> COMMIT_EDITS = {{0, false}, {3, true}, {4, true}, {700, false}, {701, true}, {1999, false}};

// The error of a commit whose nth call of kind fails, 0 for none. The opens
// are the backup's, the new file's creation and a compaction's reopening;
// the first two closes and the delete are the old file's, whose failure does
// no harm; the third close is the new file's, at the table's close. The
// second flush is the directory's: when it fails the commit succeeds and
// keeps the old table as its backup.
uint16_t expectedCode(FaultKind kind, uint32_t nth) {
    switch (kind) {
    case FaultKind::Open: return nth == 2 ? ERR_CREATE : ERR_OPEN;
    case FaultKind::Close: return nth < 3 ? 0 : ERR_CLOSE;
    case FaultKind::Delete: return 0;
    case FaultKind::Read: return ERR_READ;
    case FaultKind::Rename: return ERR_RENAME;
    case FaultKind::Sync: return nth == 2 ? 0 : ERR_WRITE;
    default: return ERR_WRITE;  // a write, a short write, the new file's size
    }
}

// An update, then 200 deletes: the last one compacts the table.
std::vector<Edit> compactionEdits() {
    std::vector<Edit> edits = {{2, false}};
    for (int r = 100; r < 300; ++r) edits.push_back({r, true});
    return edits;
}

class FaultSweep : public ::testing::TestWithParam<bool> {
protected:
    void TearDown() override { faultReset(); }

    // Runs the edits on a fresh copy of the table, the last one with the
    // nth call of kind made to fail, or the close when closing. Gives
    // whether the fault struck.
    bool run(const LargeTable &table, const std::vector<Edit> &edits, FaultKind kind, uint32_t nth, bool closing) {
        test::TempDir dir;
        dir.write(table.name, table.before);
        uint32_t database = test::openDatabase(dir);
        uint32_t handle = 0;
        EXPECT_EQ(test::openLargeTable(database, table, &handle), 0u);
        for (size_t i = 0; i + (closing ? 0 : 1) < edits.size(); ++i) {
            EXPECT_EQ(test::applyEdit(handle, table, edits[i]), 0u);
        }
        faultReset();
        faultArm(kind, nth);
        DbResult result = closing ? dbCloseTableMerge(&handle) : test::applyEdit(handle, table, edits.back());
        bool struck = faultCalls(kind) >= nth;
        faultReset();
        uint16_t code = struck ? expectedCode(kind, nth) : 0;
        EXPECT_EQ(result, code == 0 ? DB_RESULT_OK : DB_RESULT_ERROR(code))
            << "kind " << static_cast<int>(kind) << " call " << nth;
        // A failed commit keeps its file open without sharing: let the table
        // go, without a second commit, before the files are read.
        if (result != DB_RESULT_OK) releaseWithoutCommit(handle);
        Bytes after = test::afterCommit(table, edits);
        Where where = test::whereRecordsAre(dir, table, after);
        EXPECT_NE(where, Where::Lost) << "call " << nth;
        if (result == DB_RESULT_OK) {
            EXPECT_EQ(where, Where::NewTable) << "call " << nth;
        }
        // A commit that failed took its new file with it.
        if (where == Where::Backup) {
            EXPECT_FALSE(dir.exists(table.name)) << "call " << nth;
        }
        if (!closing && result == DB_RESULT_OK) expectReopened(handle);
        closeAfterAll(handle);
        dbCloseDBMerge(&database);
        return struck;
    }

    // After a compaction the handle holds a fresh table that starts with
    // the first record.
    void expectReopened(uint32_t handle) {
        char value[255] = {};
        uint16_t length = 0;
        ASSERT_EQ(dbFirstMerge(handle), 0u);
        ASSERT_EQ(dbGetFieldValueHMerge(handle, 0, value, DB_TYPE_TEXT, &length), 0u);
        EXPECT_STREQ(value, "000000");
    }

    void releaseWithoutCommit(uint32_t &handle) {
        if (MergeTable *record = tableLock(handle)) record->dirty = 0;
        if (handle != 0) {
            EXPECT_EQ(dbCloseTableMerge(&handle), 0u);
        }
    }

    // The host closes what it holds; a commit that fails again is given up
    // so that nothing stays behind.
    void closeAfterAll(uint32_t &handle) {
        if (handle == 0 || dbCloseTableMerge(&handle) == DB_RESULT_OK || handle == 0) return;
        tableLock(handle)->dirty = 0;
        EXPECT_EQ(dbCloseTableMerge(&handle), 0u);
    }

    // Sweeps every kind over every call, and tells how many failure points
    // it tried. Each kind has calls to make fail.
    void sweep(const char *what, const LargeTable &table, const std::vector<Edit> &edits, bool closing) {
        std::string counts;
        int points = 0;
        for (FaultKind kind : KINDS) {
            uint32_t nth = 1;
            while (run(table, edits, kind, nth, closing)) ++nth;
            EXPECT_GT(nth, 1u) << static_cast<int>(kind);
            counts += " " + std::to_string(nth - 1);
            points += static_cast<int>(nth - 1);
        }
        std::printf("%s of a %s table: %d failure points (open, close, read, write, short write, size, "
                    "sync, rename, delete:%s)\n",
                    what, table.tagged ? "tagged" : "delimited", points, counts.c_str());
    }
};

TEST_P(FaultSweep, EveryFailingCallOfACommitKeepsTheRecordsWhole) {
    sweep("commit", test::largeTable(GetParam(), 2000), COMMIT_EDITS, true);
}

// A table of a few MiB, whose new file goes to the disk in several writes.
TEST_P(FaultSweep, EveryFailingCallOfALargeCommitKeepsTheRecordsWhole) {
    int records = static_cast<int>(3 * (1u << 20) / test::largeTable(GetParam(), 1).recordSize);
    std::vector<Edit> edits = COMMIT_EDITS;
    edits.push_back({records / 2, false});
    edits.push_back({records - 1, true});
    sweep("large commit", test::largeTable(GetParam(), records), edits, true);
}

TEST_P(FaultSweep, EveryFailingCallOfACompactionKeepsTheRecordsWhole) {
    sweep("compaction", test::largeTable(GetParam(), 1500), compactionEdits(), false);
}

INSTANTIATE_TEST_SUITE_P(Kinds, FaultSweep, ::testing::Values(false, true),
                         [](const auto &info) { return info.param ? "Tagged" : "Delimited"; });

}  // namespace
}  // namespace mergedb
