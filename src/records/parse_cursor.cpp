#include "records/parse_cursor.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>


namespace mergedb {
namespace {

// A number has at most 7 characters and its end.
constexpr int NUMBER_BUFFER_SIZE = 8;
constexpr uint8_t NUMBER_END = ',';

}  // namespace

ParseCursor::ParseCursor(EditNode &node) : owner(node), base(blockLockAs<uint8_t>(node.data)) {
    uint32_t length = base == nullptr ? 0 : std::min<uint32_t>(node.dataLength, blockSize(node.data));
    cursor = base;
    limit = base + length;
}

uint16_t ParseCursor::skipLine() {
    while (cursor < limit && *cursor != 0) {
        Token at = token();
        if (uint16_t code = pass(at)) return code;
        if (endsLine(at) || isSoftLineEnd(at)) return 0;
    }
    return 0;
}

uint16_t ParseCursor::number(uint16_t *out) {
    char digits[NUMBER_BUFFER_SIZE];
    int length = 0;
    while (cursor < limit && *cursor != NUMBER_END) {
        // Characters beyond the buffer's 7 are passed over, not stored.
        if (length < NUMBER_BUFFER_SIZE - 1) digits[length++] = static_cast<char>(*cursor);
        cursor++;
    }
    if (cursor >= limit) return ERR_FORMAT;
    digits[length] = '\0';
    *out = static_cast<uint16_t>(std::atoi(digits));
    return advance(1);
}

uint16_t ParseCursor::write(const void *bytes, uint32_t count) {
    if (count > remaining()) {
        uint32_t written = offset();
        if (written + count > LONGEST_RECORD) return ERR_RECORD_TOO_LONG;
        uint32_t size = (written + count + RECORD_BLOCK_STEP - 1) / RECORD_BLOCK_STEP * RECORD_BLOCK_STEP;
        BlockHandle grown = blockResize(owner.data, static_cast<uint16_t>(size));
        if (grown == 0) return ERR_MEMORY;
        owner.data = grown;
        owner.dataLength = size;
        base = blockLockAs<uint8_t>(grown);
        cursor = base + written;
        limit = base + size;
    }
    if (count != 0) std::memcpy(cursor, bytes, count);
    cursor += count;
    return 0;
}

}  // namespace mergedb
