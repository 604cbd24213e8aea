// The process in a table's directory for a while. The driver joins a
// table's name to its database's path and takes its backup name from the
// first '.' of the whole path, so a host opens and commits a table by its
// bare name from inside its directory: the backup then lies beside the
// table whatever the directory's path holds, and only the name passes the
// driver's code page. A host that lives in another program (a loadable
// module) goes there only around those calls and comes back at once; the
// current directory is the process's, so other threads see the change.
#pragma once

#include <filesystem>
#include <string>

namespace mergedb::host {

class InDirectory {
public:
    // Enters directory; label names the table in a failure.
    InDirectory(const std::filesystem::path &directory, const std::string &label);
    // Goes back to the directory that was current before.
    ~InDirectory();
    InDirectory(const InDirectory &) = delete;
    InDirectory &operator=(const InDirectory &) = delete;

private:
    int previous_ = -1;
};

}  // namespace mergedb::host
