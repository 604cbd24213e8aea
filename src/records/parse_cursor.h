// A cursor over the bytes of one record image in memory, for reading a head
// record, splitting a record into fields, and building a record. It starts
// on the image's first byte, and the operation that makes it holds it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "formats/tagged_tokens.h"
#include "mergedb/mergedb.h"
#include "records/record.h"

namespace mergedb {

class ParseCursor {
public:
    // On the node's bytes, as far as both its dataLength and its block
    // reach; invalid for a node without data.
    explicit ParseCursor(EditNode &node);

    bool valid() const { return base != nullptr; }

    // Moves by n bytes; a move past the limit (or in front of the record)
    // gives ERR_FORMAT and leaves the cursor where it was.
    uint16_t advance(int32_t n) {
        ptrdiff_t position = (cursor - base) + n;
        if (position < 0 || position > limit - base) return ERR_FORMAT;
        cursor = base + position;
        return 0;
    }
    // The tagged token at the cursor (formats/tagged_tokens.h), and the step
    // over it, which gives ERR_FORMAT for a token that is not whole before
    // the limit.
    Token token() const { return tokenAt(cursor, limit); }
    uint16_t pass(const Token &token) {
        if (token.step.kind != TOKEN_STEP_OK) return ERR_FORMAT;
        return advance(static_cast<int32_t>(token.step.length));
    }
    // Steps to behind the end of the current line (a byte 10, 12 or 140),
    // over whole tokens; stops on a byte 0 and at the limit.
    uint16_t skipLine();
    // Reads a number ended by a comma into out (its low 16 bits), and steps
    // over the comma.
    uint16_t number(uint16_t *out);
    // Appends count bytes at the cursor to the record being built in the
    // node's block, which grows in whole steps of RECORD_BLOCK_STEP; the
    // node's dataLength holds the block's size while it grows. A record that
    // would grow past what can be read back gives ERR_RECORD_TOO_LONG.
    uint16_t write(const void *bytes, uint32_t count);

    uint32_t remaining() const { return static_cast<uint32_t>(limit - cursor); }
    uint32_t offset() const { return static_cast<uint32_t>(cursor - base); }
    bool atLimit() const { return cursor >= limit; }

    EditNode &owner;
    uint8_t *base;    // the record's first byte
    uint8_t *cursor;  // the next byte
    uint8_t *limit;   // just behind the record's last byte
};

}  // namespace mergedb
