// The temporary files that a host makes beside a table (the rewrite
// without some records, a convert's new table): named so that a person
// and every host can tell them, found again when a process that made one
// was killed before it removed it, and never offered as tables.
//
// A name is "mergedb-tmp-PID-N.TABLE", PID the process that made it, N a
// number that makes it free, TABLE the name of the table it is for (left
// out where the whole would be longer than the driver takes). The part
// before the first '.', from which the driver names a backup, is no
// table's.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "driver.h"
#include "table_file.h"

namespace mergedb::host {

// The most bytes that such a name puts in front of the table's name.
inline constexpr size_t TEMPORARY_PREFIX_LONGEST = 32;

struct TemporaryName {
    std::filesystem::path path;  // absolute, in the table's directory
    std::string driverName;      // the name in code page 437
};

// A name that no file beside table has yet, held by a new empty file of
// the permission bits mode (less the umask); removed again by the caller
// when it is not used.
TemporaryName takeTemporaryName(const TableFile &table, mode_t mode);

// Whether a file name (UTF-8 or code page 437) is one of these names.
bool isTemporaryName(std::string_view name);

// The names of database's tables in UTF-8, such files left out.
std::vector<std::string> tableNamesInUtf8(const Database &database);

// The names of such files in directory whose process is gone, sorted: left
// by a rewrite or convert that was cut short, and free to be removed.
std::vector<std::string> leftoverTemporaries(const std::filesystem::path &directory);

// What a person should know of them, or nothing when there are none.
std::string leftoverNote(const std::vector<std::string> &names);

}  // namespace mergedb::host
