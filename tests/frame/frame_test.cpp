// The driver frame: blocks, sessions, messages and databases.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "frame/blocks.h"
#include "catalogue/database.h"
#include "support/test_support.h"

namespace mergedb {
namespace {

TEST(FrameBlocks, ResizeKeepsContentAndZeroesGrowth) {
    BlockHandle handle = blockAlloc(10);
    auto *bytes = blockLockAs<uint8_t>(handle);
    ASSERT_NE(bytes, nullptr);
    for (int i = 0; i < 10; ++i) EXPECT_EQ(bytes[i], 0);
    std::memset(bytes, 0xAB, 10);
    handle = blockResize(handle, 20);
    bytes = blockLockAs<uint8_t>(handle);
    for (int i = 0; i < 10; ++i) EXPECT_EQ(bytes[i], 0xAB);
    for (int i = 10; i < 20; ++i) EXPECT_EQ(bytes[i], 0);
    handle = blockResize(handle, 5);
    EXPECT_EQ(blockSize(handle), 5);
    EXPECT_EQ(blockLockAs<uint8_t>(handle)[4], 0xAB);
    blockFree(&handle);
    EXPECT_EQ(handle, 0u);
}

// A block that shrinks keeps its allocation; growing again must still give
// zeros, not the bytes the block held before, except where the caller of
// blockResizeLock says it writes them.
TEST(FrameBlocks, GrowthAfterShrinkingZeroesWhatTheCallerDoesNotWrite) {
    BlockHandle handle = blockAlloc(100);
    std::memset(blockLock(handle), 0xAB, 100);
    ASSERT_EQ(blockResize(handle, 10), handle);
    ASSERT_EQ(blockResize(handle, 60), handle);
    const auto *bytes = blockLockAs<uint8_t>(handle);
    EXPECT_EQ(bytes[9], 0xAB);
    for (int i = 10; i < 60; ++i) ASSERT_EQ(bytes[i], 0) << i;
    std::memset(blockLock(handle), 0xCD, 60);
    ASSERT_EQ(blockResize(handle, 5), handle);
    auto *resized = blockResizeLock<uint8_t>(blockRef(handle), 90, 20);
    ASSERT_NE(resized, nullptr);
    EXPECT_EQ(blockSize(handle), 90);
    EXPECT_EQ(resized[4], 0xCD);
    for (int i = 20; i < 90; ++i) ASSERT_EQ(resized[i], 0) << i;
    // Far beyond its allocation the block moves, keeping its handle.
    resized = blockResizeLock<uint8_t>(blockRef(handle), 5000, 0);
    ASSERT_NE(resized, nullptr);
    EXPECT_EQ(resized[4], 0xCD);
    for (int i = 90; i < 5000; ++i) ASSERT_EQ(resized[i], 0) << i;
    EXPECT_EQ(blockResizeLock<uint8_t>(blockRef(0), 10, 0), nullptr);
    blockFree(&handle);
}

TEST(FrameBlocks, FreedAndInventedHandlesLockToNull) {
    BlockHandle handle = blockAlloc(8);
    BlockHandle stale = handle;
    blockFree(&handle);
    EXPECT_EQ(blockLock(stale), nullptr);
    EXPECT_EQ(blockLock(0), nullptr);
    EXPECT_EQ(blockLock(0xFFFFFFFF), nullptr);
    EXPECT_EQ(blockResize(stale, 16), 0u);
    // The slot of a freed block serves again under another handle.
    BlockHandle again = blockAlloc(8);
    EXPECT_NE(again, stale);
    EXPECT_EQ(blockLock(stale), nullptr);
    blockFree(&stale);
    EXPECT_NE(blockLock(again), nullptr);
    blockFree(&again);
}

std::string messageFor(uint32_t code) {
    char buffer[81];
    std::memset(buffer, 'Z', sizeof buffer);
    buffer[80] = '\0';
    dbErrMsgMerge(code, buffer);
    return buffer;
}

TEST(FrameSession, MessagesComeFromTheFirstModule) {
    uint32_t session = 0;
    EXPECT_EQ(dbInitMerge(7, 0, 0, 0, &session, test::messagesModule()), 0u);
    EXPECT_EQ(session, 7u);
    // A later module does not replace the first one.
    EXPECT_EQ(dbInitMerge(9, 0, 0, 0, &session, reinterpret_cast<void *>(0x1234)), 0u);
    EXPECT_EQ(session, 9u);
    EXPECT_EQ(dbExitMerge(&session), 0u);
    EXPECT_EQ(session, 0u);

    EXPECT_EQ(messageFor(0x03FE0006), "Not enough memory, or an invalid handle.");
    EXPECT_EQ(messageFor(0x03FF0000), "No error.");
    EXPECT_EQ(messageFor(DB_RESULT_ERROR(ERR_RECORD_TOO_LONG)), "The record is too long.");
    for (uint32_t code : {24u, 50u, 100u, 0xFFFFu, 0x03FE8000u}) {
        EXPECT_EQ(messageFor(code), "An error occurred in the database driver.") << code;
    }
}

TEST(FrameDatabase, OpenTestsThePathAndCloseFreesTheRecord) {
    test::TempDir dir;
    uint32_t database = 0;
    ASSERT_EQ(dbOpenDBMerge(4, 0, 0, nullptr, &database), 0u);
    EXPECT_STREQ(databaseLock(database)->path, "");
    EXPECT_EQ(dbCloseDBMerge(&database), 0u);
    EXPECT_EQ(database, 0u);

    uint32_t untouched = 77;
    std::string missing = dir.path() + "/nowhere";
    EXPECT_EQ(dbOpenDBMerge(4, 0, 0, missing.c_str(), &untouched), 0x03FE0016u);
    EXPECT_EQ(untouched, 77u);
    std::string overlong(300, 'a');
    EXPECT_EQ(dbOpenDBMerge(4, 0, 0, overlong.c_str(), &untouched), DB_RESULT_ERROR(ERR_BAD_PATH));

    ASSERT_EQ(dbOpenDBMerge(3, 0, 0, dir.path().c_str(), &database), 0u);
    EXPECT_EQ(databaseLock(database)->path, dir.path());
    EXPECT_EQ(databaseLock(database)->subtype, 3);
    EXPECT_EQ(dbCloseDBMerge(&database), 0u);
}

}  // namespace
}  // namespace mergedb
