// Field extraction: splits the current record into the value blocks of the
// field array, field by field in array order.
#pragma once

#include <cstdint>

#include "fields/field_array.h"
#include "records/parse_cursor.h"
#include "tablefile/table.h"

namespace mergedb {

// A value's capacity rises in steps of FIELD_GROWTH_STEP, and a value stops
// taking bytes once it holds FIELD_VALUE_LIMIT of them.
inline constexpr uint16_t FIELD_GROWTH_STEP = 128;

// Fills every entry of the table's field array with its value in
// table.current. On failure the entries in front of the failing one hold the
// new record, the failing one and those behind it keep their lengths.
uint16_t loadFields(MergeTable &table);

// The splits of the two formats, of the record at the cursor into count
// entries.
uint16_t extractDelimitedFields(MergeTable &table, ParseCursor &record, FieldEntry *entries, int16_t count);
uint16_t extractTaggedFields(MergeTable &table, ParseCursor &record, FieldEntry *entries, int16_t count);

// Raises the entry's capacity by steps growth steps, resizing its block to
// the new capacity in one go. An entry without a block gets a new one of
// capacity + 1 bytes, its capacity counting from 0. Gives 0 or ERR_MEMORY.
uint16_t growFieldValue(FieldEntry &entry, uint32_t steps);

}  // namespace mergedb
