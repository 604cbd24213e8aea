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
DbResult forDatabase(uint32_t database) { return databaseLock(database) == nullptr ? NO_HANDLE : NOT_YET; }

}  // namespace

extern "C" {

DbResult MERGEDB_CALL dbGetFieldValueMerge(uint32_t table, const char *, void *, uint16_t, uint16_t *) {
    return forTable(table);
}
DbResult MERGEDB_CALL dbGetFieldValueHMerge(uint32_t table, uint16_t, void *, uint16_t, uint16_t *) {
    return forTable(table);
}
DbResult MERGEDB_CALL dbPutFieldValueMerge(uint32_t table, const char *, const void *, uint16_t, uint16_t) {
    return forTable(table);
}
DbResult MERGEDB_CALL dbPutFieldValueHMerge(uint32_t table, uint16_t, const void *, uint16_t, uint16_t) {
    return forTable(table);
}
DbResult MERGEDB_CALL dbClearRecordMerge(uint32_t table) { return forTable(table); }

DbResult MERGEDB_CALL dbInsertMerge(uint32_t table, uint32_t, uint32_t *) { return forTable(table); }
DbResult MERGEDB_CALL dbUpdateMerge(uint32_t table, uint32_t, uint32_t *) { return forTable(table); }
DbResult MERGEDB_CALL dbDeleteMerge(uint32_t table) { return forTable(table); }

DbResult MERGEDB_CALL dbBuildMerge(uint32_t *, const char *) { return NOT_YET; }
DbResult MERGEDB_CALL dbCreateMerge(uint32_t database, const char *, uint32_t, uint16_t) {
    return forDatabase(database);
}

DbResult MERGEDB_CALL dbFindRecordMerge(uint32_t table, uint32_t, uint32_t, uint32_t, uint16_t, uint32_t) {
    return forTable(table);
}

}
