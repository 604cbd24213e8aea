#include "rebuild.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "descriptor.h"
#include "directory_lock.h"
#include "failure.h"
#include "temporary_name.h"

namespace mergedb::host {
namespace {

constexpr size_t COPY_BLOCK = 1 << 20;
constexpr mode_t PRIVATE = 0600;  // until the new file takes the table's own bits

[[noreturn]] void failed(const std::string &label, const std::string &what) {
    throw Failure(label, what + ": " + std::strerror(errno));
}

// The new file, removed again unless it was put in the table's place.
class NewFile {
public:
    explicit NewFile(const TableFile &table)
        : path_(takeTemporaryName(table, PRIVATE).path), fd_(::open(path_.c_str(), O_WRONLY | O_CLOEXEC)) {
        if (fd_.get() < 0) {
            ::unlink(path_.c_str());
            failed(table.label, "the new table could not be opened");
        }
    }
    ~NewFile() {
        if (!placed_) ::unlink(path_.c_str());
    }
    NewFile(const NewFile &) = delete;
    NewFile &operator=(const NewFile &) = delete;

    const std::filesystem::path &path() const { return path_; }
    int fd() const { return fd_.get(); }
    void placed() { placed_ = true; }

private:
    std::filesystem::path path_;
    Descriptor fd_;
    bool placed_ = false;
};

void copyRange(int from, int to, uint64_t offset, uint64_t count, std::vector<char> &buffer, const std::string &label) {
    while (count > 0) {
        size_t wanted = static_cast<size_t>(std::min<uint64_t>(count, buffer.size()));
        ssize_t got = ::pread(from, buffer.data(), wanted, static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) {
            if (got == 0) errno = EIO;
            failed(label, "the table could not be read");
        }
        for (ssize_t written = 0; written < got;) {
            ssize_t put = ::write(to, buffer.data() + written, static_cast<size_t>(got - written));
            if (put < 0 && errno == EINTR) continue;
            if (put < 0) failed(label, "the new table could not be written");
            written += put;
        }
        offset += static_cast<uint64_t>(got);
        count -= static_cast<uint64_t>(got);
    }
}

void copyKept(const TableFile &file, uint64_t dataEnd, const std::vector<Extent> &dropped, int to) {
    Descriptor from(::open(file.path.c_str(), O_RDONLY | O_CLOEXEC));
    if (from.get() < 0) failed(file.label, "could not be read");
    std::vector<char> buffer(COPY_BLOCK);
    uint64_t position = 0;
    for (const Extent &extent : dropped) {
        copyRange(from.get(), to, position, extent.offset - position, buffer, file.label);
        position = extent.offset + extent.length;
    }
    copyRange(from.get(), to, position, dataEnd - position, buffer, file.label);
}

// The table's permission bits, and its owner and group where the process
// may give them; the owner first, since a change of owner clears the
// set-user-ID bit. Then the new file reaches the disk.
void takeOwnership(const TableFile &file, const std::filesystem::path &path) {
    Descriptor opened(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    int fd = opened.get();
    if (fd < 0) failed(file.label, "the new table could not be opened");
    struct stat facts{};
    if (::stat(file.path.c_str(), &facts) != 0) failed(file.label, "could not be examined");
    if (::fchown(fd, facts.st_uid, facts.st_gid) != 0 && errno != EPERM) {
        failed(file.label, "could not be given its owner");
    }
    if (::fchmod(fd, facts.st_mode & 07777) != 0) failed(file.label, "could not be given its permissions");
    if (::fsync(fd) != 0) failed(file.label, "the new table could not be synced");
}

void syncDirectory(const std::filesystem::path &directory, const std::string &label) {
    Descriptor fd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd.get() < 0 || ::fsync(fd.get()) != 0) failed(label, "its directory could not be synced");
}

}  // namespace

void keepByteOrderMark(std::vector<Extent> &dropped, size_t bomLength) {
    if (dropped.empty() || dropped.front().offset != 0) return;
    dropped.front().offset += bomLength;
    dropped.front().length -= bomLength;
}

void rebuildHeld(Table &held, const TableFile &file, uint64_t dataEnd, const std::vector<Extent> &dropped,
                 const std::function<void(const TableFile &rebuilt)> &check) {
    NewFile rebuilt(file);
    copyKept(file, dataEnd, dropped, rebuilt.fd());
    check(locateTable(rebuilt.path().string()));
    takeOwnership(file, rebuilt.path());
    {
        // An open that found the old file meets the held table's share
        // mode and fails; every later open finds the new file. Without the
        // lock, an open could find the old file, pass its share check once
        // held is closed, and insert into a file that no name leads to.
        DirectoryLock lock(file.directory());
        if (::rename(rebuilt.path().c_str(), file.path.c_str()) != 0) {
            failed(file.label, "the new table could not take its place");
        }
    }
    rebuilt.placed();
    held.close();
    syncDirectory(file.directory(), file.label);
}

}  // namespace mergedb::host
