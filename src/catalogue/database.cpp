// The database object: a directory that holds tables.
#include <cstring>

#include "catalogue/directory.h"
#include "catalogue/database.h"
#include "frame/result.h"
#include "tablefile/file_service.h"

using namespace mergedb;

extern "C" DbResult MERGEDB_CALL dbOpenDBMerge(uint16_t subtype, uint32_t, uint32_t, const char *path,
                                               uint32_t *databaseOut) {
    // A database that no handle would reach is not made.
    if (databaseOut == nullptr) return errorResult(ERR_MEMORY);
    BlockHandle handle = blockAlloc(sizeof(MergeDatabase), BlockKind::Database);
    auto *database = blockLockAs<MergeDatabase>(handle);
    if (database == nullptr) return errorResult(ERR_MEMORY);
    database->env = &platformEnv();
    if (path != nullptr) {
        // The path is tested on the bytes as handed in; one that does not fit
        // the record cannot name a directory we could use.
        size_t length = strnlen(path, PATH_BUFFER_SIZE);
        if (length >= PATH_BUFFER_SIZE || fileExists(*database->env, path) != 0) {
            blockFree(&handle);
            return errorResult(ERR_BAD_PATH);
        }
        std::memcpy(database->path, path, length + 1);
    }
    database->subtype = subtype;
    *databaseOut = handle;
    return DB_RESULT_OK;
}

extern "C" DbResult MERGEDB_CALL dbCloseDBMerge(uint32_t *databaseSlot) {
    if (databaseSlot == nullptr || *databaseSlot == 0) return DB_RESULT_OK;
    // A handle that names no database is left alone rather than freed.
    MergeDatabase *database = databaseLock(*databaseSlot);
    if (database == nullptr) return errorResult(ERR_MEMORY);
    // A walk over the tables left unfinished would keep its directory open.
    dirFindClose(*database->env, database->find);
    blockFree(databaseSlot);
    return DB_RESULT_OK;
}
