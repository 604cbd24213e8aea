// The read window gives a file's bytes exactly, whichever way it moves.
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
        handle = blockAlloc(sizeof(MergeTable));
        table = tableLock(handle);
        table->accessFlags = MODE_OPEN_READ;
        ASSERT_EQ(tableFileOpen(*table, platformEnv(), dir.file("w.dat").c_str()), 0);
        ASSERT_EQ(windowLoad(*table), 0);
    }

    void TearDown() override {
        if (table != nullptr) tableFileClose(*table);
        blockFree(&handle);
    }

    // Reads count bytes at the cursor and compares them with the file.
    void expectBytesAt(uint32_t offset, const Bytes &file, uint32_t count) {
        windowSave(*table);
        ASSERT_EQ(windowTell(*table), offset);
        Bytes got(count);
        ASSERT_EQ(windowRead(*table, got.data(), count), 0);
        EXPECT_TRUE(std::equal(got.begin(), got.end(), file.begin() + offset)) << "at offset " << offset;
    }

    TempDir dir;
    BlockHandle handle = 0;
    MergeTable *table = nullptr;
};

TEST_F(WindowTest, ForwardReadsAcrossFillsGiveTheFile) {
    Bytes file = patternBytes(3 * WINDOW_FILL + 100);
    open(file);
    EXPECT_EQ(table->fileSize, file.size());
    expectBytesAt(0, file, 10);
    expectBytesAt(10, file, 2 * WINDOW_FILL);
    expectBytesAt(10 + 2 * WINDOW_FILL, file, WINDOW_FILL + 90);
    uint8_t more = 0;
    EXPECT_EQ(windowRead(*table, &more, 1), ERR_END_OF_FILE);
}

TEST_F(WindowTest, SkipAndBackAcrossAFillBoundaryKeepTheSequence) {
    Bytes file = patternBytes(4 * WINDOW_FILL);
    open(file);
    ASSERT_EQ(windowSkip(*table, WINDOW_FILL + 5), 0);
    expectBytesAt(WINDOW_FILL + 5, file, 20);
    ASSERT_EQ(windowBack(*table, WINDOW_FILL + 20), 0);
    expectBytesAt(5, file, 100);
    ASSERT_EQ(windowSkip(*table, 3 * WINDOW_FILL), 0);
    ASSERT_EQ(windowBack(*table, 2 * WINDOW_BACK_FILL + 17), 0);
    expectBytesAt(105 + 3 * WINDOW_FILL - 2 * WINDOW_BACK_FILL - 17, file, 300);
}

TEST_F(WindowTest, SkipToTheExactEndSucceedsAndOneMoreFails) {
    Bytes file = patternBytes(WINDOW_FILL + 500);
    open(file);
    EXPECT_EQ(windowSkip(*table, file.size()), 0);
    windowSave(*table);
    EXPECT_EQ(windowTell(*table), file.size());
    ASSERT_EQ(windowSeek(*table, 0), 0);
    EXPECT_EQ(windowSkip(*table, file.size() + 1), ERR_END_OF_FILE);
}

TEST_F(WindowTest, SeekInsideTheWindowStaysAndOutsideGoesToTheFile) {
    Bytes file = patternBytes(3 * WINDOW_FILL);
    open(file);
    windowSave(*table);
    ASSERT_EQ(windowSeek(*table, 4000), 0);
    EXPECT_EQ(table->windowFileOffset, 0u);
    expectBytesAt(4000, file, 8);
    // One past the window's last valid byte is outside it.
    ASSERT_EQ(windowSeek(*table, WINDOW_FILL), 0);
    EXPECT_EQ(table->windowFileOffset, WINDOW_FILL);
    expectBytesAt(WINDOW_FILL, file, 8);
    ASSERT_EQ(windowSeek(*table, 100), 0);
    expectBytesAt(100, file, 8);
    EXPECT_EQ(windowSeek(*table, file.size()), ERR_END_OF_FILE);
}

TEST_F(WindowTest, BackNearTheStartKeepsTheCursorOnItsOffset) {
    Bytes file = patternBytes(3 * WINDOW_FILL);
    open(file);
    // The first byte outside the first fill starts a window of its own; a
    // step back from there refills from offset 0.
    ASSERT_EQ(windowSeek(*table, WINDOW_FILL), 0);
    ASSERT_EQ(windowLoad(*table), 0);
    ASSERT_EQ(windowBack(*table, 8000), 0);
    EXPECT_EQ(table->windowFileOffset, 0u);
    expectBytesAt(WINDOW_FILL - 8000, file, 16);
    ASSERT_EQ(windowSeek(*table, WINDOW_FILL + 5000), 0);
    ASSERT_EQ(windowLoad(*table), 0);
    ASSERT_EQ(windowBack(*table, 1), 0);
    expectBytesAt(WINDOW_FILL + 4999, file, 16);
    EXPECT_EQ(windowBack(*table, WINDOW_FILL + 6000), ERR_START_OF_FILE);
}

TEST_F(WindowTest, AFinalByte26IsNoDataAndNeverSetsTheEnd) {
    Bytes file = patternBytes(WINDOW_FILL + 10);
    file.push_back(END_OF_FILE_MARK);
    open(file);
    EXPECT_EQ(table->fileSize, file.size() - 1);
    ASSERT_EQ(windowSkip(*table, file.size() - 1), 0);
    EXPECT_EQ(windowAtEof(*table), 0);
    uint8_t last = 0;
    ASSERT_EQ(windowRead(*table, &last, 1), 0);
    EXPECT_EQ(last, END_OF_FILE_MARK);
    EXPECT_EQ(windowAtEof(*table), 0);
    EXPECT_EQ(windowRefill(*table), ERR_END_OF_FILE);
}

TEST_F(WindowTest, AFileOfExactlyOneFillLeavesTheEndFlagClear) {
    Bytes file = patternBytes(WINDOW_FILL);
    open(file);
    EXPECT_EQ(windowAvailable(), WINDOW_FILL);
    EXPECT_EQ(table->atEof, 0u);
    regCursor = regEnd;
    EXPECT_EQ(windowAtEof(*table), 0);
    EXPECT_EQ(windowRefill(*table), ERR_END_OF_FILE);

    Bytes shorter = patternBytes(WINDOW_FILL - 1);
    TearDown();
    open(shorter);
    regCursor = regEnd;
    EXPECT_EQ(windowAtEof(*table), 1);
}

}  // namespace
}  // namespace mergedb
