// The parse cursor: one module-level cursor over the bytes of one record in
// memory, for reading a head record, splitting a record into fields and
// building records. Every operation that uses it attaches at its start.
#pragma once

#include <cstddef>
#include <cstdint>

#include "edits/change_list.h"
#include "mergedb/mergedb.h"

namespace mergedb {

struct ParseCursor {
    uint8_t *base;    // the record's first byte
    uint8_t *cursor;  // the next byte
    uint8_t *limit;   // just behind the record's last byte
    EditNode *owner;  // the node last attached
    // cursor - base at the last detach; it outlives the detach so that a walk
    // can be taken up again, and callers set it to 0 to start afresh.
    uint32_t savedOffset;
};

extern ParseCursor parseCursor;

// Attaches to node's bytes at the saved offset. A node without data gives
// ERR_MEMORY.
uint16_t parseAttach(EditNode &node);
uint16_t parseDetach();

// Moves the cursor by n bytes; a move past the limit (or in front of the
// record) gives ERR_FORMAT and leaves the cursor where it was.
inline uint16_t parseAdvance(int32_t n) {
    ptrdiff_t position = (parseCursor.cursor - parseCursor.base) + n;
    if (position < 0 || position > parseCursor.limit - parseCursor.base) return ERR_FORMAT;
    parseCursor.cursor = parseCursor.base + position;
    return 0;
}
uint16_t parseSkipVariable();
uint16_t parseSkipFixed();
// Steps to behind the end of the current line (a byte 10, 12 or 140),
// seeing through tokens; stops on a byte 0 and at the limit.
uint16_t parseSkipLine();

// Reads a number ended by a comma into out (its low 16 bits), and steps
// over the comma.
uint16_t parseNumber(uint16_t *out);

// Appends count bytes at the cursor to the record being built in the
// owner's block, which grows in whole steps of 4096 bytes; the owner's
// dataLength holds the block's size while it grows. A record that would
// grow past what can be read back gives ERR_RECORD_TOO_LONG.
uint16_t parseWrite(const void *bytes, uint32_t count);

// Bytes left from the cursor to the limit.
inline uint32_t parseRemaining() { return static_cast<uint32_t>(parseCursor.limit - parseCursor.cursor); }

}  // namespace mergedb
