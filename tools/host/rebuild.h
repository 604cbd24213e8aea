// A table rewritten without some of its records, for a host that drops
// many of them at once. The driver rewrites the whole table at every 200th
// pending delete; this writes the table once: the bytes of the file are
// copied as they stand, around the records that go, into a new file beside
// the table, which the caller checks through the driver before it takes
// the table's place. So nothing but the dropped records changes, a tagged
// document keeps its head record as it was, and no moment leaves the
// table's name without a whole table.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "driver.h"
#include "table_file.h"

namespace mergedb::host {

struct Extent {
    uint64_t offset = 0;
    uint64_t length = 0;
};

// Writes file's bytes up to dataEnd without the extents of dropped (in file
// order, apart from each other) into a new file in the same directory,
// under a temporary name (temporary_name.h).
// check then looks at the new file (and may change it further through the
// driver), and throws when it is not what it should be. Only then does the
// new file get the table's permission bits and, where the process may set
// them, its owner and group, reach the disk, and replace the table in one
// rename. Throws a Failure when anything fails; the table is then as it
// was, and the new file gone, except where the directory could not be
// synced after the rename: the new table is in place then, not yet sure
// to stay there across a power cut.
//
// The host holds the table open for writing through the driver (held),
// from before it read what it drops until now, so that no other program's
// edit of the table (an insert too) can come between that read and the
// rename and be lost with the old file. held is closed once the new file
// has taken the table's place.
void rebuildHeld(Table &held, const TableFile &file, uint64_t dataEnd, const std::vector<Extent> &dropped,
                 const std::function<void(const TableFile &rebuilt)> &check);

// The byte-order mark in front of a file's first record stays in front of
// whatever record comes first, when that record is dropped.
void keepByteOrderMark(std::vector<Extent> &dropped, size_t bomLength);

}  // namespace mergedb::host
