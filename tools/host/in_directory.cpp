#include "in_directory.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "failure.h"
#include "temporary_name.h"

namespace mergedb::host {
namespace {

// The longest path that the driver takes, and room for the names that a
// commit gives a table's file: a temporary file's beside it, the table's
// name behind a prefix, and ".bk" behind a name without a '.'.
constexpr size_t LONGEST_PATH = 255;
constexpr size_t BACKUP_SUFFIX = 3;

// A directory kept to come back to needs no permission to be read.
#ifdef O_PATH
constexpr int KEPT = O_PATH;
#else
constexpr int KEPT = O_RDONLY;
#endif

}  // namespace

std::optional<std::string> driverDirectory(const TableFile &file) {
    std::string directory = file.directory().string();
    if (directory.find('.') != std::string::npos) return std::nullopt;
    std::string inPage;
    try {
        inPage = driverName(directory, file.label);
    } catch (const Failure &) {
        return std::nullopt;  // a character that the driver's code pages lack
    }
    size_t name = TEMPORARY_PREFIX_LONGEST + file.driverName.size() + BACKUP_SUFFIX;
    if (inPage.size() + 1 + name > LONGEST_PATH) return std::nullopt;
    return inPage;
}

InDirectory::InDirectory(const std::filesystem::path &directory, const std::string &label, bool enter) {
    if (!enter) return;
    previous_ = ::open(".", KEPT | O_DIRECTORY | O_CLOEXEC);
    if (previous_ < 0) throw Failure(label, std::string("the current directory can't be kept: ") + std::strerror(errno));
    if (::chdir(directory.c_str()) != 0) {
        int error = errno;
        ::close(previous_);
        throw Failure(label, "its directory can't be entered: " + std::string(std::strerror(error)));
    }
}

InDirectory::~InDirectory() {
    if (previous_ < 0) return;
    // A directory that was current a moment ago can be entered again, unless
    // it was removed meanwhile; then there is nowhere better to be.
    [[maybe_unused]] int back = ::fchdir(previous_);
    ::close(previous_);
}

}  // namespace mergedb::host
