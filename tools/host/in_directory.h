// Where a host that lives in another program (a loadable module) has the
// driver open and commit a table. The driver joins a table's name to its
// database's path and takes its backup name from the first '.' of the whole
// path. So the driver is given the path of the table's directory when that
// path holds no '.', passes the driver's code pages and leaves room for the
// names in its 255 bytes: the backup then lies beside the table, and the
// process's current directory, which its other threads share, stays as it
// is. Otherwise the host goes into the table's directory around the
// driver's opens and commits, comes back at once, and names the table
// alone; other threads of the process see that change.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "table_file.h"

namespace mergedb::host {

// The path of the table's directory for the driver's database, in code page
// 437; nothing when the host must go into the directory instead.
std::optional<std::string> driverDirectory(const TableFile &file);

class InDirectory {
public:
    // Enters directory when enter is set; label names the table in a failure.
    InDirectory(const std::filesystem::path &directory, const std::string &label, bool enter);
    // Goes back to the directory that was current before.
    ~InDirectory();
    InDirectory(const InDirectory &) = delete;
    InDirectory &operator=(const InDirectory &) = delete;

private:
    int previous_ = -1;
};

}  // namespace mergedb::host
