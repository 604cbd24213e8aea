// What differs between the table formats, chosen when a table opens and
// kept in table.format: how a record is found going forward and backward,
// split into fields and built, how the fields are found at the start, and
// how a value's text is measured and copied. Nothing above this asks a
// table for its kind to decide how to read or write it.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "fields/field_array.h"
#include "formats/delimited_format.h"
#include "records/parse_cursor.h"
#include "records/record_scanner.h"
#include "tablefile/table.h"

namespace mergedb {

struct RecordFormat {
    // Copies the record at the window's position into the sink.
    uint16_t (*scan)(WindowCursor &window, RecordSink &sink);
    // Stand the window on the first byte of the record in front of the
    // record at offset, or of the last record.
    uint16_t (*locatePrevious)(MergeTable &table, uint32_t offset);
    uint16_t (*locateLast)(MergeTable &table);
    // Splits the record at the cursor into the entries, in their order.
    uint16_t (*extract)(MergeTable &table, ParseCursor &cursor, FieldEntry *entries, int16_t count);
    // Fills the empty field array from the first record, at open; the
    // window stands on the first record.
    uint16_t (*discover)(MergeTable &table);
    // Appends one field of a record being built, with what ends it (last:
    // it is the record's last field), and what ends the record.
    uint16_t (*writeField)(const MergeTable &table, ParseCursor &cursor, std::span<const uint8_t> value, bool last);
    uint16_t (*writeRecordEnd)(const MergeTable &table, ParseCursor &cursor);
    // The length of a value's text, and a copy of it within dst.
    uint16_t (*textLength)(std::span<const char> text);
    void (*textCopy)(std::span<char> dst, std::span<const char> src);
    // A value's text for the host: at most limit bytes and a NUL in buffer,
    // in the OEM page. ansi: the file's text is in the ANSI page.
    uint16_t (*textToHost)(std::span<const char> value, char *buffer, size_t limit, bool ansi);
    // The host's text for a value block of capacity bytes, and its length.
    void (*textFromHost)(const char *text, std::span<char> block, bool ansi);
    // Where the table's records begin: behind the header of a tagged
    // document, at the start of delimited text.
    uint32_t (*dataStart)(const MergeTable &table);
    // A put names a new field by its number; otherwise the fields are the
    // head's.
    bool fieldsFromPuts;
};

// The format of a table kind; null for an unknown kind.
const RecordFormat *recordFormatOf(uint16_t kind);

// The table's delimited strings and the bytes made from them.
DelimitedSyntax delimitedSyntax(const MergeTable &table);

// Makes the table's delimited bytes from its strings; ERR_MEMORY without
// room for them.
uint16_t delimitedBytesMake(MergeTable &table);

}  // namespace mergedb
