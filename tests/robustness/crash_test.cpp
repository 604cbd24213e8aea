// A child process commits the edits of a large table and is killed at a
// random moment of the commit; each time the records are whole in the table
// or in its backup. The moment varies from kill to kill, the verdict does
// not depend on it. Processes are forked: POSIX only.
#if !defined(_WIN32)

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <random>
#include <thread>

#include "robustness/child_process.h"
#include "robustness/robustness_support.h"

namespace mergedb {
namespace {

using test::Bytes;
using test::ChildProcess;
using test::Edit;
using test::LargeTable;
using test::Where;

constexpr int MEASURES = 3;
constexpr int KILLS = 30;

// Opens the table, makes the edits, and commits, telling the test when the
// commit starts and when it has ended.
int commitInChild(ChildProcess &self, const test::TempDir &dir, const LargeTable &table,
                  const std::vector<Edit> &edits) {
    uint32_t session = 0;
    uint32_t database = 0;
    uint32_t handle = 0;
    dbInitMerge(1, 0, 0, 0, &session, nullptr);
    if (dbOpenDBMerge(DB_SUBTYPE_DELIMITED, 0, 0, dir.path().c_str(), &database) != 0) return 1;
    if (test::openLargeTable(database, table, &handle) != 0) return 1;
    for (const Edit &edit : edits) {
        if (test::applyEdit(handle, table, edit) != 0) return 1;
    }
    self.send(0);
    DbResult result = dbCloseTableMerge(&handle);
    self.send(result);
    return result == 0 ? 0 : 1;
}

TEST(CrashTest, AKilledCommitLeavesTheRecordsWholeInTheTableOrTheBackup) {
    LargeTable table = test::largeTable(false, 30000);
    std::vector<Edit> edits;
    for (int r = 5; r < table.records; r += 97) edits.push_back({r, false});
    for (int r = 7; r < table.records; r += 251) edits.push_back({r, true});
    const Bytes after = test::afterCommit(table, edits);
    std::random_device seed;
    std::mt19937 random(seed());
    std::chrono::microseconds commitTime{0};
    int outcomes[4] = {};
    // The first commits run to their end and tell how long a commit takes.
    for (int run = 0; run < MEASURES + KILLS; ++run) {
        test::TempDir dir;
        dir.write(table.name, table.before);
        ChildProcess child([&](ChildProcess &self) { return commitInChild(self, dir, table, edits); });
        uint32_t ready = 0;
        ASSERT_TRUE(child.receive(&ready));
        auto start = std::chrono::steady_clock::now();
        if (run < MEASURES) {
            uint32_t result = 1;
            ASSERT_TRUE(child.receive(&result));
            commitTime = std::max(commitTime, std::chrono::duration_cast<std::chrono::microseconds>(
                                                  std::chrono::steady_clock::now() - start));
            EXPECT_EQ(result, 0u);
            EXPECT_EQ(child.wait(), 0);
        } else {
            std::uniform_int_distribution<int64_t> delay(0, commitTime.count() * 3 / 4);
            std::this_thread::sleep_for(std::chrono::microseconds(delay(random)));
            child.kill();
        }
        Where where = test::whereRecordsAre(dir, table, after);
        EXPECT_NE(where, Where::Lost) << "run " << run;
        if (run < MEASURES) {
            EXPECT_EQ(where, Where::NewTable);
        } else {
            ++outcomes[static_cast<int>(where)];
        }
    }
    std::printf("crash test: %d kills in a commit of %lld us: %d before the rename, %d with the records in the "
                "backup, %d after the new file was whole\n",
                KILLS, static_cast<long long>(commitTime.count()), outcomes[0], outcomes[1], outcomes[2]);
}

}  // namespace
}  // namespace mergedb

#endif
