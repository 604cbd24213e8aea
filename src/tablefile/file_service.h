// The file service: every file access of the library goes through here.
//
// The portable layer (port...) sits on the operating system, takes ANSI paths
// and reports PORT_ codes. The driver layer (file...) takes the host's OEM
// paths and reports driver codes or -1.
#pragma once

#include <cstdint>

#include "tablefile/table.h"

namespace mergedb {

// Portable codes.
inline constexpr uint16_t PORT_GENERAL = 0x8200;
inline constexpr uint16_t PORT_DENIED = 0x8201;
inline constexpr uint16_t PORT_BAD_HANDLE = 0x8202;
inline constexpr uint16_t PORT_COPY_FAILED = 0x8203;
inline constexpr uint16_t PORT_DISK_FULL = 0x8204;
inline constexpr uint16_t PORT_END_OF_FILE = 0x8205;
inline constexpr uint16_t PORT_OPEN_FAILED = 0x8206;
inline constexpr uint16_t PORT_SEEK = 0x8207;
inline constexpr uint16_t PORT_DIRECTORY_BUSY = 0x8208;
inline constexpr uint16_t PORT_NOT_FOUND = 0x8209;
inline constexpr uint16_t PORT_TOO_MANY_OPEN = 0x820A;
inline constexpr uint16_t PORT_NAME_TOO_LONG = 0x820B;
inline constexpr uint16_t PORT_NO_MORE_FILES = 0x820C;
inline constexpr uint16_t PORT_LOCKED = 0x820E;
inline constexpr uint16_t PORT_CANNOT_MAKE = 0x8210;

// Bits of the mode word.
inline constexpr uint32_t MODE_READ_ONLY = 0x01;
inline constexpr uint32_t MODE_READ_WRITE = 0x02;
inline constexpr uint32_t MODE_CREATE = 0x04;
inline constexpr uint32_t MODE_TRUNCATE = 0x08;
inline constexpr uint32_t MODE_NEW_ONLY = 0x10;
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

inline constexpr uint32_t FILE_FAILURE = 0xFFFFFFFFu;

// Portable layer.
uint16_t portError(DWORD osError);
uint16_t portOpen(const char *path, uint32_t mode, FileObject *file, uint8_t existing);
uint16_t portClose(FileObject *file);
uint16_t portRead(FileObject *file, uint32_t offset, uint16_t count, void *buffer, uint16_t *got);
uint16_t portWrite(FileObject *file, uint16_t origin, uint32_t offset, uint16_t count, const void *buffer,
                   uint16_t *written);
uint16_t portSeek(FileObject *file, uint32_t offset, uint16_t origin, uint32_t *position);
uint16_t portTell(FileObject *file, uint32_t *position);
uint16_t portSize(FileObject *file, uint32_t *size);
uint16_t portDelete(const char *path);
uint16_t portCopy(const char *source, const char *target);
uint16_t portRename(const char *fromPath, const char *toPath);
uint16_t pathExists(const char *path);

// Driver layer.
uint16_t fileOpen(const char *path, uint32_t mode, FileObject *file);
uint16_t fileCreate(const char *path, uint32_t mode, FileObject *file);
uint16_t fileClose(FileObject *file);
int16_t fileRead(FileObject *file, void *buffer, uint16_t count);
int16_t fileWrite(FileObject *file, const void *buffer, uint16_t count);
uint32_t fileSeek(FileObject *file, uint32_t offset, uint16_t origin);
uint32_t fileTell(FileObject *file);
uint32_t fileSize(FileObject *file);
uint16_t fileRename(const char *toPath, const char *fromPath);
uint16_t fileDelete(const char *path);
int fileExists(const char *path);

}  // namespace mergedb
