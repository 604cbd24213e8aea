// The read window gives a file's bytes exactly, wherever it is moved.
#include <gtest/gtest.h>

#include "support/test_support.h"
#include "tablefile/file_service.h"
#include "tablefile/table_file.h"
#include "tablefile/window.h"

namespace mergedb {
namespace {

using test::Bytes;
using test::TempDir;

Bytes patternBytes(size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>((i * 7 + 3) % 251);
    return bytes;
}

// A table record on a file of the test's own bytes, opened through the
// table file's own steps.
class WindowTest : public ::testing::Test {
protected:
    void open(const Bytes &bytes) {
        dir.write("w.dat", bytes);
        handle = tableAlloc();
        table = tableLock(handle);
        table->accessFlags = MODE_OPEN_READ;
        ASSERT_EQ(tableFileOpen(*table, platformEnv(), dir.file("w.dat").c_str()), 0);
    }

    void TearDown() override {
        if (table != nullptr) tableFileClose(*table);
        blockFree(&handle);
    }

    // Reads count bytes at the cursor and compares them with the file.
    void expectBytesAt(WindowCursor &window, uint32_t offset, const Bytes &file, uint32_t count) {
        ASSERT_EQ(window.position(), offset);
        Bytes got(count);
        ASSERT_EQ(window.read(got.data(), count), 0);
        EXPECT_TRUE(std::equal(got.begin(), got.end(), file.begin() + offset)) << "at offset " << offset;
    }

    TempDir dir;
    BlockHandle handle = 0;
    MergeTable *table = nullptr;
};

TEST_F(WindowTest, ReadsAndSkipsAcrossFillsGiveTheFile) {
    Bytes file = patternBytes(4 * WINDOW_FILL);
    open(file);
    EXPECT_EQ(table->fileSize, file.size());
    WindowCursor window(*table);
    expectBytesAt(window, 0, file, 10);
    expectBytesAt(window, 10, file, 2 * WINDOW_FILL);
    ASSERT_EQ(window.skip(WINDOW_FILL + 5), 0);
    expectBytesAt(window, 3 * WINDOW_FILL + 15, file, WINDOW_FILL - 15);
    // Ending exactly at the end of the file is no failure; one byte more is.
    ASSERT_EQ(window.seek(0), 0);
    EXPECT_EQ(window.skip(static_cast<uint32_t>(file.size())), 0);
    EXPECT_EQ(window.position(), file.size());
    ASSERT_EQ(window.seek(0), 0);
    EXPECT_EQ(window.skip(static_cast<uint32_t>(file.size()) + 1), ERR_END_OF_FILE);
    uint8_t more = 0;
    EXPECT_EQ(window.read(&more, 1), ERR_END_OF_FILE);
}

TEST_F(WindowTest, SeekInsideTheWindowStaysAndOutsideGoesToTheFile) {
    Bytes file = patternBytes(3 * WINDOW_FILL);
    open(file);
    WindowCursor window(*table);
    ASSERT_EQ(window.seek(4000), 0);
    EXPECT_EQ(table->window.fileOffset, 0u);
    expectBytesAt(window, 4000, file, 8);
    // One past the window's last valid byte is outside it.
    ASSERT_EQ(window.seek(WINDOW_FILL), 0);
    EXPECT_EQ(table->window.fileOffset, WINDOW_FILL);
    expectBytesAt(window, WINDOW_FILL, file, 8);
    ASSERT_EQ(window.seek(100), 0);
    expectBytesAt(window, 100, file, 8);
    EXPECT_EQ(window.seek(static_cast<uint32_t>(file.size())), ERR_END_OF_FILE);
}

// A cursor saves where it stood when it goes, and the next one takes up
// from there.
TEST_F(WindowTest, ACursorTakesUpWhereTheLastOneStopped) {
    Bytes file = patternBytes(2 * WINDOW_FILL);
    open(file);
    {
        WindowCursor window(*table);
        ASSERT_EQ(window.seek(WINDOW_FILL + 7), 0);
    }
    EXPECT_EQ(windowTell(*table), WINDOW_FILL + 7);
    WindowCursor window(*table);
    expectBytesAt(window, WINDOW_FILL + 7, file, 9);
}

TEST_F(WindowTest, AFinalByte26IsNoDataAndNeverSetsTheEnd) {
    Bytes file = patternBytes(WINDOW_FILL + 10);
    file.push_back(END_OF_FILE_MARK);
    open(file);
    EXPECT_EQ(table->fileSize, file.size() - 1);
    WindowCursor window(*table);
    ASSERT_EQ(window.skip(static_cast<uint32_t>(file.size()) - 1), 0);
    EXPECT_FALSE(window.atEof());
    uint8_t last = 0;
    ASSERT_EQ(window.read(&last, 1), 0);
    EXPECT_EQ(last, END_OF_FILE_MARK);
    EXPECT_FALSE(window.atEof());
    EXPECT_EQ(window.refill(), ERR_END_OF_FILE);
}

TEST_F(WindowTest, AFileOfExactlyOneFillLeavesTheEndFlagClear) {
    open(patternBytes(WINDOW_FILL));
    {
        WindowCursor window(*table);
        EXPECT_EQ(window.available(), WINDOW_FILL);
        window.cursor = window.end;
        EXPECT_FALSE(window.atEof());
        EXPECT_EQ(window.refill(), ERR_END_OF_FILE);
    }
    TearDown();
    open(patternBytes(WINDOW_FILL - 1));
    WindowCursor window(*table);
    window.cursor = window.end;
    EXPECT_TRUE(window.atEof());
}

}  // namespace
}  // namespace mergedb
