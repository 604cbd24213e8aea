// The pieces of the delimited text format that its readers in memory share:
// the table's four strings, and whole-string matches within a record.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "formats/byte_runs.h"
#include "tablefile/table.h"

namespace mergedb {

struct DelimitedStrings {
    std::string_view field;
    std::string_view record;
    std::string_view quote;
    std::string_view ignore;
};

// The table's strings, each cut at its NUL or at the end of its array.
DelimitedStrings delimitedStrings(const MergeTable &table);

// Which of the strings may begin at a byte, as bits.
inline constexpr uint8_t OPENS_QUOTE = 1;
inline constexpr uint8_t OPENS_RECORD = 2;
inline constexpr uint8_t OPENS_FIELD = 4;
inline constexpr uint8_t OPENS_IGNORE = 8;

// What the readers of delimited text look up for each byte: the strings it
// may begin, and the stop bytes, the first bytes of the non-empty strings,
// at which runs of ordinary bytes end; for the walk backward, the last
// bytes of the strings. An empty string begins and ends nowhere.
struct DelimitedBytes {
    DelimitedStrings strings;
    std::array<uint8_t, 256> opens;
    StopBytes stops;
    StopBytes lastBytes;
};

// The table's DelimitedBytes. They are made again only when the table's
// strings differ from those of the last call, so a walk makes them once;
// the result holds until the next call.
const DelimitedBytes &delimitedBytes(const MergeTable &table);

// Whether all of text stands at p, byte for byte, ending at or before limit.
// An empty text stands everywhere; callers that skip empty strings test that.
// The strings are a few bytes long, so a loop compares them.
inline bool stringStandsAt(const uint8_t *p, const uint8_t *limit, std::string_view text) {
    if (p > limit || static_cast<size_t>(limit - p) < text.size()) return false;
    for (size_t i = 0; i < text.size(); ++i) {
        if (p[i] != static_cast<uint8_t>(text[i])) return false;
    }
    return true;
}

// text for a test that compares at least one byte: an empty text becomes
// its terminator, so that it matches a byte 0.
inline std::string_view atLeastOneByte(std::string_view text) {
    return text.empty() ? std::string_view("", 1) : text;
}

// Whether the quote at p closes a quoted stretch: the whole quote stands at
// p, and behind it the whole field delimiter, the whole record delimiter or
// the ignore string, of which at least one byte is compared.
inline bool quoteClosesAt(const uint8_t *p, const uint8_t *limit, const DelimitedStrings &strings) {
    if (!stringStandsAt(p, limit, strings.quote)) return false;
    const uint8_t *behind = p + strings.quote.size();
    return stringStandsAt(behind, limit, strings.field) || stringStandsAt(behind, limit, strings.record) ||
           stringStandsAt(behind, limit, atLeastOneByte(strings.ignore));
}

}  // namespace mergedb
