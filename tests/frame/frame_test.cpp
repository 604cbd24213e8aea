// The driver frame's blocks: resizing keeps what the block held and zeroes
// the rest, and a freed handle names nothing, even once its slot serves
// again.
#include <gtest/gtest.h>

#include <cstring>

#include "frame/blocks.h"

namespace mergedb {
namespace {

// A block that shrinks keeps its allocation; growing again must still give
// zeros, not the bytes the block held before, except where the caller of
// blockResizeLock says it writes them.
TEST(FrameBlocks, ResizingKeepsTheContentAndZeroesTheGrowth) {
    BlockHandle handle = blockAlloc(100);
    const auto *bytes = blockLockAs<uint8_t>(handle);
    ASSERT_NE(bytes, nullptr);
    for (int i = 0; i < 100; ++i) ASSERT_EQ(bytes[i], 0) << i;
    std::memset(blockLock(handle), 0xAB, 100);
    ASSERT_EQ(blockResize(handle, 10), handle);
    ASSERT_EQ(blockResize(handle, 60), handle);
    bytes = blockLockAs<uint8_t>(handle);
    EXPECT_EQ(bytes[9], 0xAB);
    for (int i = 10; i < 60; ++i) ASSERT_EQ(bytes[i], 0) << i;
    std::memset(blockLock(handle), 0xCD, 60);
    ASSERT_EQ(blockResize(handle, 5), handle);
    EXPECT_EQ(blockSize(handle), 5);
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
    EXPECT_EQ(handle, 0u);
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

}  // namespace
}  // namespace mergedb
