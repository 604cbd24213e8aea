#include "records/field_map.h"

#include <string_view>

#include "formats/byte_runs.h"
#include "formats/tagged_tokens.h"

namespace mergedb {
namespace {

// How many bytes of s stand at p, from its first on, when its first does:
// the whole of a string of one byte, as most delimiters are.
size_t matchedBytes(const uint8_t *p, std::string_view s) {
    if (s.size() == 1) return 1;
    size_t n = 1;
    while (n < s.size() && p[n] == static_cast<uint8_t>(s[n])) ++n;
    return n;
}

// Which delimiter stands whole at p, and its length; 0 for neither.
struct Delimiter {
    size_t length;
    bool endsRecord;
};

Delimiter delimiterAt(const DelimitedSyntax &syntax, const uint8_t *p) {
    const DelimitedStrings &s = syntax.strings;
    uint8_t opens = syntax.bytes.opens[*p];
    if (opens == OPENS_RECORD && matchedBytes(p, s.record) == s.record.size()) return {s.record.size(), true};
    if (opens == OPENS_FIELD && matchedBytes(p, s.field) == s.field.size()) return {s.field.size(), false};
    return {0, false};
}

constexpr uint8_t CLOSES_STRETCH = OPENS_RECORD | OPENS_FIELD | OPENS_IGNORE;

// The fields noted so far, and the one being passed over. The count is
// kept here and stored with the map's last entry, since every store into
// the map's arrays could otherwise be a store to it.
class Notes {
public:
    Notes(FieldMap &map, const uint8_t *start) : map_(map), start_(start), fieldBegin_(start) {}

    const uint8_t *fieldBegin() const { return fieldBegin_; }
    bool on() const { return on_; }

    // The field from fieldBegin has the value from..to, and the next one
    // begins at next.
    void note(const uint8_t *from, const uint8_t *to, const uint8_t *next, bool printable = false) {
        if (!on_) return;
        if (count_ == FIELD_LIMIT) return stop();
        map_.begin[count_] = offset(fieldBegin_);
        map_.from[count_] = offset(from);
        map_.to[count_] = offset(to);
        map_.printable[count_] = printable;
        count_++;
        fieldBegin_ = next;
    }

    // The field from fieldBegin has another shape: the map ends in front of
    // it.
    void stop() { end(fieldBegin_); }

    // The record ends at end.
    const uint8_t *finish(const uint8_t *recordEnd) {
        end(recordEnd);
        map_.fresh = true;
        return recordEnd;
    }

private:
    uint16_t offset(const uint8_t *p) const { return static_cast<uint16_t>(p - start_); }

    // The map ends in front of the field that begins at p.
    void end(const uint8_t *p) {
        if (!on_) return;
        map_.begin[count_] = offset(p);
        map_.count = count_;
        on_ = false;
    }

    FieldMap &map_;
    const uint8_t *start_;
    const uint8_t *fieldBegin_;
    uint16_t count_ = 0;
    bool on_ = true;
};

// The quote that closes the stretch whose text begins at p: the first quote
// with the first byte of a delimiter or of ignore behind it, as the scanner
// has it. null when there is none before end. alone: no quote in between.
const uint8_t *closingQuote(StopScan &stops, const DelimitedBytes &bytes, uint8_t quote, const uint8_t *p,
                            bool &alone) {
    alone = true;
    for (;; ++p) {
        p = nextStopOf(stops, p, quote);
        if (p >= stops.end) return nullptr;
        if ((bytes.opens[p[1]] & CLOSES_STRETCH) != 0) return p;
        alone = false;
    }
}

}  // namespace

FieldMap *fieldMapOf(MergeTable &table) {
    if (table.fieldMap == 0) table.fieldMap = blockAlloc(sizeof(FieldMap));
    return blockLockAs<FieldMap>(table.fieldMap);
}

// Outside a quoted stretch the scanner stops at the first byte of each
// string, and since no byte begins two of them, the one that begins there
// is the only test that can take it. A whole record delimiter ends the
// record; a whole field delimiter, a part of either, and ignore are copied,
// and a quote opens a stretch, which the first quote followed by the first
// byte of a delimiter or of ignore closes. Extraction takes a field whole
// where it is a run up to a whole delimiter, or a quote at its start whose
// first partner closes the stretch with a whole delimiter behind it.
const uint8_t *scanMappedRecord(const DelimitedSyntax &syntax, const uint8_t *start, const uint8_t *end,
                                FieldMap &map) {
    const DelimitedStrings &s = syntax.strings;
    const DelimitedBytes &bytes = syntax.bytes;
    StopScan stops = stopScanStart(bytes.stops, start, end);
    Notes notes(map, start);
    const uint8_t *p = start;
    for (;;) {
        const uint8_t *stop = nextStop(stops, p);
        if (stop >= end) return nullptr;
        uint8_t opens = bytes.opens[*stop];
        if (opens == OPENS_QUOTE) {
            bool alone = false;
            const uint8_t *closing = closingQuote(stops, bytes, *stop, stop + 1, alone);
            if (closing == nullptr) return nullptr;
            p = closing + 1;
            if (!notes.on()) continue;
            Delimiter delimiter = delimiterAt(syntax, p);
            if (stop != notes.fieldBegin() || !alone || delimiter.length == 0) {
                notes.stop();
                continue;
            }
            p += delimiter.length;
            notes.note(stop + 1, closing, p);
            if (delimiter.endsRecord) return notes.finish(p);
            continue;
        }
        std::string_view string = opens == OPENS_RECORD ? s.record : opens == OPENS_FIELD ? s.field : s.ignore;
        size_t matched = matchedBytes(stop, string);
        p = stop + matched;
        if (matched != string.size() || opens == OPENS_IGNORE) {
            notes.stop();
            continue;
        }
        notes.note(notes.fieldBegin(), stop, p);
        if (opens == OPENS_RECORD) return notes.finish(p);
    }
}

const StopBytes TAGGED_TEXT_STOPS = [] {
    StopBytes stops;
    for (uint8_t byte : {uint8_t{0}, MARK_FIELD_END, MARK_RECORD_END, uint8_t{127}}) stopBytesAdd(stops, byte);
    stopBytesAddFrom(stops, 128);
    return stops;
}();

namespace {

// The field or record end at p, when a value of the common shape ends
// there: its length, and whether it ends the record. Length 0 for anything
// else, and for a function token that does not lie whole before end with a
// byte behind it; the byte behind a one-byte end may stand at end.
struct TaggedEnd {
    uint32_t length;
    bool endsRecord;
};

TaggedEnd taggedEndAt(const uint8_t *p, const uint8_t *end) {
    Token token = tokenAt(p, end);
    bool field = endsField(token);
    if (!field && !endsRecord(token)) return {0, false};
    bool whole = token.step.length == 1 || static_cast<uint32_t>(end - p) > token.step.length;
    return {whole ? token.step.length : 0, !field};
}

// Whether the byte behind a field's end ends its line, as extraction's
// skipLine sees it; behind the record's end only a line end counts, which
// the scanner looks for there.
bool endsLineBehind(uint8_t byte, bool endsRecord) {
    return byte == MARK_LINE_END || byte == MARK_RECORD_LINE_END || (!endsRecord && byte == MARK_SOFT_LINE_END);
}

// The scan stops at every byte that is no printable character, so that it
// sees a value's control bytes that are text, and the stops of
// TAGGED_TEXT_STOPS among the rest.
const StopBytes UNPRINTABLE_STOPS = [] {
    StopBytes stops;
    stopBytesAddBelow(stops, 32);
    stopBytesAddFrom(stops, 127);
    return stops;
}();

}  // namespace

// The scanner takes a record through its end mark, byte 5 or the function
// token 52, and the line end behind it, passing over text, control bytes
// and whole tokens; extraction takes a value as the run of text up to the
// first byte of TAGGED_TEXT_STOPS, when that is a field or record end, and
// skipLine then passes over the end and its line end. Where the line end
// stands right behind each end, both see the same fields, and the record
// ends behind the line end of its end mark. A control byte that is text
// leaves its value in the map, as one that is not all printable.
const uint8_t *scanMappedTaggedRecord(const uint8_t *start, const uint8_t *end, FieldMap &map) {
    StopScan stops = stopScanStart(UNPRINTABLE_STOPS, start, end);
    Notes notes(map, start);
    bool printable = true;
    for (const uint8_t *p = start;;) {
        const uint8_t *stop = nextStop(stops, p);
        if (stop >= end) return nullptr;
        if (!TAGGED_TEXT_STOPS.isStop[*stop]) {
            printable = false;
            p = stop + 1;
            continue;
        }
        TaggedEnd ending = taggedEndAt(stop, end);
        if (ending.length == 0) return nullptr;
        const uint8_t *lineEnd = stop + ending.length;
        if (!endsLineBehind(*lineEnd, ending.endsRecord)) return nullptr;
        p = lineEnd + 1;
        notes.note(notes.fieldBegin(), stop, p, printable);
        printable = true;
        if (ending.endsRecord) return notes.finish(p);
    }
}

void fieldMapSettle(FieldMap &map, const EditNode &node, bool scanned) {
    map.fresh = map.fresh && scanned;
    map.offset = node.offset;
    map.length = node.dataLength;
    map.data = node.data;
}

const FieldMap *fieldMapTake(MergeTable &table, const EditNode &node) {
    auto *map = blockLockAs<FieldMap>(table.fieldMap);
    if (map == nullptr || !map->fresh) return nullptr;
    map->fresh = false;
    bool same = map->offset == node.offset && map->length == node.dataLength && map->data == node.data;
    return same ? map : nullptr;
}

}  // namespace mergedb
