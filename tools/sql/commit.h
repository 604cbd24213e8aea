// How the changes of a transaction reach a table's file: checked when a
// statement makes them, applied at the commit through the driver's own
// edits, in one open of the table: each changed record is reached by a
// jump to its rowid, updated or deleted there, the new records are
// inserted, and the close commits through the driver's backup.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pending.h"
#include "source.h"

namespace mergedb::sql {

// The table as a transaction found it before its first change.
struct EditBase {
    Stamp stamp;
    uint64_t dataEnd = 0;
};

// What a change needs before anything else, as the tool's edits need it:
// the table may be changed (no backup beside it, not read-only) and reads
// whole through the driver, every value too. Throws a Failure otherwise.
EditBase prepareEdit(Source &source);

// A record that a statement writes, as UTF-8 values of every field: each
// value must be one the table can store and read back the same, and the
// record no longer than the driver reads. For an update, rowid names the
// record: a value that the table could not store passes where the record
// holds it in the file now, since the update leaves it as it is. Throws a
// Failure naming the field.
void checkRecord(Source &source, const std::vector<std::string> &values, std::optional<uint64_t> rowid);

// Takes hold of the table for a commit: opens it for writing through the
// driver, which keeps every other writer out (another program's insert too)
// until the commit is done, and only then checks that the file is the one
// that base was taken of, may be changed, and has no backup beside it.
// Throws a Failure saying that nothing was changed.
std::unique_ptr<host::Table> holdForCommit(Source &source, const EditBase &base);

// Applies the changes to the file that held (from holdForCommit) is open
// on, and closes it. 200 deletes or more, at which the driver would rewrite
// the table in the middle of the edits, are made by a rewrite of the table.
void applyChanges(Source &source, host::Table &held, const Pending &pending, const EditBase &base);

}  // namespace mergedb::sql
