// Opening and closing tables through the exports: every failure comes back
// as its result and leaves nothing open.
#include <filesystem>
#include <fstream>
#if !defined(_WIN32)
#include <sys/stat.h>
#endif

#include "support/table_test.h"
#include "support/test_platform.h"

namespace mergedb {
namespace {

using test::Bytes;

constexpr DbResult CANNOT_OPEN = DB_RESULT_ERROR(ERR_OPEN);

class TableOpenTest : public test::TableTest {
protected:
    void SetUp() override {
        TableTest::SetUp();
        liveBefore = test::liveBlocks();
    }

    // The failed open left the host's slot as it was and no block behind,
    // and the file is free for an exclusive open.
    void expectNothingLeftOpen(const std::string &name, uint32_t slot = 0xDEADBEEF) {
        EXPECT_EQ(slot, 0xDEADBEEFu) << name;
        EXPECT_EQ(test::liveBlocks(), liveBefore) << name;
        if (!dir.exists(name)) return;
        test::setReadOnly(dir.file(name), false);
        if (test::openDelimited(database, name, &table, ",", "\n", "", "", 0, 1) == 0) close();
    }

    uint32_t liveBefore = 0;
    uint32_t out = 0xDEADBEEF;
};

TEST_F(TableOpenTest, FailuresComeBackAsResultsAndLeaveNothingOpen) {
    EXPECT_EQ(test::openDelimited(database, "missing.txt", &out), CANNOT_OPEN);
    expectNothingLeftOpen("missing.txt", out);
    dir.write("any.txt", "a,b\r\n");
    EXPECT_EQ(dbOpenTableMerge(DB_SUBTYPE_DELIMITED, database, "any.txt", 0, 0, &out, ",", nullptr, "", "", 0),
              DB_RESULT_ERROR(ERR_MEMORY));
    // A string over its limit is refused rather than cut.
    EXPECT_EQ(test::openDelimited(database, "any.txt", &out, ",", "\n", "12345"), DB_RESULT_ERROR(ERR_UNSUPPORTED));
    expectNothingLeftOpen("any.txt", out);
    for (const Bytes &shortFile : {Bytes{0xFF, 'Z', 'R', 'N', 16, 0}, Bytes{}}) {
        dir.write("short.doc", shortFile);
        EXPECT_EQ(test::openTagged(database, "short.doc", &out), DB_RESULT_ERROR(ERR_END_OF_FILE));
        expectNothingLeftOpen("short.doc", out);
    }
}

TEST_F(TableOpenTest, AReadOnlyFileDoesNotOpenForWriting) {
    dir.write("locked.txt", "a,b\r\n");
    test::setReadOnly(dir.file("locked.txt"), true);
    EXPECT_EQ(test::openDelimited(database, "locked.txt", &out), CANNOT_OPEN);
    expectNothingLeftOpen("locked.txt", out);
}

// A directory, and on POSIX a pipe that nobody writes to, are refused at
// once, without waiting for a writer.
TEST_F(TableOpenTest, OnlyRegularFilesOpen) {
    std::filesystem::create_directory(dir.file("dir.txt"));
    EXPECT_EQ(test::openDelimited(database, "dir.txt", &out, ",", "\n", "", "", 1), CANNOT_OPEN);
#if !defined(_WIN32)
    ASSERT_EQ(mkfifo(dir.file("pipe.txt").c_str(), 0644), 0);
    EXPECT_EQ(test::openDelimited(database, "pipe.txt", &out, ",", "\n", "", "", 1), CANNOT_OPEN);
    EXPECT_EQ(test::openDelimited(database, "pipe.txt", &out), CANNOT_OPEN);
#endif
    expectNothingLeftOpen("dir.txt", out);
}

// Share modes hold within a process too, on every platform: an exclusive
// table refuses every other open, one shared for reading lets readers in.
TEST_F(TableOpenTest, ShareModesHoldWithinAProcess) {
    dir.write("s.txt", "a\n");
    auto openAs = [&](uint32_t *slot, uint16_t access, uint16_t exclusive) {
        return test::openDelimited(database, "s.txt", slot, ",", "\n", "", "", access, exclusive);
    };
    uint32_t reader = 0;
    ASSERT_EQ(openAs(&table, 0, 1), 0u);
    EXPECT_EQ(openAs(&out, 1, 0), CANNOT_OPEN);
    close();
    ASSERT_EQ(openAs(&table, 0, 0), 0u);
    ASSERT_EQ(openAs(&reader, 1, 1), 0u);
    EXPECT_EQ(openAs(&out, 0, 0), CANNOT_OPEN);
    EXPECT_EQ(dbCloseTableMerge(&reader), 0u);
}

// Offsets are 32 bits wide, and a position of all ones stands for a
// failure: a file of 0xFFFFFFFF bytes or more is refused, a smaller one
// opens. Records beyond 2 GiB are read, reached by a jump and by the walk
// back from the end, and an insert lands behind them. The files are sparse;
// the zeros between the first record and the last two form one record too
// long to read.
TEST_F(TableOpenTest, TablesUpToTheLargest32BitSizeOpen) {
    for (uint64_t size : {uint64_t{0xFFFFFFFF}, uint64_t{1} << 32}) {
        dir.write("huge.txt", "a,b\n");
        std::filesystem::resize_file(dir.file("huge.txt"), size);
        EXPECT_EQ(test::openDelimited(database, "huge.txt", &out, ",", "\n", "", "", 1), CANNOT_OPEN) << size;
    }
    expectNothingLeftOpen("none", out);
    const uint32_t gap = 0x90000000u;
    dir.write("big.txt", "h,0\n");
    std::filesystem::resize_file(dir.file("big.txt"), gap);
    std::ofstream(dir.file("big.txt"), std::ios::binary | std::ios::app) << "\nx,1\ny,2\n";
    open("big.txt");
    uint32_t mark = 0;
    auto moved = [&](DbResult result) { return result == 0 ? value(0) : "error"; };
    std::string seen = moved(dbLastMerge(table, 0, nullptr));
    seen += moved(dbPrevMerge(table, 0, nullptr));
    seen += moved(dbGetRecordMerge(table, 1, &mark, gap + 1));
    seen += moved(dbNextMerge(table, 0, nullptr));
    EXPECT_EQ(seen + std::to_string(mark - gap), "yxxy1");
    EXPECT_EQ(dbNextMerge(table, 0, nullptr), DB_RESULT_END_OF_DATA);
    put(0, "z");
    ASSERT_EQ(dbInsertMerge(table, 0, nullptr), 0u);
    ASSERT_EQ(dbLastMerge(table, 0, nullptr), 0u);
    EXPECT_EQ(value(0), "z");
    close();
    EXPECT_EQ(std::filesystem::file_size(dir.file("big.txt")), gap + 17u);
}

TEST_F(TableOpenTest, TheHeaderTestRefusesEveryBadField) {
    constexpr DbResult WRONG = DB_RESULT_ERROR(ERR_WRONG_FILE);
    struct Case {
        int offset;
        uint8_t value;
        DbResult expected;
    };
    const Case cases[] = {{0, 0xFE, WRONG}, {3, 'M', WRONG}, {8, 2, WRONG}, {9, 11, WRONG}, {10, 1, WRONG},
                          {11, 2, WRONG},   {4, 200, DB_RESULT_ERROR(ERR_END_OF_FILE)},   {9, 58, 0},
                          {8, 10, 0},       {11, 1, 0}};
    for (const Case &c : cases) {
        Bytes bytes = test::taggedDocument(0, test::taggedHead(1, {"N"}));
        bytes[c.offset] = c.value;
        dir.write("h.doc", bytes);
        EXPECT_EQ(test::openTagged(database, "h.doc", &table), c.expected) << "byte " << c.offset;
        if (c.expected == 0) {
            EXPECT_EQ(record().kind, c.offset == 11 ? DB_KIND_TAGGED_1 : DB_KIND_TAGGED_0);
            close();
        }
        expectNothingLeftOpen("h.doc");
    }
}

// The table's file is the name in the database's directory, whatever
// directory the host put in front of it.
TEST_F(TableOpenTest, TheNameOpensInTheDatabasesDirectory) {
    dir.write("people.txt", "");
    open(test::native("C:/elsewhere/people.txt"));
    char path[PATH_BUFFER_SIZE] = "";
    EXPECT_EQ(dbGetTableInfoMerge(table, path, 4), DB_RESULT_OK);
    EXPECT_EQ(path, dir.file("people.txt"));
}

}  // namespace
}  // namespace mergedb
