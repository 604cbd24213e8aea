#include "tablefile/file_service.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "mergedb/mergedb.h"
#include "platform/windows_api.h"

namespace mergedb {
namespace {

// A host (OEM) path in the ANSI page. A path that does not fit the buffer
// gives false.
bool toAnsiPath(const char *oemPath, char (&ansi)[PATH_BUFFER_SIZE]) {
    if (oemPath == nullptr) return false;
    size_t length = strnlen(oemPath, PATH_BUFFER_SIZE);
    if (length >= PATH_BUFFER_SIZE) return false;
    std::memcpy(ansi, oemPath, length + 1);
    OemToCharA(ansi, ansi);
    return true;
}

void freeReadAhead(FileObject *file) {
    std::free(file->ahead.bytes);
    file->ahead = ReadAhead{};
}

// After a write or a cut the held bytes may no longer be the file's.
void dropReadAhead(FileObject *file) { file->ahead = ReadAhead{file->ahead.bytes, 0, 0, 0, false}; }

bool aheadHolds(const ReadAhead &ahead, uint64_t position, uint32_t count) {
    return position >= ahead.start && position - ahead.start + count <= ahead.length;
}

// The stretch of the file that a read of count bytes at position fills the
// read-ahead with, the read's own bytes among them. A read that goes on
// from the held bytes the way the last fill went, forward from them or
// into them from in front, takes twice as many as that fill; a read that
// turns, or lies elsewhere, takes only its own bytes, so that reads here
// and there, or to and fro, cost what they did without a read-ahead.
struct Fill {
    uint64_t start;
    uint32_t count;
    bool backward;
};

Fill nextFill(const ReadAhead &ahead, uint64_t position, uint32_t count) {
    uint32_t grown = std::clamp<uint32_t>(ahead.fill * 2, count, READ_AHEAD_LIMIT);
    bool held = ahead.length != 0;
    if (held && position >= ahead.start && position <= ahead.start + ahead.length) {
        return {position, ahead.backward ? count : grown, false};
    }
    if (held && position < ahead.start && position + count >= ahead.start) {
        uint64_t end = position + count;
        uint32_t size = ahead.backward ? grown : count;
        uint64_t start = end > size ? end - size : 0;
        return {start, static_cast<uint32_t>(end - start), true};
    }
    return {position, count, false};
}

// Fills the read-ahead for a read of count bytes at the position; false,
// with nothing held, when the file's read fails.
bool fillReadAhead(FileObject *file, uint16_t count) {
    ReadAhead &ahead = file->ahead;
    Fill fill = nextFill(ahead, file->position, count);
    int64_t got = file->env->readAt(file->handle, fill.start, ahead.bytes, fill.count);
    if (got < 0) {
        dropReadAhead(file);
        return false;
    }
    ahead = ReadAhead{ahead.bytes, fill.start, static_cast<uint32_t>(got), fill.count, fill.backward};
    return true;
}

// A read-only open always shares for reading and writing, whatever bits
// the caller gave; no bit at all shares the same. Of several bits the
// widest wins.
ShareMode shareOf(uint32_t mode, bool asExisting) {
    uint32_t bits = mode & (MODE_SHARE_NONE | MODE_SHARE_READ | MODE_SHARE_ALL);
    if (asExisting && (mode & MODE_READ_ONLY)) bits |= MODE_SHARE_ALL;
    if (bits == 0 || (bits & MODE_SHARE_ALL)) return ShareMode::ReadWrite;
    return (bits & MODE_SHARE_READ) ? ShareMode::Read : ShareMode::None;
}

// The open of both fileOpen and fileCreate: the mode's create bit decides.
// A file is made only for reading and writing.
bool openByMode(const Env &env, const char *path, uint32_t mode, FileObject *file, LockHeld held) {
    freeReadAhead(file);
    *file = FileObject{};
    file->env = &env;
    char ansi[PATH_BUFFER_SIZE];
    if (!toAnsiPath(path, ansi)) return false;
    bool asExisting = (mode & MODE_CREATE) == 0;
    if (!asExisting && (mode & MODE_READ_ONLY)) return false;
    OpenRequest request{!(asExisting && (mode & MODE_READ_ONLY)), shareOf(mode, asExisting),
                        asExisting ? Disposition::OpenExisting : Disposition::CreateAlways};
    if (held == LockHeld::Yes) {
        file->handle = env.open(ansi, request);
    } else {
        DirectoryLock lock(env, path);
        file->handle = env.open(ansi, request);
    }
    return file->handle != nullptr;
}

}  // namespace

DirectoryLock::DirectoryLock(const Env &env, const char *path) : env_(env), lock_(nullptr) {
    char ansi[PATH_BUFFER_SIZE];
    if (toAnsiPath(path, ansi)) lock_ = env.lockDirectory(ansi);
}

DirectoryLock::~DirectoryLock() {
    if (lock_ != nullptr) env_.unlockDirectory(lock_);
}

uint16_t fileOpen(const Env &env, const char *path, uint32_t mode, FileObject *file, LockHeld held) {
    return openByMode(env, path, mode, file, held) ? 0 : ERR_OPEN;
}

uint16_t fileCreate(const Env &env, const char *path, uint32_t mode, FileObject *file, LockHeld held) {
    return openByMode(env, path, mode, file, held) ? 0 : ERR_CREATE;
}

uint16_t fileClose(FileObject *file) {
    freeReadAhead(file);
    if (file->handle == nullptr) return 0;
    bool closed = file->env->close(file->handle);
    file->handle = nullptr;
    return closed ? 0 : ERR_CLOSE;
}

int64_t fileReadLarge(FileObject *file, void *buffer, uint32_t count) {
    int64_t got = file->env->readAt(file->handle, file->position, buffer, count);
    if (got < 0) return -1;
    file->position += static_cast<uint64_t>(got);
    return got;
}

int64_t fileWriteLarge(FileObject *file, const void *buffer, uint32_t count) {
    dropReadAhead(file);
    int64_t written = file->env->writeAt(file->handle, file->position, buffer, count);
    if (written < 0) return -1;
    file->position += static_cast<uint64_t>(written);
    return written == count ? written : -1;
}

int16_t fileRead(FileObject *file, void *buffer, uint16_t count) {
    if (file->handle == nullptr) return -1;
    ReadAhead &ahead = file->ahead;
    if (ahead.bytes == nullptr) ahead.bytes = static_cast<uint8_t *>(std::malloc(READ_AHEAD_LIMIT));
    // Without the memory for a read-ahead, the file gives the bytes itself.
    if (ahead.bytes == nullptr) return static_cast<int16_t>(fileReadLarge(file, buffer, count));
    if (!aheadHolds(ahead, file->position, count) && !fillReadAhead(file, count)) return -1;
    // Every fill begins at or in front of the position.
    uint64_t offset = file->position - ahead.start;
    auto got = static_cast<uint16_t>(offset < ahead.length ? std::min<uint64_t>(count, ahead.length - offset) : 0);
    std::memcpy(buffer, ahead.bytes + offset, got);
    file->position += got;
    return static_cast<int16_t>(got);
}

int16_t fileWrite(FileObject *file, const void *buffer, uint16_t count) {
    return static_cast<int16_t>(fileWriteLarge(file, buffer, count));
}

uint32_t fileSeek(FileObject *file, uint32_t offset) {
    if (offset > LARGEST_FILE) return FILE_FAILURE;
    file->position = offset;
    return offset;
}

uint32_t fileTell(const FileObject *file) {
    return file->position > LARGEST_FILE ? FILE_FAILURE : static_cast<uint32_t>(file->position);
}

uint32_t fileSize(FileObject *file) {
    uint64_t size = 0;
    if (!file->env->size(file->handle, &size) || size > LARGEST_FILE) return FILE_FAILURE;
    return static_cast<uint32_t>(size);
}

uint16_t fileTruncate(FileObject *file, uint32_t size) {
    dropReadAhead(file);
    return file->env->truncate(file->handle, size) ? 0 : ERR_WRITE;
}

uint16_t fileSync(FileObject *file) { return file->env->sync(file->handle) ? 0 : ERR_WRITE; }

uint16_t fileCopyOwnership(FileObject &from, FileObject &to) {
    return to.env->copyOwnership(from.handle, to.handle) ? 0 : ERR_CREATE;
}

uint16_t fileRename(const Env &env, const char *fromPath, const char *toPath) {
    char ansiTo[PATH_BUFFER_SIZE];
    char ansiFrom[PATH_BUFFER_SIZE];
    if (!toAnsiPath(toPath, ansiTo) || !toAnsiPath(fromPath, ansiFrom)) return ERR_RENAME;
    return env.rename(ansiFrom, ansiTo) ? 0 : ERR_RENAME;
}

uint16_t fileDelete(const Env &env, const char *path) {
    char ansi[PATH_BUFFER_SIZE];
    if (!toAnsiPath(path, ansi)) return ERR_DELETE;
    DirectoryLock lock(env, path);
    return env.remove(ansi) ? 0 : ERR_DELETE;
}

uint16_t fileCloseAndDelete(FileObject *file, const char *path) {
    freeReadAhead(file);
    const Env &env = *file->env;
    EnvFile *handle = file->handle;
    file->handle = nullptr;
    char ansi[PATH_BUFFER_SIZE];
    if (!toAnsiPath(path, ansi)) {
        env.close(handle);
        return ERR_DELETE;
    }
    DirectoryLock lock(env, path);
    return env.closeAndRemove(handle, ansi) ? 0 : ERR_DELETE;
}

int fileExists(const Env &env, const char *path) {
    char ansi[PATH_BUFFER_SIZE];
    if (!toAnsiPath(path, ansi)) return -1;
    return env.exists(ansi) ? 0 : -1;
}

uint16_t fileSyncDirectory(const Env &env, const char *path) {
    char ansi[PATH_BUFFER_SIZE];
    return toAnsiPath(path, ansi) && env.syncDirectory(ansi) ? 0 : ERR_WRITE;
}

}  // namespace mergedb
