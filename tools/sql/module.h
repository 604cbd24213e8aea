// The SQLite module "mergedb": CREATE VIRTUAL TABLE t USING mergedb(FILE,
// options) makes a table of a file; mergedb(FILE, 'option=value', ...) in a
// FROM clause reads one at once, each record as a JSON object of its
// fields (column record). Every call from SQLite holds one lock, since the
// driver serves one caller at a time, and no exception reaches SQLite.
#pragma once

#include "sqlite_api.h"

namespace mergedb::sql {

int registerModule(sqlite3 *db);

}  // namespace mergedb::sql
