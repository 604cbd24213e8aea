// MergeDatabase, the record behind a database handle.
#pragma once

#include <cstdint>

#include "platform/env.h"
#include "tablefile/table.h"

namespace mergedb {

// State of a walk over a database's directory.
struct FindState {
    EnvWalk *walk;  // null when no walk is open
    DirEntry entry;
    char dirPrefix[PATH_BUFFER_SIZE];
    uint8_t attributeMask;
};

struct MergeDatabase {
    const Env *env;  // what the files of the database and its tables go through
    uint16_t subtype;
    char path[PATH_BUFFER_SIZE];
    int16_t subtypeCursor;
    FindState find;
    uint32_t findOpen;
};

// The database behind a host's handle, or null for 0, a stale handle, or a
// block that is no database record.
inline MergeDatabase *databaseLock(BlockHandle handle) {
    return blockLockKind<MergeDatabase>(handle, BlockKind::Database);
}

}  // namespace mergedb
