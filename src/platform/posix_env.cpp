// The Env of POSIX systems.
//
// Share modes are kept by advisory record locks far behind any data of a
// table, which belong to the open file description: they tell apart two
// opens of one process as well as opens of two processes, and they go with
// the descriptor, also when a process dies. An open that an earlier one
// forbids fails, and so do a rename or delete of a file that is open. The
// opens of a directory, and the steps of a commit there, keep their order
// between processes through a flock on the directory itself. A file without
// any write permission bit stands for a file with the read-only attribute:
// it does not open for writing and is not deleted.
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/env.h"
#include "platform/posix_internal.h"
#include "platform/windows_api.h"

namespace mergedb {

struct EnvFile {
    int fd;
};

struct EnvWalk {
    DIR *directory;
    std::string path;  // UTF-8
};

struct EnvLock {
    int fd;
};

namespace {

using posix::ansiToUtf8;

// The lock bytes of the share modes, one per thing an open does or refuses.
// The lock that conflicts with each is the one two places on: an open that
// reads meets one that refuses to share reading, and so on.
enum ShareByte : int { SHARE_READS, SHARE_WRITES, SHARE_DENIES_READ, SHARE_DENIES_WRITE, SHARE_BYTES };
constexpr off_t SHARE_LOCK_BASE = off_t{1} << 40;

int conflictingByte(int byte) { return (byte + 2) % SHARE_BYTES; }

bool holdsByte(OpenRequest request, int byte) {
    switch (byte) {
    case SHARE_READS: return true;
    case SHARE_WRITES: return request.write;
    case SHARE_DENIES_READ: return request.share == ShareMode::None;
    default: return request.share != ShareMode::ReadWrite;
    }
}

struct flock shareLock(short type, int byte, int count) {
    struct flock lock{};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = SHARE_LOCK_BASE + byte;
    lock.l_len = count;
    return lock;
}

// Whether another open file description holds a lock on count lock bytes
// from byte on.
bool lockedElsewhere(int fd, int byte, int count) {
    struct flock probe = shareLock(F_WRLCK, byte, count);
    return fcntl(fd, F_OFD_GETLK, &probe) == 0 && probe.l_type != F_UNLCK;
}

// Takes the locks that describe an open, then looks for the locks of others
// that it conflicts with. Taking first means that of two opens racing each
// other at least one sees the other. A file system without record locks
// keeps no share modes.
bool takeShareLocks(int fd, OpenRequest request) {
    for (int byte = 0; byte < SHARE_BYTES; ++byte) {
        struct flock lock = shareLock(F_RDLCK, byte, 1);
        if (holdsByte(request, byte)) fcntl(fd, F_OFD_SETLK, &lock);
    }
    for (int byte = 0; byte < SHARE_BYTES; ++byte) {
        if (holdsByte(request, byte) && lockedElsewhere(fd, conflictingByte(byte), 1)) return false;
    }
    return true;
}

// Opening never waits: a pipe or a device is not waited for but refused.
int openWithoutWaiting(const std::string &path, int flags, mode_t permissions = 0) {
    int fd = -1;
    do {
        fd = ::open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK, permissions);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

// Whether any open, of this process or another, holds the file at path.
bool isOpen(const std::string &path) {
    int fd = openWithoutWaiting(path, O_RDONLY);
    if (fd < 0) return false;
    bool held = lockedElsewhere(fd, 0, SHARE_BYTES);
    close(fd);
    return held;
}

bool isReadOnlyAttribute(const struct stat &info) { return (info.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0; }

bool makesAnew(Disposition disposition) { return disposition == Disposition::CreateAlways; }

// What Windows checks before it touches the file: what the disposition
// demands of an existing or missing file, directories and the read-only
// attribute.
bool mayOpen(const std::string &path, OpenRequest request) {
    struct stat info;
    if (stat(path.c_str(), &info) != 0) return makesAnew(request.disposition) && errno == ENOENT;
    if (S_ISDIR(info.st_mode)) return false;
    bool writes = request.write || makesAnew(request.disposition);
    return !(writes && isReadOnlyAttribute(info));
}

int openFlags(OpenRequest request) {
    int flags = request.write ? O_RDWR : O_RDONLY;
    return makesAnew(request.disposition) ? flags | O_CREAT : flags;
}

bool isRegularFile(int fd) {
    struct stat info;
    return fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
}

EnvFile *openFile(const char *ansiPath, OpenRequest request) {
    if (ansiPath == nullptr || *ansiPath == '\0') return nullptr;
    std::string path = ansiToUtf8(ansiPath);
    if (!mayOpen(path, request)) return nullptr;
    int fd = openWithoutWaiting(path, openFlags(request), 0666);
    if (fd < 0) return nullptr;
    bool opened = isRegularFile(fd) && takeShareLocks(fd, request) &&
                  (!makesAnew(request.disposition) || ftruncate(fd, 0) == 0);
    if (!opened) {
        close(fd);
        return nullptr;
    }
    return new EnvFile{fd};
}

bool closeFile(EnvFile *file) {
    int result = close(file->fd);
    delete file;
    return result == 0;
}

// Both loop over the system's short transfers; a read ends early only at
// the end of the file, a write only when the disk is full.
int64_t readAt(EnvFile *file, uint64_t offset, void *buffer, uint32_t count) {
    auto *bytes = static_cast<char *>(buffer);
    uint32_t got = 0;
    while (got < count) {
        ssize_t n = pread(file->fd, bytes + got, count - got, static_cast<off_t>(offset + got));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return -1;
        if (n == 0) break;
        got += static_cast<uint32_t>(n);
    }
    return got;
}

// A write may need the room of a file deleted just before.
int64_t writeAt(EnvFile *file, uint64_t offset, const void *buffer, uint32_t count) {
    posix::waitForLateCloses();
    const auto *bytes = static_cast<const char *>(buffer);
    uint32_t written = 0;
    while (written < count) {
        ssize_t n = pwrite(file->fd, bytes + written, count - written, static_cast<off_t>(offset + written));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == ENOSPC || errno == EDQUOT || errno == EFBIG) && written != 0) break;
        if (n <= 0) return -1;
        written += static_cast<uint32_t>(n);
    }
    return written;
}

bool fileSize(EnvFile *file, uint64_t *size) {
    struct stat info;
    if (fstat(file->fd, &info) != 0) return false;
    *size = static_cast<uint64_t>(info.st_size);
    return true;
}

bool truncateFile(EnvFile *file, uint64_t size) { return ftruncate(file->fd, static_cast<off_t>(size)) == 0; }

bool syncFile(EnvFile *file) { return fsync(file->fd) == 0; }

// The owner first: a change of owner clears the set-id bits that the mode
// then brings back.
bool copyOwnership(EnvFile *from, EnvFile *to) {
    struct stat info;
    if (fstat(from->fd, &info) != 0) return false;
    if (fchown(to->fd, info.st_uid, info.st_gid) != 0) {
        // Someone else's file: keep at least its group where that is ours.
        [[maybe_unused]] int ignored = fchown(to->fd, static_cast<uid_t>(-1), info.st_gid);
    }
    return fchmod(to->fd, info.st_mode & 07777) == 0;
}

bool sameFile(const struct stat &one, const struct stat &other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

bool renameFile(const char *ansiFrom, const char *ansiTo) {
    std::string from = ansiToUtf8(ansiFrom);
    std::string to = ansiToUtf8(ansiTo);
    struct stat source;
    struct stat target;
    if (lstat(from.c_str(), &source) != 0 || isOpen(from)) return false;
    if (lstat(to.c_str(), &target) == 0) return sameFile(source, target);
    return rename(from.c_str(), to.c_str()) == 0;
}

bool removeFile(const char *ansiPath) {
    std::string path = ansiToUtf8(ansiPath);
    struct stat info;
    if (lstat(path.c_str(), &info) != 0) return false;
    if (S_ISDIR(info.st_mode) || isReadOnlyAttribute(info) || isOpen(path)) return false;
    return unlink(path.c_str()) == 0;
}

// The name goes while this open still holds the file, and the last close,
// which gives the room back, is left to posix::closeLater. Where path no
// longer names this file, the file has the read-only attribute or another
// open holds it, the two steps are done as close and remove, which refuses
// the last two.
bool closeAndRemoveFile(EnvFile *file, const char *ansiPath) {
    std::string path = ansiToUtf8(ansiPath);
    struct stat named;
    struct stat held;
    bool unlinkFirst = lstat(path.c_str(), &named) == 0 && fstat(file->fd, &held) == 0 && sameFile(named, held) &&
                       !isReadOnlyAttribute(named) && !lockedElsewhere(file->fd, 0, SHARE_BYTES);
    if (!unlinkFirst) {
        closeFile(file);
        return removeFile(ansiPath);
    }
    if (unlink(path.c_str()) != 0) {
        closeFile(file);
        return false;
    }
    posix::closeLater(file->fd);
    delete file;
    return true;
}

// "/" alone is the root, which stands for a drive's root.
bool pathExists(const char *ansiPath) {
    std::string path = ansiToUtf8(ansiPath);
    if (path.empty() || (path.size() > 1 && path.back() == '/')) return false;
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

uint32_t attributesOf(const struct stat &info) {
    uint32_t attributes = 0;
    if (S_ISDIR(info.st_mode)) attributes |= ATTRIBUTE_DIRECTORY;
    if (S_ISREG(info.st_mode)) attributes |= ATTRIBUTE_ARCHIVE;
    if (isReadOnlyAttribute(info)) attributes |= ATTRIBUTE_READ_ONLY;
    return attributes;
}

// The next entry that can be looked at; a link to nothing shows as itself.
bool nextEntry(EnvWalk *walk, DirEntry *entry) {
    while (dirent *found = readdir(walk->directory)) {
        std::string path = walk->path + "/" + found->d_name;
        struct stat info;
        if (stat(path.c_str(), &info) != 0 && lstat(path.c_str(), &info) != 0) continue;
        posix::utf8ToAnsi(found->d_name, entry->name, sizeof entry->name);
        entry->attributes = attributesOf(info);
        return true;
    }
    return false;
}

void walkClose(EnvWalk *walk) {
    closedir(walk->directory);
    delete walk;
}

EnvWalk *walkFirst(const char *ansiDirectory, DirEntry *entry) {
    std::string path = *ansiDirectory == '\0' ? "." : ansiToUtf8(ansiDirectory);
    DIR *directory = opendir(path.c_str());
    if (directory == nullptr) return nullptr;
    auto *walk = new EnvWalk{directory, path};
    if (nextEntry(walk, entry)) return walk;
    walkClose(walk);
    return nullptr;
}

// The directory part of a path, "." for a bare name.
std::string directoryOf(const char *ansiPath) {
    std::string path = ansiToUtf8(ansiPath);
    size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

int openDirectory(const char *ansiPath) {
    return ::open(directoryOf(ansiPath).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

EnvLock *lockDirectory(const char *ansiPath) {
    int fd = openDirectory(ansiPath);
    if (fd < 0) return nullptr;
    int result = 0;
    do {
        result = flock(fd, LOCK_EX);
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        close(fd);
        return nullptr;
    }
    return new EnvLock{fd};
}

// Closing the directory lets go of its lock.
void unlockDirectory(EnvLock *lock) {
    close(lock->fd);
    delete lock;
}

bool syncDirectory(const char *ansiPath) {
    int fd = openDirectory(ansiPath);
    if (fd < 0) return false;
    bool synced = fsync(fd) == 0;
    close(fd);
    return synced;
}

constexpr Env POSIX_ENV = {
    .open = openFile,
    .close = closeFile,
    .readAt = readAt,
    .writeAt = writeAt,
    .size = fileSize,
    .truncate = truncateFile,
    .sync = syncFile,
    .copyOwnership = copyOwnership,
    .rename = renameFile,
    .remove = removeFile,
    .closeAndRemove = closeAndRemoveFile,
    .exists = pathExists,
    .walkFirst = walkFirst,
    .walkNext = nextEntry,
    .walkClose = walkClose,
    .lockDirectory = lockDirectory,
    .unlockDirectory = unlockDirectory,
    .syncDirectory = syncDirectory,
    .systemLanguage = GetSystemDefaultLangID,
};

}  // namespace

const Env &platformEnv() { return POSIX_ENV; }

}  // namespace mergedb
