// Memory blocks named by 32-bit handles.
//
// The host holds only 32-bit words, while addresses here are 64 bits wide, so
// a handle is an index into a registry of blocks with a generation tag in its
// high bits. A handle that was freed, or never given, locks to null.
#pragma once

#include <cstdint>

namespace mergedb {

using BlockHandle = uint32_t;

// A zeroed block of size bytes, or 0 when there is no memory.
BlockHandle blockAlloc(uint16_t size);

// The handle of a block of newSize bytes holding the old content; bytes added
// by growth are zero. A handle of 0 allocates afresh. Gives 0, with the old
// block untouched, when there is no memory or the handle is stale.
BlockHandle blockResize(BlockHandle handle, uint16_t newSize);

// The block's address, or null for 0 or a handle that names no live block.
void *blockLock(BlockHandle handle);

template <typename T>
T *blockLockAs(BlockHandle handle) {
    return static_cast<T *>(blockLock(handle));
}

// The block's size in bytes as the registry holds it; 0 for a dead handle.
uint16_t blockSize(BlockHandle handle);

// Frees the block in the slot, if any, and leaves 0 in the slot.
void blockFree(BlockHandle *slot);

// Number of live blocks; tests use it to find leaks.
uint32_t blockLiveCount();

}  // namespace mergedb
