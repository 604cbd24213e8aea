// File calls of the Windows kind on POSIX.
//
// A HANDLE is an OpenFile of ours. Windows share modes are kept between the
// opens of this process: every open file is listed with its access and share
// mode, and an open that an earlier one forbids fails with the sharing
// violation. A file without any write permission bit stands for a file with
// the read-only attribute: it does not open for writing and is not deleted.
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

struct OpenFile {
    int fd;
    dev_t device;
    ino_t inode;
    DWORD access;
    DWORD shareMode;
};

std::list<OpenFile> &openFiles() {
    static std::list<OpenFile> files;
    return files;
}

OpenFile *fileOf(HANDLE handle) {
    if (handle == nullptr || handle == INVALID_HANDLE_VALUE) return nullptr;
    for (OpenFile &file : openFiles()) {
        if (&file == handle) return &file;
    }
    return nullptr;
}

bool sameFile(const OpenFile &file, const struct stat &info) {
    return file.device == info.st_dev && file.inode == info.st_ino;
}

// An open with access and shareMode must agree with every earlier open of
// the same file, both ways round.
bool shareAllows(const struct stat &info, DWORD access, DWORD shareMode) {
    for (const OpenFile &other : openFiles()) {
        if (!sameFile(other, info)) continue;
        if ((access & GENERIC_READ) && !(other.shareMode & FILE_SHARE_READ)) return false;
        if ((access & GENERIC_WRITE) && !(other.shareMode & FILE_SHARE_WRITE)) return false;
        if ((other.access & GENERIC_READ) && !(shareMode & FILE_SHARE_READ)) return false;
        if ((other.access & GENERIC_WRITE) && !(shareMode & FILE_SHARE_WRITE)) return false;
    }
    return true;
}

bool isOpen(const struct stat &info) {
    for (const OpenFile &file : openFiles()) {
        if (sameFile(file, info)) return true;
    }
    return false;
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
    case CREATE_ALWAYS: return flags | O_CREAT | O_TRUNC;
    case OPEN_ALWAYS: return flags | O_CREAT;
    case TRUNCATE_EXISTING: return flags | O_TRUNC;
    default: return flags;
    }
}

// Checks that Windows makes before it touches the file: what the
// disposition demands of an existing or missing file, directories, the
// read-only attribute and the share modes.
DWORD checkBeforeOpen(LPCSTR path, DWORD access, DWORD shareMode, DWORD disposition) {
    struct stat info;
    if (stat(path, &info) != 0) {
        bool mustExist = disposition == OPEN_EXISTING || disposition == TRUNCATE_EXISTING;
        return mustExist ? posixToWindowsError(errno) : ERROR_SUCCESS;
    }
    if (disposition == CREATE_NEW) return ERROR_FILE_EXISTS;
    if (S_ISDIR(info.st_mode)) return ERROR_ACCESS_DENIED;
    bool writes = (access & GENERIC_WRITE) || disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING;
    if (writes && isReadOnlyAttribute(info)) return ERROR_ACCESS_DENIED;
    if (!shareAllows(info, access, shareMode)) return ERROR_SHARING_VIOLATION;
    return ERROR_SUCCESS;
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
    if (DWORD error = checkBeforeOpen(path, access, shareMode, disposition)) {
        SetLastError(error);
        return INVALID_HANDLE_VALUE;
    }
    if (platformFaultHits(mergedb::FaultKind::Open)) return INVALID_HANDLE_VALUE;
    int fd = open(path, openFlags(access, disposition), 0666);
    if (fd < 0) {
        SetLastError(posixToWindowsError(errno));
        return INVALID_HANDLE_VALUE;
    }
    struct stat info;
    if (fstat(fd, &info) != 0) {
        SetLastError(posixToWindowsError(errno));
        close(fd);
        return INVALID_HANDLE_VALUE;
    }
    openFiles().push_back(OpenFile{fd, info.st_dev, info.st_ino, access, shareMode});
    SetLastError(ERROR_SUCCESS);
    return &openFiles().back();
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
        ssize_t n = read(file->fd, bytes + *got, count - *got);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return fail(posixToWindowsError(errno));
        if (n == 0) break;
        *got += static_cast<DWORD>(n);
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
        ssize_t n = write(file->fd, bytes + *written, wanted - *written);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return fail(posixToWindowsError(errno));
        *written += static_cast<DWORD>(n);
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
    static constexpr int WHENCE[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    if (method > FILE_END) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_SET_FILE_POINTER;
    }
    if (platformFaultHits(mergedb::FaultKind::Seek)) return INVALID_SET_FILE_POINTER;
    off_t base = method == FILE_BEGIN ? 0 : lseek(file->fd, 0, WHENCE[method]);
    if (base < 0 || base + distance < 0) {
        SetLastError(base < 0 ? posixToWindowsError(errno) : ERROR_NEGATIVE_SEEK);
        return INVALID_SET_FILE_POINTER;
    }
    off_t position = lseek(file->fd, base + distance, SEEK_SET);
    if (position < 0) {
        SetLastError(posixToWindowsError(errno));
        return INVALID_SET_FILE_POINTER;
    }
    SetLastError(ERROR_SUCCESS);
    return static_cast<DWORD>(position);
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
    if (isOpen(source)) return fail(ERROR_SHARING_VIOLATION);
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
    DWORD error = fstat(source, &info) != 0 ? posixToWindowsError(errno) : ERROR_SUCCESS;
    if (error == ERROR_SUCCESS) {
        error = checkBeforeOpen(to, GENERIC_WRITE, 0, failIfExists ? CREATE_NEW : CREATE_ALWAYS);
    }
    int target = -1;
    if (error == ERROR_SUCCESS) {
        target = open(to, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, info.st_mode & 0777);
        if (target < 0) error = posixToWindowsError(errno);
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
    if (isOpen(info)) return fail(ERROR_SHARING_VIOLATION);
    if (platformFaultHits(mergedb::FaultKind::Delete)) return FALSE;
    return unlink(path) == 0 ? TRUE : fail(posixToWindowsError(errno));
}
