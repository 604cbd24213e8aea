// Finding where the record before a file position starts, by walking the
// bytes backward through the read window.
#pragma once

#include <cstdint>

#include "tablefile/table.h"

namespace mergedb {

// On entry the window stands where the caller's seek put it: for a tagged
// table on the last byte of the wanted record; for delimited text on the
// first byte of the record behind it, or on the file's last byte when
// atFileEnd is set. On success the window stands on the wanted record's
// first byte, saved in the table.
uint16_t locateRecordStart(MergeTable &table, bool atFileEnd);

}  // namespace mergedb
