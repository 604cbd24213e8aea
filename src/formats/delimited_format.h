// The pieces of the delimited text format that its readers in memory share:
// the table's four strings, and whole-string matches within a record.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "formats/byte_runs.h"

namespace mergedb {

// The four strings of a delimited table. An empty field or record
// delimiter is outside the format and never stands anywhere.
struct DelimitedStrings {
    std::string_view field;
    std::string_view record;
    std::string_view quote;
    std::string_view ignore;
};

// Which of the strings may begin at a byte, as bits.
inline constexpr uint8_t OPENS_QUOTE = 1;
inline constexpr uint8_t OPENS_RECORD = 2;
inline constexpr uint8_t OPENS_FIELD = 4;
inline constexpr uint8_t OPENS_IGNORE = 8;

// What the readers of delimited text look up for each byte: the strings it
// may begin, and the stop bytes, the first bytes of the non-empty strings,
// at which runs of ordinary bytes end; for the walk backward, the last
// bytes of the strings. An empty string begins and ends nowhere.
//
// singlePass: the syntax of most tables, in which the scanner can note the
// fields of a record as it finds the record's end: both delimiters given, a
// quote of at most one byte, and no byte that begins two of the strings, so
// that the scanner's order of tests and extraction's can't disagree.
//
// sizes: the lengths of the four strings, in the order of DelimitedStrings,
// so that their readers need not measure them for every record.
struct DelimitedBytes {
    std::array<uint8_t, 256> opens;
    StopBytes stops;
    StopBytes lastBytes;
    bool singlePass;
    std::array<uint8_t, 4> sizes;
};

DelimitedBytes delimitedBytesOf(const DelimitedStrings &strings);

// What every reader of a delimited table works with.
struct DelimitedSyntax {
    DelimitedStrings strings;
    const DelimitedBytes &bytes;
};

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

// The plain string length of text, at most its size.
inline size_t plainLength(std::span<const char> text) { return textBytes(text.data(), text.size()); }

// A plain string copy that keeps within dst: at most dst.size() - 1 bytes
// and a NUL.
void plainCopy(std::span<char> dst, std::span<const char> src);

// A value of delimited text for the host: at most limit bytes and a NUL in
// buffer, converted from the ANSI page to the OEM page when ansi. Gives the
// length.
uint16_t plainTextToHost(std::span<const char> value, char *buffer, size_t limit, bool ansi);

// The host's text in block, as it is, or converted to the ANSI page when
// ansi; read no further than the block's capacity - 1.
void plainTextFromHost(const char *text, std::span<char> block, bool ansi);

}  // namespace mergedb
