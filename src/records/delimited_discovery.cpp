// Field discovery in delimited text: the first record sets the number of
// fields, and they are named "1", "2", "3" and so on.
#include <cstdio>

#include "fields/field_array.h"
#include "formats/delimited_format.h"
#include "mergedb/mergedb.h"
#include "records/discovery.h"
#include "records/parse_cursor.h"
#include "records/record_format.h"

namespace mergedb {
namespace {

// A delimiter that is empty is outside the format and never stands anywhere.
bool delimiterAt(const ParseCursor &record, std::string_view delimiter) {
    return !delimiter.empty() && stringStandsAt(record.cursor, record.limit, delimiter);
}

uint16_t addNumberedField(MergeTable &table) {
    if (uint16_t code = fieldsAdd(&table.fields, &table.fieldCount)) return code;
    auto *array = blockLockAs<FieldEntry>(table.fields);
    if (array == nullptr) return ERR_MEMORY;
    char number[8];
    std::snprintf(number, sizeof number, "%d", table.fieldCount);
    plainCopy(array[table.fieldCount - 1].name, std::span<const char>(number, sizeof number));
    return 0;
}

// Behind an opening quote: up to the quote that closes the stretch, which
// the cursor is left on.
uint16_t skipQuotedStretch(ParseCursor &record, const DelimitedStrings &strings) {
    while (!quoteClosesAt(record.cursor, record.limit, strings)) {
        if (uint16_t code = record.advance(1)) return code;
    }
    return 0;
}

// One place of the first record. Sets ended when the record ends here.
uint16_t countAtCursor(MergeTable &table, ParseCursor &record, const DelimitedStrings &strings, bool &ended) {
    ended = delimiterAt(record, strings.record);
    if (!strings.quote.empty() && stringStandsAt(record.cursor, record.limit, strings.quote)) {
        auto quoteLength = static_cast<int32_t>(strings.quote.size());
        if (uint16_t code = record.advance(quoteLength)) return code;
        if (uint16_t code = skipQuotedStretch(record, strings)) return code;
        return record.advance(quoteLength);
    }
    if (ended) {
        if (uint16_t code = addNumberedField(table)) return code;
        return record.advance(static_cast<int32_t>(strings.record.size()));
    }
    if (delimiterAt(record, strings.field)) {
        if (uint16_t code = addNumberedField(table)) return code;
        return record.advance(static_cast<int32_t>(strings.field.size()));
    }
    std::string_view ignore = atLeastOneByte(strings.ignore);
    if (stringStandsAt(record.cursor, record.limit, ignore)) return record.advance(static_cast<int32_t>(ignore.size()));
    return record.advance(1);
}

}  // namespace

// A table on an empty file has no fields until a put makes them.
uint16_t discoverDelimitedFields(MergeTable &table) {
    if (table.fileSize == 0) return 0;
    if (uint16_t code = readFirstRecord(table)) return code;
    EditNode copy = *currentRecord(table);
    ParseCursor record(copy);
    if (!record.valid()) return ERR_MEMORY;
    DelimitedStrings strings = delimitedSyntax(table).strings;
    uint16_t code = 0;
    for (bool ended = false; !ended && code == 0;) code = countAtCursor(table, record, strings, ended);
    return code;
}

}  // namespace mergedb
