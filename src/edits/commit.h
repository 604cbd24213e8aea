// Commit: how updates and deletes reach the disk, through a rewrite of the
// table's file under a backup name.
#pragma once

#include <cstdint>

#include "tablefile/table.h"

namespace mergedb {

// Renames the file to its backup name, writes the new file under the old
// name from the backup's unchanged stretches and the change list's images,
// and deletes the backup. On a failure the old bytes stay whole under one
// of the two names.
uint16_t commitTable(MergeTable &table);

}  // namespace mergedb
