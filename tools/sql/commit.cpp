#include "commit.h"


#include <cerrno>
#include <cstring>
#include <limits>
#include <map>
#include <set>

#include "checked_walk.h"
#include "file_end.h"
#include "rebuild.h"
#include "record_scan.h"
#include "scans.h"
#include "store.h"

namespace mergedb::sql {
namespace {

using host::Failure;

// The driver rewrites a table at its 200th pending delete.
constexpr size_t DELETES_PER_COMPACTION = 200;

[[noreturn]] void refuseValue(const Source &source, uint16_t field, const std::string &problem) {
    throw Failure(source.label(), "the value for field \"" + source.fields()[field] + "\" " + problem);
}

// A value as the table stores it; throws a Failure naming the field when
// the table can't store it.
std::string storedBytes(const Source &source, uint16_t field, const std::string &value) {
    host::Stored stored = host::storedValue(source.format(), value, false);
    if (!stored.problem.empty()) refuseValue(source, field, stored.problem);
    return std::move(stored.bytes);
}

// Where each record kept by a rewrite lies in the new file.
using Moves = std::map<uint64_t, uint64_t>;

// Updates and deletes, in the order of the file, each at its record; after
// a rewrite (moves) only the updates, at their new places.
void editRecords(const Source &source, host::Table &table, const Pending &pending, const Moves *moves = nullptr) {
    for (const auto &[rowid, change] : pending.changes()) {
        if (change.edit == Edit::Insert || (moves != nullptr && change.edit == Edit::Delete)) continue;
        uint64_t offset = moves != nullptr ? moves->at(rowid) : rowid;
        if (offset > std::numeric_limits<uint32_t>::max() ||
            table.jump(static_cast<uint32_t>(offset)) != host::Moved::Record) {
            throw Failure(source.label(), "the record at byte " + std::to_string(rowid) +
                                              " can't be read again; nothing was changed");
        }
        if (change.edit == Edit::Delete) {
            table.remove();
            continue;
        }
        bool changed = false;
        for (uint16_t i = 0; i < source.fieldCount(); ++i) {
            const std::string &value = change.values[i];
            if (host::decodeValue(table.value(i), source.format(), firstOfFile(source, offset, i)) == value) continue;
            table.put(i, storedBytes(source, i, value));
            changed = true;
        }
        if (changed) table.update();
    }
}

void insertRecords(const Source &source, host::Table &table, const Pending &pending) {
    for (const auto &[rowid, change] : pending.changes()) {
        if (change.edit != Edit::Insert) continue;
        table.clear();
        for (uint16_t i = 0; i < source.fieldCount(); ++i) {
            std::string bytes = storedBytes(source, i, change.values[i]);
            if (!bytes.empty()) table.put(i, bytes);
        }
        table.insert();
    }
}

// The table open for the edits, which no one else may hold open, not even
// a query of this program that was not read to its end.
std::unique_ptr<host::Table> openForCommit(const Source &source) {
    try {
        return source.open(host::Access::Write);
    } catch (const host::DriverError &error) {
        if (error.code() != ERR_OPEN) throw;
        throw Failure(source.label(), error.reason() + " A query of it may still be being read (a cursor not read to "
                                                       "its end, here or in another program): finish it, then "
                                                       "commit again.");
    }
}

// A transaction of many deletes, which the driver would commit in part at
// its 200th: the host writes the table without the deleted records into a
// new file beside it, as mergedb delete does; the driver's edits make the
// updates (each at its record's new place) and the inserts there, and its
// close commits that file; only a new file that reads whole, with every
// kept record where it should be, takes the table's place, in one rename.
// The table stays held through the driver until then, so that no other
// program's edit of it goes with the old file.
void commitByRewrite(const Source &source, host::Table &held, const Pending &pending, const EditBase &base) {
    const host::TableFile &file = source.file();
    host::RecordScanner scanner(file, source.format());
    std::vector<host::Extent> dropped;
    std::set<uint64_t> deleted;
    for (const auto &[rowid, change] : pending.changes()) {
        if (change.edit != Edit::Delete) continue;
        scanner.restartAt(rowid);
        std::optional<host::ScannedRecord> record = scanner.next();
        if (!record) throw Failure(file.label, "a deleted record can't be found again; nothing was changed");
        dropped.push_back({rowid, record->length});
        deleted.insert(rowid);
    }
    host::keepByteOrderMark(dropped, source.format().bomLength);
    std::vector<uint64_t> before = surveyOffsets(file, source.format(), source.fieldCount());
    host::rebuildHeld(held, file, base.dataEnd, dropped, [&](const host::TableFile &rebuilt) {
        std::vector<uint64_t> after = surveyOffsets(rebuilt, source.format(), source.fieldCount());
        Moves moves;
        for (uint64_t offset : before) {
            if (deleted.contains(offset)) continue;
            if (moves.size() == after.size()) break;
            moves[offset] = after[moves.size()];
        }
        if (moves.size() != after.size() || moves.size() + deleted.size() != before.size()) {
            throw Failure(file.label, "the rewritten table did not read back as it should; nothing was changed");
        }
        if (pending.changes().size() == deleted.size()) return;
        std::unique_ptr<host::Table> table = source.open(host::Access::Write, &rebuilt);
        editRecords(source, *table, pending, &moves);
        insertRecords(source, *table, pending);
        host::InDirectory here = source.visit();
        table->close();
        surveyOffsets(host::locateTable(rebuilt.path.string()), source.format(), source.fieldCount());
    });
}

}  // namespace

EditBase prepareEdit(Source &source) {
    source.refresh();
    host::requireEditable(source.file());
    EditBase base{source.stamp(), 0};
    std::unique_ptr<host::Table> table = source.open(host::Access::Read);
    host::CheckedWalk walk(*table, source.file(), source.format(), [&source](const host::Issue &issue) {
        notWhole(source.label(), issue.where, issue.what + "; nothing was changed");
    });
    while (walk.next()) {
        for (uint16_t i = 0; i < walk.fieldCount(); ++i) walk.value(i);
    }
    base.dataEnd = walk.dataEnd();
    return base;
}

void checkRecord(Source &source, const std::vector<std::string> &values, std::optional<uint64_t> rowid) {
    std::optional<std::vector<std::string>> now;  // the record in the file, read when a value needs it
    std::vector<std::string> bytes;
    for (uint16_t i = 0; i < source.fieldCount(); ++i) {
        host::Stored stored = host::storedValue(source.format(), values[i], false);
        if (stored.problem.empty()) {
            bytes.push_back(std::move(stored.bytes));
            continue;
        }
        if (rowid && !now) now = recordAt(source, *rowid).value_or(std::vector<std::string>());
        bool unchanged = now && i < now->size() &&
                         host::decodeValue((*now)[i], source.format(), firstOfFile(source, *rowid, i)) == values[i];
        if (!unchanged) refuseValue(source, i, stored.problem);
        bytes.push_back((*now)[i]);
    }
    if (host::recordSize(source.format(), source.kind(), bytes) > host::LONGEST_RECORD) {
        throw Failure(source.label(), "the record would be longer than the " + std::to_string(host::LONGEST_RECORD) +
                                          " bytes of the longest record that the driver reads");
    }
}

std::unique_ptr<host::Table> holdForCommit(Source &source, const EditBase &base) {
    std::unique_ptr<host::Table> held = openForCommit(source);
    source.refresh();
    if (!(source.stamp() == base.stamp)) {
        throw Failure(source.label(), "was changed by another program since this transaction read it; nothing "
                                      "was changed (roll back, and make the changes again)");
    }
    host::requireEditable(source.file());
    return held;
}

void applyChanges(Source &source, host::Table &held, const Pending &pending, const EditBase &base) {
    if (pending.deletes() >= DELETES_PER_COMPACTION) {
        commitByRewrite(source, held, pending, base);
        return;
    }
    host::FileEnd end(source.file(), base.dataEnd);
    editRecords(source, held, pending);
    try {
        insertRecords(source, held, pending);
    } catch (const Failure &) {
        if (!end.restore()) {
            throw Failure(source.label(), "the records inserted before the failure could not be taken back");
        }
        throw;
    }
    host::InDirectory here = source.visit();
    try {
        held.close();
    } catch (const Failure &failure) {
        throw host::afterFailedCommit(source.file(), failure);
    }
}

}  // namespace mergedb::sql
