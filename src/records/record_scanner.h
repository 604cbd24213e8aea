// The forward record scanner: copies the record that starts at the read
// window's position into the table's current record.
#pragma once

#include <cstdint>

#include "records/record.h"
#include "tablefile/window.h"

namespace mergedb {

struct FieldMap;

// Where the bytes of a record go while it is scanned. A record that a scan
// finds whole in the window may stay there: the sink then points at it.
struct RecordSink {
    uint8_t *start;     // the first byte
    uint8_t *cursor;    // the next byte to be written
    uint32_t capacity;  // the record block's size under its growth rule
    uint8_t *reach;     // end of what a read that failed midway may have written
    FieldMap *map;      // the table's field map (field_map.h), once it has one
};

// The scans of the two formats: each copies one record, its terminator
// included, from the window into the sink.
uint16_t scanDelimitedRecord(WindowCursor &window, RecordSink &sink);
uint16_t scanTaggedRecord(WindowCursor &window, RecordSink &sink);

// Reads the record at the window's position into table.current: its offset,
// its exact bytes with the terminator, and both lengths. On failure the
// offset is set and the lengths are 0.
uint16_t readRecord(MergeTable &table);

}  // namespace mergedb
