#include "records/field_extraction.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "edits/change_list.h"
#include "fields/parse_cursor.h"
#include "formats/tagged_format.h"
#include "mergedb/mergedb.h"

namespace mergedb {
namespace {

// Bytes that a tagged value stores as they stand: text characters and the
// control bytes that end nothing.
constexpr std::array<bool, 256> TAGGED_TEXT = [] {
    std::array<bool, 256> text{};
    for (int byte = 1; byte < 127; ++byte) text[byte] = byte != MARK_FIELD_END && byte != MARK_RECORD_END;
    return text;
}();

constexpr uint8_t HYPHEN = '-';

// The value is built here and copied into the entry's block when it is
// closed, so that the block is resized once, to its final size, instead of
// growing in steps and shrinking again. capacity follows the growth rule as
// a number; the entry takes it on where the steps would have left it.
uint8_t building[FIELD_VALUE_LIMIT + TOKEN_EXTENDED_CHAR_SIZE + 1];

// The value being built. Its length stays here until the value is closed,
// so that a failure on the way leaves the entry's length as it was.
struct ValueBuilder {
    FieldEntry &entry;
    uint32_t length;
    uint32_t capacity;
};

// capacity raised by steps growth steps; 0 when a block cannot be that big.
uint32_t grownCapacity(uint32_t capacity, uint32_t steps) {
    uint64_t grown = capacity + uint64_t{steps} * FIELD_GROWTH_STEP;
    return grown >= UINT16_MAX ? 0 : static_cast<uint32_t>(grown);
}

uint16_t openValue(ValueBuilder &value) {
    if (value.entry.value == 0) {
        if (uint16_t code = growFieldValue(value.entry, 1)) return code;
    }
    if (blockLock(value.entry.value) == nullptr) return ERR_MEMORY;
    value.capacity = value.entry.capacity;
    return 0;
}

// Raises the capacity until it reaches needed, by as many steps as the rule
// would take one byte at a time.
uint16_t reserve(ValueBuilder &value, uint32_t needed) {
    if (value.capacity >= needed) return 0;
    uint32_t grown = grownCapacity(value.capacity, (needed - value.capacity + FIELD_GROWTH_STEP - 1) / FIELD_GROWTH_STEP);
    if (grown == 0) return ERR_MEMORY;
    value.capacity = grown;
    return 0;
}

uint16_t append(ValueBuilder &value, const uint8_t *bytes, uint32_t count) {
    if (uint16_t code = reserve(value, value.length + count)) return code;
    std::memcpy(building + value.length, bytes, count);
    value.length += count;
    return 0;
}

// Resizes the entry's block to size, unless it has that size already.
uint8_t *resizeValueBlock(FieldEntry &entry, uint32_t size) {
    if (blockSize(entry.value) != size && blockResize(entry.value, static_cast<uint16_t>(size)) == 0) return nullptr;
    return blockLockAs<uint8_t>(entry.value);
}

// After a failure: the entry's block grown as far, and written as far, as
// the steps had come, its length unchanged.
void keepPartialValue(ValueBuilder &value) {
    uint8_t *text = blockLockAs<uint8_t>(value.entry.value);
    if (value.capacity != value.entry.capacity) {
        text = resizeValueBlock(value.entry, value.capacity);
        if (text == nullptr) return;
        value.entry.capacity = static_cast<uint16_t>(value.capacity);
    }
    std::memcpy(text, building, value.length);
}

// Ends the text with a NUL and stores it and its length. The block of a
// value that has bytes fits to length + blockExtra with a capacity of
// length + capacityExtra; an empty value keeps its block, grown if the
// capacity had to be. A failed fit still stores the length.
uint16_t closeValue(ValueBuilder &value, uint16_t blockExtra, uint16_t capacityExtra) {
    if (uint16_t code = reserve(value, value.length + 1)) {
        keepPartialValue(value);
        return code;
    }
    FieldEntry &entry = value.entry;
    entry.length = static_cast<uint16_t>(value.length);
    bool empty = value.length == 0;
    uint32_t size = empty ? (value.capacity == entry.capacity ? blockSize(entry.value) : value.capacity)
                          : value.length + blockExtra;
    uint8_t *text = resizeValueBlock(entry, size);
    if (text == nullptr) return ERR_MEMORY;
    entry.capacity = static_cast<uint16_t>(empty ? value.capacity : value.length + capacityExtra);
    std::memcpy(text, building, value.length);
    text[value.length] = 0;
    return 0;
}

// The length of the run of bytes at the cursor that the table calls
// ordinary, cut where the value would reach its limit.
uint32_t runLength(const std::array<bool, 256> &ordinary, uint32_t length) {
    const uint8_t *start = parseCursor.cursor;
    const uint8_t *end = start + std::min<size_t>(parseRemaining(), FIELD_VALUE_LIMIT - length);
    const uint8_t *p = start;
    while (p < end && ordinary[*p]) ++p;
    return static_cast<uint32_t>(p - start);
}

// A tagged token at the cursor that is neither text nor a byte 0.
uint16_t taggedToken(ValueBuilder &value, bool &ended) {
    const uint8_t *p = parseCursor.cursor;
    switch (tokenClass(p)) {
    case TOKEN_CONTROL:  // only the two field ends are no text
        ended = true;
        return parseAdvance(1);
    case TOKEN_SINGLE:
        if (*p == MARK_HYPHEN) {
            if (uint16_t code = append(value, &HYPHEN, 1)) return code;
        }
        return parseAdvance(1);
    case TOKEN_FIXED:
        if (!isExtendedChar(p)) return parseSkipFixed();
        // The whole token stays in the value, with a byte spare behind it.
        if (uint16_t code = reserve(value, value.length + TOKEN_EXTENDED_CHAR_SIZE + 1)) return code;
        if (parseRemaining() < TOKEN_EXTENDED_CHAR_SIZE) return ERR_FORMAT;
        std::memcpy(building + value.length, p, TOKEN_EXTENDED_CHAR_SIZE);
        value.length += TOKEN_EXTENDED_CHAR_SIZE;
        return parseAdvance(TOKEN_EXTENDED_CHAR_SIZE);
    default:  // TOKEN_VARIABLE: the function ends stay under the cursor for parseSkipLine
        if (parseRemaining() >= 2 && (isFunction(p, FUNCTION_FIELD_END) || isFunction(p, FUNCTION_RECORD_END))) {
            ended = true;
            return 0;
        }
        return parseSkipVariable();
    }
}

// Whether the non-empty text stands at the cursor, which lies before the
// limit. The first byte is compared here, so that most places cost no call.
bool standsAt(std::string_view text) {
    return !text.empty() && *parseCursor.cursor == static_cast<uint8_t>(text[0]) &&
           stringStandsAt(parseCursor.cursor, parseCursor.limit, text);
}

// The inside of a quoted stretch, from behind its opening quote up to the
// quote that closes it, on which the cursor stays. Only the quote means
// anything here.
uint16_t quotedStretch(ValueBuilder &value, const DelimitedStrings &strings) {
    uint8_t *&cursor = parseCursor.cursor;
    const auto quoteStart = static_cast<uint8_t>(strings.quote[0]);
    while (value.length < FIELD_VALUE_LIMIT && cursor < parseCursor.limit) {
        size_t room = std::min<size_t>(parseRemaining(), FIELD_VALUE_LIMIT - value.length);
        const auto *quote = static_cast<const uint8_t *>(std::memchr(cursor, quoteStart, room));
        size_t run = quote == nullptr ? room : static_cast<size_t>(quote - cursor);
        if (run == 0) {
            if (uint16_t code = reserve(value, value.length + 1)) return code;
            if (quoteClosesAt(cursor, parseCursor.limit, strings)) return 0;
            run = 1;  // a quote that closes nothing is text
        }
        if (uint16_t code = append(value, cursor, static_cast<uint32_t>(run))) return code;
        cursor += run;
    }
    return 0;
}

// Builds one value with build, which reads from the parse cursor, and
// closes it; a failure of build leaves the entry as the steps had left it.
template <typename Build>
uint16_t extractValue(FieldEntry &entry, uint16_t blockExtra, uint16_t capacityExtra, Build build) {
    ValueBuilder value{entry, 0, 0};
    if (uint16_t code = openValue(value)) return code;
    if (uint16_t code = build(value)) {
        keepPartialValue(value);
        return code;
    }
    return closeValue(value, blockExtra, capacityExtra);
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

DelimitedSplit delimitedSplit(const MergeTable &table) {
    DelimitedSplit split{delimitedStrings(table), {}};
    split.ordinary.fill(true);
    for (std::string_view s : {split.strings.quote, split.strings.record, split.strings.field, split.strings.ignore}) {
        if (!s.empty()) split.ordinary[static_cast<uint8_t>(s[0])] = false;
    }
    return split;
}

uint16_t extractTaggedField(FieldEntry &entry) {
    auto build = [](ValueBuilder &value) -> uint16_t {
        uint8_t *&cursor = parseCursor.cursor;
        bool ended = false;
        while (!ended && cursor < parseCursor.limit && *cursor != 0 && value.length < FIELD_VALUE_LIMIT) {
            uint32_t run = runLength(TAGGED_TEXT, value.length);
            uint16_t code = 0;
            if (run != 0) {
                code = append(value, cursor, run);
                cursor += run;
            } else {
                code = taggedToken(value, ended);
            }
            if (code != 0) return code;
        }
        return 0;
    };
    if (uint16_t code = extractValue(entry, TOKEN_EXTENDED_CHAR_SIZE, TOKEN_EXTENDED_CHAR_SIZE, build)) return code;
    return parseSkipLine();
}

uint16_t extractDelimitedField(const DelimitedSplit &split, FieldEntry &entry) {
    auto build = [&split](ValueBuilder &value) -> uint16_t {
        const DelimitedStrings &s = split.strings;
        uint8_t *&cursor = parseCursor.cursor;
        for (bool ended = false; !ended && value.length < FIELD_VALUE_LIMIT;) {
            // The record ended before this field did.
            if (cursor >= parseCursor.limit) return ERR_FORMAT;
            uint32_t run = runLength(split.ordinary, value.length);
            uint16_t code = 0;
            if (run != 0) {
                code = append(value, cursor, run);
                cursor += run;
            } else if (standsAt(s.quote)) {
                cursor += s.quote.size();
                code = quotedStretch(value, s);
                if (code == 0) code = parseAdvance(static_cast<int32_t>(s.quote.size()));
            } else if (standsAt(s.record)) {
                ended = true;
                cursor += s.record.size();
            } else if (standsAt(s.field)) {
                ended = true;
                cursor += s.field.size();
            } else if (standsAt(s.ignore)) {
                cursor += s.ignore.size();
            } else {
                code = append(value, cursor, 1);  // a string that only began here
                ++cursor;
            }
            if (code != 0) return code;
        }
        return 0;
    };
    return extractValue(entry, 1, 0, build);
}

uint16_t loadFields(MergeTable &table, BlockHandle fields) {
    EditNode record{};
    if (uint16_t code = currentSnapshot(table, &record)) return code;
    parseCursor.savedOffset = 0;
    if (table.fieldCount <= 0) return 0;
    auto *entries = blockLockAs<FieldEntry>(fields);
    if (entries == nullptr) return ERR_MEMORY;
    if (uint16_t code = parseAttach(record)) return code;
    uint16_t code = 0;
    if (table.kind == DB_KIND_DELIMITED) {
        DelimitedSplit split = delimitedSplit(table);
        for (int16_t i = 0; code == 0 && i < table.fieldCount; ++i) code = extractDelimitedField(split, entries[i]);
    } else if (isTaggedKind(table.kind)) {
        for (int16_t i = 0; code == 0 && i < table.fieldCount; ++i) code = extractTaggedField(entries[i]);
    } else {
        code = ERR_FORMAT;
    }
    parseDetach();
    return code;
}

}  // namespace mergedb
