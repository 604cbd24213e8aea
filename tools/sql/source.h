// A table as SQL sees it: the file that the arguments name, found and read
// as the tool finds and reads it (the same checks of the file, the same
// guesses of delimiters and encoding), with its fields as columns. The
// driver reaches it by the path of its directory, or from inside it
// (in_directory.h).
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "arguments.h"
#include "driver.h"
#include "in_directory.h"
#include "table_file.h"
#include "table_format.h"

namespace mergedb::sql {

// What tells whether a file is still the one that was read: its inode,
// size and time of change.
struct Stamp {
    dev_t device = 0;
    ino_t inode = 0;
    uint64_t size = 0;
    int64_t changedNanos = 0;
    bool operator==(const Stamp &) const = default;
};

class Source {
public:
    explicit Source(const TableArguments &arguments);

    const host::TableFile &file() const { return file_; }
    const host::TableFormat &format() const { return format_; }
    const std::string &label() const { return file_.label; }
    uint16_t fieldCount() const { return static_cast<uint16_t>(fields_.size()); }
    uint16_t kind() const { return kind_; }
    // The names of the fields as UTF-8, as the tool shows them.
    const std::vector<std::string> &fields() const { return fields_; }
    // The same, made unique ignoring case, as SQL needs its column names.
    std::vector<std::string> columnNames() const;
    // Where the first data record can begin: behind a tagged document's head,
    // else at the start of the file (the header record stands there).
    uint64_t firstRecordOffset() const { return firstRecord_; }

    // The table through the driver; or another file of the same directory
    // and format.
    std::unique_ptr<host::Table> open(host::Access access, const host::TableFile *other = nullptr) const;
    // In the table's directory, for as long as the result lives, where the
    // driver must be there to commit the table (in_directory.h).
    host::InDirectory visit() const { return {file_.directory(), file_.label, !driverDirectory_}; }
    // The file as it is on the disk now; throws when it is gone.
    Stamp stamp() const;
    // Looks at the file again: its size and a backup beside it.
    void refresh();

    // The offsets of the data records by the host's scan alone, when the
    // scan was made of the file as it is now (keepSurvey).
    std::optional<std::vector<uint64_t>> keptSurvey() const;
    void keepSurvey(const Stamp &stamp, std::vector<uint64_t> offsets);

private:
    host::TableFile file_;
    host::TableFormat format_;
    std::optional<std::string> driverDirectory_;  // the database's path; none: the table's directory is entered
    host::Session session_;
    std::unique_ptr<host::Database> database_;
    std::vector<std::string> fields_;
    uint16_t kind_ = 0;
    uint64_t firstRecord_ = 0;
    std::optional<Stamp> surveyed_;
    std::vector<uint64_t> offsets_;
};

// The offsets of a table's data records by the host's scan alone, which
// throws a Failure at the first record that the driver would not read
// whole. It reads the file and nothing else, so another thread may run it
// while the driver works; stop ends it early, with a part of no use.
std::vector<uint64_t> surveyOffsets(const host::TableFile &file, const host::TableFormat &format,
                                    uint16_t fieldCount, const std::stop_token &stop = {});

// Throws a Failure naming where the table is not whole: the issue of a
// walk, for SQL.
[[noreturn]] void notWhole(const std::string &label, const std::string &where, const std::string &what);

// Throws the Failure that tells why the driver did not read a table as the
// host's scan does: the first issue of that scan, or what the driver did.
[[noreturn]] void explainNotWhole(Source &source, const std::string &where, const std::string &what);

// Whether a value is the first of the file, which begins with the
// byte-order mark.
bool firstOfFile(const Source &source, uint64_t offset, uint16_t field);

// A value as the driver gives it, as UTF-8, or a Failure when a UTF-8
// table holds bytes that are not (as a checked walk would tell it); offset
// gives the record's place for that message.
std::string textOf(const Source &source, std::string bytes, bool firstOfFile,
                   const std::function<uint64_t()> &offset);

}  // namespace mergedb::sql
