// Field discovery in delimited text: the first record sets the number of
// fields, and they are named "1", "2", "3" and so on.
#include <cstdio>

#include "fields/discovery.h"
#include "fields/field_array.h"
#include "fields/parse_cursor.h"
#include "formats/delimited_format.h"
#include "mergedb/mergedb.h"
#include "values/text.h"

namespace mergedb {
namespace {

// A delimiter that is empty is outside the format and never stands anywhere.
bool delimiterAtCursor(std::string_view delimiter) {
    return !delimiter.empty() && stringStandsAt(parseCursor.cursor, parseCursor.limit, delimiter);
}

uint16_t addNumberedField(MergeTable &table) {
    if (uint16_t code = fieldsAdd(&table.fields, &table.fieldCount)) return code;
    auto *array = blockLockAs<FieldEntry>(table.fields);
    if (array == nullptr) return ERR_MEMORY;
    char number[8];
    std::snprintf(number, sizeof number, "%d", table.fieldCount);
    formatCopy(table, array[table.fieldCount - 1].name, std::span<const char>(number, sizeof number));
    return 0;
}

// Behind an opening quote: up to the quote that closes the stretch, which
// the cursor is left on.
uint16_t skipQuotedStretch(const DelimitedStrings &strings) {
    while (!quoteClosesAt(parseCursor.cursor, parseCursor.limit, strings)) {
        if (uint16_t code = parseAdvance(1)) return code;
    }
    return 0;
}

// One place of the first record. Sets ended when the record ends here.
uint16_t countAtCursor(MergeTable &table, const DelimitedStrings &strings, bool &ended) {
    ended = delimiterAtCursor(strings.record);
    if (!strings.quote.empty() && stringStandsAt(parseCursor.cursor, parseCursor.limit, strings.quote)) {
        auto quoteLength = static_cast<int32_t>(strings.quote.size());
        if (uint16_t code = parseAdvance(quoteLength)) return code;
        if (uint16_t code = skipQuotedStretch(strings)) return code;
        return parseAdvance(quoteLength);
    }
    if (ended) {
        if (uint16_t code = addNumberedField(table)) return code;
        return parseAdvance(static_cast<int32_t>(strings.record.size()));
    }
    if (delimiterAtCursor(strings.field)) {
        if (uint16_t code = addNumberedField(table)) return code;
        return parseAdvance(static_cast<int32_t>(strings.field.size()));
    }
    std::string_view ignore = atLeastOneByte(strings.ignore);
    if (stringStandsAt(parseCursor.cursor, parseCursor.limit, ignore)) {
        return parseAdvance(static_cast<int32_t>(ignore.size()));
    }
    return parseAdvance(1);
}

}  // namespace

uint16_t discoverDelimitedFields(MergeTable &table) {
    if (uint16_t code = readFirstRecord(table)) return code;
    EditNode copy{};
    if (uint16_t code = currentSnapshot(table, &copy)) return code;
    parseCursor.savedOffset = 0;
    if (uint16_t code = parseAttach(copy)) return code;
    DelimitedStrings strings = delimitedStrings(table);
    uint16_t code = 0;
    for (bool ended = false; !ended && code == 0;) code = countAtCursor(table, strings, ended);
    parseDetach();
    return code;
}

}  // namespace mergedb
