#include "tablefile/file_service.h"

#include <cstdlib>
#include <cstring>

#include "mergedb/mergedb.h"

namespace mergedb {
namespace {

struct ErrorMapping {
    DWORD osError;
    uint16_t code;
};

constexpr ErrorMapping ERROR_TABLE[] = {
    {0, 0},
    {5, PORT_DENIED},         {32, PORT_DENIED},         {80, PORT_DENIED},        {183, PORT_DENIED},
    {6, PORT_BAD_HANDLE},     {114, PORT_BAD_HANDLE},    {130, PORT_BAD_HANDLE},
    {39, PORT_DISK_FULL},     {112, PORT_DISK_FULL},
    {38, PORT_END_OF_FILE},
    {110, PORT_OPEN_FAILED},
    {25, PORT_SEEK},          {131, PORT_SEEK},          {132, PORT_SEEK},
    {16, PORT_DIRECTORY_BUSY}, {145, PORT_DIRECTORY_BUSY},
    {2, PORT_NOT_FOUND},      {3, PORT_NOT_FOUND},       {15, PORT_NOT_FOUND},     {53, PORT_NOT_FOUND},
    {161, PORT_NOT_FOUND},    {267, PORT_NOT_FOUND},     {1203, PORT_NOT_FOUND},
    {4, PORT_TOO_MANY_OPEN},
    {111, PORT_NAME_TOO_LONG}, {206, PORT_NAME_TOO_LONG},
    {18, PORT_NO_MORE_FILES}, {113, PORT_NO_MORE_FILES},
    {33, PORT_LOCKED},        {167, PORT_LOCKED},
    {82, PORT_CANNOT_MAKE},
};

// Windows share mode values.
constexpr DWORD SHARE_NONE = 0;
constexpr DWORD SHARE_READ = FILE_SHARE_READ;
constexpr DWORD SHARE_ALL = FILE_SHARE_READ | FILE_SHARE_WRITE;

// Converts a host (OEM) path into the ANSI page. A path that does not fit
// the conversion buffer gives false.
bool toAnsiPath(const char *oemPath, char (&ansi)[PATH_BUFFER_SIZE]) {
    if (oemPath == nullptr) return false;
    size_t length = strnlen(oemPath, PATH_BUFFER_SIZE);
    if (length >= PATH_BUFFER_SIZE) return false;
    std::memcpy(ansi, oemPath, length + 1);
    OemToCharA(ansi, ansi);
    return true;
}

DWORD shareModeFor(uint32_t mode, bool asExisting) {
    uint32_t bits = mode & (MODE_SHARE_NONE | MODE_SHARE_READ | MODE_SHARE_ALL);
    if (asExisting && (mode & MODE_READ_ONLY)) bits |= MODE_SHARE_ALL;
    if (bits == 0) bits = MODE_SHARE_ALL;
    if (bits & MODE_SHARE_ALL) return SHARE_ALL;
    if (bits & MODE_SHARE_READ) return SHARE_READ;
    return SHARE_NONE;
}

DWORD dispositionFor(uint32_t mode, bool asExisting) {
    if (asExisting) return (mode & MODE_TRUNCATE) ? TRUNCATE_EXISTING : OPEN_EXISTING;
    if (mode & MODE_NEW_ONLY) return CREATE_NEW;
    if (mode & MODE_TRUNCATE) return CREATE_ALWAYS;
    return OPEN_ALWAYS;
}

// A drive root such as C:\, which FindFirstFileA does not find: exactly a
// letter, a colon and the separator, where paths have drives.
bool isDriveRoot(const char *path) {
    auto first = static_cast<unsigned char>(path[0] | 0x20);
    return PATH_HAS_DRIVES && first >= 'a' && first <= 'z' && path[1] == ':' && path[2] == PATH_SEPARATOR &&
           path[3] == '\0';
}

// SetFilePointer and GetFileSize share one failure rule: 0xFFFFFFFF fails.
uint16_t positionResult(DWORD value, uint32_t *out) {
    *out = value;
    return value == INVALID_SET_FILE_POINTER ? portError(GetLastError()) : 0;
}

}  // namespace

uint16_t portError(DWORD osError) {
    for (const ErrorMapping &entry : ERROR_TABLE) {
        if (entry.osError == osError) return entry.code;
    }
    return PORT_GENERAL;
}

uint16_t portOpen(const char *path, uint32_t mode, FileObject *file, uint8_t existing) {
    size_t length = std::strlen(path);
    auto *pathCopy = static_cast<char *>(std::malloc(length + 1));
    if (pathCopy == nullptr) return PORT_GENERAL;
    bool asExisting = existing != 0 && (mode & MODE_CREATE) == 0;
    if (!asExisting && (mode & MODE_READ_ONLY)) {
        std::free(pathCopy);
        return PORT_DENIED;
    }
    DWORD access = (asExisting && (mode & MODE_READ_ONLY)) ? GENERIC_READ : GENERIC_READ | GENERIC_WRITE;
    file->handle = CreateFileA(path, access, shareModeFor(mode, asExisting), nullptr,
                               dispositionFor(mode, asExisting), FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file->handle == INVALID_HANDLE_VALUE) {
        std::free(pathCopy);
        return portError(GetLastError());
    }
    std::memcpy(pathCopy, path, length + 1);
    file->pathCopy = pathCopy;
    file->pathSize = static_cast<uint32_t>(length + 1);
    return 0;
}

uint16_t portClose(FileObject *file) {
    if (file->handle == INVALID_HANDLE_VALUE) return 0;
    std::free(file->pathCopy);
    file->pathCopy = nullptr;
    if (!CloseHandle(file->handle)) return portError(GetLastError());
    file->handle = INVALID_HANDLE_VALUE;
    return 0;
}

uint16_t portRead(FileObject *file, uint32_t offset, uint16_t count, void *buffer, uint16_t *got) {
    if (offset != FILE_FAILURE) {
        uint32_t position = 0;
        if (uint16_t code = portSeek(file, offset, 0, &position)) return code;
    }
    DWORD read = 0;
    if (!ReadFile(file->handle, buffer, count, &read, nullptr)) {
        *got = 0;
        return portError(GetLastError());
    }
    *got = static_cast<uint16_t>(read);
    return read < count ? PORT_END_OF_FILE : 0;
}

uint16_t portWrite(FileObject *file, uint16_t origin, uint32_t offset, uint16_t count, const void *buffer,
                   uint16_t *written) {
    if (origin != 1 || offset != 0) {
        uint32_t position = 0;
        if (uint16_t code = portSeek(file, offset, origin, &position)) return code;
    }
    DWORD done = 0;
    if (!WriteFile(file->handle, buffer, count, &done, nullptr)) {
        *written = static_cast<uint16_t>(done);
        return portError(GetLastError());
    }
    *written = static_cast<uint16_t>(done);
    return done < count ? PORT_DISK_FULL : 0;
}

uint16_t portSeek(FileObject *file, uint32_t offset, uint16_t origin, uint32_t *position) {
    static constexpr DWORD METHODS[] = {FILE_BEGIN, FILE_CURRENT, FILE_END};
    if (origin > 2) return PORT_SEEK;
    return positionResult(SetFilePointer(file->handle, static_cast<LONG>(offset), nullptr, METHODS[origin]),
                          position);
}

uint16_t portTell(FileObject *file, uint32_t *position) {
    return positionResult(SetFilePointer(file->handle, 0, nullptr, FILE_CURRENT), position);
}

uint16_t portSize(FileObject *file, uint32_t *size) {
    return positionResult(GetFileSize(file->handle, nullptr), size);
}

uint16_t portDelete(const char *path) { return DeleteFileA(path) ? 0 : portError(GetLastError()); }

uint16_t portCopy(const char *source, const char *target) {
    if (CopyFileA(source, target, FALSE)) return 0;
    uint16_t code = portError(GetLastError());
    return code == PORT_NOT_FOUND ? PORT_OPEN_FAILED : code;
}

uint16_t portRename(const char *fromPath, const char *toPath) {
    if (MoveFileA(fromPath, toPath)) return 0;
    DWORD error = GetLastError();
    if (error == 0 || error == ERROR_NOT_SAME_DEVICE || error == ERROR_NO_MORE_FILES) {
        if (portCopy(fromPath, toPath) != 0) return PORT_COPY_FAILED;
        return portDelete(fromPath);
    }
    return portError(error);
}

uint16_t pathExists(const char *path) {
    if (isDriveRoot(path)) {
        DWORD sectorsPerCluster, bytesPerSector, freeClusters, totalClusters;
        return GetDiskFreeSpaceA(path, &sectorsPerCluster, &bytesPerSector, &freeClusters, &totalClusters) == TRUE
                   ? 0
                   : PORT_NOT_FOUND;
    }
    WIN32_FIND_DATAA data;
    HANDLE find = FindFirstFileA(path, &data);
    if (find != INVALID_HANDLE_VALUE) {
        FindClose(find);
        return 0;
    }
    uint16_t code = portError(GetLastError());
    return code == PORT_NO_MORE_FILES ? PORT_NOT_FOUND : code;
}

uint16_t fileOpen(const char *path, uint32_t mode, FileObject *file) {
    char ansi[PATH_BUFFER_SIZE];
    file->handle = INVALID_HANDLE_VALUE;
    if (!toAnsiPath(path, ansi)) return ERR_OPEN;
    return portOpen(ansi, mode, file, 1) == 0 ? 0 : ERR_OPEN;
}

uint16_t fileCreate(const char *path, uint32_t mode, FileObject *file) {
    char ansi[PATH_BUFFER_SIZE];
    file->handle = INVALID_HANDLE_VALUE;
    if (!toAnsiPath(path, ansi)) return ERR_CREATE;
    return portOpen(ansi, mode, file, 1) == 0 ? 0 : ERR_CREATE;
}

uint16_t fileClose(FileObject *file) { return portClose(file) == 0 ? 0 : ERR_CLOSE; }

int16_t fileRead(FileObject *file, void *buffer, uint16_t count) {
    uint16_t got = 0;
    uint16_t code = portRead(file, FILE_FAILURE, count, buffer, &got);
    if (code != 0 && code != PORT_END_OF_FILE) return -1;
    return static_cast<int16_t>(got);
}

int16_t fileWrite(FileObject *file, const void *buffer, uint16_t count) {
    uint16_t written = 0;
    if (portWrite(file, 1, 0, count, buffer, &written) != 0) return -1;
    return static_cast<int16_t>(written);
}

uint32_t fileSeek(FileObject *file, uint32_t offset, uint16_t origin) {
    uint32_t position = 0;
    return portSeek(file, offset, origin, &position) == 0 ? position : FILE_FAILURE;
}

uint32_t fileTell(FileObject *file) {
    uint32_t position = 0;
    return portTell(file, &position) == 0 ? position : FILE_FAILURE;
}

uint32_t fileSize(FileObject *file) {
    uint32_t size = 0;
    return portSize(file, &size) == 0 ? size : FILE_FAILURE;
}

uint16_t fileRename(const char *toPath, const char *fromPath) {
    char ansiTo[PATH_BUFFER_SIZE];
    char ansiFrom[PATH_BUFFER_SIZE];
    if (!toAnsiPath(toPath, ansiTo) || !toAnsiPath(fromPath, ansiFrom)) return ERR_RENAME;
    return portRename(ansiFrom, ansiTo) == 0 ? 0 : ERR_RENAME;
}

uint16_t fileDelete(const char *path) {
    char ansi[PATH_BUFFER_SIZE];
    if (!toAnsiPath(path, ansi)) return ERR_DELETE;
    return portDelete(ansi) == 0 ? 0 : ERR_DELETE;
}

int fileExists(const char *path) {
    char ansi[PATH_BUFFER_SIZE];
    if (!toAnsiPath(path, ansi)) return -1;
    return pathExists(ansi) == 0 ? 0 : -1;
}

}  // namespace mergedb
