// The edits of the current record that the change list takes.
#pragma once

#include <cstdint>

#include "tablefile/table.h"

namespace mergedb {

// Marks the current record as updated, with the image built from the field
// values (mode NODE_UPDATED), or as deleted (NODE_DELETED), and enters it
// into the change list.
uint16_t editCurrent(MergeTable &table, uint8_t mode);

}  // namespace mergedb
