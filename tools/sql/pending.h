// The changes of a transaction to one table, held until it commits. The
// driver appends an insert to the file at once and has no way back from
// its edits, so nothing reaches the file before the commit. Records are
// keyed by their rowid, their offset in the file; an inserted record gets
// a rowid at or behind the end of the data, in the order of the inserts.
// Savepoints (which SQLite also sets around each statement of a
// transaction) are places in an undo log.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace mergedb::sql {

enum class Edit { Update, Delete, Insert };

struct Change {
    Edit edit = Edit::Update;
    std::vector<std::string> values;  // UTF-8, every field: the record as it will be
};

class Pending {
public:
    bool empty() const { return changes_.empty(); }
    // Whether records of the file change (not only new ones come).
    bool editsFile() const;
    // The change of a record, or nothing.
    const Change *find(uint64_t rowid) const;
    const std::map<uint64_t, Change> &changes() const { return changes_; }
    size_t deletes() const;

    void update(uint64_t rowid, std::vector<std::string> values);
    void remove(uint64_t rowid);
    // Gives the new record's rowid; dataEnd is where the file's data ends.
    uint64_t insert(std::vector<std::string> values, uint64_t dataEnd);

    void savepoint(int level);
    void release(int level);
    void rollbackTo(int level);
    void clear();

private:
    void set(uint64_t rowid, std::optional<Change> change);

    std::map<uint64_t, Change> changes_;
    std::vector<std::pair<uint64_t, std::optional<Change>>> undo_;  // the rowid and its change before
    std::vector<std::pair<int, size_t>> savepoints_;                  // level, length of the undo log
    uint64_t nextInsert_ = 0;
};

}  // namespace mergedb::sql
