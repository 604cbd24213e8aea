// The read window: the 8 KiB buffered view through which every record and
// field name of a table is read.
//
// The registers regBase, regCursor and regEnd belong to one table at a time:
// every operation that reads through them runs between windowLoad and
// windowSave of its table.
#pragma once

#include <cstdint>

#include "tablefile/table.h"

namespace mergedb {

inline constexpr uint16_t WINDOW_BLOCK_SIZE = 8212;
inline constexpr uint16_t WINDOW_FILL = 8191;
inline constexpr uint16_t WINDOW_BACK_FILL = 8192;

// The final byte of a file that is not part of its data.
inline constexpr uint8_t END_OF_FILE_MARK = 26;

extern uint8_t *regBase;
extern uint8_t *regCursor;
extern uint8_t *regEnd;

uint16_t windowLoad(MergeTable &table);
uint16_t windowSave(MergeTable &table);
uint16_t windowRefill(MergeTable &table);
uint16_t windowRefillBack(MergeTable &table);
uint16_t windowRead(MergeTable &table, void *destination, uint32_t count);
uint16_t windowSkip(MergeTable &table, uint32_t count);
uint16_t windowBack(MergeTable &table, uint32_t count);
uint16_t windowSeek(MergeTable &table, uint32_t offset);
uint32_t windowTell(const MergeTable &table);
int windowAtEof(const MergeTable &table);

// File offset of the cursor, inside a bracket.
inline uint32_t windowPosition(const MergeTable &table) {
    return table.windowFileOffset + static_cast<uint32_t>(regCursor - regBase);
}

// Bytes left in the window from the cursor on.
inline uint32_t windowAvailable() { return static_cast<uint32_t>(regEnd - regCursor); }

}  // namespace mergedb
