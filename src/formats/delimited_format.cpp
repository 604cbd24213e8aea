#include "formats/delimited_format.h"

#include <cstring>

namespace mergedb {
namespace {

template <size_t N>
std::string_view stringOf(const char (&field)[N]) {
    return {field, strnlen(field, N)};
}

// The arrays the last DelimitedBytes were made from, copied whole, so that
// the views in them outlive the table and the next call can compare the
// table's arrays with them at once.
struct MadeFrom {
    char field[DELIMITER_SIZE];
    char record[DELIMITER_SIZE];
    char quote[QUOTE_SIZE];
    char ignore[DELIMITER_SIZE];
};

MadeFrom madeFrom{};
DelimitedBytes lastBytes{};
bool made = false;

bool madeFromTable(const MergeTable &table) {
    return made && std::memcmp(madeFrom.field, table.fieldDelimiter, DELIMITER_SIZE) == 0 &&
           std::memcmp(madeFrom.record, table.recordDelimiter, DELIMITER_SIZE) == 0 &&
           std::memcmp(madeFrom.quote, table.quote, QUOTE_SIZE) == 0 &&
           std::memcmp(madeFrom.ignore, table.ignore, DELIMITER_SIZE) == 0;
}

void makeBytes(const MergeTable &table) {
    std::memcpy(madeFrom.field, table.fieldDelimiter, DELIMITER_SIZE);
    std::memcpy(madeFrom.record, table.recordDelimiter, DELIMITER_SIZE);
    std::memcpy(madeFrom.quote, table.quote, QUOTE_SIZE);
    std::memcpy(madeFrom.ignore, table.ignore, DELIMITER_SIZE);
    DelimitedStrings &s = lastBytes.strings;
    s = {stringOf(madeFrom.field), stringOf(madeFrom.record), stringOf(madeFrom.quote), stringOf(madeFrom.ignore)};
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
    if (!madeFromTable(table)) makeBytes(table);
    return lastBytes;
}

}  // namespace mergedb
