#include "in_directory.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "failure.h"

namespace mergedb::host {

namespace {

// A directory kept to come back to needs no permission to be read.
#ifdef O_PATH
constexpr int KEPT = O_PATH;
#else
constexpr int KEPT = O_RDONLY;
#endif

}  // namespace

InDirectory::InDirectory(const std::filesystem::path &directory, const std::string &label)
    : previous_(::open(".", KEPT | O_DIRECTORY | O_CLOEXEC)) {
    if (previous_ < 0) throw Failure(label, std::string("the current directory can't be kept: ") + std::strerror(errno));
    if (::chdir(directory.c_str()) != 0) {
        int error = errno;
        ::close(previous_);
        throw Failure(label, "its directory can't be entered: " + std::string(std::strerror(error)));
    }
}

InDirectory::~InDirectory() {
    // A directory that was current a moment ago can be entered again, unless
    // it was removed meanwhile; then there is nowhere better to be.
    [[maybe_unused]] int back = ::fchdir(previous_);
    ::close(previous_);
}

}  // namespace mergedb::host
