// The lock that orders the driver's work in a directory between processes.
// The driver opens a table under a flock on the table's directory, from the
// lookup of its name to the share check on the file it found, and a commit
// holds it from its renames until its new file is held. A host that renames
// a file over a table, or looks at a table's file and then writes to it by
// its own descriptor, holds the same lock meanwhile, so that no open and no
// commit falls between its look and its change.
#pragma once

#include <filesystem>

#include "descriptor.h"

namespace mergedb::host {

class DirectoryLock {
public:
    // Waits for the lock. A directory that can't be opened, or a file system
    // without flock, goes on unlocked, as the driver does.
    explicit DirectoryLock(const std::filesystem::path &directory);

private:
    Descriptor fd_;  // closing it lets go of the lock
};

}  // namespace mergedb::host
