// The Env of Windows: the system's own file calls. CreateFileA applies a
// share mode in the same step as the open, and MoveFileA and DeleteFileA
// refuse a file that an open holds, so the directory lock has nothing to
// add here.
#include <cstring>
#include <string>

#include "platform/env.h"
#include "platform/windows_api.h"

namespace mergedb {

struct EnvFile {
    HANDLE handle;
};

struct EnvWalk {
    HANDLE find;
};

struct EnvLock {};

namespace {

// There is no lock to take, but the callers expect one that they give back.
EnvLock directoryLock;

DWORD shareFlags(ShareMode share) {
    switch (share) {
    case ShareMode::None: return 0;
    case ShareMode::Read: return FILE_SHARE_READ;
    default: return FILE_SHARE_READ | FILE_SHARE_WRITE;
    }
}

DWORD dispositionOf(Disposition disposition) {
    return disposition == Disposition::OpenExisting ? OPEN_EXISTING : CREATE_ALWAYS;
}

// A device (CON, NUL, a serial port) or a pipe opens under a file's name,
// but is no table.
EnvFile *openFile(const char *path, OpenRequest request) {
    DWORD access = request.write ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ;
    HANDLE handle = CreateFileA(path, access, shareFlags(request.share), nullptr, dispositionOf(request.disposition),
                                FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return nullptr;
    if (GetFileType(handle) != FILE_TYPE_DISK) {
        CloseHandle(handle);
        return nullptr;
    }
    return new EnvFile{handle};
}

bool closeFile(EnvFile *file) {
    BOOL closed = CloseHandle(file->handle);
    delete file;
    return closed != FALSE;
}

OVERLAPPED at(uint64_t offset) {
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(offset);
    place.OffsetHigh = static_cast<DWORD>(offset >> 32);
    return place;
}

// A read at the end of the file gives ERROR_HANDLE_EOF: no failure, just
// nothing read.
int64_t readAt(EnvFile *file, uint64_t offset, void *buffer, uint32_t count) {
    auto *bytes = static_cast<char *>(buffer);
    uint32_t got = 0;
    while (got < count) {
        OVERLAPPED place = at(offset + got);
        DWORD n = 0;
        if (!ReadFile(file->handle, bytes + got, count - got, &n, &place)) {
            if (GetLastError() == ERROR_HANDLE_EOF) break;
            return -1;
        }
        if (n == 0) break;
        got += n;
    }
    return got;
}

int64_t writeAt(EnvFile *file, uint64_t offset, const void *buffer, uint32_t count) {
    const auto *bytes = static_cast<const char *>(buffer);
    uint32_t written = 0;
    while (written < count) {
        OVERLAPPED place = at(offset + written);
        DWORD n = 0;
        if (!WriteFile(file->handle, bytes + written, count - written, &n, &place) || n == 0) {
            DWORD error = GetLastError();
            bool full = error == ERROR_DISK_FULL || error == ERROR_HANDLE_DISK_FULL;
            return full && written != 0 ? written : -1;
        }
        written += n;
    }
    return written;
}

bool fileSize(EnvFile *file, uint64_t *size) {
    LARGE_INTEGER value;
    if (!GetFileSizeEx(file->handle, &value)) return false;
    *size = static_cast<uint64_t>(value.QuadPart);
    return true;
}

bool truncateFile(EnvFile *file, uint64_t size) {
    LARGE_INTEGER position;
    position.QuadPart = static_cast<LONGLONG>(size);
    return SetFilePointerEx(file->handle, position, nullptr, FILE_BEGIN) && SetEndOfFile(file->handle);
}

bool syncFile(EnvFile *file) { return FlushFileBuffers(file->handle) != FALSE; }

// A new file takes the security of its directory, which is what a file
// made there by any program gets.
bool copyOwnership(EnvFile *, EnvFile *) { return true; }

bool renameFile(const char *from, const char *to) { return MoveFileA(from, to) != FALSE; }

bool removeFile(const char *path) { return DeleteFileA(path) != FALSE; }

bool closeAndRemoveFile(EnvFile *file, const char *path) {
    closeFile(file);
    return removeFile(path);
}

// A drive's root, C:\, is no entry that FindFirstFileA finds.
bool isDriveRoot(const char *path) {
    auto first = static_cast<unsigned char>(path[0] | 0x20);
    return first >= 'a' && first <= 'z' && path[1] == ':' && path[2] == '\\' && path[3] == '\0';
}

bool pathExists(const char *path) {
    if (isDriveRoot(path)) {
        DWORD sectorsPerCluster, bytesPerSector, freeClusters, totalClusters;
        return GetDiskFreeSpaceA(path, &sectorsPerCluster, &bytesPerSector, &freeClusters, &totalClusters) != FALSE;
    }
    WIN32_FIND_DATAA data;
    HANDLE find = FindFirstFileA(path, &data);
    if (find == INVALID_HANDLE_VALUE) return false;
    FindClose(find);
    return true;
}

void takeEntry(const WIN32_FIND_DATAA &data, DirEntry *entry) {
    std::strncpy(entry->name, data.cFileName, sizeof entry->name - 1);
    entry->name[sizeof entry->name - 1] = '\0';
    entry->attributes = data.dwFileAttributes;
}

EnvWalk *walkFirst(const char *directory, DirEntry *entry) {
    std::string pattern(directory);
    if (!pattern.empty() && pattern.back() != '\\' && pattern.back() != ':') pattern += '\\';
    pattern += "*.*";
    WIN32_FIND_DATAA data;
    HANDLE find = FindFirstFileA(pattern.c_str(), &data);
    if (find == INVALID_HANDLE_VALUE) return nullptr;
    takeEntry(data, entry);
    return new EnvWalk{find};
}

bool walkNext(EnvWalk *walk, DirEntry *entry) {
    WIN32_FIND_DATAA data;
    if (!FindNextFileA(walk->find, &data)) return false;
    takeEntry(data, entry);
    return true;
}

void walkClose(EnvWalk *walk) {
    FindClose(walk->find);
    delete walk;
}

EnvLock *lockDirectory(const char *) { return &directoryLock; }

void unlockDirectory(EnvLock *) {}

// NTFS keeps its directories in its journal.
bool syncDirectory(const char *) { return true; }

// The system's call, whose calling convention differs on 32-bit Windows.
uint16_t systemLanguage() { return GetSystemDefaultLangID(); }

constexpr Env WINDOWS_ENV = {
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
    .walkNext = walkNext,
    .walkClose = walkClose,
    .lockDirectory = lockDirectory,
    .unlockDirectory = unlockDirectory,
    .syncDirectory = syncDirectory,
    .systemLanguage = systemLanguage,
};

}  // namespace

const Env &platformEnv() { return WINDOWS_ENV; }

}  // namespace mergedb
