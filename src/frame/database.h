// MergeDatabase, the record behind a database handle.
#pragma once

#include <cstdint>

#include "platform/windows_api.h"
#include "tablefile/table.h"

namespace mergedb {

// State of a walk over a database's directory.
struct FindState {
    HANDLE findHandle;  // INVALID_HANDLE_VALUE when no walk is open
    WIN32_FIND_DATAA findData;
    char dirPrefix[PATH_BUFFER_SIZE];
    uint8_t attributeMask;
};

struct MergeDatabase {
    uint16_t subtype;
    char path[PATH_BUFFER_SIZE];
    int16_t subtypeCursor;
    FindState find;
    uint32_t findOpen;
};

static_assert(sizeof(MergeDatabase) != sizeof(MergeTable), "handles are told apart by their size");

// The database behind a host's handle, or null for 0, a stale handle, or a
// block that is no database record.
inline MergeDatabase *databaseLock(BlockHandle handle) {
    uint16_t size = 0;
    auto *record = blockLockSized<MergeDatabase>(handle, size);
    return size == sizeof(MergeDatabase) ? record : nullptr;
}

}  // namespace mergedb
