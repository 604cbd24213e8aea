// A table's file as the host finds it on the disk before the driver opens
// it: links followed to the file they name, the kinds of file that the
// driver can't read refused with a reason, and the name that the driver
// takes, in its code page.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "failure.h"
#include "mergedb/mergedb.h"

namespace mergedb::host {

// A final byte 26 marks the end of a file's data; it is no data itself.
inline constexpr unsigned char END_OF_DATA_MARK = 26;

// The largest table file that the driver opens.
inline constexpr uint64_t LARGEST_TABLE = DB_LARGEST_TABLE_FILE;
// The longest name, in bytes of code page 437, that the driver joins into a
// path of its own.
inline constexpr size_t LONGEST_NAME = 255;

struct TableFile {
    std::string label;              // as the user named it, for messages
    std::filesystem::path path;     // absolute, links resolved
    std::string name;               // the file's name on the disk, UTF-8
    std::string driverName;         // the same in code page 437
    uint64_t size = 0;
    bool tagged = false;            // begins with the bytes FF 5A 52 4E
    std::string backupName;         // the name of the driver's backup, beside the file
    bool backupPresent = false;

    std::filesystem::path directory() const { return path.parent_path(); }
    std::filesystem::path backupPath() const { return directory() / backupName; }
};

// An existing table. Throws a Failure for a path that names no regular file
// (a FIFO, a directory, a device) or a file larger than LARGEST_TABLE, and for a
// name that the driver can't take.
TableFile locateTable(const std::string &argument);

// A table to be made: its directory must exist; a file there already is
// looked at as locateTable does.
TableFile plannedTable(const std::string &argument);

// What a commit of the table needs, refused with the reason and what to do:
// a name that is not the driver's backup name of the table itself, no
// backup beside it (a commit that did not finish, which the next commit
// would fail on), and the permission to write the table and to rename it
// in its directory. A file without any write permission bit is read-only
// for the driver, as a file with Windows' read-only attribute, even where
// the process may write it. Throws a Failure saying that nothing was
// changed.
void requireEditable(const TableFile &file);

// Why the driver could not open a table that the checks before let pass,
// as words behind its name: "is held by another process ..." when the
// file is there, a regular file, not read-only, and opens for the process
// itself as the driver was asked to open it (for writing when write), so
// that only another process's share mode is left to refuse it; else what
// was found instead.
std::string openRefusal(const TableFile &file, bool write);

// What a commit that failed leaves: once it has renamed the table (a full
// disk, a write error), the old table stands under the driver's backup name
// and nothing under its own. It goes back at once. Gives the failure to
// report: the driver's, and what became of the table.
Failure afterFailedCommit(const TableFile &file, const Failure &failure);

// The name in code page 437. The driver takes names in that page and gives
// them to the file system through Windows-1252, so every character must be
// in both; throws a Failure naming the first that is not.
std::string driverName(std::string_view utf8, const std::string &label);

// The driver's backup name: the name up to its first '.', and ".bk".
std::string backupNameOf(const std::string &name);

// Whether the file begins like a tagged document; false for a file that
// can't be opened. Throws a Failure for a file that is no regular file,
// which is not read: a FIFO would keep the reader waiting.
bool beginsTagged(const std::filesystem::path &path);

// "12.5 MB", "4.0 GiB": a size for messages.
std::string sizeText(uint64_t bytes);

}  // namespace mergedb::host
