// The file service: every file access of the library goes through here, on
// to the Env of the database.
//
// Paths are the host's, in the OEM page; they are converted to the ANSI
// page on the way to the Env. Failures come back as one driver code per
// operation, or as -1 (FILE_FAILURE for offsets). Offsets are 32 bits wide,
// so a file that the driver reads or writes stays below 4 GiB.
#pragma once

#include <cstdint>

#include "mergedb/mergedb.h"
#include "platform/env.h"

namespace mergedb {

inline constexpr uint16_t PATH_BUFFER_SIZE = 256;

// Bits of the mode word.
inline constexpr uint32_t MODE_READ_ONLY = 0x01;
inline constexpr uint32_t MODE_READ_WRITE = 0x02;
inline constexpr uint32_t MODE_CREATE = 0x04;
inline constexpr uint32_t MODE_TRUNCATE = 0x08;
inline constexpr uint32_t MODE_BASE = 0x20;
inline constexpr uint32_t MODE_SHARE_NONE = 0x100;
inline constexpr uint32_t MODE_SHARE_READ = 0x200;
inline constexpr uint32_t MODE_SHARE_ALL = 0x400;

// The mode words in use.
inline constexpr uint32_t MODE_OPEN_READ = MODE_BASE | MODE_READ_ONLY;        // 33
inline constexpr uint32_t MODE_OPEN_WRITE = MODE_BASE | MODE_READ_WRITE;      // 34
inline constexpr uint32_t MODE_OPEN_EXCLUSIVE = MODE_OPEN_WRITE | MODE_SHARE_NONE;  // 290
inline constexpr uint32_t MODE_CREATE_REPLACE =
    MODE_SHARE_NONE | MODE_BASE | MODE_TRUNCATE | MODE_CREATE | MODE_READ_WRITE;  // 302

// A position of all ones can't be told from a failure, so the largest file
// has one byte less.
inline constexpr uint32_t FILE_FAILURE = 0xFFFFFFFFu;
inline constexpr uint32_t LARGEST_FILE = FILE_FAILURE - 1;
static_assert(LARGEST_FILE == DB_LARGEST_TABLE_FILE, "the public header tells the host this limit");

// Bytes of an open file that a read fetched beyond what it was asked for,
// so that the reads that follow it, forward or backward, take them without
// a call to the file. A read that goes on the same way as the last fill
// doubles it, up to READ_AHEAD_LIMIT; any other read fills only what it
// asks. Every write and cut of the file through its object drops them.
inline constexpr uint32_t READ_AHEAD_LIMIT = 256 * 1024;

struct ReadAhead {
    uint8_t *bytes = nullptr;  // READ_AHEAD_LIMIT bytes, from the first read on
    uint64_t start = 0;        // the file offset of bytes[0]
    uint32_t length = 0;       // how many bytes from start hold the file's
    uint32_t fill = 0;         // how many bytes the last fill asked for
    bool backward = false;     // the last fill reached the bytes held before it from in front
};

// One open file: the Env it goes through, the position where the next
// read or write goes, which only the calls here move, and its read-ahead.
// A FileObject of zero bytes holds no file; one that holds a file is
// closed by fileClose or fileCloseAndDelete, which also free its read-ahead.
struct FileObject {
    const Env *env = nullptr;
    EnvFile *handle = nullptr;  // null when no file is open
    uint64_t position = 0;
    ReadAhead ahead;
};

// The lock of the directory that holds a path (the host's), for the time of
// a few file calls (env.h). Every open and delete takes it, and a commit
// holds it from the close of the table's file until its new file is open,
// so that no other process can open either file between the two.
class DirectoryLock {
public:
    DirectoryLock(const Env &env, const char *path);
    ~DirectoryLock();
    DirectoryLock(const DirectoryLock &) = delete;
    DirectoryLock &operator=(const DirectoryLock &) = delete;

private:
    const Env &env_;
    EnvLock *lock_;
};

// Whether the caller of an open holds the directory's lock already.
enum class LockHeld : bool { No, Yes };

// Opens an existing file, or with MODE_CREATE makes one anew (an old file of
// the name loses its bytes), with the access and share mode of the mode
// word: 0, or ERR_OPEN and ERR_CREATE. A failed open leaves no file in the
// object.
uint16_t fileOpen(const Env &env, const char *path, uint32_t mode, FileObject *file, LockHeld held = LockHeld::No);
uint16_t fileCreate(const Env &env, const char *path, uint32_t mode, FileObject *file,
                    LockHeld held = LockHeld::No);
// 0 or ERR_CLOSE; the object holds no file afterwards either way.
uint16_t fileClose(FileObject *file);
// Bytes read at the position, fewer only at the end of the file; -1 on a
// failure. Counts stay below 32768. Served by the read-ahead.
int16_t fileRead(FileObject *file, void *buffer, uint16_t count);
// Bytes written at the position, or -1 when the write failed or fell short.
int16_t fileWrite(FileObject *file, const void *buffer, uint16_t count);
// The two for the large pieces of a copy, whose counts need 32 bits; the
// read goes to the file itself.
int64_t fileReadLarge(FileObject *file, void *buffer, uint32_t count);
int64_t fileWriteLarge(FileObject *file, const void *buffer, uint32_t count);
// Moves the position to offset from the file's start. The new position,
// or FILE_FAILURE.
uint32_t fileSeek(FileObject *file, uint32_t offset);
uint32_t fileTell(const FileObject *file);
// The file's size, or FILE_FAILURE, also for a file beyond LARGEST_FILE.
uint32_t fileSize(FileObject *file);
// Cuts or extends the file to size bytes; 0 or ERR_WRITE.
uint16_t fileTruncate(FileObject *file, uint32_t size);
// The file's bytes reach the disk; 0 or ERR_WRITE.
uint16_t fileSync(FileObject *file);
// to takes the permissions and owner of from, as far as it can; 0 or
// ERR_CREATE.
uint16_t fileCopyOwnership(FileObject &from, FileObject &to);
// Renames; never replaces another file. The caller holds the lock of the
// directory. 0 or ERR_RENAME.
uint16_t fileRename(const Env &env, const char *fromPath, const char *toPath);
uint16_t fileDelete(const Env &env, const char *path);
// fileClose and then fileDelete of an open file's own path, under the
// directory's lock, which keeps out the opens of other processes that go
// through this library. The file is closed either way; 0 or ERR_DELETE.
uint16_t fileCloseAndDelete(FileObject *file, const char *path);
// 0 when a file or directory of that name exists, -1 when not.
int fileExists(const Env &env, const char *path);
// The directory that holds path keeps its entries across a power cut; 0
// or ERR_WRITE.
uint16_t fileSyncDirectory(const Env &env, const char *path);

}  // namespace mergedb
