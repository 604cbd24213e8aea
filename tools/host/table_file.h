// A table's file as the host finds it on the disk before the driver opens
// it: links followed to the file they name, the kinds of file that the
// driver can't read refused with a reason, and the name that the driver
// takes, in its code page.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace mergedb::host {

// Table files are read with 32-bit offsets, so a table stays below 4 GiB.
inline constexpr uint64_t TABLE_SIZE_LIMIT = uint64_t{1} << 32;
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
// (a FIFO, a directory, a device) or a file of 4 GiB or more, and for a
// name that the driver can't take.
TableFile locateTable(const std::string &argument);

// A table to be made: its directory must exist; a file there already is
// looked at as locateTable does.
TableFile plannedTable(const std::string &argument);

// The name in code page 437. The driver takes names in that page and gives
// them to the file system through Windows-1252, so every character must be
// in both; throws a Failure naming the first that is not.
std::string driverName(std::string_view utf8, const std::string &label);

// The driver's backup name: the name up to its first '.', and ".bk".
std::string backupNameOf(const std::string &name);

// Whether the file begins like a tagged document.
bool beginsTagged(const std::filesystem::path &path);

// "12.5 MB", "4.0 GiB": a size for messages.
std::string sizeText(uint64_t bytes);

}  // namespace mergedb::host
