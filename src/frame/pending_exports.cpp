// Exports whose work is not built yet. Each checks its handles as the
// finished one will, and then answers that the operation is not supported.
#include "frame/database.h"
#include "frame/result.h"
#include "tablefile/table.h"

using namespace mergedb;

namespace {

constexpr DbResult NOT_YET = makeResult(SEVERITY_ERROR, ERR_UNSUPPORTED);
constexpr DbResult NO_HANDLE = makeResult(SEVERITY_ERROR, ERR_MEMORY);

DbResult forTable(uint32_t table) { return tableLock(table) == nullptr ? NO_HANDLE : NOT_YET; }

}  // namespace

extern "C" {




DbResult MERGEDB_CALL dbFindRecordMerge(uint32_t table, uint32_t, uint32_t, uint32_t, uint16_t, uint32_t) {
    return forTable(table);
}

}
