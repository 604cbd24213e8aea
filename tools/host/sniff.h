// Guesses of what a delimited file does not say about itself: its line
// ends, its field delimiter and its encoding, from the bytes at its start.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "codepage.h"

namespace mergedb::host {

// How many line ends of each kind stand outside double quotes.
struct LineEnds {
    size_t crlf = 0;
    size_t lf = 0;
    size_t cr = 0;
    int kinds() const { return (crlf != 0) + (lf != 0) + (cr != 0); }
};

struct Sniffed {
    LineEnds lineEnds;
    std::string fieldDelimiter;  // ",", ";", "\t" or "|"
    Encoding encoding = Encoding::Utf8;
    size_t bomLength = 0;         // 3 when the text begins with the UTF-8 byte-order mark
    bool utf16 = false;           // a UTF-16 byte-order mark, which no delimiter of bytes can read
};

// The largest start of a file that is looked at.
inline constexpr size_t SNIFF_BYTES = 64 * 1024;

// Looks at sample, the start of a file; whole tells whether it is the whole
// file, or whether its last line may be cut off.
Sniffed sniffDelimited(std::string_view sample, bool whole);

}  // namespace mergedb::host
