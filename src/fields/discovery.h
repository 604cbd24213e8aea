// Field discovery: filling a table's field array when the table opens.
#pragma once

#include <cstdint>

#include "tablefile/table.h"

namespace mergedb {

// Runs the discovery of the table's kind, with the window on the first
// record: delimited text counts the fields of its first record, tagged
// documents read their head record. Another kind gives ERR_FORMAT.
uint16_t discoverFields(MergeTable &table);

uint16_t discoverTaggedFields(MergeTable &table);
uint16_t discoverDelimitedFields(MergeTable &table);

// Gives table.current a node and reads the first record into it.
uint16_t readFirstRecord(MergeTable &table);

}  // namespace mergedb
