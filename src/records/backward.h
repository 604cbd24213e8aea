// Finding where the record before a file position starts, by walking the
// bytes backward through the read window.
#pragma once

#include <cstdint>

#include "tablefile/table.h"

namespace mergedb {

// Stand the window on the first byte of the record that ends in front of
// offset, a record's first byte; ERR_START_OF_FILE when none lies between
// the first data record and offset.
uint16_t locateDelimitedPrevious(MergeTable &table, uint32_t offset);
uint16_t locateTaggedPrevious(MergeTable &table, uint32_t offset);

// Stand the window on the first byte of the table's last record.
uint16_t locateDelimitedLast(MergeTable &table);
uint16_t locateTaggedLast(MergeTable &table);

}  // namespace mergedb
