#include "rebuild.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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

void writeAll(int to, const char *bytes, size_t count, const std::string &label) {
    for (size_t written = 0; written < count;) {
        ssize_t put = ::write(to, bytes + written, count - written);
        if (put < 0 && errno == EINTR) continue;
        if (put < 0) failed(label, "the new table could not be written");
        written += static_cast<size_t>(put);
    }
}

// The records to drop lie apart, in file order, within the data.
void checkDropped(const TableFile &file, uint64_t dataEnd, const std::vector<Extent> &dropped) {
    uint64_t previousEnd = 0;
    for (const Extent &extent : dropped) {
        if (extent.offset < previousEnd || extent.offset > dataEnd || extent.length > dataEnd - extent.offset) {
            throw Failure(file.label, "the records to drop do not lie apart, in file order, within the table; "
                                      "nothing was changed");
        }
        previousEnd = extent.offset + extent.length;
    }
}

// The kept bytes on their way to the new file, written a full buffer at a
// time.
class KeptBytes {
public:
    KeptBytes(int to, const std::string &label) : to_(to), label_(label), buffer_(COPY_BLOCK) {}

    void add(const char *bytes, size_t count) {
        while (count > 0) {
            size_t part = std::min(count, buffer_.size() - filled_);
            std::memcpy(buffer_.data() + filled_, bytes, part);
            filled_ += part;
            bytes += part;
            count -= part;
            if (filled_ == buffer_.size()) flush();
        }
    }

    void flush() {
        writeAll(to_, buffer_.data(), filled_, label_);
        filled_ = 0;
    }

private:
    int to_;
    const std::string &label_;
    std::vector<char> buffer_;
    size_t filled_ = 0;
};

// The table is read from its start in pieces of COPY_BLOCK, and what is
// kept of each goes to KeptBytes: a rewrite that drops many short records
// makes a few calls per MiB, not a read and a write per kept stretch.
void copyKept(const TableFile &file, uint64_t dataEnd, const std::vector<Extent> &dropped, int to) {
    checkDropped(file, dataEnd, dropped);
    Descriptor from(::open(file.path.c_str(), O_RDONLY | O_CLOEXEC));
    if (from.get() < 0) failed(file.label, "could not be read");
    std::vector<char> piece(COPY_BLOCK);
    KeptBytes kept(to, file.label);
    auto next = dropped.begin();
    for (uint64_t start = 0; start < dataEnd;) {
        auto size = static_cast<size_t>(std::min<uint64_t>(COPY_BLOCK, dataEnd - start));
        if (!readExactly(from.get(), piece.data(), size, start)) {
            // A table that ends sooner was cut short under the rewrite.
            if (errno == 0) errno = EIO;
            failed(file.label, "the table could not be read");
        }
        uint64_t end = start + size;
        for (uint64_t at = start; at < end;) {
            while (next != dropped.end() && next->offset + next->length <= at) ++next;
            if (next != dropped.end() && next->offset <= at) {
                at = std::min(end, next->offset + next->length);
                continue;
            }
            uint64_t keptEnd = next == dropped.end() ? end : std::min(end, next->offset);
            kept.add(piece.data() + (at - start), static_cast<size_t>(keptEnd - at));
            at = keptEnd;
        }
        start = end;
    }
    kept.flush();
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
