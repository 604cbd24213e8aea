// The read window gives a file's bytes exactly, wherever it is moved.
#include <gtest/gtest.h>

#include <algorithm>

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
        table = nullptr;
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

TEST_F(WindowTest, ReadsSkipsAndSeeksAcrossFillsGiveTheFile) {
    Bytes file = patternBytes(4 * WINDOW_FILL);
    open(file);
    EXPECT_EQ(table->fileSize, file.size());
    WindowCursor window(*table);
    expectBytesAt(window, 0, file, 10);
    expectBytesAt(window, 10, file, 2 * WINDOW_FILL);
    ASSERT_EQ(window.skip(WINDOW_FILL + 5), 0);
    expectBytesAt(window, 3 * WINDOW_FILL + 15, file, WINDOW_FILL - 15);
    // Seeks inside the window, just past it, and back.
    for (uint32_t offset : {4000u, WINDOW_FILL + 0u, WINDOW_FILL + 4000u, 100u}) {
        ASSERT_EQ(window.seek(offset), 0);
        expectBytesAt(window, offset, file, 8);
    }
    // Ending exactly at the end of the file is no failure; one byte more is.
    ASSERT_EQ(window.seek(0), 0);
    EXPECT_EQ(window.skip(static_cast<uint32_t>(file.size())), 0);
    EXPECT_EQ(window.position(), file.size());
    ASSERT_EQ(window.seek(0), 0);
    EXPECT_EQ(window.skip(static_cast<uint32_t>(file.size()) + 1), ERR_END_OF_FILE);
    uint8_t more = 0;
    EXPECT_EQ(window.read(&more, 1), ERR_END_OF_FILE);
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

// The end is set by a fill that falls short of the window, never by a final
// byte 26, which is no data but can still be read.
TEST_F(WindowTest, TheEndIsSetByAShortFillOnly) {
    for (uint32_t size : {WINDOW_FILL - 1u, WINDOW_FILL + 0u, WINDOW_FILL + 10u}) {
        Bytes file = patternBytes(size);
        if (size > WINDOW_FILL) file.push_back(END_OF_FILE_MARK);
        open(file);
        EXPECT_EQ(table->fileSize, size);
        {
            WindowCursor window(*table);
            ASSERT_EQ(window.skip(std::min<uint32_t>(size, WINDOW_FILL)), 0);
            EXPECT_EQ(window.atEof(), size < WINDOW_FILL) << size;
            if (size > WINDOW_FILL) {
                ASSERT_EQ(window.skip(size - WINDOW_FILL - 1), 0);
                uint8_t last[2] = {};
                ASSERT_EQ(window.read(last, 2), 0);
                EXPECT_EQ(last[1], END_OF_FILE_MARK);
                EXPECT_FALSE(window.atEof());
            }
            if (size >= WINDOW_FILL) {
                EXPECT_EQ(window.refill(), ERR_END_OF_FILE);
            }
        }
        TearDown();
    }
}

}  // namespace
}  // namespace mergedb
