#include "frame/blocks.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#ifdef MERGEDB_ASAN
#include <sanitizer/asan_interface.h>
#endif

namespace mergedb {
namespace blockregistry {

BlockSlot *slots = nullptr;
uint32_t slotCount = 0;

}  // namespace blockregistry

namespace {

using blockregistry::BlockSlot;
using blockregistry::INDEX_BITS;
using blockregistry::INDEX_MASK;
using blockregistry::slotOf;

constexpr uint32_t GENERATION_MASK = (1u << (32 - INDEX_BITS)) - 1;
constexpr uint32_t NO_SLOT = 0;

// A block that grows beyond its allocation takes room in steps.
constexpr uint32_t ROOM_STEP = 32;

// Freed slots are reused oldest first, so that a stale handle is unlikely to
// meet its slot's generation again.
uint32_t slotRoom = 0;  // slots allocated, of which slotCount are in use
uint32_t freeHead = NO_SLOT;
uint32_t freeTail = NO_SLOT;

// The bytes of an allocation behind the block's size are no part of it:
// AddressSanitizer reports a touch of them as it would outside the block.
void markSize(const BlockSlot &slot) {
#ifdef MERGEDB_ASAN
    char *bytes = static_cast<char *>(slot.address);
    ASAN_UNPOISON_MEMORY_REGION(bytes, slot.size);
    ASAN_POISON_MEMORY_REGION(bytes + slot.size, slot.room - slot.size);
#else
    (void)slot;
#endif
}

void unmarkSize(const BlockSlot &slot) {
#ifdef MERGEDB_ASAN
    ASAN_UNPOISON_MEMORY_REGION(slot.address, slot.room);
#else
    (void)slot;
#endif
}

BlockHandle handleOf(uint32_t index) {
    return (static_cast<uint32_t>(blockregistry::slots[index].generation) << INDEX_BITS) | index;
}

bool addSlotRoom() {
    uint32_t room = slotRoom == 0 ? 64 : slotRoom * 2;
    auto *grown = static_cast<BlockSlot *>(std::realloc(blockregistry::slots, room * sizeof(BlockSlot)));
    if (grown == nullptr) return false;
    blockregistry::slots = grown;
    slotRoom = room;
    return true;
}

// Index of a free slot, or NO_SLOT when the registry is full or has no memory.
uint32_t takeSlot() {
    BlockSlot *slots = blockregistry::slots;
    if (freeHead != NO_SLOT) {
        uint32_t index = freeHead;
        freeHead = slots[index].nextFree;
        if (freeHead == NO_SLOT) freeTail = NO_SLOT;
        return index;
    }
    uint32_t &count = blockregistry::slotCount;
    if (count > INDEX_MASK) return NO_SLOT;
    // Slot 0 is set aside on first use.
    uint32_t needed = count == 0 ? 2 : count + 1;
    if (needed > slotRoom && !addSlotRoom()) return NO_SLOT;
    if (count == 0) blockregistry::slots[count++] = BlockSlot{};
    blockregistry::slots[count] = BlockSlot{nullptr, 0, 0, 1, NO_SLOT, BlockKind::Plain};
    return count++;
}

void releaseSlot(uint32_t index) {
    BlockSlot &slot = blockregistry::slots[index];
    slot.address = nullptr;
    slot.size = 0;
    slot.room = 0;
    slot.generation = static_cast<uint16_t>((slot.generation + 1) & GENERATION_MASK);
    slot.nextFree = NO_SLOT;
    if (freeTail == NO_SLOT) {
        freeHead = index;
    } else {
        blockregistry::slots[freeTail].nextFree = index;
    }
    freeTail = index;
}

// Moves the block to an allocation of its own size, with room to grow when
// it grows. False, with the block untouched, when there is no memory.
bool reallocate(BlockSlot &slot, uint16_t newSize) {
    uint32_t room = newSize > slot.size ? (newSize + ROOM_STEP - 1) / ROOM_STEP * ROOM_STEP : newSize;
    room = std::max<uint32_t>(room, 1);
    unmarkSize(slot);
    void *address = std::realloc(slot.address, room);
    if (address == nullptr) {
        markSize(slot);
        return false;
    }
    slot.address = address;
    slot.room = room;
    return true;
}

}  // namespace

BlockHandle blockAlloc(uint16_t size, BlockKind kind) {
    // A block of 0 bytes still gets an address of its own.
    uint32_t room = std::max<uint32_t>(size, 1);
    void *address = std::calloc(room, 1);
    if (address == nullptr) return 0;
    uint32_t index = takeSlot();
    if (index == NO_SLOT) {
        std::free(address);
        return 0;
    }
    BlockSlot &slot = blockregistry::slots[index];
    slot.address = address;
    slot.room = room;
    slot.size = size;
    slot.kind = kind;
    markSize(slot);
    return handleOf(index);
}

BlockHandle blockResize(BlockHandle handle, uint16_t newSize) {
    if (handle == 0) return blockAlloc(newSize);
    BlockSlot *slot = slotOf(handle);
    if (slot == nullptr) return 0;
    if (!blockregistry::keepsRoom(slot->room, newSize) && !reallocate(*slot, newSize)) return 0;
    uint16_t oldSize = slot->size;
    slot->size = newSize;
    markSize(*slot);
    if (newSize > oldSize) std::memset(static_cast<char *>(slot->address) + oldSize, 0, newSize - oldSize);
    return handle;
}

void blockFree(BlockHandle *slotRef) {
    if (slotRef == nullptr) return;
    BlockSlot *slot = slotOf(*slotRef);
    if (slot != nullptr) {
        unmarkSize(*slot);
        std::free(slot->address);
        releaseSlot(*slotRef & INDEX_MASK);
    }
    *slotRef = 0;
}

}  // namespace mergedb
