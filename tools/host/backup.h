// A backup beside a table: the driver's commit renames the table to its
// backup name, writes the new table and removes the backup, so a backup
// means a commit that is running now or one that did not finish.
#pragma once

#include <string>

#include "table_file.h"

namespace mergedb::host {

// Whether a commit is writing the table now: from its rename to its end a
// commit holds the backup open and shares it with nobody, so the driver
// can't open it even for reading, though the file is there to be read.
bool commitRunning(const TableFile &file);

// What the backup beside file means, for a note: another process is
// committing the table, or a commit of it (or of another table of the same
// backup name) did not finish, which recover sees to.
std::string backupMeaning(const TableFile &file);

}  // namespace mergedb::host
