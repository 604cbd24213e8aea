// recover: finishes or undoes a commit that did not finish. A commit
// renames the table to its backup name, writes the new table from the
// backup's bytes and removes the backup; a backup beside a table means that
// it stopped on the way.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <vector>

#include "backup.h"
#include "commands.h"
#include "open_table.h"
#include "output.h"

namespace mergedb::cli {
namespace {

using host::Failure;
using host::TableFile;

// A commit copies the table's tail from the backup byte for byte, so its
// whole result ends with the same bytes as the backup. So many of them
// must agree that a new file cut off short of its end can't agree by
// chance: only data that repeats itself over this length could.
constexpr uint64_t ENDS_COMPARED = 64 * 1024;
constexpr uint64_t MAGIC_BYTES = 4;

// The last bytes of a file's data, at most count of them; a final byte 26
// is no data.
std::optional<std::string> endOf(const std::filesystem::path &path, uint64_t count) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    struct stat facts{};
    unsigned char last = 0;
    bool known = ::fstat(fd, &facts) == 0;
    auto size = static_cast<uint64_t>(facts.st_size);
    bool marked = known && size > 0 && ::pread(fd, &last, 1, static_cast<off_t>(size - 1)) == 1 &&
                  last == host::END_OF_DATA_MARK;
    if (marked) --size;
    std::string bytes(static_cast<size_t>(std::min(count, size)), '\0');
    bool read = known && ::pread(fd, bytes.data(), bytes.size(), static_cast<off_t>(size - bytes.size())) ==
                             static_cast<ssize_t>(bytes.size());
    ::close(fd);
    if (!read) return std::nullopt;
    return bytes;
}

// Whether the table's data ends with the backup's last bytes: as many as
// ENDS_COMPARED, or all of a shorter backup.
bool endAlike(const std::filesystem::path &table, const std::filesystem::path &backup) {
    std::optional<std::string> tableEnd = endOf(table, ENDS_COMPARED);
    std::optional<std::string> backupEnd = endOf(backup, ENDS_COMPARED);
    return tableEnd && backupEnd && tableEnd->ends_with(*backupEnd);
}

// The records of a table through the driver, when it reads whole.
std::optional<size_t> wholeRecords(const Invocation &invocation, const TableFile &file) {
    try {
        host::TableFormat format = host::resolveFormat(file, formatRequest(invocation));
        host::Session session;
        host::Database database(session, format.subtype(), "");
        host::Table table(database, file.driverName, file.label, format.subtype(), format.delimiters,
                          host::Access::Read);
        size_t issues = 0;
        host::CheckedWalk walk(table, file, format, [&issues](const host::Issue &) { ++issues; });
        size_t records = 0;
        while (walk.next()) ++records;
        table.close();
        if (issues == 0) return records;
    } catch (const Failure &) {
        // A table that does not open or walk is not whole.
    }
    return std::nullopt;
}

// Whether every part of the file was written. A commit gives its new file
// its final size before it writes, from the start on, so a commit that
// stopped leaves an end that reads as zeros: a last byte 0, or whole pages
// of them. No table holds a page of zeros.
bool writtenThrough(const std::filesystem::path &path) {
    constexpr size_t PAGE = 4096;
    std::ifstream in(path, std::ios::binary);
    std::vector<char> page(PAGE);
    char last = 1;
    while (in.read(page.data(), PAGE) || in.gcount() > 0) {
        auto got = static_cast<size_t>(in.gcount());
        if (std::all_of(page.begin(), page.begin() + static_cast<std::ptrdiff_t>(got), [](char c) { return c == 0; })) {
            return false;
        }
        last = page[got - 1];
    }
    return !in.bad() && last != 0;
}

// Whether the table is the whole result of a commit from the backup: it
// reads whole, every part of it was written, and its data ends with the
// backup's.
bool wholeResult(const Invocation &invocation, const TableFile &table, const std::filesystem::path &backup) {
    return wholeRecords(invocation, table) && writtenThrough(table.path) && endAlike(table.path, backup);
}

// A commit cut off before it wrote the table's first four bytes leaves
// them out or zero, and they show no kind.
bool showsKind(const TableFile &table) {
    std::ifstream in(table.path, std::ios::binary);
    char magic[MAGIC_BYTES] = {};
    return in.read(magic, MAGIC_BYTES) && std::any_of(magic, magic + MAGIC_BYTES, [](char c) { return c != 0; });
}

std::string kindText(bool tagged) { return tagged ? "a tagged document" : "delimited text"; }

// The other tables beside file whose backup name is the same, of the kind
// of the backup.
std::vector<TableFile> siblings(const TableFile &file, bool tagged) {
    std::vector<TableFile> found;
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(file.directory(), error)) {
        std::string name = entry.path().filename().string();
        if (name == file.name || name == file.backupName || host::backupNameOf(name) != file.backupName) continue;
        try {
            TableFile sibling = host::locateTable(entry.path().string());
            sibling.label = name;
            if (sibling.tagged == tagged) found.push_back(sibling);
        } catch (const Failure &) {
            // No table, so no owner of the backup.
        }
    }
    return found;
}

std::string namesOf(const std::vector<TableFile> &tables) {
    std::vector<std::string> labels;
    for (const TableFile &table : tables) labels.push_back(table.label);
    return joined(labels);
}

void renameOrFail(const std::filesystem::path &from, const std::filesystem::path &to, const std::string &label) {
    if (::rename(from.c_str(), to.c_str()) != 0) throw Failure(label, "could not rename " + from.filename().string() +
                                                                          ": " + std::strerror(errno));
}

std::string recordsText(const Invocation &invocation, const TableFile &file) {
    std::optional<size_t> records = wholeRecords(invocation, host::locateTable(file.path.string()));
    return records ? " (" + recordCount(*records) + ")" : " (it does not read whole: see mergedb info)";
}

// Puts the backup back in the table's place, and keeps what stood there.
int restore(const Invocation &invocation, const TableFile &table) {
    std::filesystem::path partial = table.path;
    partial += ".partial";
    std::error_code error;
    if (std::filesystem::exists(partial, error)) {
        throw Failure(table.label, partial.filename().string() + " is there already; move it away first");
    }
    renameOrFail(table.path, partial, table.label);
    renameOrFail(table.backupPath(), table.path, table.label);
    writeOut("put " + table.backupName + " back as " + table.label + recordsText(invocation, table) +
             ": the table could not be shown to be the whole result of a commit; what stood there is kept as " +
             partial.filename().string() + "\n");
    return 0;
}

}  // namespace

int runRecover(const Invocation &invocation) {
    TableFile table = host::plannedTable(invocation.operands()[0]);
    host::InDirectory here(table.directory(), table.label, true);
    std::filesystem::path backup = table.backupPath();
    std::error_code error;
    if (table.backupName == table.name || !std::filesystem::exists(backup, error)) {
        writeOut("nothing to recover: there is no " + table.backupName + " beside " + table.label + "\n");
        return 0;
    }
    bool backupTagged = host::beginsTagged(backup);
    if (host::commitRunning(table)) {
        throw Failure(table.label, "a commit is writing the table now (it holds " + table.backupName +
                                       "); wait for it to end, and run recover again if the backup is still there. " +
                                       "Nothing was changed.");
    }
    // A commit holds its backup until the backup's name is gone: one that
    // was there a moment ago and is not now was a commit's that has ended.
    if (!std::filesystem::exists(backup, error)) {
        writeOut("nothing to recover: the commit that held " + table.backupName + " has just ended\n");
        return 0;
    }
    std::vector<TableFile> others = siblings(table, backupTagged);
    if (!std::filesystem::exists(table.path, error)) {
        if (!others.empty()) {
            throw Failure(table.label, table.backupName + " is " + kindText(backupTagged) + ", as " + namesOf(others) +
                                           " is, whose backup name it is too: if it is the old " + table.label +
                                           ", rename it to that name yourself. Nothing was changed.");
        }
        renameOrFail(backup, table.path, table.label);
        writeOut("restored " + table.label + " from " + table.backupName + recordsText(invocation, table) + "\n");
        return 0;
    }
    if (showsKind(table) && table.tagged != backupTagged) {
        std::string owners = others.empty() ? "another table named " + table.name.substr(0, table.name.find('.')) + ".*"
                                            : namesOf(others);
        throw Failure(table.label, table.backupName + " is the backup of " + kindText(backupTagged) + ", and " +
                                       table.label + " is " + kindText(table.tagged) + ": it belongs to " + owners +
                                       ", so run mergedb recover on that. Nothing was changed.");
    }
    if (wholeResult(invocation, table, backup)) {
        std::filesystem::remove(backup, error);
        if (error) throw Failure(table.label, "could not remove " + table.backupName + ": " + error.message());
        writeOut(table.label + " is the whole result of its commit (it reads whole and ends as " + table.backupName +
                 " does); removed " + table.backupName + ", the old table\n");
        return 0;
    }
    for (const TableFile &other : others) {
        if (wholeResult(invocation, other, backup)) {
            throw Failure(table.label, table.backupName + " is the backup of " + other.label +
                                           ", whose commit wrote it whole; run mergedb recover " + other.label +
                                           ". Nothing was changed.");
        }
    }
    if (!others.empty()) {
        throw Failure(table.label, table.backupName + " may be the backup of " + table.label + " or of " +
                                       namesOf(others) + ", and none of them is the whole result of a commit; move " +
                                       "the others aside for a moment and run recover again. Nothing was changed.");
    }
    return restore(invocation, table);
}

}  // namespace mergedb::cli
