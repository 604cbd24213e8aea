// Share modes between processes: a table that one process holds
// exclusively is refused to the other, a writer refuses a second writer and
// lets readers in, a commit does not rename a file that another process
// reads, and the locks go with a process that dies. Three processes that
// edit one table over and over lose nothing that was reported done.
// Processes are forked: POSIX only.
#if !defined(_WIN32)

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <thread>

#include "robustness/child_process.h"
#include "support/table_test.h"

namespace mergedb {
namespace {

using test::ChildProcess;

// The other process's commands: the low byte, and for an open the access
// and exclusive arguments in the two bytes above it.
constexpr uint32_t OPEN = 1;
constexpr uint32_t CLOSE = 2;

uint32_t openCommand(uint16_t access, uint16_t exclusive) { return OPEN | access << 8 | exclusive << 16; }

// Opens and closes the table as it is told, and answers with each result.
int otherProcess(ChildProcess &self, const std::string &dir) {
    uint32_t session = 0;
    uint32_t database = 0;
    uint32_t table = 0;
    dbInitMerge(1, 0, 0, 0, &session, nullptr);
    if (dbOpenDBMerge(DB_SUBTYPE_DELIMITED, 0, 0, dir.c_str(), &database) != 0) return 1;
    for (uint32_t command = 0; self.receive(&command);) {
        if ((command & 0xFF) == CLOSE) {
            self.send(dbCloseTableMerge(&table));
        } else {
            self.send(dbOpenTableMerge(DB_SUBTYPE_DELIMITED, database, "t.txt", (command >> 8) & 0xFF,
                                       (command >> 16) & 0xFF, &table, ",", "\n", "", "", 0));
        }
    }
    return 0;
}

DbResult ask(ChildProcess &other, uint32_t command) {
    other.send(command);
    uint32_t result = 0xFFFFFFFF;
    EXPECT_TRUE(other.receive(&result));
    return result;
}

// The fixture opens no file before a child is forked.
class ShareModes : public test::TableTest {};

TEST_F(ShareModes, HoldAcrossTwoProcesses) {
    dir.write("t.txt", "a,b\nc,d\n");
    ChildProcess other([&](ChildProcess &self) { return otherProcess(self, dir.path()); });
    auto open = [&](uint16_t access, uint16_t exclusive) {
        return test::openDelimited(database, "t.txt", &table, ",", "\n", "", "", access, exclusive);
    };
    const DbResult refused = DB_RESULT_ERROR(ERR_OPEN);

    ASSERT_EQ(ask(other, openCommand(0, 1)), 0u);
    EXPECT_EQ(open(0, 0), refused);
    EXPECT_EQ(open(0, 1), refused);
    EXPECT_EQ(open(1, 0), refused);
    ASSERT_EQ(ask(other, CLOSE), 0u);
    // A table opened read only is shared with everyone, whatever exclusive
    // says.
    ASSERT_EQ(ask(other, openCommand(1, 1)), 0u);
    ASSERT_EQ(open(0, 0), 0u);
    ASSERT_EQ(dbCloseTableMerge(&table), 0u);
    ASSERT_EQ(ask(other, CLOSE), 0u);

    ASSERT_EQ(open(0, 1), 0u);
    EXPECT_EQ(ask(other, openCommand(0, 0)), refused);
    EXPECT_EQ(ask(other, openCommand(1, 0)), refused);
    ASSERT_EQ(dbCloseTableMerge(&table), 0u);

    ASSERT_EQ(open(0, 0), 0u);
    EXPECT_EQ(ask(other, openCommand(0, 0)), refused);
    ASSERT_EQ(ask(other, openCommand(1, 0)), 0u);
    ASSERT_EQ(dbFirstMerge(table), 0u);
    ASSERT_EQ(dbDeleteMerge(table), 0u);
    EXPECT_EQ(dbCloseTableMerge(&table), DB_RESULT_ERROR(ERR_RENAME));
    EXPECT_EQ(dir.read("t.txt"), test::bytesOf("a,b\nc,d\n"));
    ASSERT_EQ(ask(other, CLOSE), 0u);
    ASSERT_EQ(dbCloseTableMerge(&table), 0u);
    EXPECT_EQ(dir.read("t.txt"), test::bytesOf("c,d\n"));

    ASSERT_EQ(ask(other, openCommand(0, 1)), 0u);
    EXPECT_EQ(open(1, 0), refused);
    other.kill();
    ASSERT_EQ(open(0, 1), 0u);
}

// What an editing process reports: an insert that was done, with its
// number, or one of the failures.
constexpr uint32_t INSERTED = 1u << 24;
constexpr uint32_t OPEN_REFUSED = 2u << 24;
constexpr uint32_t EDIT_FAILED = 3u << 24;
constexpr uint32_t CLOSE_FAILED = 4u << 24;
constexpr int ROUNDS = 60;
constexpr int FIRST_RECORDS = 20;

std::string insertedName(uint32_t number) { return "n" + std::to_string(number); }

DbResult put(uint32_t table, uint16_t field, const std::string &text) {
    return dbPutFieldValueHMerge(table, field, text.c_str(), DB_TYPE_TEXT, static_cast<uint16_t>(text.size()));
}

// One round of an editing process: open the table, insert a record of its
// own, update the first record, and close, which commits. An open that
// another process's share mode refuses, and a close that fails, are tried
// again.
uint32_t editRound(uint32_t database, uint32_t number) {
    uint32_t table = 0;
    for (int attempt = 0;
         dbOpenTableMerge(DB_SUBTYPE_DELIMITED, database, "t.txt", 0, 0, &table, ",", "\n", "", "", 0) != 0;
         ++attempt) {
        if (attempt == 2000) return OPEN_REFUSED;
        std::this_thread::yield();
    }
    bool inserted = dbClearRecordMerge(table) == 0 && put(table, 0, insertedName(number)) == 0 &&
                    put(table, 1, "new") == 0 && dbInsertMerge(table, 0, nullptr) == 0;
    bool edited = dbFirstMerge(table) == 0 && put(table, 1, "touched") == 0 &&
                  dbUpdateMerge(table, 0, nullptr) == 0;
    for (int attempt = 0; dbCloseTableMerge(&table) != 0; ++attempt) {
        if (attempt == 100) return CLOSE_FAILED;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    if (!inserted) return EDIT_FAILED;
    return edited ? INSERTED | number : EDIT_FAILED;
}

int editor(ChildProcess &self, const std::string &dir, uint32_t first) {
    uint32_t session = 0;
    uint32_t database = 0;
    dbInitMerge(1, 0, 0, 0, &session, nullptr);
    if (dbOpenDBMerge(DB_SUBTYPE_DELIMITED, 0, 0, dir.c_str(), &database) != 0) return 1;
    uint32_t go = 0;
    self.receive(&go);
    for (uint32_t round = 0; round < ROUNDS; ++round) self.send(editRound(database, first + round));
    return 0;
}

TEST_F(ShareModes, ThreeProcessesEditingOneTableLoseNothingReportedDone) {
    std::string text;
    for (int r = 0; r < FIRST_RECORDS; ++r) text += "r" + std::to_string(r) + ",old\n";
    dir.write("t.txt", text);
    std::vector<std::unique_ptr<ChildProcess>> editors;
    for (uint32_t e = 0; e < 3; ++e) {
        editors.push_back(std::make_unique<ChildProcess>(
            [&, e](ChildProcess &self) { return editor(self, dir.path(), e * 1000); }));
    }
    for (auto &child : editors) child->send(1);
    std::set<std::string> done;
    std::map<uint32_t, int> failures;
    for (auto &child : editors) {
        for (int round = 0; round < ROUNDS; ++round) {
            uint32_t report = 0;
            ASSERT_TRUE(child->receive(&report));
            if ((report & 0xFF000000u) == INSERTED) {
                done.insert(insertedName(report & 0xFFFFFF));
            } else {
                ++failures[report];
            }
        }
        EXPECT_EQ(child->wait(), 0);
    }
    EXPECT_FALSE(dir.exists("t.bk"));
    std::multiset<std::string> names;
    open("t.txt");
    for (DbResult r = dbFirstMerge(table); r == 0; r = dbNextMerge(table, 0, nullptr)) names.insert(value(0));
    for (const std::string &name : done) EXPECT_EQ(names.count(name), 1u) << name;
    for (int r = 0; r < FIRST_RECORDS; ++r) EXPECT_EQ(names.count("r" + std::to_string(r)), 1u) << r;
    EXPECT_EQ(failures[EDIT_FAILED] + failures[CLOSE_FAILED], 0);
    std::printf("three editors: %zu of %d rounds done, %d never got the table\n", done.size(), 3 * ROUNDS,
                failures[OPEN_REFUSED]);
}

}  // namespace
}  // namespace mergedb

#endif
