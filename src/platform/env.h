// The operating system as the driver needs it, and nothing more: files that
// are opened with a share mode and read and written at a position, their
// size, truncation and flush; renames and deletes; the entries of a
// directory; and the short lock that keeps the opens of one directory in
// order between processes.
//
// An Env is a table of functions. Each platform has one (posix_env.cpp,
// windows_env.cpp), and every database and table keeps a pointer to the
// Env that its files go through, so that a test can put a wrapper in front
// of it (to make a call fail, or to count calls) while the library itself
// carries no test code.
//
// Paths are in the ANSI page (Windows-1252), as on Windows. On POSIX,
// where names on the disk are UTF-8, the Env converts them both ways.
#pragma once

#include <cstdint>

namespace mergedb {

// An open file of an Env, and an open walk over a directory: only the Env
// that made them looks inside.
struct EnvFile;
struct EnvWalk;
struct EnvLock;

enum class ShareMode : uint8_t { None, Read, ReadWrite };

// How an open treats a file that is there or not: the two Windows
// dispositions that the driver opens with.
enum class Disposition : uint8_t {
    OpenExisting,  // the file must exist
    CreateAlways,  // a file that exists loses its bytes, a missing one is made
};

struct OpenRequest {
    bool write;  // read and write; otherwise read only
    ShareMode share;
    Disposition disposition;
};

// Attribute bits of a directory entry, with their Windows values.
inline constexpr uint32_t ATTRIBUTE_READ_ONLY = 0x01;
inline constexpr uint32_t ATTRIBUTE_DIRECTORY = 0x10;
inline constexpr uint32_t ATTRIBUTE_ARCHIVE = 0x20;
inline constexpr uint32_t ATTRIBUTE_NORMAL = 0x80;

// Room for an entry's name, its end included.
inline constexpr int ENTRY_NAME_SIZE = 260;

struct DirEntry {
    char name[ENTRY_NAME_SIZE];  // ANSI; a character the page lacks is "?"
    uint32_t attributes;
};

struct Env {
    // Opens a regular file, or a link to one, for the request. A file that
    // another open's share mode forbids, a directory, a device or a pipe,
    // and, for writing, a file with the read-only attribute, give null. A
    // file is truncated only once no other open forbids it.
    EnvFile *(*open)(const char *path, OpenRequest request);
    // Lets go of the file whatever the outcome; false when the system
    // reported a failure.
    bool (*close)(EnvFile *file);
    // Up to count bytes at offset; fewer only at the end of the file. The
    // number read, or -1.
    int64_t (*readAt)(EnvFile *file, uint64_t offset, void *buffer, uint32_t count);
    // count bytes at offset; the number written, fewer when the disk is full,
    // or -1.
    int64_t (*writeAt)(EnvFile *file, uint64_t offset, const void *buffer, uint32_t count);
    bool (*size)(EnvFile *file, uint64_t *size);
    bool (*truncate)(EnvFile *file, uint64_t size);
    // The file's bytes reach the disk.
    bool (*sync)(EnvFile *file);
    // The file to takes the permissions, and where the process may set
    // them the owner and group, of the file from.
    bool (*copyOwnership)(EnvFile *from, EnvFile *to);

    // Never replaces a file, and refuses a file that an open holds. A move
    // of a file onto itself succeeds and changes nothing.
    bool (*rename)(const char *from, const char *to);
    // Refuses a directory, a read-only file and a file that an open holds.
    bool (*remove)(const char *path);
    // Deletes path, which file holds, refusing what remove refuses, and lets
    // go of file whatever the outcome; false when the file stays. The
    // caller holds the directory's lock. The name is gone on return; the
    // room the file took may come back later, but before this Env's next
    // writeAt.
    bool (*closeAndRemove)(EnvFile *file, const char *path);
    // A file or a directory; a path that ends in a separator names nothing,
    // except a drive's root where paths have drives (the root directory on
    // POSIX).
    bool (*exists)(const char *path);

    // The entries of a directory, "." and ".." among them, in the
    // directory's own order. Null when the directory can't be read or is
    // empty.
    EnvWalk *(*walkFirst)(const char *directory, DirEntry *entry);
    bool (*walkNext)(EnvWalk *walk, DirEntry *entry);
    void (*walkClose)(EnvWalk *walk);

    // A lock on the directory that holds path, which one process at a time
    // holds, for a few file calls. Null where none can be taken: the calls
    // then go on without it.
    EnvLock *(*lockDirectory)(const char *path);
    void (*unlockDirectory)(EnvLock *lock);
    // The directory that holds path keeps its renames and new entries
    // across a power cut.
    bool (*syncDirectory)(const char *path);

    // The system's language (a Windows language id), which tells the bytes
    // of a path that begin a double-byte character.
    uint16_t (*systemLanguage)();
};

// The platform's Env.
const Env &platformEnv();

}  // namespace mergedb
