#include "open_table.h"

#include <unistd.h>

#include <optional>
#include <set>

#include "backup.h"
#include "output.h"
#include "record_scan.h"
#include "spool.h"
#include "temporary_name.h"

namespace mergedb::cli {
namespace {

using host::Access;
using host::Failure;
using host::TableFile;

constexpr std::string_view STANDARD_INPUT = "-";
constexpr size_t ISSUES_SHOWN = 20;

std::optional<Spool> spool;

TableFile standardInput() {
    if (!spool) spool.emplace();
    TableFile file = host::locateTable(spool->file().string());
    file.label = "standard input";
    return file;
}

TableFile checkedTable(const Invocation &invocation, const std::string &argument, Access access) {
    TableFile file = namedTable(invocation, argument, access);
    if (::access(file.path.c_str(), R_OK) != 0) throw Failure(file.label, "can't be read: permission denied");
    if (access == Access::Write) host::requireEditable(file);
    mindBackup(file, access);
    mindLeftovers(file.directory(), file.label);
    return file;
}

host::TableFormat prepared(host::TableFormat format, TableFile &file, const OpenTable::Prepare &prepare) {
    if (prepare) prepare(file, format);
    return format;
}

// What keeps the driver from opening a table that the checks before let
// pass, said with what to do about it.
std::string openFailure(const host::DriverError &error, const TableFile &file, Access access) {
    switch (error.code()) {
    case ERR_OPEN: return error.reason() + " The table " + host::openRefusal(file, access == Access::Write) + ".";
    case ERR_END_OF_FILE:
        return error.reason() + " The driver found no whole first record to learn the fields from: the line has " +
               "no record delimiter behind it (insert --fix-end adds one; --record-delimiter names another), or " +
               "the tagged document is cut short.";
    case ERR_RECORD_TOO_LONG:
        return error.reason() + " The first record, which names or counts the fields, is longer than the " +
               std::to_string(host::LONGEST_RECORD) + " bytes that the driver reads.";
    case ERR_TOO_MANY_FIELDS:
        return error.reason() + " Its first record, which names or counts the fields, has more than the " +
               std::to_string(DB_MOST_FIELDS) + " that the driver takes.";
    default: return error.reason();
    }
}

// The table through the driver, which opens it from its directory by name.
host::Table openedTable(const host::Database &database, const TableFile &file, const host::TableFormat &format,
                        Access access) try {
    return host::Table(database, file.driverName, file.label, format.subtype(), format.delimiters, access);
} catch (const host::DriverError &error) {
    throw Failure(file.label, openFailure(error, file, access));
}

}  // namespace

host::FormatRequest formatRequest(const Invocation &invocation, std::string_view prefix) {
    host::FormatRequest request;
    for (std::string_view option : host::formatOptionNames()) {
        std::string name = std::string(prefix) + std::string(option);
        std::optional<std::string> given = invocation.value(name);
        if (!given) continue;
        host::OptionTaken taken = host::takeFormatOption(request, option, *given);
        if (taken.problem) invocation.fail(name + " " + *taken.problem);
    }
    request.header = prefix == "--" && invocation.has("--header");
    return request;
}

uint16_t requiredKind(const Invocation &invocation) {
    std::optional<std::string> name = invocation.value("--kind");
    if (!name) invocation.fail("missing --kind");
    for (uint16_t kind : {DB_KIND_TAGGED_0, DB_KIND_TAGGED_1, DB_KIND_DELIMITED}) {
        if (host::kindName(kind) == *name) return kind;
    }
    invocation.fail("unknown kind '" + *name + "'; tagged0, tagged1 or text");
}

TableFile namedTable(const Invocation &invocation, const std::string &argument, Access access) {
    if (argument != STANDARD_INPUT) return host::locateTable(argument);
    if (access == Access::Write) invocation.fail("standard input (-) can be read, not changed");
    return standardInput();
}

void mindBackup(const TableFile &file, Access access) {
    if (file.backupPresent && access == Access::Read) note(file.label, "note: " + host::backupMeaning(file));
}

void mindLeftovers(const std::filesystem::path &directory, const std::string &label) {
    static std::set<std::filesystem::path> looked;
    if (!looked.insert(directory).second) return;
    std::string leftovers = host::leftoverNote(host::leftoverTemporaries(directory));
    if (!leftovers.empty()) note(label, leftovers);
}

void commitEdits(OpenTable &open) {
    const TableFile &file = open.file;
    std::error_code error;
    try {
        open.table.close();
    } catch (const Failure &failure) {
        throw host::afterFailedCommit(file, failure);
    }
    if (!std::filesystem::exists(file.backupPath(), error)) return;
    note(file.label, "note: the commit is done, but " + file.backupName + " lies beside the table: the driver " +
                         "could not remove the old table, or another table of that backup name is being " +
                         "committed; see mergedb recover " + file.label);
}

OpenTable::OpenTable(const Invocation &invocation, const std::string &argument, Access access,
                     const Prepare &prepare)
    : file(checkedTable(invocation, argument, access)),
      directory(file.directory(), file.label, true),
      format(prepared(host::resolveFormat(file, formatRequest(invocation)), file, prepare)),
      database(session, format.subtype(), ""),
      table(openedTable(database, file, format, access)) {
    if (!format.mixedLineEnds.empty()) {
        note(file.label, "note: the line ends are mixed (" + format.mixedLineEnds +
                             "); LF ends a record and CR is ignored. --record-delimiter names the one to take");
    }
}

IssuePrinter::~IssuePrinter() {
    if (count_ > ISSUES_SHOWN) {
        note(label_, "... and " + std::to_string(count_ - ISSUES_SHOWN) + " more problems like these");
    }
}

host::IssueSink IssuePrinter::sink() {
    return [this](const host::Issue &issue) {
        if (++count_ <= ISSUES_SHOWN) note(label_, issue.where + ": " + issue.what);
    };
}

std::string problemCount(size_t issues) {
    return issues == 1 ? "1 problem" : std::to_string(issues) + " problems";
}

void requireWhole(const Invocation &invocation, const std::string &label, size_t issues) {
    if (issues == 0) return;
    if (invocation.has("--partial")) return;
    throw Failure(label, "was not read whole (" + problemCount(issues) + ", told above); --partial accepts what was read");
}

}  // namespace mergedb::cli
