// convert: a new table of another kind with the fields and records of a table.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "command_support.h"
#include "commands.h"
#include "output.h"

namespace tool {
namespace {

constexpr int NAME_ATTEMPTS = 1000;

// Takes a free name in the current directory with an empty file, which gets
// the permissions of any new file and which the driver's create replaces.
std::string takeFreeName(const std::string &label) {
    for (int attempt = 0; attempt < NAME_ATTEMPTS; ++attempt) {
        std::string name = "mergedb" + std::to_string((getpid() + attempt) % 100000) + ".tmp";
        int file = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0666);
        if (file >= 0) {
            ::close(file);
            return name;
        }
        if (errno != EEXIST) throw Failure(label, std::strerror(errno));
    }
    throw Failure(label, "no free name for the new table beside it");
}

// A table made under a free name beside the target, and erased unless it
// is renamed to the target: a failed convert leaves nothing behind.
class PendingTable {
public:
    PendingTable(const Database &database, const TablePath &target) : database_(database), path_(target) {
        path_.name = takeFreeName(target.label);
    }
    ~PendingTable() {
        if (kept_) return;
        try {
            database_.erase(path_.name);
        } catch (const Failure &) {
            // The convert fails with its own message; this one would hide it.
        }
    }
    PendingTable(const PendingTable &) = delete;
    PendingTable &operator=(const PendingTable &) = delete;

    const TablePath &path() const { return path_; }
    void keepAs(const std::string &name) {
        std::error_code error;
        std::filesystem::rename(path_.name, name, error);
        if (error) throw Failure(path_.label, error.message());
        kept_ = true;
    }

private:
    const Database &database_;
    TablePath path_;
    bool kept_ = false;
};

// The directory of the source as seen from inside the target's directory.
std::string directoryFrom(const TablePath &source, const TablePath &target) {
    auto directory = [](const TablePath &path) { return path.directory.empty() ? "." : path.directory; };
    std::error_code error;
    std::filesystem::path relative = std::filesystem::relative(directory(source), directory(target), error);
    if (error || relative.empty()) return std::filesystem::absolute(directory(source)).string();
    return relative == "." ? "" : relative.string();
}

std::string lossyForm(std::string text, char alsoRefused = '\0') {
    for (char &c : text) {
        if (c < ' ' || c > '~' || c == alsoRefused) c = '?';
    }
    return text;
}

// The field names of a tagged target: those of the source, which must fit
// the head of the kind unless --lossy may change them.
std::vector<std::string> targetNames(const Table &source, uint16_t kind, bool lossy) {
    if (kind == DB_KIND_DELIMITED) return {};
    std::vector<std::string> names = source.fieldNames();
    if (names.empty()) throw Failure(source.label(), "has no fields to give a tagged document");
    for (std::string &name : names) {
        if (lossy) name = lossyForm(name.empty() ? "?" : name, kind == DB_KIND_TAGGED_1 ? '~' : '\0');
        if (std::optional<std::string> reason = unstorableName(kind, name)) {
            throw Failure(source.label(), "the field name '" + source.session().show(name) + "' " + *reason +
                                              (lossy ? "" : " (see --lossy)"));
        }
    }
    return names;
}

struct Copy {
    Table &from;
    Table &to;
    uint16_t kind;
    const Delimiters &delimiters;
    bool lossy;
};

std::string storedValue(const Copy &copy, std::string value, size_t record, uint16_t field) {
    bool tagged = copy.kind != DB_KIND_DELIMITED;
    if (copy.lossy && tagged) value = lossyForm(std::move(value));
    std::optional<std::string> reason = unstorable(copy.kind, copy.delimiters, value);
    if (!reason) return value;
    std::string hint = !tagged ? " (see the --to- options)" : copy.lossy ? "" : " (see --lossy)";
    throw Failure(copy.from.label(), "record " + std::to_string(record) + ", field " + std::to_string(field + 1) +
                                         ": the value " + *reason + hint);
}

// Delimited text gets its fields by name, so that the first record makes
// the fields 1, 2, ... in order.
size_t copyRecords(const Copy &copy) {
    uint16_t count = copy.from.fieldCount();
    Progress progress("convert", false);
    for (bool more = copy.from.first(); more; more = copy.from.next()) {
        copy.to.clear();
        for (uint16_t field = 0; field < count; ++field) {
            std::string value = storedValue(copy, copy.from.value(field), progress.count() + 1, field);
            if (copy.kind == DB_KIND_DELIMITED) {
                copy.to.putByName(std::to_string(field + 1), value);
            } else {
                copy.to.put(field, value);
            }
        }
        copy.to.insert();
        progress.tick();
    }
    return progress.count();
}

}  // namespace

int runConvert(const Invocation &invocation) {
    KindChoice choice = requiredKind(invocation);
    bool lossy = invocation.has("--lossy");
    TablePath source = tablePath(invocation, invocation.operands()[0]);
    TablePath target = tablePath(invocation, invocation.operands()[1]);
    Delimiters sourceDelimiters = delimitersOf(invocation);
    Delimiters targetDelimiters = delimitersOf(invocation, "--to-");
    Session session(invocation.utf8());
    std::string sourceDirectory = directoryFrom(source, target);
    enterDirectory(session, target);
    Database targetDatabase(session, choice.subtype, "");
    Database sourceDatabase(session, DB_SUBTYPE_DELIMITED, sourceDirectory);
    Table from(sourceDatabase, source, sourceDelimiters, Access::Read);
    refuseExisting(invocation, targetDatabase, target);
    std::vector<std::string> names = targetNames(from, choice.kind, lossy);
    PendingTable pending(targetDatabase, target);
    targetDatabase.create(pending.path(), choice.kind, names);
    Table to(targetDatabase, pending.path(), targetDelimiters, Access::Write);
    size_t records = copyRecords({from, to, choice.kind, targetDelimiters, lossy});
    to.close();
    from.close();
    pending.keepAs(target.name);
    writeOut("converted " + recordCount(records) + "\n");
    return 0;
}

}  // namespace tool
