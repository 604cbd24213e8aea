// Naming and opening tables from the command line: the format options, the
// checks before the driver is asked (the kind of file, its size, a leftover
// backup, write permission), standard input as a table, and a table open in
// its own directory.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "arguments.h"
#include "checked_walk.h"
#include "driver.h"
#include "in_directory.h"
#include "table_file.h"
#include "table_format.h"

namespace mergedb::cli {

// The options that say how to read a delimited table, of the names that
// begin with prefix: "--" or "--to-".
host::FormatRequest formatRequest(const Invocation &invocation, std::string_view prefix = "--");

// The table kind that --kind names: tagged0, tagged1 or text.
uint16_t requiredKind(const Invocation &invocation);

// The table a command names: "-" is standard input, spooled to a file of
// its own for the commands that only read. Refuses what no command can use.
host::TableFile namedTable(const Invocation &invocation, const std::string &argument, host::Access access);

// Says on stderr that a backup lies beside the table, for a command that
// reads (an edit has refused it before).
void mindBackup(const host::TableFile &file, host::Access access);

// Says on stderr which temporary files in directory (absolute) are left
// over, under label; once for each directory.
void mindLeftovers(const std::filesystem::path &directory, const std::string &label);


// A table open through the driver, with the checks that come before: the
// backup, and for an edit the permissions that a commit needs. prepare, if
// given, runs after these checks, before the driver opens the table; what
// it changes in the file it sets down in file. The process stays in the
// table's directory while the table is open, and goes back to the
// directory it came from when it closes.
struct OpenTable {
    using Prepare = std::function<void(host::TableFile &, const host::TableFormat &)>;

    OpenTable(const Invocation &invocation, const std::string &argument, host::Access access,
              const Prepare &prepare = {});

    host::TableFile file;
    host::InDirectory directory;
    host::TableFormat format;
    host::Session session;
    host::Database database;
    host::Table table;
};

// Prints the issues of a walk on stderr, the first few of them.
class IssuePrinter {
public:
    explicit IssuePrinter(std::string label) : label_(std::move(label)) {}
    ~IssuePrinter();
    IssuePrinter(const IssuePrinter &) = delete;
    IssuePrinter &operator=(const IssuePrinter &) = delete;

    host::IssueSink sink();
    size_t count() const { return count_; }

private:
    std::string label_;
    size_t count_ = 0;
};

// "1 problem", "2 problems".
std::string problemCount(size_t issues);

// A command that read a table succeeds only when it saw all of it, or when
// --partial accepts what it saw. Throws the failure that says so.
void requireWhole(const Invocation &invocation, const std::string &label, size_t issues);

// Closes an edited table, which commits its updates and deletes. A commit
// that fails once it has renamed the table (a full disk, a write error)
// leaves the old table under the driver's backup name and nothing under its
// own: the old table goes back at once, and the failure says that nothing
// was changed. After a commit that succeeded, a backup that the driver could
// not remove is told on stderr.
void commitEdits(OpenTable &open);

}  // namespace mergedb::cli
