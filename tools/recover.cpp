// recover: puts back the old table that a failed commit left under the
// backup name.
#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <optional>

#include "command_support.h"
#include "commands.h"
#include "output.h"

namespace tool {
namespace {

// The driver's backup name: the path up to its first "." with ".bk" added.
// Tables are opened by their bare file name, so the path is the name.
std::string backupName(const std::string &name) { return name.substr(0, name.find('.')) + ".bk"; }

// The last bytes of a file, at most count of them.
std::string tailOf(const std::string &file, size_t count) {
    std::ifstream in(file, std::ios::binary | std::ios::ate);
    std::streamoff size = in.tellg();
    std::streamoff start = std::max<std::streamoff>(0, size - static_cast<std::streamoff>(count));
    std::string tail(static_cast<size_t>(std::max<std::streamoff>(0, size - start)), '\0');
    in.seekg(start);
    in.read(tail.data(), static_cast<std::streamsize>(tail.size()));
    return tail;
}

// Whether the file ends where a record ends: with the record delimiter, or
// in a tagged document with the line end that closes a record. A final
// byte 26 is no data.
bool endsWithRecord(const std::string &file, uint16_t kind, const Delimiters &delimiters) {
    std::string tail = tailOf(file, delimiters.record.size() + 1);
    if (!tail.empty() && tail.back() == '\x1A') tail.pop_back();
    if (kind == DB_KIND_DELIMITED) return tail.empty() || tail.ends_with(delimiters.record);
    return !tail.empty() && (tail.back() == '\n' || tail.back() == '\f');
}

// The records of a whole table: one that opens, ends where a record ends,
// and gives the same records forward and backward. A file cut short in its
// last record gives none backward, since that record has no end. Nothing
// when the table is not whole.
std::optional<size_t> wholeRecords(const Database &database, const TablePath &path, const Delimiters &delimiters) {
    try {
        Table table(database, path, delimiters, Access::Read);
        size_t forward = 0;
        for (bool more = table.first(); more; more = table.next()) ++forward;
        size_t backward = 0;
        for (bool more = table.last(); more; more = table.previous()) ++backward;
        bool ends = endsWithRecord(database.filePath(path.name), table.kind(), delimiters);
        table.close();
        if (forward == backward && ends) return forward;
    } catch (const Failure &) {
        // A table that does not open or walk is not whole.
    }
    return std::nullopt;
}

std::uintmax_t fileSize(const std::string &name) {
    std::error_code error;
    std::uintmax_t size = std::filesystem::file_size(name, error);
    return error ? 0 : size;
}

void restore(const std::string &backup, const TablePath &path, const std::string &done) {
    std::error_code error;
    std::filesystem::rename(backup, path.name, error);
    if (error) throw Failure(path.label, error.message());
    writeOut(done + "\n");
}

}  // namespace

int runRecover(const Invocation &invocation) {
    TablePlace place(invocation);
    const TablePath &path = place.path;
    std::string backup = backupName(path.name);
    if (backup == path.name || !place.database.exists(backup)) {
        writeOut("nothing to recover: there is no " + backup + " beside " + path.label + "\n");
        return 0;
    }
    if (!place.database.exists(path.name)) {
        restore(backup, path, "restored " + path.label + " from " + backup);
        return 0;
    }
    std::optional<size_t> table = wholeRecords(place.database, path, place.delimiters);
    if (table) {
        writeOut(path.label + " reads whole (" + recordCount(*table) + "); left it and " + backup +
                 " alone. Until " + backup + " is removed, commits of the table fail.\n");
        return 0;
    }
    std::optional<size_t> old = wholeRecords(place.database, {"", backup, backup}, place.delimiters);
    if (!old) throw Failure(path.label, "neither the table nor " + backup + " reads whole; left both alone");
    if (fileSize(path.name) >= fileSize(backup)) {
        throw Failure(path.label, "does not read whole but is not smaller than " + backup + "; left both alone");
    }
    restore(backup, path, "replaced the incomplete " + path.label + " by " + backup + " (" + recordCount(*old) + ")");
    return 0;
}

}  // namespace tool
