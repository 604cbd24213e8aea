#include "file_end.h"

#include <fcntl.h>
#include <unistd.h>

#include "descriptor.h"
#include "failure.h"

namespace mergedb::host {

FileEnd::FileEnd(const TableFile &file, uint64_t dataEnd)
    : path_(file.path), dataEnd_(dataEnd), tail_(file.size - dataEnd, '\0') {
    Descriptor fd(::open(path_.c_str(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0 || ::pread(fd.get(), tail_.data(), tail_.size(), static_cast<off_t>(dataEnd)) !=
                            static_cast<ssize_t>(tail_.size())) {
        throw Failure(file.label, "its end could not be read; nothing was changed");
    }
}

bool FileEnd::restore() const {
    Descriptor fd(::open(path_.c_str(), O_WRONLY | O_CLOEXEC));
    return fd.get() >= 0 && ::ftruncate(fd.get(), static_cast<off_t>(dataEnd_)) == 0 &&
           ::pwrite(fd.get(), tail_.data(), tail_.size(), static_cast<off_t>(dataEnd_)) ==
               static_cast<ssize_t>(tail_.size()) &&
           ::fsync(fd.get()) == 0;
}

}  // namespace mergedb::host
