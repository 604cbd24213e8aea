#include "line_end.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "descriptor.h"
#include "directory_lock.h"
#include "output.h"

namespace mergedb::cli {
namespace {

using host::Failure;

bool writeAll(int fd, std::string_view bytes, uint64_t at) {
    ssize_t written = ::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(at));
    if (written >= 0 && written != static_cast<ssize_t>(bytes.size())) errno = EIO;  // a short write sets none
    return written == static_cast<ssize_t>(bytes.size());
}

}  // namespace

void LineEnd::mind(host::TableFile &file, const host::TableFormat &format, bool fix) {
    const std::string &delimiter = format.delimiters.record;
    if (format.tagged || file.size == 0) return;
    // No other program opens or commits the table between the look at the
    // end and the mend, and the file is the one whose size was taken. One
    // that has the table open already could still append meanwhile.
    host::DirectoryLock lock(file.directory());
    host::Descriptor fd(::open(file.path.c_str(), O_RDWR | O_CLOEXEC));
    struct stat facts{};
    if (fd.get() < 0 || ::fstat(fd.get(), &facts) != 0) throw Failure(file.label, std::strerror(errno));
    if (static_cast<uint64_t>(facts.st_size) != file.size) {
        throw Failure(file.label, "was changed by another program while this looked at it; nothing was changed, "
                                  "try again");
    }
    std::string tail(std::min<uint64_t>(file.size, delimiter.size() + 1), '\0');
    if (::pread(fd.get(), tail.data(), tail.size(), static_cast<off_t>(file.size - tail.size())) !=
        static_cast<ssize_t>(tail.size())) {
        throw Failure(file.label, "its end could not be read: " + std::string(std::strerror(errno)));
    }
    uint64_t dataEnd = file.size;
    if (static_cast<unsigned char>(tail.back()) == host::END_OF_DATA_MARK) {
        tail.pop_back();
        --dataEnd;
    }
    if (tail.ends_with(delimiter)) return;
    if (!fix) {
        throw Failure(file.label, "its last record has no record delimiter (" + host::delimiterText(delimiter) +
                                      ") behind it, so the new record would join it; --fix-end adds the delimiter " +
                                      "first. Nothing was changed");
    }
    label_ = file.label;
    before_.emplace(file, dataEnd);
    uint64_t mendedSize = dataEnd + delimiter.size();
    if (!writeAll(fd.get(), delimiter, dataEnd) || ::ftruncate(fd.get(), static_cast<off_t>(mendedSize)) != 0 ||
        ::fsync(fd.get()) != 0) {
        throw Failure(file.label, "its end could not be mended: " + std::string(std::strerror(errno)));
    }
    file.size = mendedSize;
    mendedSize_ = mendedSize;
}

// A mend that failed part way is taken back whatever the file's size; a
// whole one only while the file has the size it gave.
LineEnd::~LineEnd() {
    if (!before_ || before_->restore(mendedSize_)) return;
    std::string why = errno == ESTALE ? "another program has changed the table since" : std::strerror(errno);
    note(label_, "the record delimiter that --fix-end added behind the last record could not be taken back (" + why +
                     "); it stays, and nothing else was changed");
}

}  // namespace mergedb::cli
