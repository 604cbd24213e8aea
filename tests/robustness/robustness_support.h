// A large table of fixed-width records, its edits made by jumps to known
// offsets, and the verdict on where its records are after a commit that may
// have failed or been cut short.
#pragma once

#include <string>
#include <vector>

#include "support/test_support.h"

namespace mergedb::test {

struct LargeTable {
    bool tagged;
    std::string name;
    std::string backup;
    uint32_t firstOffset;  // of record 0
    uint32_t recordSize;
    int records;
    Bytes before;  // the file as written
};

LargeTable largeTable(bool tagged, int records);

DbResult openLargeTable(uint32_t database, const LargeTable &table, uint32_t *handle);

// An update gives field 1 of the record a new, longer value.
struct Edit {
    int record;
    bool remove;
};

// Jumps to the record and edits it; gives the result of the edit.
DbResult applyEdit(uint32_t handle, const LargeTable &table, Edit edit);

// The file after a commit of the edits.
Bytes afterCommit(const LargeTable &table, const std::vector<Edit> &edits);

// Where the records are whole after a commit ended, ran into a fault or
// was killed: the old file under the table's name before its rename; the
// old file under the backup name, the table's name holding nothing or a
// part of the new file; or the new file under the table's name, beside the
// backup until it is deleted.
enum class Where { OldTable, Backup, NewTable, Lost };
Where whereRecordsAre(const TempDir &dir, const LargeTable &table, const Bytes &after);

}  // namespace mergedb::test
