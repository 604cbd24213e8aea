// Moving through a table's records with the pending edits merged in.
#pragma once

#include "tablefile/table.h"

namespace mergedb {

// The first and the next record, with the change list merged in, as the
// host's moves have them; a move that ends without a record leaves the
// cursor next to the current record. Give a driver code.
uint16_t moveToFirst(MergeTable &table);
uint16_t moveToNext(MergeTable &table);

}  // namespace mergedb
