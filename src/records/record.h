// A record image: the bytes of one record as they stand in the file,
// terminator included, with where it lies. The same shape holds a table's
// current record and each pending edit of the change list.
#pragma once

#include <cstdint>

#include "fields/field_array.h"
#include "frame/blocks.h"
#include "mergedb/mergedb.h"
#include "tablefile/table.h"

namespace mergedb {

// A record's block starts at this size and grows in steps of it; a growth
// past RECORD_GROWTH_LIMIT is refused, so the longest record that can be
// read or built has 28672 bytes.
inline constexpr uint16_t RECORD_BLOCK_STEP = 4096;
inline constexpr uint32_t RECORD_GROWTH_LIMIT = FIELD_VALUE_LIMIT;
inline constexpr uint32_t LONGEST_RECORD = RECORD_GROWTH_LIMIT / RECORD_BLOCK_STEP * RECORD_BLOCK_STEP;
static_assert(LONGEST_RECORD <= TABLE_SCRATCH_SIZE, "a record is gathered in the table's scratch");
static_assert(LONGEST_RECORD == DB_LONGEST_RECORD, "the public header tells the host this limit");

// Flags of an edited record: ORed in, so a record can hold both, and then it
// counts as deleted.
inline constexpr uint8_t NODE_DELETED = 2;
inline constexpr uint8_t NODE_UPDATED = 4;

struct EditNode {
    uint8_t flags;
    uint32_t offset;          // the record's first byte in the present file
    uint32_t originalLength;  // bytes the record takes in the file, terminator included
    uint32_t dataLength;      // bytes in data
    BlockHandle next;         // change list only
    BlockHandle prev;
    BlockHandle data;
    BlockHandle origin;  // current record only: the list node it came from or made
};

// A zeroed node, or 0.
BlockHandle nodeAlloc();
// Frees the node's data, then the node; ERR_MEMORY for a dead handle.
uint16_t nodeFree(BlockHandle node);

// The table's current record, or null when it has none.
inline EditNode *currentRecord(const MergeTable &table) { return blockLockAs<EditNode>(table.current); }

}  // namespace mergedb
