#include "records/record_scanner.h"

#include <array>
#include <string_view>

#include "edits/change_list.h"
#include "formats/delimited_format.h"
#include "formats/tagged_format.h"
#include "mergedb/mergedb.h"
#include "tablefile/window.h"

namespace mergedb {
namespace {

// The output cursor while a record is copied out of the window. slot is the
// node's data handle, so that a block that moves is recorded at once.
struct RecordSink {
    BlockHandle *slot;
    uint8_t *limit;
    uint8_t *base;
    uint8_t *cursor;
};

RecordSink sink;

uint16_t sinkWrite(MergeTable &table, uint16_t count, uint32_t &capacity) {
    while (sink.cursor + count > sink.limit) {
        auto written = static_cast<size_t>(sink.cursor - sink.base);
        if (capacity + RECORD_BLOCK_STEP > RECORD_GROWTH_LIMIT) return ERR_RECORD_TOO_LONG;
        BlockHandle grown = blockResize(*sink.slot, static_cast<uint16_t>(capacity + RECORD_BLOCK_STEP));
        if (grown == 0) return ERR_MEMORY;
        *sink.slot = grown;
        capacity += RECORD_BLOCK_STEP;
        sink.base = blockLockAs<uint8_t>(grown);
        sink.cursor = sink.base + written;
        sink.limit = sink.base + capacity;
    }
    if (uint16_t code = windowRead(table, sink.cursor, count)) return code;
    sink.cursor += count;
    return 0;
}

uint16_t sinkFixedToken(MergeTable &table, uint32_t &capacity) {
    uint8_t length = fixedTokenLength(regCursor);
    if (length == 0) return ERR_FORMAT;
    return sinkWrite(table, length, capacity);
}

// Copies a variable token in three writes: lead and sub-code, L, and the L
// bytes behind L. Gives in isRecordEnd whether it was FUNCTION_RECORD_END.
uint16_t sinkVariableToken(MergeTable &table, uint32_t &capacity, bool &isRecordEnd) {
    if (uint16_t code = sinkWrite(table, 2, capacity)) return code;
    isRecordEnd = isFunction(sink.cursor - 2, FUNCTION_RECORD_END);
    if (uint16_t code = sinkWrite(table, 2, capacity)) return code;
    auto length = static_cast<uint16_t>(sink.cursor[-2] | (sink.cursor[-1] << 8));
    return sinkWrite(table, length, capacity);
}

// Refills a drained window. Gives the code of a refill that brought nothing.
uint16_t refillIfDrained(MergeTable &table) {
    return regCursor == regEnd ? windowRefill(table) : 0;
}

// Copies the run of bytes at the window's position that the predicate
// accepts, up to the window's end, in one write.
template <typename Ordinary>
uint16_t sinkRun(MergeTable &table, uint32_t &capacity, Ordinary ordinary) {
    const uint8_t *end = regCursor;
    while (end < regEnd && ordinary(*end)) ++end;
    return sinkWrite(table, static_cast<uint16_t>(end - regCursor), capacity);
}

uint16_t startScan(MergeTable &table, EditNode &node, uint32_t &capacity) {
    node.offset = windowTell(table);
    node.data = blockAlloc(RECORD_BLOCK_STEP);
    if (node.data == 0) return ERR_MEMORY;
    capacity = RECORD_BLOCK_STEP;
    sink.slot = &node.data;
    sink.base = sink.cursor = blockLockAs<uint8_t>(node.data);
    sink.limit = sink.base + capacity;
    return 0;
}

uint16_t finishScan(EditNode &node) {
    auto size = static_cast<uint32_t>(sink.cursor - sink.base);
    BlockHandle fitted = blockResize(node.data, static_cast<uint16_t>(size));
    if (fitted == 0) return ERR_MEMORY;
    node.data = fitted;
    node.originalLength = node.dataLength = size;
    return 0;
}

// The delimited scanner's view of the table's strings. An empty string is
// never tried; an empty field or record delimiter is outside the format,
// and treating it as never found still lets every scan end.
struct ScanStrings {
    DelimitedStrings strings;
    std::array<bool, 256> opensString{};  // first bytes of the non-empty strings

    explicit ScanStrings(const MergeTable &table) : strings(delimitedStrings(table)) {
        for (std::string_view s : {strings.record, strings.field, strings.ignore, strings.quote}) {
            if (!s.empty()) opensString[static_cast<uint8_t>(s[0])] = true;
        }
    }
    static bool opens(std::string_view s, uint8_t byte) { return !s.empty() && static_cast<uint8_t>(s[0]) == byte; }
};

// Matches s at the window's position, copying each equal byte. A partial
// match leaves the bytes that matched in the record.
uint16_t matchString(MergeTable &table, std::string_view s, uint32_t &capacity, bool &matched) {
    matched = false;
    if (regCursor + s.size() >= regEnd) windowRefill(table);
    for (char expected : s) {
        if (regCursor == regEnd || *regCursor != static_cast<uint8_t>(expected)) return 0;
        if (uint16_t code = sinkWrite(table, 1, capacity)) return code;
    }
    matched = true;
    return 0;
}

// Whether the byte behind a closing quote, looked at without taking it,
// is the first byte of a delimiter or of ignore.
bool quoteCloses(MergeTable &table, const ScanStrings &scan) {
    if (regCursor == regEnd && windowRefill(table) != 0) return false;
    uint8_t next = *regCursor;
    return ScanStrings::opens(scan.strings.field, next) || ScanStrings::opens(scan.strings.record, next) ||
           ScanStrings::opens(scan.strings.ignore, next);
}

// A quoted stretch, entered behind its opening quote; only the quote means
// anything in it.
uint16_t scanQuotedStretch(MergeTable &table, const ScanStrings &scan, uint32_t &capacity) {
    auto quoteStart = static_cast<uint8_t>(scan.strings.quote[0]);
    for (;;) {
        if (uint16_t code = refillIfDrained(table)) return code;
        if (*regCursor != quoteStart) {
            if (uint16_t code = sinkRun(table, capacity, [quoteStart](uint8_t b) { return b != quoteStart; })) {
                return code;
            }
            continue;
        }
        bool matched = false;
        if (uint16_t code = matchString(table, scan.strings.quote, capacity, matched)) return code;
        if (matched && quoteCloses(table, scan)) return 0;
    }
}

uint16_t scanDelimitedRecord(MergeTable &table, EditNode &node) {
    uint32_t capacity = 0;
    if (uint16_t code = startScan(table, node, capacity)) return code;
    ScanStrings scan(table);
    const DelimitedStrings &s = scan.strings;
    for (bool recordEnded = false; !recordEnded;) {
        if (windowAtEof(table)) return ERR_END_OF_FILE;
        if (uint16_t code = refillIfDrained(table)) return code;
        uint8_t byte = *regCursor;
        bool matched = false;
        uint16_t code = 0;
        if (ScanStrings::opens(s.record, byte)) {
            code = matchString(table, s.record, capacity, recordEnded);
        } else if (ScanStrings::opens(s.field, byte)) {
            code = matchString(table, s.field, capacity, matched);
        } else if (ScanStrings::opens(s.ignore, byte)) {
            code = matchString(table, s.ignore, capacity, matched);
        } else if (ScanStrings::opens(s.quote, byte)) {
            code = matchString(table, s.quote, capacity, matched);
            if (code == 0 && matched) code = scanQuotedStretch(table, scan, capacity);
        } else {
            code = sinkRun(table, capacity, [&scan](uint8_t b) { return !scan.opensString[b]; });
        }
        if (code != 0) return code;
    }
    return finishScan(node);
}

// One token of a tagged record: copied whole. Gives in ended whether it was
// the end the phase looks for.
enum class TaggedPhase { FindRecordEnd, FindLineEnd };

uint16_t sinkTaggedToken(MergeTable &table, TaggedPhase phase, uint32_t &capacity, bool &ended) {
    uint8_t byte = *regCursor;
    switch (tokenClass(regCursor)) {
    case TOKEN_END: return ERR_FORMAT;
    case TOKEN_FIXED: return sinkFixedToken(table, capacity);
    case TOKEN_VARIABLE: {
        bool isRecordEnd = false;
        uint16_t code = sinkVariableToken(table, capacity, isRecordEnd);
        ended = phase == TaggedPhase::FindRecordEnd && isRecordEnd;
        return code;
    }
    case TOKEN_CONTROL:
        if (phase == TaggedPhase::FindRecordEnd ? byte == MARK_RECORD_END
                                                : byte == MARK_LINE_END || byte == MARK_RECORD_LINE_END) {
            ended = true;
            return sinkWrite(table, 1, capacity);
        }
        [[fallthrough]];
    default: {
        // A run of one-byte tokens that end nothing moves in one copy.
        auto ordinary = [phase](uint8_t b) {
            uint8_t cls = tokenClass(&b);
            if (cls != TOKEN_CONTROL) return cls == TOKEN_SINGLE || cls == TOKEN_CHAR;
            return phase == TaggedPhase::FindRecordEnd ? b != MARK_RECORD_END
                                                       : b != MARK_LINE_END && b != MARK_RECORD_LINE_END;
        };
        return sinkRun(table, capacity, ordinary);
    }
    }
}

// Phase one copies through the end-of-record mark, phase two through the
// line end behind it. A document that stops first delivers what was copied.
uint16_t scanTaggedRecord(MergeTable &table, EditNode &node) {
    uint32_t capacity = 0;
    if (uint16_t code = startScan(table, node, capacity)) return code;
    for (TaggedPhase phase : {TaggedPhase::FindRecordEnd, TaggedPhase::FindLineEnd}) {
        for (bool ended = false; !ended;) {
            if (windowAtEof(table)) break;
            if (uint16_t code = refillIfDrained(table)) return code;
            if (uint16_t code = sinkTaggedToken(table, phase, capacity, ended)) return code;
        }
    }
    return finishScan(node);
}

}  // namespace

uint16_t readRecord(MergeTable &table) {
    auto *node = blockLockAs<EditNode>(table.current);
    if (node == nullptr) return ERR_MEMORY;
    if (uint16_t code = windowLoad(table)) return code;
    blockFree(&node->data);
    *node = EditNode{};
    uint16_t code = ERR_FORMAT;
    if (table.kind == DB_KIND_DELIMITED) {
        code = scanDelimitedRecord(table, *node);
    } else if (isTaggedKind(table.kind)) {
        code = scanTaggedRecord(table, *node);
    }
    windowSave(table);
    return code;
}

}  // namespace mergedb
