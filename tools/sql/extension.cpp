// The entry point of the loadable extension: .load mergedb_sqlite in the
// sqlite3 shell, or load_extension() from any program that links SQLite.
#include <sqlite3ext.h>

SQLITE_EXTENSION_INIT1

#include "module.h"

extern "C" __attribute__((visibility("default"))) int sqlite3_mergedbsqlite_init(sqlite3 *db, char **,
                                                                                  const sqlite3_api_routines *api) {
    SQLITE_EXTENSION_INIT2(api);
    return mergedb::sql::registerModule(db);
}
