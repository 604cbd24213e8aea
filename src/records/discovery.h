// Field discovery: filling a table's field array when the table opens, with
// the window on the first record. Delimited text counts the fields of its
// first record; a tagged document reads its head record.
#pragma once

#include <cstdint>

#include "tablefile/table.h"

namespace mergedb {

uint16_t discoverTaggedFields(MergeTable &table);
uint16_t discoverDelimitedFields(MergeTable &table);

// Gives table.current a node and reads the first record into it.
uint16_t readFirstRecord(MergeTable &table);

}  // namespace mergedb
