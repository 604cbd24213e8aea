#include "directory_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

namespace mergedb::host {

DirectoryLock::DirectoryLock(const std::filesystem::path &directory)
    : fd_(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (fd_.get() < 0) return;
    while (::flock(fd_.get(), LOCK_EX) != 0 && errno == EINTR) {
    }
}

}  // namespace mergedb::host
