// Opening and closing tables through the exports: every failure comes back
// as its result and leaves nothing open.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#if !defined(_WIN32)
#include <sys/stat.h>
#endif

#include "frame/blocks.h"
#include "support/test_platform.h"
#include "support/test_support.h"
#include "tablefile/table.h"

namespace mergedb {
namespace {

using test::Bytes;
using test::TempDir;

class TableOpenTest : public ::testing::Test {
protected:
    void SetUp() override {
        database = test::openDatabase(dir);
        liveBefore = test::liveBlocks();
    }
    void TearDown() override { dbCloseDBMerge(&database); }

    // The failed open left no block behind, and the file is free for an
    // exclusive open.
    void expectNothingLeftOpen(const std::string &name) {
        EXPECT_EQ(test::liveBlocks(), liveBefore);
        if (!dir.exists(name)) return;
        uint32_t table = 0;
        test::setReadOnly(dir.file(name), false);
        if (test::openDelimited(database, name, &table, ",", "\n", "", "", 0, 1) == 0) {
            EXPECT_EQ(dbCloseTableMerge(&table), 0u);
        }
    }

    TempDir dir;
    uint32_t database = 0;
    uint32_t liveBefore = 0;
};

TEST_F(TableOpenTest, FailuresComeBackAsResultsAndLeaveNothingOpen) {
    uint32_t table = 0xDEADBEEF;
    EXPECT_EQ(test::openDelimited(database, "missing.txt", &table), DB_RESULT_ERROR(ERR_OPEN));
    EXPECT_EQ(table, 0xDEADBEEFu);
    expectNothingLeftOpen("missing.txt");

    dir.write("any.txt", "a,b\r\n");
    EXPECT_EQ(dbOpenTableMerge(DB_SUBTYPE_DELIMITED, database, "any.txt", 0, 0, &table, ",", nullptr, "", "", 0),
              DB_RESULT_ERROR(ERR_MEMORY));
    // A string over its limit is refused rather than cut.
    EXPECT_EQ(test::openDelimited(database, "any.txt", &table, ",", "\n", "12345"), DB_RESULT_ERROR(ERR_UNSUPPORTED));
    expectNothingLeftOpen("any.txt");

    dir.write("short.doc", Bytes{0xFF, 'Z', 'R', 'N', 16, 0});
    EXPECT_EQ(test::openTagged(database, "short.doc", &table), DB_RESULT_ERROR(ERR_END_OF_FILE));
    expectNothingLeftOpen("short.doc");

    dir.write("empty.doc", Bytes{});
    EXPECT_EQ(test::openTagged(database, "empty.doc", &table), DB_RESULT_ERROR(ERR_END_OF_FILE));
    expectNothingLeftOpen("empty.doc");
    EXPECT_EQ(table, 0xDEADBEEFu);
}

TEST_F(TableOpenTest, AReadOnlyFileDoesNotOpenForWriting) {
    uint32_t table = 0xDEADBEEF;
    dir.write("locked.txt", "a,b\r\n");
    test::setReadOnly(dir.file("locked.txt"), true);
    EXPECT_EQ(test::openDelimited(database, "locked.txt", &table), DB_RESULT_ERROR(ERR_OPEN));
    EXPECT_EQ(table, 0xDEADBEEFu);
    expectNothingLeftOpen("locked.txt");
}

// A directory, and on POSIX a pipe that nobody writes to, are refused at
// once, without waiting for a writer.
TEST_F(TableOpenTest, OnlyRegularFilesOpen) {
    uint32_t table = 0;
    std::filesystem::create_directory(dir.file("dir.txt"));
    EXPECT_EQ(test::openDelimited(database, "dir.txt", &table, ",", "\n", "", "", 1), DB_RESULT_ERROR(ERR_OPEN));
#if !defined(_WIN32)
    ASSERT_EQ(mkfifo(dir.file("pipe.txt").c_str(), 0644), 0);
    EXPECT_EQ(test::openDelimited(database, "pipe.txt", &table, ",", "\n", "", "", 1), DB_RESULT_ERROR(ERR_OPEN));
    EXPECT_EQ(test::openDelimited(database, "pipe.txt", &table), DB_RESULT_ERROR(ERR_OPEN));
#endif
    EXPECT_EQ(test::liveBlocks(), liveBefore);
}

// Offsets are 32 bits wide, and a position of all ones stands for a
// failure: a file of 0xFFFFFFFF bytes or more is refused, a smaller one
// opens. Records beyond 2 GiB are read, reached by a jump and by the walk
// back from the end, and an insert lands behind them. The files are sparse.
TEST_F(TableOpenTest, TablesUpToTheLargest32BitSizeOpen) {
    uint32_t table = 0;
    for (uint64_t size : {uint64_t{0xFFFFFFFF}, uint64_t{1} << 32}) {
        dir.write("huge.txt", "a,b\n");
        std::filesystem::resize_file(dir.file("huge.txt"), size);
        EXPECT_EQ(test::openDelimited(database, "huge.txt", &table, ",", "\n", "", "", 1), DB_RESULT_ERROR(ERR_OPEN))
            << size;
    }
    EXPECT_EQ(test::liveBlocks(), liveBefore);

    // The zeros between the first record and the last two form one record
    // too long to read.
    const uint32_t gap = 0x90000000u;
    dir.write("big.txt", "h,0\n");
    std::filesystem::resize_file(dir.file("big.txt"), gap);
    {
        std::ofstream out(dir.file("big.txt"), std::ios::binary | std::ios::app);
        out << "\nx,1\ny,2\n";
    }
    ASSERT_EQ(test::openDelimited(database, "big.txt", &table, ",", "\n", ""), 0u);
    auto first = [&] {
        char value[8] = {};
        uint16_t length = 0;
        EXPECT_EQ(dbGetFieldValueHMerge(table, 0, value, DB_TYPE_TEXT, &length), 0u);
        return std::string(value);
    };
    uint32_t mark = 0;
    ASSERT_EQ(dbLastMerge(table, 0, nullptr), 0u);
    EXPECT_EQ(first(), "y");
    ASSERT_EQ(dbPrevMerge(table, 0, nullptr), 0u);
    EXPECT_EQ(first(), "x");
    ASSERT_EQ(dbGetRecordMerge(table, 1, &mark, gap + 1), 0u);
    EXPECT_EQ(mark, gap + 1);
    EXPECT_EQ(first(), "x");
    ASSERT_EQ(dbNextMerge(table, 0, nullptr), 0u);
    EXPECT_EQ(first(), "y");
    EXPECT_EQ(dbNextMerge(table, 0, nullptr), DB_RESULT_END_OF_DATA);
    ASSERT_EQ(dbPutFieldValueHMerge(table, 0, "z", DB_TYPE_TEXT, 1), 0u);
    ASSERT_EQ(dbInsertMerge(table, 0, nullptr), 0u);
    ASSERT_EQ(dbLastMerge(table, 0, nullptr), 0u);
    EXPECT_EQ(first(), "z");
    EXPECT_EQ(dbCloseTableMerge(&table), 0u);
    EXPECT_EQ(std::filesystem::file_size(dir.file("big.txt")), gap + 13u);
}

TEST_F(TableOpenTest, TheHeaderTestRefusesEveryBadField) {
    struct Case {
        int offset;
        uint8_t value;
        DbResult expected;
    };
    const Case cases[] = {
        {0, 0xFE, DB_RESULT_ERROR(ERR_WRONG_FILE)},  {3, 'M', DB_RESULT_ERROR(ERR_WRONG_FILE)},
        {8, 2, DB_RESULT_ERROR(ERR_WRONG_FILE)},     {9, 11, DB_RESULT_ERROR(ERR_WRONG_FILE)},
        {10, 1, DB_RESULT_ERROR(ERR_WRONG_FILE)},    {11, 2, DB_RESULT_ERROR(ERR_WRONG_FILE)},
        {4, 200, DB_RESULT_ERROR(ERR_END_OF_FILE)},  {9, 58, 0},
        {8, 10, 0},                                  {11, 1, 0},
    };
    // A head record naming one field, N.
    const Bytes head = test::taggedHead(1, {"N"});
    for (const Case &c : cases) {
        Bytes bytes = test::taggedDocument(0, head);
        bytes[c.offset] = c.value;
        dir.write("h.doc", bytes);
        uint32_t table = 0;
        EXPECT_EQ(test::openTagged(database, "h.doc", &table), c.expected) << "byte " << c.offset;
        if (c.expected == 0) {
            uint16_t kind = c.offset == 11 ? DB_KIND_TAGGED_1 : DB_KIND_TAGGED_0;
            EXPECT_EQ(tableLock(table)->kind, kind);
            EXPECT_EQ(dbCloseTableMerge(&table), 0u);
        }
        expectNothingLeftOpen("h.doc");
    }
}

// The table's file is the name in the database's directory, whatever
// directory the host put in front of it.
TEST_F(TableOpenTest, TheNameOpensInTheDatabasesDirectory) {
    dir.write("people.txt", "");
    uint32_t table = 0;
    ASSERT_EQ(test::openDelimited(database, test::native("C:/elsewhere/people.txt"), &table), 0u);
    char path[PATH_BUFFER_SIZE] = "";
    EXPECT_EQ(dbGetTableInfoMerge(table, path, 4), DB_RESULT_OK);
    EXPECT_EQ(path, dir.file("people.txt"));
    EXPECT_EQ(dbCloseTableMerge(&table), 0u);
}

}  // namespace
}  // namespace mergedb
