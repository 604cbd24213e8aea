#include "fields/parse_cursor.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "formats/tagged_format.h"
#include "mergedb/mergedb.h"
#include "records/record_scanner.h"

namespace mergedb {

ParseCursor parseCursor{};

namespace {

// A number has at most 7 characters and its end.
constexpr int NUMBER_BUFFER_SIZE = 8;
char numberBuffer[NUMBER_BUFFER_SIZE];

constexpr uint8_t NUMBER_END = ',';

// Records are built in blocks of whole steps.
constexpr uint32_t BUILD_STEP = RECORD_BLOCK_STEP;

}  // namespace

uint16_t parseAttach(EditNode &node) {
    auto *base = blockLockAs<uint8_t>(node.data);
    if (base == nullptr) return ERR_MEMORY;
    // The node's length never takes the cursor past its block.
    uint32_t length = std::min<uint32_t>(node.dataLength, blockSize(node.data));
    parseCursor.base = base;
    parseCursor.owner = &node;
    parseCursor.limit = base + length;
    parseCursor.cursor = base + std::min(parseCursor.savedOffset, length);
    return 0;
}

uint16_t parseDetach() {
    parseCursor.savedOffset = static_cast<uint32_t>(parseCursor.cursor - parseCursor.base);
    return 0;
}

uint16_t parseSkipVariable() {
    TokenStep step = tokenStepAt(parseCursor.cursor, parseCursor.limit);
    if (step.kind != TOKEN_STEP_OK || tokenClass(parseCursor.cursor) != TOKEN_VARIABLE) return ERR_FORMAT;
    return parseAdvance(static_cast<int32_t>(step.length));
}

uint16_t parseSkipFixed() {
    TokenStep step = tokenStepAt(parseCursor.cursor, parseCursor.limit);
    if (step.kind != TOKEN_STEP_OK || tokenClass(parseCursor.cursor) != TOKEN_FIXED) return ERR_FORMAT;
    return parseAdvance(static_cast<int32_t>(step.length));
}

uint16_t parseSkipLine() {
    while (parseCursor.cursor < parseCursor.limit) {
        uint8_t byte = *parseCursor.cursor;
        uint16_t code = 0;
        switch (tokenClass(parseCursor.cursor)) {
        case TOKEN_END: return 0;
        case TOKEN_CONTROL:
            code = parseAdvance(1);
            if (code == 0 && (byte == MARK_LINE_END || byte == MARK_RECORD_LINE_END)) return 0;
            break;
        case TOKEN_SINGLE:
            code = parseAdvance(1);
            if (code == 0 && byte == MARK_SOFT_LINE_END) return 0;
            break;
        case TOKEN_CHAR: code = parseAdvance(1); break;
        case TOKEN_FIXED: code = parseSkipFixed(); break;
        default: code = parseSkipVariable(); break;
        }
        if (code != 0) return code;
    }
    return 0;
}

uint16_t parseNumber(uint16_t *out) {
    int length = 0;
    while (parseCursor.cursor < parseCursor.limit && *parseCursor.cursor != NUMBER_END) {
        // Characters beyond the buffer's 7 are passed over, not stored.
        if (length < NUMBER_BUFFER_SIZE - 1) numberBuffer[length++] = static_cast<char>(*parseCursor.cursor);
        parseCursor.cursor++;
    }
    if (parseCursor.cursor >= parseCursor.limit) return ERR_FORMAT;
    numberBuffer[length] = '\0';
    *out = static_cast<uint16_t>(std::atoi(numberBuffer));
    return parseAdvance(1);
}

uint16_t parseWrite(const void *bytes, uint32_t count) {
    if (count > parseRemaining()) {
        auto written = static_cast<uint32_t>(parseCursor.cursor - parseCursor.base);
        if (written + count > LONGEST_RECORD) return ERR_RECORD_TOO_LONG;
        uint32_t size = (written + count + BUILD_STEP - 1) / BUILD_STEP * BUILD_STEP;
        EditNode &owner = *parseCursor.owner;
        BlockHandle grown = blockResize(owner.data, static_cast<uint16_t>(size));
        if (grown == 0) return ERR_MEMORY;
        owner.data = grown;
        owner.dataLength = size;
        parseCursor.base = blockLockAs<uint8_t>(grown);
        parseCursor.cursor = parseCursor.base + written;
        parseCursor.limit = parseCursor.base + size;
    }
    if (count != 0) std::memcpy(parseCursor.cursor, bytes, count);
    parseCursor.cursor += count;
    return 0;
}

}  // namespace mergedb
