#include "frame/blocks.h"

#include <cstdlib>
#include <cstring>
#include <vector>

namespace mergedb {
namespace {

// A handle is the slot index in its low bits and the slot's generation in
// its high bits. Index 0 is never used, so no live handle is 0.
constexpr uint32_t INDEX_BITS = 22;
constexpr uint32_t INDEX_MASK = (1u << INDEX_BITS) - 1;
constexpr uint32_t GENERATION_MASK = (1u << (32 - INDEX_BITS)) - 1;
constexpr uint32_t NO_SLOT = 0;

struct BlockSlot {
    void *address;
    uint16_t size;
    uint16_t generation;
    uint32_t nextFree;
};

// Freed slots are reused oldest first, so that a stale handle is unlikely to
// meet its slot's generation again.
struct BlockRegistry {
    std::vector<BlockSlot> slots;  // slot 0 is set aside on first use
    uint32_t freeHead = NO_SLOT;
    uint32_t freeTail = NO_SLOT;
    uint32_t live = 0;
};

// Constant-initialised, so that the lookups on every field read need no
// guard of a function-local static.
constinit BlockRegistry registryInstance;

inline BlockRegistry &registry() { return registryInstance; }

BlockSlot *slotOf(BlockHandle handle) {
    BlockRegistry &r = registry();
    uint32_t index = handle & INDEX_MASK;
    if (index == NO_SLOT || index >= r.slots.size()) return nullptr;
    BlockSlot &slot = r.slots[index];
    if (slot.address == nullptr || slot.generation != (handle >> INDEX_BITS)) return nullptr;
    return &slot;
}

BlockHandle handleOf(uint32_t index) {
    return (static_cast<uint32_t>(registry().slots[index].generation) << INDEX_BITS) | index;
}

// Index of a free slot, or NO_SLOT when the registry is full or has no memory.
uint32_t takeSlot() {
    BlockRegistry &r = registry();
    if (r.freeHead != NO_SLOT) {
        uint32_t index = r.freeHead;
        r.freeHead = r.slots[index].nextFree;
        if (r.freeHead == NO_SLOT) r.freeTail = NO_SLOT;
        return index;
    }
    if (r.slots.size() > INDEX_MASK) return NO_SLOT;
    try {
        if (r.slots.empty()) r.slots.push_back(BlockSlot{});
        r.slots.push_back(BlockSlot{nullptr, 0, 1, NO_SLOT});
    } catch (...) {
        return NO_SLOT;
    }
    return static_cast<uint32_t>(r.slots.size() - 1);
}

void releaseSlot(uint32_t index) {
    BlockRegistry &r = registry();
    BlockSlot &slot = r.slots[index];
    slot.address = nullptr;
    slot.size = 0;
    slot.generation = static_cast<uint16_t>((slot.generation + 1) & GENERATION_MASK);
    slot.nextFree = NO_SLOT;
    if (r.freeTail == NO_SLOT) {
        r.freeHead = index;
    } else {
        r.slots[r.freeTail].nextFree = index;
    }
    r.freeTail = index;
}

}  // namespace

BlockHandle blockAlloc(uint16_t size) {
    // A block of 0 bytes still gets an address of its own.
    void *address = std::calloc(size == 0 ? 1 : size, 1);
    if (address == nullptr) return 0;
    uint32_t index = takeSlot();
    if (index == NO_SLOT) {
        std::free(address);
        return 0;
    }
    BlockSlot &slot = registry().slots[index];
    slot.address = address;
    slot.size = size;
    registry().live++;
    return handleOf(index);
}

BlockHandle blockResize(BlockHandle handle, uint16_t newSize) {
    if (handle == 0) return blockAlloc(newSize);
    BlockSlot *slot = slotOf(handle);
    if (slot == nullptr) return 0;
    void *address = std::realloc(slot->address, newSize == 0 ? 1 : newSize);
    if (address == nullptr) return 0;
    if (newSize > slot->size) {
        std::memset(static_cast<char *>(address) + slot->size, 0, newSize - slot->size);
    }
    slot->address = address;
    slot->size = newSize;
    return handle;
}

void *blockLock(BlockHandle handle) {
    BlockSlot *slot = slotOf(handle);
    return slot == nullptr ? nullptr : slot->address;
}

uint16_t blockSize(BlockHandle handle) {
    BlockSlot *slot = slotOf(handle);
    return slot == nullptr ? 0 : slot->size;
}

void blockFree(BlockHandle *slotRef) {
    if (slotRef == nullptr) return;
    BlockSlot *slot = slotOf(*slotRef);
    if (slot != nullptr) {
        std::free(slot->address);
        releaseSlot(*slotRef & INDEX_MASK);
        registry().live--;
    }
    *slotRef = 0;
}

uint32_t blockLiveCount() { return registry().live; }

}  // namespace mergedb
