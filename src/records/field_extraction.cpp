#include "records/field_extraction.h"

#include <algorithm>
#include <bit>
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

constexpr uint8_t HYPHEN = '-';

// A value is built in the table's scratch (building) and copied into the
// entry's block when it is closed, so that the block is resized once, to its
// final size, instead of growing in steps and shrinking again.
constexpr size_t BUILDING_SIZE = FIELD_VALUE_LIMIT + TOKEN_EXTENDED_CHAR_SIZE + 1;
static_assert(BUILDING_SIZE <= TABLE_SCRATCH_SIZE);

// The value being built, from the record under the cursor. Its length stays
// here until the value is closed, so that a failure on the way leaves the
// entry's length as it was; capacity follows the growth rule as a number,
// and the entry takes it on where the steps would have left it. Its bytes
// are in building, or, for a value that is one stretch of the record, in the
// record itself.
struct ValueBuilder {
    ParseCursor &record;
    uint8_t *building;
    FieldEntry &entry;
    uint32_t length = 0;
    uint32_t capacity = 0;
    const uint8_t *bytes = building;
};

// What the extraction of a delimited record works with: the table's strings
// and bytes, and a stop scan over the record, which the fields of one
// record share as they go forward.
struct DelimitedSplit {
    const DelimitedStrings strings;
    const DelimitedBytes &bytes;
    StopScan stops;
};

// capacity raised by steps growth steps; 0 when a block cannot be that big.
uint32_t grownCapacity(uint32_t capacity, uint32_t steps) {
    uint64_t grown = capacity + uint64_t{steps} * FIELD_GROWTH_STEP;
    return grown >= UINT16_MAX ? 0 : static_cast<uint32_t>(grown);
}

// An entry without a block gets one here; whether its block is alive is
// seen when the value closes, before anything of the entry changes. This
// and closeValue run for every field, so they are asked to be inline.
inline uint16_t openEntry(FieldEntry &entry) { return entry.value == 0 ? growFieldValue(entry, 1) : 0; }

inline uint16_t openValue(ValueBuilder &value) {
    if (uint16_t code = openEntry(value.entry)) return code;
    value.capacity = value.entry.capacity;
    return 0;
}

// The capacity raised until it reaches needed, by as many steps as the rule
// would take one byte at a time; 0 when a block can't be that big. Whether
// it grows depends on the value's length against the last one, which no
// branch predicts, so the steps are counted without a branch.
inline uint32_t reservedCapacity(uint32_t capacity, uint32_t needed) {
    uint32_t missing = needed > capacity ? needed - capacity : 0;
    uint32_t grown = grownCapacity(capacity, (missing + FIELD_GROWTH_STEP - 1) / FIELD_GROWTH_STEP);
    return missing != 0 ? grown : capacity;
}

uint16_t reserve(ValueBuilder &value, uint32_t needed) {
    uint32_t capacity = reservedCapacity(value.capacity, needed);
    if (capacity == 0) return ERR_MEMORY;
    value.capacity = capacity;
    return 0;
}

uint16_t append(ValueBuilder &value, const uint8_t *bytes, uint32_t count) {
    if (uint16_t code = reserve(value, value.length + count)) return code;
    copyBytes(value.building + value.length, bytes, count);
    value.length += count;
    return 0;
}

// After a failure with code: the entry's block grown as far, and written as
// far, as the steps had come, its length unchanged. A dead block fails the
// value as it would have before any step.
uint16_t keepPartialValue(ValueBuilder &value, uint16_t code) {
    BlockRef block = blockRef(value.entry.value);
    if (block.slot == nullptr) return ERR_MEMORY;
    value.entry.printable = false;
    auto *text = static_cast<uint8_t *>(block.slot->address);
    if (value.capacity != value.entry.capacity) {
        text = blockResizeLock<uint8_t>(block, static_cast<uint16_t>(value.capacity), 0);
        if (text == nullptr) return code;
        value.entry.capacity = static_cast<uint16_t>(value.capacity);
    }
    std::memcpy(text, value.building, value.length);
    return code;
}

// What ends a value: where its blocks fit (below), and whether the entry
// tells that its text is all printable, which only a tagged value's does.
struct ValueFit {
    uint16_t blockExtra;
    uint16_t capacityExtra;
    bool tellsPrintable;
};

constexpr ValueFit DELIMITED_FIT{1, 0, false};
constexpr ValueFit TAGGED_FIT{TOKEN_EXTENDED_CHAR_SIZE, TOKEN_EXTENDED_CHAR_SIZE, true};
static_assert(DELIMITED_FIT.blockExtra == 1 && TAGGED_FIT.blockExtra == 4, "a value's end is a NUL, or four bytes");

// Ends the text of a tagged value that has bytes with its NUL, and fills
// the three bytes of its block behind it: those that the block held before,
// oldSize bytes, keep their values, and those it grows by are zero. The four
// are written as one masked word, because whether a value reaches past the
// last one's block changes from record to record, which no branch predicts.
inline void endTaggedText(uint8_t *text, uint32_t length, uint32_t oldSize) {
    // Clamped, not chosen: a choice here compiles to that same branch.
    auto kept = static_cast<uint32_t>(std::clamp(static_cast<int32_t>(oldSize) - static_cast<int32_t>(length), 0, 4));
    uint32_t word = 0;
    std::memcpy(&word, text + length, sizeof word);
    // The low bytes of a word are the first in memory; the lowest is the NUL.
    static_assert(std::endian::native == std::endian::little);
    word &= static_cast<uint32_t>((uint64_t{1} << (8 * kept)) - 1) & ~uint32_t{0xFF};
    std::memcpy(text + length, &word, sizeof word);
}

// Ends the text of length bytes with a NUL and stores it and its length in
// the entry of the live block, capacity being what the growth rule reached
// for the NUL, and whether the text is all printable. The block of a value
// that has bytes fits to length + blockExtra with a capacity of length +
// capacityExtra; an empty value keeps its block, grown if the capacity had
// to be. A failed fit still stores the length.
template <ValueFit fit>
inline uint16_t storeValue(FieldEntry &entry, BlockRef block, const uint8_t *bytes, uint32_t length,
                           uint32_t capacity, bool printable) {
    if constexpr (fit.tellsPrintable) entry.printable = false;
    entry.length = static_cast<uint16_t>(length);
    bool empty = length == 0;
    uint16_t oldSize = block.slot->size;
    uint32_t size = empty ? (capacity == entry.capacity ? oldSize : capacity) : length + fit.blockExtra;
    // Behind a tagged value with bytes, endTaggedText writes the whole block.
    bool nulOnly = fit.blockExtra == 1 || empty;
    uint32_t written = nulOnly ? length + 1 : size;
    uint8_t *text = blockResizeLock<uint8_t>(block, static_cast<uint16_t>(size), static_cast<uint16_t>(written));
    if (text == nullptr) return ERR_MEMORY;
    entry.capacity = static_cast<uint16_t>(empty ? capacity : length + fit.capacityExtra);
    copyBytes(text, bytes, length);
    if (nulOnly) text[length] = 0;
    else endTaggedText(text, length, oldSize);
    if constexpr (fit.tellsPrintable) entry.printable = printable;
    return 0;
}

template <ValueFit fit>
inline uint16_t closeValue(ValueBuilder &value) {
    BlockRef block = blockRef(value.entry.value);
    if (block.slot == nullptr) return ERR_MEMORY;
    if (uint16_t code = reserve(value, value.length + 1)) return keepPartialValue(value, code);
    return storeValue<fit>(value.entry, block, value.bytes, value.length, value.capacity, false);
}

// Where the value being built would reach its limit, or the record's end.
const uint8_t *runLimit(const ValueBuilder &value) {
    return value.record.cursor + std::min<size_t>(value.record.remaining(), FIELD_VALUE_LIMIT - value.length);
}

// Copies the bytes from the cursor up to stop, and moves the cursor there.
uint16_t copyRun(ValueBuilder &value, const uint8_t *stop) {
    auto count = static_cast<uint32_t>(stop - value.record.cursor);
    if (uint16_t code = append(value, value.record.cursor, count)) return code;
    value.record.cursor += count;
    return 0;
}

// A tagged token at the cursor that is neither text nor a byte 0. A field
// or record end ends the value: the byte is passed, the function token
// stays under the cursor for skipLine. A hyphen is text; an extended
// character stays whole in the value, with a byte spare behind it; every
// other token is passed over.
uint16_t taggedToken(ValueBuilder &value, bool &ended) {
    ParseCursor &record = value.record;
    Token token = record.token();
    if (endsField(token) || endsRecord(token)) {
        ended = true;
        return token.step.length == 1 ? record.pass(token) : 0;
    }
    if (isExtendedChar(token)) {
        if (uint16_t code = reserve(value, value.length + TOKEN_EXTENDED_CHAR_SIZE + 1)) return code;
        if (token.step.kind != TOKEN_STEP_OK) return ERR_FORMAT;
        std::memcpy(value.building + value.length, record.cursor, TOKEN_EXTENDED_CHAR_SIZE);
        value.length += TOKEN_EXTENDED_CHAR_SIZE;
    } else if (token.first == MARK_HYPHEN) {
        if (uint16_t code = append(value, &HYPHEN, 1)) return code;
    }
    return record.pass(token);
}

// The inside of a quoted stretch, from behind its opening quote up to the
// quote that closes it, on which the cursor stays. Only the quote means
// anything here.
uint16_t quotedStretch(ValueBuilder &value, DelimitedSplit &split) {
    const DelimitedStrings &strings = split.strings;
    uint8_t *&cursor = value.record.cursor;
    const uint8_t *limit = value.record.limit;
    const auto quoteStart = static_cast<uint8_t>(strings.quote[0]);
    while (value.length < FIELD_VALUE_LIMIT && cursor < limit) {
        if (*cursor != quoteStart) {
            const uint8_t *stop = std::min(nextStopOf(split.stops, cursor, quoteStart), runLimit(value));
            if (uint16_t code = copyRun(value, stop)) return code;
            continue;
        }
        if (uint16_t code = reserve(value, value.length + 1)) return code;
        if (quoteClosesAt(cursor, limit, strings)) return 0;
        // a quote that closes nothing is text
        if (uint16_t code = append(value, cursor, 1)) return code;
        ++cursor;
    }
    return 0;
}

// Takes one value, and closes it: by takeWhole where the value has one of
// the common shapes that need no building, else by build, which reads from
// the parse cursor step by step. A failure of build leaves the entry as the
// steps had left it.
template <ValueFit fit, typename TakeWhole, typename Build>
uint16_t extractValue(ParseCursor &record, uint8_t *building, FieldEntry &entry, TakeWhole takeWhole, Build build) {
    ValueBuilder value{record, building, entry};
    if (uint16_t code = openValue(value)) return code;
    if (!takeWhole(value)) {
        if (uint16_t code = build(value)) return keepPartialValue(value, code);
    }
    return closeValue<fit>(value);
}

// A value that is the stretch of the record from start to end, whose bytes
// the steps would have copied one run after another. The capacity they
// would have grown to is the one closeValue grows to for the end.
void takeStretch(ValueBuilder &value, const uint8_t *start, const uint8_t *end) {
    value.bytes = start;
    value.length = static_cast<uint32_t>(end - start);
}

// The length of the field or record delimiter that the steps find whole at
// p, which lies before the limit; 0 where they would find a quote first, or
// neither delimiter.
size_t delimiterAt(const DelimitedSplit &split, const uint8_t *p, const uint8_t *limit) {
    const DelimitedStrings &s = split.strings;
    uint8_t opens = split.bytes.opens[*p];
    if ((opens & OPENS_QUOTE) != 0) return 0;
    if ((opens & OPENS_RECORD) != 0 && stringStandsAt(p, limit, s.record)) return s.record.size();
    if ((opens & OPENS_FIELD) != 0 && stringStandsAt(p, limit, s.field)) return s.field.size();
    return 0;
}

// The two common shapes of a delimited value: a run of ordinary bytes, or
// a one-byte quote, text and the quote that closes it, each followed by a
// whole field or record delimiter. Takes the value and passes over its
// delimiter; false, with nothing moved, for any other shape.
bool takeWholeDelimited(ValueBuilder &value, DelimitedSplit &split) {
    const DelimitedBytes &bytes = split.bytes;
    const uint8_t *cursor = value.record.cursor;
    const uint8_t *limit = value.record.limit;
    if (cursor >= limit) return false;
    const uint8_t *start = cursor;
    const uint8_t *end = nullptr;
    const uint8_t *behind = nullptr;
    if ((bytes.opens[*cursor] & OPENS_QUOTE) != 0) {
        if (split.strings.quote.size() != 1) return false;
        start = cursor + 1;
        end = nextStopOf(split.stops, start, *cursor);
        if (end >= limit || !quoteClosesAt(end, limit, split.strings)) return false;
        behind = end + 1;
    } else {
        end = nextStop(split.stops, cursor);
        behind = end;
    }
    if (behind >= limit || end - start >= FIELD_VALUE_LIMIT) return false;
    size_t delimiter = delimiterAt(split, behind, limit);
    if (delimiter == 0) return false;
    takeStretch(value, start, end);
    value.record.cursor += (behind - cursor) + delimiter;
    return true;
}

// The common shape of a tagged value: text up to a field or record end, a
// byte 0 or the record's end. Takes the value, leaving the cursor where the
// steps would, for skipLine; false, with nothing moved, otherwise.
bool takeWholeTagged(ValueBuilder &value, StopScan &stops) {
    uint8_t *cursor = value.record.cursor;
    const uint8_t *limit = value.record.limit;
    const uint8_t *end = nextStop(stops, cursor);
    if (end - cursor >= FIELD_VALUE_LIMIT) return false;
    uint8_t *behind = cursor + (end - cursor);
    // A byte 0 and the record's end end the value where they stand.
    if (Token token = tokenAt(end, limit); token.first != 0) {
        if (!endsField(token) && !endsRecord(token)) return false;
        if (token.step.length == 1) ++behind;
    }
    takeStretch(value, cursor, end);
    value.record.cursor = behind;
    return true;
}

uint16_t extractTaggedField(ParseCursor &record, uint8_t *building, StopScan &stops, FieldEntry &entry) {
    auto build = [&stops](ValueBuilder &value) -> uint16_t {
        uint8_t *&cursor = value.record.cursor;
        bool ended = false;
        while (!ended && cursor < value.record.limit && *cursor != 0 && value.length < FIELD_VALUE_LIMIT) {
            uint16_t code = TAGGED_TEXT_STOPS.isStop[*cursor]
                                ? taggedToken(value, ended)
                                : copyRun(value, std::min(nextStop(stops, cursor), runLimit(value)));
            if (code != 0) return code;
        }
        return 0;
    };
    auto takeWhole = [&stops](ValueBuilder &value) { return takeWholeTagged(value, stops); };
    if (uint16_t code = extractValue<TAGGED_FIT>(record, building, entry, takeWhole, build)) {
        return code;
    }
    return record.skipLine();
}

uint16_t extractDelimitedField(ParseCursor &record, uint8_t *building, DelimitedSplit &split, FieldEntry &entry) {
    auto build = [&split](ValueBuilder &value) -> uint16_t {
        const DelimitedBytes &bytes = split.bytes;
        const DelimitedStrings &s = split.strings;
        uint8_t *&cursor = value.record.cursor;
        const uint8_t *limit = value.record.limit;
        while (value.length < FIELD_VALUE_LIMIT) {
            // The record ended before this field did.
            if (cursor >= limit) return ERR_FORMAT;
            uint8_t opens = bytes.opens[*cursor];
            uint16_t code = 0;
            if (opens == 0) {
                code = copyRun(value, std::min(nextStop(split.stops, cursor), runLimit(value)));
            } else if ((opens & OPENS_QUOTE) != 0 && stringStandsAt(cursor, limit, s.quote)) {
                cursor += s.quote.size();
                code = quotedStretch(value, split);
                if (code == 0) code = value.record.advance(static_cast<int32_t>(s.quote.size()));
            } else if ((opens & OPENS_RECORD) != 0 && stringStandsAt(cursor, limit, s.record)) {
                cursor += s.record.size();
                return 0;
            } else if ((opens & OPENS_FIELD) != 0 && stringStandsAt(cursor, limit, s.field)) {
                cursor += s.field.size();
                return 0;
            } else if ((opens & OPENS_IGNORE) != 0 && stringStandsAt(cursor, limit, s.ignore)) {
                cursor += s.ignore.size();
            } else {
                code = append(value, cursor, 1);  // a string that only began here
                ++cursor;
            }
            if (code != 0) return code;
        }
        return 0;
    };
    auto takeWhole = [&split](ValueBuilder &value) { return takeWholeDelimited(value, split); };
    return extractValue<DELIMITED_FIT>(record, building, entry, takeWhole, build);
}

// Field i of the map: the value the steps would take whole, opened and
// closed as they do. No value of a record reaches the limit, so the growth
// for its NUL can't fail; and a value with bytes needs no capacity worked
// out, as its block is fitted to it.
template <ValueFit fit>
inline uint16_t takeMappedField(const uint8_t *record, const FieldMap &map, int16_t i, FieldEntry &entry) {
    if (uint16_t code = openEntry(entry)) return code;
    BlockRef block = blockRef(entry.value);
    if (block.slot == nullptr) return ERR_MEMORY;
    uint32_t length = map.to[i] - map.from[i];
    uint32_t capacity = length == 0 ? reservedCapacity(entry.capacity, 1) : length + 1;
    return storeValue<fit>(entry, block, record + map.from[i], length, capacity, map.printable[i]);
}

// The fields that the scan noted for the record under the cursor, taken
// from its map, with the cursor left on the first field it did not note;
// the index of that field. 0 when the table's map is not this record's.
template <ValueFit fit>
int16_t takeMappedFields(MergeTable &table, ParseCursor &record, FieldEntry *entries, int16_t count, uint16_t &code) {
    const FieldMap *map = record.offset() == 0 ? fieldMapTake(table, record.owner) : nullptr;
    if (map == nullptr) return 0;
    // Held in locals, which the stores into the entries can't be taken to
    // change, so that they are not read again for every field.
    const uint8_t *base = record.base;
    const auto mapped = std::min<int16_t>(count, static_cast<int16_t>(map->count));
    uint16_t failed = 0;
    int16_t i = 0;
    for (; failed == 0 && i < mapped; ++i) failed = takeMappedField<fit>(base, *map, i, entries[i]);
    code = failed;
    if (code == 0) record.cursor = record.base + map->begin[i];
    return i;
}

}  // namespace

uint16_t growFieldValue(FieldEntry &entry, uint32_t steps) {
    uint32_t capacity = grownCapacity(entry.value == 0 ? 0 : entry.capacity, steps);
    if (capacity == 0) return ERR_MEMORY;
    BlockHandle grown = entry.value == 0 ? blockAlloc(static_cast<uint16_t>(capacity + 1))
                                         : blockResize(entry.value, static_cast<uint16_t>(capacity));
    if (grown == 0) return ERR_MEMORY;
    entry.value = grown;
    entry.capacity = static_cast<uint16_t>(capacity);
    return 0;
}

// Both take what the scan mapped first; the split of the rest, and what it
// needs, is set up only where fields are left, which most records have not.
uint16_t extractDelimitedFields(MergeTable &table, ParseCursor &record, FieldEntry *entries, int16_t count) {
    uint16_t code = 0;
    int16_t i = takeMappedFields<DELIMITED_FIT>(table, record, entries, count, code);
    if (code != 0 || i == count) return code;
    auto *building = blockLockAs<uint8_t>(table.scratch);
    if (building == nullptr) return ERR_MEMORY;
    DelimitedSyntax syntax = delimitedSyntax(table);
    DelimitedSplit split{syntax.strings, syntax.bytes, stopScanStart(syntax.bytes.stops, record.cursor, record.limit)};
    for (; code == 0 && i < count; ++i) code = extractDelimitedField(record, building, split, entries[i]);
    return code;
}

uint16_t extractTaggedFields(MergeTable &table, ParseCursor &record, FieldEntry *entries, int16_t count) {
    uint16_t code = 0;
    int16_t i = takeMappedFields<TAGGED_FIT>(table, record, entries, count, code);
    if (code != 0 || i == count) return code;
    auto *building = blockLockAs<uint8_t>(table.scratch);
    if (building == nullptr) return ERR_MEMORY;
    StopScan stops = stopScanStart(TAGGED_TEXT_STOPS, record.cursor, record.limit);
    for (; code == 0 && i < count; ++i) code = extractTaggedField(record, building, stops, entries[i]);
    return code;
}

uint16_t loadFields(MergeTable &table) {
    const EditNode *current = currentRecord(table);
    if (current == nullptr) return ERR_MEMORY;
    // Taken once: the stores of the values could touch the table, so the
    // compiler would read it anew for every field.
    const int16_t count = table.fieldCount;
    if (count <= 0) return 0;
    auto *entries = blockLockAs<FieldEntry>(table.fields);
    if (entries == nullptr) return ERR_MEMORY;
    EditNode record = *current;
    ParseCursor cursor(record);
    if (!cursor.valid()) return ERR_MEMORY;
    return table.format->extract(table, cursor, entries, count);
}

}  // namespace mergedb
