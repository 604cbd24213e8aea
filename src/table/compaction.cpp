// Compaction: at the 200th pending delete the table is committed and
// reopened behind the host's unchanged handle, through the table's own
// close and open.
#include "edits/record_edits.h"
#include "frame/result.h"
#include "records/record.h"
#include "tablefile/table.h"

namespace mergedb {
namespace {

constexpr uint32_t COMPACTION_DELETES = 200;

// A table record that names no file and no block: what the host's handle
// holds after a compaction whose close let go of the table, so that the
// host can still close it.
MergeTable closedTable() { return MergeTable{}; }

// Commits and reopens the table behind its unchanged handle. The reopened
// table is shared for reading and open for writing, whatever the host chose
// at the first open; it keeps the table's code page option, and its
// delimited strings, which a tagged table has empty and does not read.
DbResult compactTable(uint32_t handle) {
    MergeTable *table = tableLock(handle);
    if (table == nullptr) return errorResult(ERR_MEMORY);
    BlockHandle copyHandle = tableAlloc();
    MergeTable *copy = tableLock(copyHandle);
    if (copy == nullptr) return errorResult(ERR_MEMORY);
    *copy = *table;
    uint32_t copySlot = copyHandle;
    if (DbResult result = dbCloseTableMerge(&copySlot)) {
        // The handle takes over what the failed close left: the table as a
        // failed commit left it, or nothing once the close let go of all.
        const MergeTable *left = tableLock(copySlot);
        *table = left != nullptr ? *left : closedTable();
        blockFree(&copySlot);
        return result;
    }
    uint32_t reopened = 0;
    DbResult result = dbOpenTableMerge(table->subtype, table->database, table->fileName, 0, 0, &reopened,
                                       table->fieldDelimiter, table->recordDelimiter, table->quote, table->ignore, 0);
    if (result != DB_RESULT_OK) {
        *table = closedTable();
        return result;
    }
    MergeTable *fresh = tableLock(reopened);
    fresh->oemConversion = table->oemConversion;
    *table = *fresh;
    blockFree(&reopened);
    return DB_RESULT_OK;
}

}  // namespace
}  // namespace mergedb

using namespace mergedb;

extern "C" DbResult MERGEDB_CALL dbDeleteMerge(uint32_t handle) {
    MergeTable *table = tableLock(handle);
    if (table == nullptr) return errorResult(ERR_MEMORY);
    if (uint16_t code = editCurrent(*table, NODE_DELETED)) return errorResult(code);
    table->dirty = 1;
    if (++table->pendingDeletes == COMPACTION_DELETES) return compactTable(handle);
    return DB_RESULT_OK;
}
