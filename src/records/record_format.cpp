#include "records/record_format.h"

#include <array>

#include "formats/tagged_format.h"
#include "formats/tagged_text.h"
#include "mergedb/mergedb.h"
#include "records/backward.h"
#include "records/discovery.h"
#include "records/field_extraction.h"

namespace mergedb {
namespace {

template <size_t N>
std::string_view stringOf(const char (&field)[N]) {
    return {field, strnlen(field, N)};
}

DelimitedStrings delimitedStrings(const MergeTable &table) {
    return {stringOf(table.fieldDelimiter), stringOf(table.recordDelimiter), stringOf(table.quote),
            stringOf(table.ignore)};
}

uint16_t writeText(ParseCursor &cursor, std::string_view text) {
    return cursor.write(text.data(), static_cast<uint32_t>(text.size()));
}

uint16_t writeBytes(ParseCursor &cursor, std::span<const uint8_t> bytes) {
    return cursor.write(bytes.data(), static_cast<uint32_t>(bytes.size()));
}

// Delimited text: the value in quotes, nothing escaped or doubled, and the
// field delimiter only while another field follows, since the record
// delimiter takes its place.
uint16_t writeDelimitedField(const MergeTable &table, ParseCursor &cursor, std::span<const uint8_t> value,
                             bool last) {
    DelimitedStrings strings = delimitedStrings(table);
    uint16_t code = writeText(cursor, strings.quote);
    if (code == 0) code = writeBytes(cursor, value);
    if (code == 0) code = writeText(cursor, strings.quote);
    if (code == 0 && !last) code = writeText(cursor, strings.field);
    return code;
}

uint16_t writeDelimitedRecordEnd(const MergeTable &table, ParseCursor &cursor) {
    return writeText(cursor, delimitedStrings(table).record);
}

// A tagged value with the end of field behind it, the last one included.
template <uint16_t KIND>
uint16_t writeTaggedField(const MergeTable &, ParseCursor &cursor, std::span<const uint8_t> value, bool) {
    uint16_t code = writeBytes(cursor, value);
    return code != 0 ? code : writeBytes(cursor, taggedFieldEnd(KIND));
}

template <uint16_t KIND>
uint16_t writeTaggedRecordEnd(const MergeTable &, ParseCursor &cursor) {
    return writeBytes(cursor, taggedRecordEnd(KIND));
}

uint16_t plainTextLength(std::span<const char> text) { return static_cast<uint16_t>(plainLength(text)); }

uint32_t documentStart(const MergeTable &table) { return tableDocOffset(table); }

uint32_t fileStart(const MergeTable &) { return 0; }

constexpr RecordFormat DELIMITED = {
    .scan = scanDelimitedRecord,
    .locatePrevious = locateDelimitedPrevious,
    .locateLast = locateDelimitedLast,
    .extract = extractDelimitedFields,
    .discover = discoverDelimitedFields,
    .writeField = writeDelimitedField,
    .writeRecordEnd = writeDelimitedRecordEnd,
    .textLength = plainTextLength,
    .textCopy = plainCopy,
    .textToHost = plainTextToHost,
    .textFromHost = plainTextFromHost,
    .dataStart = fileStart,
    .fieldsFromPuts = true,
};

template <uint16_t KIND>
constexpr RecordFormat TAGGED = {
    .scan = scanTaggedRecord,
    .locatePrevious = locateTaggedPrevious,
    .locateLast = locateTaggedLast,
    .extract = extractTaggedFields,
    .discover = discoverTaggedFields,
    .writeField = writeTaggedField<KIND>,
    .writeRecordEnd = writeTaggedRecordEnd<KIND>,
    .textLength = textLength,
    .textCopy = textCopy,
    .textToHost = taggedTextToHost,
    .textFromHost = taggedTextFromHost,
    .dataStart = documentStart,
    .fieldsFromPuts = false,
};

}  // namespace

const RecordFormat *recordFormatOf(uint16_t kind) {
    switch (kind) {
    case DB_KIND_DELIMITED: return &DELIMITED;
    case DB_KIND_TAGGED_0: return &TAGGED<DB_KIND_TAGGED_0>;
    case DB_KIND_TAGGED_1: return &TAGGED<DB_KIND_TAGGED_1>;
    default: return nullptr;
    }
}

DelimitedSyntax delimitedSyntax(const MergeTable &table) {
    const auto &bytes = *blockLockAs<DelimitedBytes>(table.delimitedBytes);
    DelimitedStrings strings{{table.fieldDelimiter, bytes.sizes[0]},
                             {table.recordDelimiter, bytes.sizes[1]},
                             {table.quote, bytes.sizes[2]},
                             {table.ignore, bytes.sizes[3]}};
    return {strings, bytes};
}

uint16_t delimitedBytesMake(MergeTable &table) {
    table.delimitedBytes = blockAlloc(sizeof(DelimitedBytes));
    auto *bytes = blockLockAs<DelimitedBytes>(table.delimitedBytes);
    if (bytes == nullptr) return ERR_MEMORY;
    *bytes = delimitedBytesOf(delimitedStrings(table));
    return 0;
}

}  // namespace mergedb
