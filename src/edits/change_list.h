// The change list: pending updates and deletes, a doubly linked list of
// EditNodes sorted by the file offset of the record each one replaces. The
// same node shape holds a table's current record.
#pragma once

#include <cstdint>

#include "frame/blocks.h"
#include "tablefile/table.h"

namespace mergedb {

inline constexpr uint8_t NODE_DELETED = 2;
inline constexpr uint8_t NODE_UPDATED = 4;

struct EditNode {
    uint8_t flags;
    uint32_t offset;          // the record's first byte in the present file
    uint32_t originalLength;  // bytes the record takes in the file, terminator included
    uint32_t dataLength;      // bytes in data
    BlockHandle next;
    BlockHandle prev;
    BlockHandle data;
    BlockHandle origin;  // current record only: the list node it came from or made
};

BlockHandle nodeAlloc();
uint16_t nodeFree(BlockHandle node);
uint16_t changeListInit(MergeTable &table);
uint16_t changeFree(MergeTable &table);
uint16_t changeInsert(MergeTable &table, BlockHandle node);
uint16_t changeFirst(MergeTable &table);
uint16_t changeLast(MergeTable &table);
void changeSetCursor(MergeTable &table, BlockHandle node);
BlockHandle currentHandle(const MergeTable &table);
uint16_t currentSnapshot(const MergeTable &table, EditNode *out);
uint16_t cursorSnapshot(const MergeTable &table, EditNode *out);

// Enters the edit whose flag the current record carries into the list: a
// record with a node at the cursor gets its node rewritten, any other gets a
// new node beside the cursor.
uint16_t changeEnterEdit(MergeTable &table);

}  // namespace mergedb
