#include "records/record_scanner.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "formats/byte_runs.h"
#include "formats/delimited_format.h"
#include "formats/tagged_tokens.h"
#include "mergedb/mergedb.h"
#include "records/field_map.h"
#include "records/record_format.h"

namespace mergedb {
namespace {

uint32_t sinkWritten(const RecordSink &sink) { return static_cast<uint32_t>(sink.cursor - sink.start); }

uint16_t sinkWrite(WindowCursor &window, RecordSink &sink, uint32_t count) {
    while (sinkWritten(sink) + count > sink.capacity) {
        if (sink.capacity + RECORD_BLOCK_STEP > RECORD_GROWTH_LIMIT) return ERR_RECORD_TOO_LONG;
        sink.capacity += RECORD_BLOCK_STEP;
    }
    if (count <= window.available()) {
        std::memcpy(sink.cursor, window.cursor, count);
        window.cursor += count;
    } else {
        // A read across the window's end can fail with part of its bytes
        // written over what would be the block's zeros.
        std::memset(sink.cursor, 0, count);
        sink.reach = std::max(sink.reach, sink.cursor + count);
        if (uint16_t code = window.read(sink.cursor, count)) return code;
    }
    sink.cursor += count;
    return 0;
}

// Refills a drained window. Gives the code of a refill that brought nothing.
uint16_t refillIfDrained(WindowCursor &window) { return window.cursor == window.end ? window.refill() : 0; }

// Copies the run of bytes at the window's position that the predicate
// accepts, up to the window's end, in one write.
template <typename Ordinary>
uint16_t sinkRun(WindowCursor &window, RecordSink &sink, Ordinary ordinary) {
    const uint8_t *end = window.cursor;
    while (end < window.end && ordinary(*end)) ++end;
    return sinkWrite(window, sink, static_cast<uint32_t>(end - window.cursor));
}

// Fills the node from what was gathered: on success a block of exactly the
// record, after a failure the block at its working size. The block of the
// record before is resized for it, which mostly keeps its allocation.
uint16_t finishScan(EditNode &node, BlockHandle block, const RecordSink &sink, uint16_t scanCode) {
    auto size = static_cast<uint16_t>(scanCode == 0 ? sinkWritten(sink) : sink.capacity);
    if (block == 0) block = blockAlloc(size);
    auto *bytes = blockResizeLock<uint8_t>(blockRef(block), size, size);
    if (bytes == nullptr) {
        blockFree(&block);
        return scanCode != 0 ? scanCode : uint16_t{ERR_MEMORY};
    }
    node.data = block;
    auto filled = std::min<size_t>(size, std::max(sink.cursor, sink.reach) - sink.start);
    std::memcpy(bytes, sink.start, filled);
    // Only a failed scan leaves bytes to clear.
    if (size > filled) std::memset(bytes + filled, 0, size - filled);
    if (scanCode == 0) node.originalLength = node.dataLength = size;
    return scanCode;
}

// The lane: passes of a scan that lie wholly inside the window, far enough
// from its end that no step would refill it, and within what the block may
// grow to, are found by pointer alone and copied in one write when the lane
// ends. A pass that the lane cannot take whole is left to the exact steps,
// which take the same pieces one by one. LANE_MARGIN exceeds the longest
// delimited string and the longest fixed token.
constexpr uint32_t LANE_MARGIN = 24;

const uint8_t *laneEnd(const WindowCursor &window, const RecordSink &sink) {
    uint32_t room = std::min(window.available(), LONGEST_RECORD - sinkWritten(sink));
    return room > LANE_MARGIN ? window.cursor + (room - LANE_MARGIN) : window.cursor;
}

// The lane of the one-pass scans, which look a delimiter's length and a
// byte past their end: behind the last fill of the file, where the bytes
// past the data are 0 (window.h) and no step refills, the whole window.
const uint8_t *mappedLaneEnd(const WindowCursor &window, const RecordSink &sink) {
    if (window.table.window.atEof == 0) return laneEnd(window, sink);
    return window.cursor + std::min(window.available(), LONGEST_RECORD);
}

// Takes the bytes from the window's position up to end.
uint16_t takeLane(WindowCursor &window, RecordSink &sink, const uint8_t *end) {
    return sinkWrite(window, sink, static_cast<uint32_t>(end - window.cursor));
}

// The delimited scanner's view of the table's strings. An empty string is
// never tried; an empty field or record delimiter is outside the format,
// and treating it as never found still lets every scan end.
// Where a delimited scan stands between two passes.
enum class Place { Outside, InStretch, RecordEnded };

// The scanner's tests at a byte outside a stretch, in its order: record
// delimiter, field delimiter, ignore, quote. Each test looks at the first
// byte of its string, held as a number that no byte equals when the string
// is empty, so that finding the test is a few compares.
constexpr int NO_BYTE = -1;

struct ScanStrings {
    struct Test {
        std::string_view string;
        Place whenMatched;
        int first;
    };

    DelimitedStrings strings;
    const DelimitedBytes &bytes;
    std::array<Test, 4> tests;
    int quoteStart;

    static int firstByte(std::string_view s) { return s.empty() ? NO_BYTE : static_cast<uint8_t>(s[0]); }

    explicit ScanStrings(const DelimitedSyntax &syntax)
        : strings(syntax.strings),
          bytes(syntax.bytes),
          tests{{{strings.record, Place::RecordEnded, firstByte(strings.record)},
                 {strings.field, Place::Outside, firstByte(strings.field)},
                 {strings.ignore, Place::Outside, firstByte(strings.ignore)},
                 {strings.quote, Place::InStretch, firstByte(strings.quote)}}},
          quoteStart(firstByte(strings.quote)) {}

    // The first test whose string opens with the byte; null for none.
    const Test *firstTest(uint8_t byte) const {
        for (const Test &test : tests) {
            if (test.first == byte) return &test;
        }
        return nullptr;
    }
    // Whether a quote followed by this byte closes a stretch.
    bool closesStretch(uint8_t next) const {
        return next == tests[0].first || next == tests[1].first || next == tests[2].first;
    }
};

// How many bytes of s stand at p, from its first on.
size_t matchedBytes(const uint8_t *p, std::string_view s) {
    size_t n = 0;
    while (n < s.size() && p[n] == static_cast<uint8_t>(s[n])) ++n;
    return n;
}

// Matches s at the window's position, copying each equal byte. A partial
// match leaves the bytes that matched in the record.
uint16_t matchString(WindowCursor &window, RecordSink &sink, std::string_view s, bool &matched) {
    matched = false;
    if (window.cursor + s.size() >= window.end) window.refill();
    for (char expected : s) {
        if (window.cursor == window.end || *window.cursor != static_cast<uint8_t>(expected)) return 0;
        if (uint16_t code = sinkWrite(window, sink, 1)) return code;
    }
    matched = true;
    return 0;
}

// Whether the byte behind a closing quote, looked at without taking it,
// is the first byte of a delimiter or of ignore.
bool quoteCloses(WindowCursor &window, const ScanStrings &scan) {
    if (window.cursor == window.end && window.refill() != 0) return false;
    return scan.closesStretch(*window.cursor);
}

// One pass of the lane from p, which lies before the lane's end: the
// position behind it, or null when the pass would reach that end.
const uint8_t *delimitedLanePass(const ScanStrings &scan, StopScan &stops, const uint8_t *p, Place &place) {
    if (place == Place::InStretch) {
        if (*p != scan.quoteStart) {
            p = nextStopOf(stops, p, static_cast<uint8_t>(scan.quoteStart));
            return p < stops.end ? p : nullptr;
        }
        size_t n = matchedBytes(p, scan.strings.quote);
        if (n == scan.strings.quote.size() && scan.closesStretch(p[n])) place = Place::Outside;
        return p + n;
    }
    if (const ScanStrings::Test *test = scan.firstTest(*p)) {
        size_t n = matchedBytes(p, test->string);
        if (n == test->string.size()) place = test->whenMatched;
        return p + n;
    }
    p = nextStop(stops, p);
    return p < stops.end ? p : nullptr;
}

Place delimitedLane(WindowCursor &window, RecordSink &sink, const ScanStrings &scan, Place place,
                    uint16_t &code) {
    const uint8_t *p = window.cursor;
    StopScan stops = stopScanStart(scan.bytes.stops, p, laneEnd(window, sink));
    while (place != Place::RecordEnded && p < stops.end) {
        const uint8_t *next = delimitedLanePass(scan, stops, p, place);
        if (next == nullptr) break;
        p = next;
    }
    code = takeLane(window, sink, p);
    return place;
}

// One pass of the exact steps, outside a quoted stretch.
uint16_t delimitedPassOutside(WindowCursor &window, RecordSink &sink, const ScanStrings &scan, Place &place) {
    if (const ScanStrings::Test *test = scan.firstTest(*window.cursor)) {
        bool matched = false;
        uint16_t code = matchString(window, sink, test->string, matched);
        if (matched) place = test->whenMatched;
        return code;
    }
    return sinkRun(window, sink, [&scan](uint8_t b) { return !scan.bytes.stops.isStop[b]; });
}

// One pass of the exact steps in a quoted stretch, where only the quote
// means anything.
uint16_t delimitedPassInStretch(WindowCursor &window, RecordSink &sink, const ScanStrings &scan, Place &place) {
    uint8_t quoteStart = scan.quoteStart;
    if (*window.cursor != quoteStart) {
        return sinkRun(window, sink, [quoteStart](uint8_t b) { return b != quoteStart; });
    }
    bool matched = false;
    uint16_t code = matchString(window, sink, scan.strings.quote, matched);
    if (code == 0 && matched && quoteCloses(window, scan)) place = Place::Outside;
    return code;
}

// A record that stands whole in the lane and that one pass can split:
// found by scan(start, end, map), with its fields noted in the table's map,
// and taken where it stands, the window's bytes being the sink's. False,
// with nothing moved, for any other record.
template <typename Scan>
bool takeMappedRecord(WindowCursor &window, RecordSink &sink, Scan scan) {
    if (sink.map == nullptr) sink.map = fieldMapOf(window.table);
    if (sink.map == nullptr) return false;
    const uint8_t *end = scan(window.cursor, mappedLaneEnd(window, sink), *sink.map);
    if (end == nullptr) return false;
    sink.start = window.cursor;
    sink.cursor = sink.reach = window.cursor = const_cast<uint8_t *>(end);
    return true;
}

}  // namespace

uint16_t scanDelimitedRecord(WindowCursor &window, RecordSink &sink) {
    DelimitedSyntax syntax = delimitedSyntax(window.table);
    // The first pass, as the loop's would begin, and the record in one
    // piece where it can be.
    if (window.cursor == window.end && window.atEof()) return ERR_END_OF_FILE;
    if (uint16_t code = refillIfDrained(window)) return code;
    auto scanMapped = [&syntax](const uint8_t *start, const uint8_t *end, FieldMap &map) {
        return scanMappedRecord(syntax, start, end, map);
    };
    if (syntax.bytes.singlePass && takeMappedRecord(window, sink, scanMapped)) return 0;
    ScanStrings scan(syntax);
    Place place = Place::Outside;
    while (place != Place::RecordEnded) {
        // An unterminated last line is no record; a stretch meets the end
        // of the file in its next write.
        if (place == Place::Outside && window.cursor == window.end && window.atEof()) return ERR_END_OF_FILE;
        if (uint16_t code = refillIfDrained(window)) return code;
        uint16_t code = 0;
        place = delimitedLane(window, sink, scan, place, code);
        if (code == 0 && place == Place::Outside) code = delimitedPassOutside(window, sink, scan, place);
        else if (code == 0 && place == Place::InStretch) code = delimitedPassInStretch(window, sink, scan, place);
        if (code != 0) return code;
    }
    return 0;
}

namespace {

// The phases of a tagged scan: copy through the end-of-record mark, then
// through the line end behind it.
enum class TaggedPhase { FindRecordEnd, FindLineEnd, Done };

TaggedPhase nextPhase(TaggedPhase phase) {
    return phase == TaggedPhase::FindRecordEnd ? TaggedPhase::FindLineEnd : TaggedPhase::Done;
}

// Whether the token ends what the phase looks for.
bool endsPhase(TaggedPhase phase, const Token &token) {
    return phase == TaggedPhase::FindRecordEnd ? endsRecord(token) : endsLine(token);
}

// A one-byte token that ends nothing in this phase.
bool isOrdinary(TaggedPhase phase, uint8_t b) {
    return isOneByteToken(b) && !endsPhase(phase, Token{b, 0, {TOKEN_STEP_OK, 1}});
}

// The bytes that are no ordinary one-byte token in each phase: a byte 0,
// the leads of fixed and variable tokens, and the marks the phase ends at.
StopBytes phaseStops(TaggedPhase phase) {
    StopBytes stops;
    for (int byte = 0; byte < TOKEN_LEAD_EXTENDED_CHAR; ++byte) {
        if (!isOrdinary(phase, static_cast<uint8_t>(byte))) stopBytesAdd(stops, static_cast<uint8_t>(byte));
    }
    stopBytesAddFrom(stops, TOKEN_LEAD_EXTENDED_CHAR);
    return stops;
}

const StopBytes RECORD_END_STOPS = phaseStops(TaggedPhase::FindRecordEnd);
const StopBytes LINE_END_STOPS = phaseStops(TaggedPhase::FindLineEnd);

// A variable token whose head lies across the window's end: copied in three
// writes, lead and sub-code, L, and the L bytes behind L, so that each part
// may come with a fill of the window, and read from the copied head.
uint16_t sinkTokenAcrossEnd(WindowCursor &window, RecordSink &sink, TaggedPhase phase, bool &ended) {
    if (uint16_t code = sinkWrite(window, sink, 2)) return code;
    if (uint16_t code = sinkWrite(window, sink, 2)) return code;
    Token token = tokenAt(sink.cursor - TOKEN_VARIABLE_HEAD_SIZE, sink.cursor);
    ended = endsPhase(phase, token);
    return sinkWrite(window, sink, token.step.length - TOKEN_VARIABLE_HEAD_SIZE);
}

// One token of a tagged record, copied whole, or a run of one-byte tokens
// that end nothing, in one copy. Gives in ended whether it was the end the
// phase looks for.
uint16_t sinkTaggedToken(WindowCursor &window, RecordSink &sink, TaggedPhase phase, bool &ended) {
    Token token = tokenAt(window.cursor, window.end);
    if (token.step.kind == TOKEN_STEP_NONE) return ERR_FORMAT;
    if (token.step.length == 0) return sinkTokenAcrossEnd(window, sink, phase, ended);
    ended = endsPhase(phase, token);
    if (token.step.length == 1 && !ended) {
        return sinkRun(window, sink, [phase](uint8_t b) { return isOrdinary(phase, b); });
    }
    return sinkWrite(window, sink, token.step.length);
}

// The lane's stop scans, one for each phase.
struct TaggedLaneStops {
    StopScan recordEnd;
    StopScan lineEnd;
};

// One token of the lane from p, which lies before end: the position behind
// it, or null when the token would reach end or is left to the exact steps.
const uint8_t *taggedLanePass(TaggedLaneStops &stops, const uint8_t *p, const uint8_t *end, TaggedPhase &phase) {
    Token token = tokenAt(p, end);
    if (token.step.kind != TOKEN_STEP_OK) return nullptr;
    if (endsPhase(phase, token)) {
        phase = nextPhase(phase);
        return p + token.step.length;
    }
    if (token.step.length > 1) return p + token.step.length;
    p = nextStop(phase == TaggedPhase::FindRecordEnd ? stops.recordEnd : stops.lineEnd, p);
    return p < end ? p : nullptr;
}

TaggedPhase taggedLane(WindowCursor &window, RecordSink &sink, TaggedPhase phase, uint16_t &code) {
    const uint8_t *end = laneEnd(window, sink);
    const uint8_t *p = window.cursor;
    TaggedLaneStops stops{stopScanStart(RECORD_END_STOPS, p, end), stopScanStart(LINE_END_STOPS, p, end)};
    while (phase != TaggedPhase::Done && p < end) {
        const uint8_t *next = taggedLanePass(stops, p, end, phase);
        if (next == nullptr) break;
        p = next;
    }
    code = takeLane(window, sink, p);
    return phase;
}

}  // namespace

// Walks tokens by class, so that no byte inside a token is taken for a
// mark. A document that stops before a phase's end delivers what was copied.
uint16_t scanTaggedRecord(WindowCursor &window, RecordSink &sink) {
    // The first pass, as the loop's would begin, and the record in one
    // piece where it can be.
    if (window.cursor != window.end || !window.atEof()) {
        if (uint16_t code = refillIfDrained(window)) return code;
        if (takeMappedRecord(window, sink, scanMappedTaggedRecord)) return 0;
    }
    TaggedPhase phase = TaggedPhase::FindRecordEnd;
    while (phase != TaggedPhase::Done) {
        if (window.cursor == window.end && window.atEof()) {
            phase = nextPhase(phase);
            continue;
        }
        if (uint16_t code = refillIfDrained(window)) return code;
        uint16_t code = 0;
        phase = taggedLane(window, sink, phase, code);
        if (code != 0) return code;
        if (phase == TaggedPhase::Done) break;
        bool ended = false;
        if (uint16_t tokenCode = sinkTaggedToken(window, sink, phase, ended)) return tokenCode;
        if (ended) phase = nextPhase(phase);
    }
    return 0;
}

// The record is gathered in the table's scratch and copied into a block of
// its own size when the scan ends, so that it costs one allocation. The
// block's capacity is followed as a number under its growth rule, so that a
// scan that fails leaves the block that growing it in place would have left.
uint16_t readRecord(MergeTable &table) {
    auto *node = currentRecord(table);
    auto *scratch = blockLockAs<uint8_t>(table.scratch);
    if (node == nullptr || scratch == nullptr) return ERR_MEMORY;
    WindowCursor window(table);
    if (!window.valid()) return ERR_MEMORY;
    BlockHandle block = node->data;
    *node = EditNode{};
    node->offset = window.position();
    RecordSink sink{scratch, scratch, RECORD_BLOCK_STEP, scratch, blockLockAs<FieldMap>(table.fieldMap)};
    if (sink.map != nullptr) sink.map->fresh = false;
    uint16_t code = finishScan(*node, block, sink, table.format->scan(window, sink));
    if (sink.map != nullptr) fieldMapSettle(*sink.map, *node, code == 0);
    return code;
}

}  // namespace mergedb
