// The forward record scanner: copies the record that starts at the read
// window's position into the table's current record.
#pragma once

#include <cstdint>

#include "tablefile/table.h"

namespace mergedb {

// A record's block starts at this size and grows in steps of it; a growth
// past RECORD_GROWTH_LIMIT is refused, so the longest record that can be
// read has 28672 bytes.
inline constexpr uint16_t RECORD_BLOCK_STEP = 4096;
inline constexpr uint32_t RECORD_GROWTH_LIMIT = 32000;
inline constexpr uint32_t LONGEST_RECORD = RECORD_GROWTH_LIMIT / RECORD_BLOCK_STEP * RECORD_BLOCK_STEP;

// Reads the record at the window's position into table.current: its offset,
// its exact bytes with the terminator, and both lengths. On failure the
// offset is set and the lengths are 0.
uint16_t readRecord(MergeTable &table);

}  // namespace mergedb
