// The field map: where the fields of the record that the scanner has just
// delivered lie. Where the scanner's rules and extraction's agree, the scan
// that finds a record's end also notes, field by field, the values that
// extraction would take whole, the common shapes:
// - delimited text whose syntax allows it (singlePass): a run of ordinary
//   bytes, or a quote, text and the quote that closes it, each followed by
//   a whole field or record delimiter;
// - tagged documents: a run of text ended by a field or record end, byte or
//   function token, with a line end right behind it. The scan notes too
//   whether the run is nothing but printable characters, which a read then
//   gives to the host as they stand.
// Extraction then takes those values from the map instead of passing over
// the record a second time. In delimited text the first field of another
// shape ends the map, and extraction goes on from its first byte by its
// own steps; a tagged record with a field of another shape is not mapped.
// So every record splits as the steps split it.
#pragma once

#include <cstdint>

#include "fields/field_array.h"
#include "formats/delimited_format.h"
#include "records/record.h"

namespace mergedb {

struct FieldMap {
    // The record the map describes, which must be table.current when it is
    // taken: the scan's offset, length and block.
    uint32_t offset;
    uint32_t length;
    BlockHandle data;
    // Made by the last scan, for that record, and not yet taken.
    bool fresh;
    uint16_t count;  // the fields noted
    // Where field i begins, from the record's first byte; begin[count] is
    // where the first field that is not noted begins, which is the record's
    // end when every field was.
    uint16_t begin[FIELD_LIMIT + 1];
    // Field i's value: its first byte and the byte behind its last.
    uint16_t from[FIELD_LIMIT];
    uint16_t to[FIELD_LIMIT];
    // Field i's value holds printable characters (32-126) only; always
    // false in the map of a delimited record.
    bool printable[FIELD_LIMIT];
};

static_assert(LONGEST_RECORD <= UINT16_MAX, "offsets in a record fit 16 bits");
static_assert(LONGEST_RECORD < FIELD_VALUE_LIMIT, "no value of a record reaches the limit");

// The table's map, made on first use; null when there is no memory for it,
// which only costs the second pass.
FieldMap *fieldMapOf(MergeTable &table);

// Scans the record that begins at start, in a singlePass syntax, by the
// scanner's rules, and notes its fields in the map. Gives the byte behind
// the record's delimiter, or null when the record does not end before end;
// up to a delimiter's length and one byte behind end may be read.
const uint8_t *scanMappedRecord(const DelimitedSyntax &syntax, const uint8_t *start, const uint8_t *end,
                                FieldMap &map);

// The bytes at which a run of a tagged value's text stops: all but the text
// characters and the control bytes that end nothing.
extern const StopBytes TAGGED_TEXT_STOPS;

// Scans the tagged record that begins at start by the scanner's rules,
// where each of its fields up to its end mark has the common shape, and
// notes its fields in the map. Gives the byte behind the record's line end,
// or null for a record of another shape or one that does not end before
// end; a fixed token's length behind end may be read.
const uint8_t *scanMappedTaggedRecord(const uint8_t *start, const uint8_t *end, FieldMap &map);

// After a scan, before which the map was no longer fresh: the map, if the
// scan made one and succeeded, describes the node. After a failed one it
// describes nothing.
void fieldMapSettle(FieldMap &map, const EditNode &node, bool scanned);

// The table's map when it describes the node, which it then no longer does:
// a map is taken once. Null otherwise.
const FieldMap *fieldMapTake(MergeTable &table, const EditNode &node);

}  // namespace mergedb
