// File calls of the Windows kind on POSIX.
//
// A HANDLE is the number of an OpenFile of ours, never given twice, so that
// a handle kept after its close names nothing. Windows share modes are kept
// by advisory record locks far behind any data of a table, which belong to
// the open file description: they tell apart two opens of one process as
// well as opens of two processes, and they go with the descriptor, also
// when a process dies. An open that an earlier one forbids fails with the
// sharing violation, and so do a move or delete of a file that is open. A
// file without any write permission bit stands for a file with the
// read-only attribute: it does not open for writing and is not deleted.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <list>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/posix_internal.h"
#include "platform/windows_api.h"

namespace {

// The file's position is kept here, and reads and writes go to it with
// pread and pwrite, so that moving the position or asking for it costs no
// system call.
struct OpenFile {
    uintptr_t id;
    int fd;
    DWORD access;
    off_t position;
};

std::list<OpenFile> &openFiles() {
    static std::list<OpenFile> files;
    return files;
}

uintptr_t lastHandleId = 0;

OpenFile *fileOf(HANDLE handle) {
    auto id = reinterpret_cast<uintptr_t>(handle);
    for (OpenFile &file : openFiles()) {
        if (file.id == id) return &file;
    }
    return nullptr;
}

// The lock bytes of the share modes, one per thing an open does or refuses.
// The lock that conflicts with each is the one two places on: an open that
// reads meets one that refuses to share reading, and so on.
enum ShareByte : int { SHARE_READS, SHARE_WRITES, SHARE_DENIES_READ, SHARE_DENIES_WRITE, SHARE_BYTES };
constexpr off_t SHARE_LOCK_BASE = off_t{1} << 40;

int conflictingByte(int byte) { return (byte + 2) % SHARE_BYTES; }

bool holdsByte(DWORD access, DWORD shareMode, int byte) {
    switch (byte) {
    case SHARE_READS: return (access & GENERIC_READ) != 0;
    case SHARE_WRITES: return (access & GENERIC_WRITE) != 0;
    case SHARE_DENIES_READ: return (shareMode & FILE_SHARE_READ) == 0;
    default: return (shareMode & FILE_SHARE_WRITE) == 0;
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
bool takeShareLocks(int fd, DWORD access, DWORD shareMode) {
    for (int byte = 0; byte < SHARE_BYTES; ++byte) {
        struct flock lock = shareLock(F_RDLCK, byte, 1);
        if (holdsByte(access, shareMode, byte)) fcntl(fd, F_OFD_SETLK, &lock);
    }
    for (int byte = 0; byte < SHARE_BYTES; ++byte) {
        if (holdsByte(access, shareMode, byte) && lockedElsewhere(fd, conflictingByte(byte), 1)) return false;
    }
    return true;
}

// Whether any open, of this process or another, holds the file at path.
bool isOpen(const char *path) {
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    bool held = lockedElsewhere(fd, 0, SHARE_BYTES);
    close(fd);
    return held;
}

int openFlags(DWORD access, DWORD disposition) {
    int flags = O_CLOEXEC;
    if ((access & GENERIC_READ) && (access & GENERIC_WRITE)) {
        flags |= O_RDWR;
    } else if (access & GENERIC_WRITE) {
        flags |= O_WRONLY;
    } else {
        flags |= O_RDONLY;
    }
    switch (disposition) {
    case CREATE_NEW: return flags | O_CREAT | O_EXCL;
    case CREATE_ALWAYS:
    case OPEN_ALWAYS: return flags | O_CREAT;
    default: return flags;
    }
}

bool truncates(DWORD disposition) { return disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING; }

// Checks that Windows makes before it touches the file: what the
// disposition demands of an existing or missing file, directories and the
// read-only attribute.
DWORD checkBeforeOpen(LPCSTR path, DWORD access, DWORD disposition) {
    struct stat info;
    if (stat(path, &info) != 0) {
        bool mustExist = disposition == OPEN_EXISTING || disposition == TRUNCATE_EXISTING;
        return mustExist ? posixToWindowsError(errno) : ERROR_SUCCESS;
    }
    if (disposition == CREATE_NEW) return ERROR_FILE_EXISTS;
    if (S_ISDIR(info.st_mode)) return ERROR_ACCESS_DENIED;
    bool writes = (access & GENERIC_WRITE) || truncates(disposition);
    if (writes && isReadOnlyAttribute(info)) return ERROR_ACCESS_DENIED;
    return ERROR_SUCCESS;
}

// Opens path with the share mode's locks; a file is truncated only once no
// other open forbids it. Gives the descriptor, or -1 with the last error set.
int openShared(LPCSTR path, DWORD access, DWORD shareMode, DWORD disposition, mode_t permissions) {
    int fd = open(path, openFlags(access, disposition), permissions);
    DWORD error = fd < 0 ? posixToWindowsError(errno) : ERROR_SUCCESS;
    if (error == ERROR_SUCCESS && !takeShareLocks(fd, access, shareMode)) error = ERROR_SHARING_VIOLATION;
    if (error == ERROR_SUCCESS && truncates(disposition) && ftruncate(fd, 0) != 0) error = posixToWindowsError(errno);
    if (error != ERROR_SUCCESS) {
        if (fd >= 0) close(fd);
        SetLastError(error);
        return -1;
    }
    return fd;
}

BOOL fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

// Copies an open file's bytes from its start into another.
bool copyContents(int from, int to) {
    char buffer[65536];
    for (;;) {
        ssize_t got = read(from, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        if (got == 0) return true;
        for (ssize_t done = 0; done < got;) {
            ssize_t put = write(to, buffer + done, static_cast<size_t>(got - done));
            if (put < 0 && errno == EINTR) continue;
            if (put <= 0) return false;
            done += put;
        }
    }
}

}  // namespace

HANDLE CreateFileA(LPCSTR path, DWORD access, DWORD shareMode, LPVOID, DWORD disposition, DWORD, HANDLE) {
    if (path == nullptr || *path == '\0') {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    if (DWORD error = checkBeforeOpen(path, access, disposition)) {
        SetLastError(error);
        return INVALID_HANDLE_VALUE;
    }
    if (platformFaultHits(mergedb::FaultKind::Open)) return INVALID_HANDLE_VALUE;
    int fd = openShared(path, access, shareMode, disposition, 0666);
    if (fd < 0) return INVALID_HANDLE_VALUE;
    openFiles().push_back(OpenFile{++lastHandleId, fd, access, 0});
    SetLastError(ERROR_SUCCESS);
    return reinterpret_cast<HANDLE>(lastHandleId);
}

BOOL CloseHandle(HANDLE handle) {
    OpenFile *file = fileOf(handle);
    if (file == nullptr) return fail(ERROR_INVALID_HANDLE);
    int fd = file->fd;
    openFiles().remove_if([file](const OpenFile &entry) { return &entry == file; });
    if (platformFaultHits(mergedb::FaultKind::Close)) {
        close(fd);
        return FALSE;
    }
    return close(fd) == 0 ? TRUE : fail(posixToWindowsError(errno));
}

BOOL ReadFile(HANDLE handle, LPVOID buffer, DWORD count, LPDWORD got, LPVOID) {
    *got = 0;
    OpenFile *file = fileOf(handle);
    if (file == nullptr) return fail(ERROR_INVALID_HANDLE);
    if (!(file->access & GENERIC_READ)) return fail(ERROR_ACCESS_DENIED);
    if (platformFaultHits(mergedb::FaultKind::Read)) return FALSE;
    auto *bytes = static_cast<char *>(buffer);
    while (*got < count) {
        ssize_t n = pread(file->fd, bytes + *got, count - *got, file->position);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return fail(posixToWindowsError(errno));
        if (n == 0) break;
        *got += static_cast<DWORD>(n);
        file->position += n;
    }
    return TRUE;
}

BOOL WriteFile(HANDLE handle, LPCVOID buffer, DWORD count, LPDWORD written, LPVOID) {
    *written = 0;
    OpenFile *file = fileOf(handle);
    if (file == nullptr) return fail(ERROR_INVALID_HANDLE);
    if (!(file->access & GENERIC_WRITE)) return fail(ERROR_ACCESS_DENIED);
    if (platformFaultHits(mergedb::FaultKind::Write)) return FALSE;
    DWORD wanted = platformShortWrite(count);
    const auto *bytes = static_cast<const char *>(buffer);
    while (*written < wanted) {
        ssize_t n = pwrite(file->fd, bytes + *written, wanted - *written, file->position);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return fail(posixToWindowsError(errno));
        *written += static_cast<DWORD>(n);
        file->position += n;
    }
    return TRUE;
}

// With no high part the distance is a signed 32-bit number, as on Windows.
DWORD SetFilePointer(HANDLE handle, LONG distance, PLONG, DWORD method) {
    OpenFile *file = fileOf(handle);
    if (file == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return INVALID_SET_FILE_POINTER;
    }
    if (method > FILE_END) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_SET_FILE_POINTER;
    }
    if (platformFaultHits(mergedb::FaultKind::Seek)) return INVALID_SET_FILE_POINTER;
    struct stat info;
    off_t base = 0;
    if (method == FILE_CURRENT) {
        base = file->position;
    } else if (method == FILE_END) {
        base = fstat(file->fd, &info) == 0 ? info.st_size : -1;
    }
    if (base < 0 || base + distance < 0) {
        SetLastError(base < 0 ? posixToWindowsError(errno) : ERROR_NEGATIVE_SEEK);
        return INVALID_SET_FILE_POINTER;
    }
    file->position = base + distance;
    SetLastError(ERROR_SUCCESS);
    return static_cast<DWORD>(file->position);
}

DWORD GetFileSize(HANDLE handle, LPDWORD sizeHigh) {
    OpenFile *file = fileOf(handle);
    struct stat info;
    if (file == nullptr || fstat(file->fd, &info) != 0) {
        SetLastError(file == nullptr ? ERROR_INVALID_HANDLE : posixToWindowsError(errno));
        return INVALID_FILE_SIZE;
    }
    if (sizeHigh != nullptr) *sizeHigh = static_cast<DWORD>(static_cast<uint64_t>(info.st_size) >> 32);
    SetLastError(ERROR_SUCCESS);
    return static_cast<DWORD>(info.st_size);
}

BOOL MoveFileA(LPCSTR from, LPCSTR to) {
    struct stat source;
    struct stat target;
    if (stat(from, &source) != 0) return fail(posixToWindowsError(errno));
    if (isOpen(from)) return fail(ERROR_SHARING_VIOLATION);
    if (lstat(to, &target) == 0) {
        // Moving a file onto itself changes nothing and succeeds.
        if (source.st_dev == target.st_dev && source.st_ino == target.st_ino) return TRUE;
        return fail(ERROR_ALREADY_EXISTS);
    }
    if (platformFaultHits(mergedb::FaultKind::Rename)) return FALSE;
    return rename(from, to) == 0 ? TRUE : fail(posixToWindowsError(errno));
}

BOOL CopyFileA(LPCSTR from, LPCSTR to, BOOL failIfExists) {
    int source = open(from, O_RDONLY | O_CLOEXEC);
    if (source < 0) return fail(posixToWindowsError(errno));
    struct stat info;
    DWORD disposition = failIfExists ? CREATE_NEW : CREATE_ALWAYS;
    DWORD error = fstat(source, &info) != 0 ? posixToWindowsError(errno) : ERROR_SUCCESS;
    if (error == ERROR_SUCCESS) error = checkBeforeOpen(to, GENERIC_READ | GENERIC_WRITE, disposition);
    int target = -1;
    if (error == ERROR_SUCCESS) {
        target = openShared(to, GENERIC_READ | GENERIC_WRITE, 0, disposition, info.st_mode & 0777);
        if (target < 0) error = GetLastError();
    }
    if (error == ERROR_SUCCESS && !copyContents(source, target)) error = ERROR_DISK_FULL;
    if (target >= 0) close(target);
    close(source);
    return error == ERROR_SUCCESS ? TRUE : fail(error);
}

BOOL DeleteFileA(LPCSTR path) {
    struct stat info;
    if (lstat(path, &info) != 0) return fail(posixToWindowsError(errno));
    if (S_ISDIR(info.st_mode) || isReadOnlyAttribute(info)) return fail(ERROR_ACCESS_DENIED);
    if (isOpen(path)) return fail(ERROR_SHARING_VIOLATION);
    if (platformFaultHits(mergedb::FaultKind::Delete)) return FALSE;
    return unlink(path) == 0 ? TRUE : fail(posixToWindowsError(errno));
}
