#include "formats/delimited_format.h"

#include <algorithm>

namespace mergedb {
namespace {

// The strings are a few bytes long; a loop measures them faster than a call.
template <size_t N>
std::string_view stringOf(const char (&field)[N]) {
    size_t length = 0;
    while (length < N && field[length] != '\0') ++length;
    return {field, length};
}

// The strings the last DelimitedBytes were made from, kept in arrays of
// their own, so that the views in them outlive the table.
struct MadeFrom {
    char field[DELIMITER_SIZE];
    char record[DELIMITER_SIZE];
    char quote[QUOTE_SIZE];
    char ignore[DELIMITER_SIZE];
};

MadeFrom madeFrom{};
DelimitedBytes lastBytes{};
bool made = false;

bool sameStrings(const DelimitedStrings &a, const DelimitedStrings &b) {
    auto same = [](std::string_view x, std::string_view y) {
        if (x.size() != y.size()) return false;
        for (size_t i = 0; i < x.size(); ++i) {
            if (x[i] != y[i]) return false;
        }
        return true;
    };
    return same(a.field, b.field) && same(a.record, b.record) && same(a.quote, b.quote) && same(a.ignore, b.ignore);
}

template <size_t N>
std::string_view keep(char (&kept)[N], std::string_view text) {
    std::fill(std::begin(kept), std::end(kept), '\0');
    std::copy(text.begin(), text.end(), kept);
    return {kept, text.size()};
}

void makeBytes(const DelimitedStrings &strings) {
    DelimitedStrings &s = lastBytes.strings;
    s = {keep(madeFrom.field, strings.field), keep(madeFrom.record, strings.record),
         keep(madeFrom.quote, strings.quote), keep(madeFrom.ignore, strings.ignore)};
    lastBytes.opens = {};
    lastBytes.stops = {};
    lastBytes.lastBytes = {};
    for (auto [text, bit] : {std::pair{s.quote, OPENS_QUOTE}, std::pair{s.record, OPENS_RECORD},
                             std::pair{s.field, OPENS_FIELD}, std::pair{s.ignore, OPENS_IGNORE}}) {
        if (text.empty()) continue;
        auto first = static_cast<uint8_t>(text[0]);
        lastBytes.opens[first] |= bit;
        stopBytesAdd(lastBytes.stops, first);
        stopBytesAdd(lastBytes.lastBytes, static_cast<uint8_t>(text.back()));
    }
    made = true;
}

}  // namespace

DelimitedStrings delimitedStrings(const MergeTable &table) {
    return {stringOf(table.fieldDelimiter), stringOf(table.recordDelimiter), stringOf(table.quote),
            stringOf(table.ignore)};
}

const DelimitedBytes &delimitedBytes(const MergeTable &table) {
    DelimitedStrings strings = delimitedStrings(table);
    if (!made || !sameStrings(strings, lastBytes.strings)) makeBytes(strings);
    return lastBytes;
}

}  // namespace mergedb
