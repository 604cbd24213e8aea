// The pieces of the delimited text format that its readers in memory share:
// the table's four strings, and whole-string matches within a record.
#pragma once

#include <cstdint>
#include <string_view>

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

// Whether all of text stands at p, byte for byte, ending at or before limit.
// An empty text stands everywhere; callers that skip empty strings test that.
bool stringStandsAt(const uint8_t *p, const uint8_t *limit, std::string_view text);

// text for a test that compares at least one byte: an empty text becomes
// its terminator, so that it matches a byte 0.
std::string_view atLeastOneByte(std::string_view text);

// Whether the quote at p closes a quoted stretch: the whole quote stands at
// p, and behind it the whole field delimiter, the whole record delimiter or
// the ignore string, of which at least one byte is compared.
bool quoteClosesAt(const uint8_t *p, const uint8_t *limit, const DelimitedStrings &strings);

}  // namespace mergedb
