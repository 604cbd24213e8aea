// convert: a new table of another kind with the fields and records of a table.
#include <unistd.h>

#include "commands.h"
#include "edit_support.h"
#include "open_table.h"
#include "output.h"
#include "temporary_name.h"

namespace mergedb::cli {
namespace {

using host::Access;
using host::CheckedWalk;
using host::Failure;
using host::recordSize;
using host::Stored;
using host::storedName;
using host::storedValue;

constexpr mode_t NEW_FILE = 0666;  // less the umask, as any new file

// A table made under a temporary name beside the target, and erased unless
// it is renamed to the target: a failed convert leaves nothing behind.
class PendingTable {
public:
    PendingTable(const host::Database &database, const host::TableFile &target) : database_(database), target_(target) {
        host::TemporaryName taken = host::takeTemporaryName(target, NEW_FILE);
        path_ = taken.path;
        name_ = taken.driverName;
    }
    ~PendingTable() {
        if (kept_) return;
        try {
            database_.erase(name_);
        } catch (const Failure &) {
            // The convert fails with its own message; this one would hide it.
        }
    }
    PendingTable(const PendingTable &) = delete;
    PendingTable &operator=(const PendingTable &) = delete;

    // The name that the driver takes, in its code page.
    const std::string &name() const { return name_; }
    void keep() {
        std::error_code error;
        std::filesystem::rename(path_, target_.path, error);
        if (error) throw Failure(target_.label, error.message());
        kept_ = true;
    }

private:
    const host::Database &database_;
    const host::TableFile &target_;
    std::filesystem::path path_;
    std::string name_;
    bool kept_ = false;
};

struct Target {
    host::TableFile file;
    uint16_t kind;
    host::TableFormat format;
};

Target targetOf(const Invocation &invocation) {
    uint16_t kind = requiredKind(invocation);
    Target target{host::plannedTable(invocation.operands()[1]), kind,
                  host::newDelimitedFormat(formatRequest(invocation, "--to-"))};
    target.format.tagged = kind != DB_KIND_DELIMITED;
    if (target.format.tagged) target.format.encoding = host::Encoding::Cp437;
    std::error_code error;
    if (std::filesystem::exists(target.file.path, error) && !invocation.has("--force")) {
        throw Failure(target.file.label, "is there already; --force replaces it");
    }
    return target;
}

// The field names of a tagged target: those of the source, which must fit
// the head of the kind unless --lossy may change them.
std::vector<std::string> taggedNames(const std::vector<std::string> &names, uint16_t kind, bool lossy,
                                     const std::string &label) {
    if (names.empty()) throw Failure(label, "has no fields to give a tagged document");
    std::vector<std::string> stored;
    for (const std::string &name : names) {
        Stored field = storedName(kind, name, lossy);
        if (!field.problem.empty()) {
            throw Failure(label, "the field name '" + name + "' " + refusalText(field));
        }
        stored.push_back(field.bytes);
    }
    return stored;
}

struct Copy {
    CheckedWalk &from;
    host::Table &to;
    const Target &target;
    bool lossy;
    std::string label;
};

// Puts one record's values into the target and inserts it. Delimited text
// gets its fields by name, so that the first record makes the fields 1, 2,
// ... in order.
void insertRecord(const Copy &copy, const std::vector<std::string> &values, const std::string &where) {
    copy.to.clear();
    std::vector<std::string> stored;
    for (size_t field = 0; field < values.size(); ++field) {
        Stored value = storedValue(copy.target.format, values[field], copy.lossy);
        if (!value.problem.empty()) {
            std::string hint = copy.target.format.tagged ? "" : " (see the --to- options)";
            throw Failure(copy.label,
                          where + ", field " + std::to_string(field + 1) + ": the value " + refusalText(value) + hint);
        }
        stored.push_back(value.bytes);
    }
    if (recordSize(copy.target.format, copy.target.kind, stored) > host::LONGEST_RECORD) {
        throw Failure(copy.label, where + " would be longer in the new table than the " +
                                      std::to_string(host::LONGEST_RECORD) +
                                      " bytes of a record that the driver reads");
    }
    for (size_t field = 0; field < stored.size(); ++field) {
        if (copy.target.format.tagged) {
            copy.to.put(static_cast<uint16_t>(field), stored[field]);
        } else {
            copy.to.putByName(std::to_string(field + 1), stored[field]);
        }
    }
    copy.to.insert();
}

size_t copyRecords(const Copy &copy, bool withNames) {
    if (withNames) insertRecord(copy, copy.from.names(), "the field names");
    Progress progress("convert", false);
    while (copy.from.next()) {
        std::vector<std::string> values;
        for (uint16_t field = 0; field < copy.from.fieldCount(); ++field) values.push_back(copy.from.value(field));
        insertRecord(copy, values, "record " + std::to_string(copy.from.number()));
        progress.tick();
    }
    return progress.count();
}

}  // namespace

int runConvert(const Invocation &invocation) {
    Target target = targetOf(invocation);
    bool lossy = invocation.has("--lossy");
    OpenTable source(invocation, invocation.operands()[0], Access::Read);
    if (source.file.path == target.file.path) throw Failure(target.file.label, "is the source itself");
    IssuePrinter issues(source.file.label);
    CheckedWalk walk(source.table, source.file, source.format, issues.sink());
    std::vector<std::string> names = target.format.tagged
                                         ? taggedNames(walk.names(), target.kind, lossy, source.file.label)
                                         : std::vector<std::string>{};
    host::InDirectory here(target.file.directory(), target.file.label, true);
    uint16_t subtype = target.format.subtype();
    host::Database database(source.session, subtype, "");
    PendingTable pending(database, target.file);
    database.create(pending.name(), target.file.label, target.kind, names);
    host::Table to(database, pending.name(), target.file.label, subtype, target.format.delimiters, Access::Write);
    bool withNames = !target.format.tagged && source.format.header && !invocation.has("--no-header");
    size_t records = copyRecords({walk, to, target, lossy, source.file.label}, withNames);
    requireWhole(invocation, source.file.label, walk.issues());
    to.close();
    source.table.close();
    pending.keep();
    writeOut("converted " + recordCount(records) + (withNames ? " and a header record of the field names" : "") + "\n");
    return 0;
}

}  // namespace mergedb::cli
