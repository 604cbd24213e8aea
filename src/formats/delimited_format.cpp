#include "formats/delimited_format.h"

#include <cstring>

namespace mergedb {
namespace {

template <size_t N>
std::string_view stringOf(const char (&field)[N]) {
    return {field, strnlen(field, N)};
}

}  // namespace

DelimitedStrings delimitedStrings(const MergeTable &table) {
    return {stringOf(table.fieldDelimiter), stringOf(table.recordDelimiter), stringOf(table.quote),
            stringOf(table.ignore)};
}

bool stringStandsAt(const uint8_t *p, const uint8_t *limit, std::string_view text) {
    return p <= limit && static_cast<size_t>(limit - p) >= text.size() &&
           std::memcmp(p, text.data(), text.size()) == 0;
}

std::string_view atLeastOneByte(std::string_view text) {
    return text.empty() ? std::string_view("", 1) : text;
}

bool quoteClosesAt(const uint8_t *p, const uint8_t *limit, const DelimitedStrings &strings) {
    if (!stringStandsAt(p, limit, strings.quote)) return false;
    const uint8_t *behind = p + strings.quote.size();
    return stringStandsAt(behind, limit, strings.field) || stringStandsAt(behind, limit, strings.record) ||
           stringStandsAt(behind, limit, atLeastOneByte(strings.ignore));
}

}  // namespace mergedb
