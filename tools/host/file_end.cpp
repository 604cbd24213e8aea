#include "file_end.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "descriptor.h"
#include "directory_lock.h"
#include "failure.h"

namespace mergedb::host {

FileEnd::FileEnd(const TableFile &file, uint64_t dataEnd)
    : path_(file.path), dataEnd_(dataEnd), tail_(file.size - dataEnd, '\0') {
    Descriptor fd(::open(path_.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat facts{};
    if (fd.get() < 0 || ::fstat(fd.get(), &facts) != 0 ||
        ::pread(fd.get(), tail_.data(), tail_.size(), static_cast<off_t>(dataEnd)) !=
            static_cast<ssize_t>(tail_.size())) {
        throw Failure(file.label, "its end could not be read; nothing was changed");
    }
    device_ = facts.st_dev;
    inode_ = facts.st_ino;
}

bool FileEnd::restore(std::optional<uint64_t> size) const {
    // No commit puts a new file in the table's place while this looks and
    // cuts.
    DirectoryLock lock(path_.parent_path());
    Descriptor fd(::open(path_.c_str(), O_WRONLY | O_CLOEXEC));
    struct stat facts{};
    if (fd.get() < 0 || ::fstat(fd.get(), &facts) != 0) return false;
    if (facts.st_dev != device_ || facts.st_ino != inode_ || (size && static_cast<uint64_t>(facts.st_size) != *size)) {
        errno = ESTALE;
        return false;
    }
    return ::ftruncate(fd.get(), static_cast<off_t>(dataEnd_)) == 0 &&
           ::pwrite(fd.get(), tail_.data(), tail_.size(), static_cast<off_t>(dataEnd_)) ==
               static_cast<ssize_t>(tail_.size()) &&
           ::fsync(fd.get()) == 0;
}

}  // namespace mergedb::host
