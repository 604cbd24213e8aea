// Memory blocks named by 32-bit handles.
//
// The host holds only 32-bit words, while addresses here are 64 bits wide, so
// a handle is an index into a registry of blocks with a generation tag in its
// high bits. A handle that was freed, or never given, locks to null. Each
// block has a kind, so that a handle the host passes is taken for a table,
// a database or a field list only when it was made as one, whatever its
// size and its bytes.
//
// Every field read locks several blocks, so the lookup is inline.
#pragma once

#include <cstdint>
#include <cstring>

// Under AddressSanitizer the bytes of an allocation behind a block's size
// are poisoned, so every resize goes through the registry's own code.
#if defined(__SANITIZE_ADDRESS__)
#define MERGEDB_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MERGEDB_ASAN 1
#endif
#endif

namespace mergedb {

using BlockHandle = uint32_t;

enum class BlockKind : uint8_t { Plain, Table, Database, FieldList };

namespace blockregistry {

// A handle is the slot index in its low bits and the slot's generation in
// its high bits. Index 0 is never used, so no live handle is 0.
inline constexpr uint32_t INDEX_BITS = 22;
inline constexpr uint32_t INDEX_MASK = (1u << INDEX_BITS) - 1;

struct BlockSlot {
    void *address;      // null while the slot is free
    uint32_t room;      // bytes the allocation holds; at least size
    uint16_t size;      // bytes the block has
    uint16_t generation;
    uint32_t nextFree;
    BlockKind kind;
};

extern BlockSlot *slots;
extern uint32_t slotCount;

// A block that is resized keeps its allocation while the new size fits, so
// that the value and record blocks, resized on every record, rarely call the
// allocator. A block that shrinks to a quarter of a large allocation gives
// the rest back.
inline constexpr uint32_t ROOM_KEPT_WHOLE = 256;

inline bool keepsRoom(uint32_t room, uint16_t newSize) {
    return newSize <= room && (room <= ROOM_KEPT_WHOLE || newSize >= room / 4);
}

inline BlockSlot *slotOf(BlockHandle handle) {
    uint32_t index = handle & INDEX_MASK;
    // Slot 0 never holds a block, so its null address answers for handle 0.
    if (index >= slotCount) return nullptr;
    BlockSlot &slot = slots[index];
    if (slot.address == nullptr || slot.generation != (handle >> INDEX_BITS)) return nullptr;
    return &slot;
}

}  // namespace blockregistry

// A zeroed block of size bytes, or 0 when there is no memory.
BlockHandle blockAlloc(uint16_t size, BlockKind kind = BlockKind::Plain);

// The handle of a block of newSize bytes holding the old content; bytes added
// by growth are zero. A handle of 0 allocates afresh. Gives 0, with the old
// block untouched, when there is no memory or the handle is stale.
BlockHandle blockResize(BlockHandle handle, uint16_t newSize);

// The block's address, or null for 0 or a handle that names no live block.
inline void *blockLock(BlockHandle handle) {
    blockregistry::BlockSlot *slot = blockregistry::slotOf(handle);
    return slot == nullptr ? nullptr : slot->address;
}

template <typename T>
T *blockLockAs(BlockHandle handle) {
    return static_cast<T *>(blockLock(handle));
}

// The block's size in bytes as the registry holds it; 0 for a dead handle.
inline uint16_t blockSize(BlockHandle handle) {
    blockregistry::BlockSlot *slot = blockregistry::slotOf(handle);
    return slot == nullptr ? 0 : slot->size;
}

// The block's address and size in one lookup; null and 0 for a dead handle.
template <typename T>
T *blockLockSized(BlockHandle handle, uint16_t &size) {
    blockregistry::BlockSlot *slot = blockregistry::slotOf(handle);
    size = slot == nullptr ? 0 : slot->size;
    return slot == nullptr ? nullptr : static_cast<T *>(slot->address);
}

// The block's address when it was made of that kind; null otherwise.
template <typename T>
T *blockLockKind(BlockHandle handle, BlockKind kind) {
    blockregistry::BlockSlot *slot = blockregistry::slotOf(handle);
    return slot == nullptr || slot->kind != kind ? nullptr : static_cast<T *>(slot->address);
}

// A block looked up once, for a caller that reads its size and resizes it
// in one go; slot is null for a dead handle. Good until the next blockAlloc,
// which may move the registry.
struct BlockRef {
    BlockHandle handle;
    blockregistry::BlockSlot *slot;
};

inline BlockRef blockRef(BlockHandle handle) { return {handle, blockregistry::slotOf(handle)}; }

// Zeroes count bytes, 1 to 8, as behind most values, with a few stores that
// may overlap and no call: the compiler makes a call to memset of a loop.
inline void zeroFew(uint8_t *p, uint32_t count) {
    if (count >= 4) {
        constexpr uint32_t ZERO = 0;
        std::memcpy(p, &ZERO, sizeof ZERO);
        std::memcpy(p + count - sizeof ZERO, &ZERO, sizeof ZERO);
    } else {
        p[0] = 0;
        p[count / 2] = 0;
        p[count - 1] = 0;
    }
}

// blockResize of a live block, giving its address instead of its handle,
// which stays the same; null where blockResize gives 0. The caller writes
// the first written bytes at once, so only bytes behind them that the
// growth adds are zeroed here. A block that stays within its allocation, as
// the value and record blocks do on most records, is resized inline.
template <typename T>
[[gnu::always_inline]] inline T *blockResizeLock(BlockRef block, uint16_t newSize, uint16_t written) {
    blockregistry::BlockSlot *slot = block.slot;
    if (slot == nullptr) return nullptr;
#ifndef MERGEDB_ASAN
    if (blockregistry::keepsRoom(slot->room, newSize)) {
        auto *address = static_cast<uint8_t *>(slot->address);
        uint16_t zeroFrom = slot->size > written ? slot->size : written;
        if (newSize > zeroFrom && newSize - zeroFrom <= 8) {
            zeroFew(address + zeroFrom, newSize - zeroFrom);
        } else if (newSize > zeroFrom) {
            std::memset(address + zeroFrom, 0, newSize - zeroFrom);
        }
        slot->size = newSize;
        return reinterpret_cast<T *>(address);
    }
#endif
    (void)written;
    return blockResize(block.handle, newSize) == 0 ? nullptr : static_cast<T *>(slot->address);
}

// Frees the block in the slot, if any, and leaves 0 in the slot.
void blockFree(BlockHandle *slot);

}  // namespace mergedb
