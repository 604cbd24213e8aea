#include "line_end.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "descriptor.h"
#include "output.h"

namespace mergedb::cli {
namespace {

using host::Failure;

bool writeAll(int fd, std::string_view bytes, uint64_t at) {
    return ::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(at)) == static_cast<ssize_t>(bytes.size());
}

}  // namespace

void LineEnd::mind(host::TableFile &file, const host::TableFormat &format, bool fix) {
    const std::string &delimiter = format.delimiters.record;
    if (format.tagged || file.size == 0) return;
    host::Descriptor fd(::open(file.path.c_str(), O_RDWR | O_CLOEXEC));
    if (fd.get() < 0) throw Failure(file.label, std::strerror(errno));
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
}

LineEnd::~LineEnd() {
    if (!before_ || before_->restore()) return;
    note(label_, "the record delimiter that --fix-end added behind the last record could not be taken back (" +
                     std::string(std::strerror(errno)) + "); it stays, and nothing else was changed");
}

}  // namespace mergedb::cli
