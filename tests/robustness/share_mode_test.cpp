// Share modes between two processes: a table that one process holds
// exclusively is refused to the other, a writer refuses a second writer and
// lets readers in, a commit does not rename a file that another process
// reads, and the locks go with a process that dies. Processes are forked:
// POSIX only.
#if !defined(_WIN32)

#include <gtest/gtest.h>

#include "robustness/child_process.h"
#include "support/test_support.h"

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

TEST(ShareModes, HoldAcrossTwoProcesses) {
    test::TempDir dir;
    dir.write("t.txt", "a,b\nc,d\n");
    ChildProcess other([&](ChildProcess &self) { return otherProcess(self, dir.path()); });
    uint32_t database = test::openDatabase(dir);
    uint32_t table = 0;
    auto open = [&](uint16_t access, uint16_t exclusive) {
        return test::openDelimited(database, "t.txt", &table, ",", "\n", "", "", access, exclusive);
    };
    const DbResult refused = DB_RESULT_ERROR(ERR_OPEN);

    ASSERT_EQ(ask(other, openCommand(0, 1)), 0u);
    EXPECT_EQ(open(0, 0), refused);
    EXPECT_EQ(open(0, 1), refused);
    EXPECT_EQ(open(1, 0), refused);
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
    EXPECT_EQ(dbCloseTableMerge(&table), 0u);
    dbCloseDBMerge(&database);
}

}  // namespace
}  // namespace mergedb

#endif
