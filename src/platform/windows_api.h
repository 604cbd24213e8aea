// The operating system and runtime calls that the driver is written against.
//
// On Windows these are the real calls. Elsewhere this header declares a small
// layer of our own with the same names and contracts, so that the code above
// reads the same on both; every POSIX detail stays inside src/platform.
#pragma once

#if defined(_WIN32)

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#include <stdlib.h>
#include <string.h>

// Macros of the Windows headers whose names the library gives to constants
// of its own.
#undef SEVERITY_ERROR

namespace mergedb {

// Inside the library's namespace the file calls that tests can make fail
// (fault_injection.h) are these: each counts its call, fails when an armed
// fault strikes, and otherwise makes the real call unchanged.
HANDLE CreateFileA(LPCSTR path, DWORD access, DWORD shareMode, LPSECURITY_ATTRIBUTES security,
                   DWORD disposition, DWORD attributes, HANDLE templateFile);
BOOL CloseHandle(HANDLE handle);
BOOL ReadFile(HANDLE handle, LPVOID buffer, DWORD count, LPDWORD got, LPOVERLAPPED overlapped);
BOOL WriteFile(HANDLE handle, LPCVOID buffer, DWORD count, LPDWORD written, LPOVERLAPPED overlapped);
DWORD SetFilePointer(HANDLE handle, LONG distance, PLONG distanceHigh, DWORD method);
BOOL MoveFileA(LPCSTR from, LPCSTR to);
BOOL DeleteFileA(LPCSTR path);

// The system's language, which Windows fixes for a process. A test may set
// the one it needs; 0 gives back the real one.
LANGID GetSystemDefaultLangID();
void systemLanguageOverride(LANGID language);

}  // namespace mergedb

#else

#include <cstddef>
#include <cstdint>

using BOOL = int;
using BYTE = uint8_t;
using WORD = uint16_t;
using DWORD = uint32_t;
using LONG = int32_t;
using PLONG = LONG *;
using LPDWORD = DWORD *;
using UINT = unsigned int;
using LANGID = uint16_t;
using HANDLE = void *;
using HMODULE = void *;
using HINSTANCE = void *;
using LPCSTR = const char *;
using LPSTR = char *;
using LPVOID = void *;
using LPCVOID = const void *;

inline constexpr BOOL TRUE = 1;
inline constexpr BOOL FALSE = 0;
inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(static_cast<intptr_t>(-1));

inline constexpr DWORD GENERIC_READ = 0x80000000u;
inline constexpr DWORD GENERIC_WRITE = 0x40000000u;
inline constexpr DWORD FILE_SHARE_READ = 1;
inline constexpr DWORD FILE_SHARE_WRITE = 2;
inline constexpr DWORD CREATE_NEW = 1;
inline constexpr DWORD CREATE_ALWAYS = 2;
inline constexpr DWORD OPEN_EXISTING = 3;
inline constexpr DWORD OPEN_ALWAYS = 4;
inline constexpr DWORD TRUNCATE_EXISTING = 5;
inline constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x01;
inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x10;
inline constexpr DWORD FILE_ATTRIBUTE_ARCHIVE = 0x20;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
inline constexpr DWORD FILE_BEGIN = 0;
inline constexpr DWORD FILE_CURRENT = 1;
inline constexpr DWORD FILE_END = 2;
inline constexpr DWORD INVALID_SET_FILE_POINTER = 0xFFFFFFFFu;
inline constexpr DWORD INVALID_FILE_SIZE = 0xFFFFFFFFu;

// The Windows error numbers that this layer reports through GetLastError.
inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_INVALID_FUNCTION = 1;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
inline constexpr DWORD ERROR_TOO_MANY_OPEN_FILES = 4;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_CURRENT_DIRECTORY = 16;
inline constexpr DWORD ERROR_NOT_SAME_DEVICE = 17;
inline constexpr DWORD ERROR_NO_MORE_FILES = 18;
inline constexpr DWORD ERROR_SEEK = 25;
inline constexpr DWORD ERROR_SHARING_VIOLATION = 32;
inline constexpr DWORD ERROR_LOCK_VIOLATION = 33;
inline constexpr DWORD ERROR_HANDLE_EOF = 38;
inline constexpr DWORD ERROR_HANDLE_DISK_FULL = 39;
inline constexpr DWORD ERROR_FILE_EXISTS = 80;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_OPEN_FAILED = 110;
inline constexpr DWORD ERROR_DISK_FULL = 112;
inline constexpr DWORD ERROR_NEGATIVE_SEEK = 131;
inline constexpr DWORD ERROR_DIR_NOT_EMPTY = 145;
inline constexpr DWORD ERROR_ALREADY_EXISTS = 183;
inline constexpr DWORD ERROR_FILENAME_EXCED_RANGE = 206;
inline constexpr DWORD ERROR_DIRECTORY = 267;
inline constexpr DWORD ERROR_IO_DEVICE = 1117;

inline constexpr int MAX_PATH = 260;
inline constexpr int _MAX_DRIVE = 3;
inline constexpr int _MAX_DIR = 256;
inline constexpr int _MAX_FNAME = 256;
inline constexpr int _MAX_EXT = 256;

struct WIN32_FIND_DATAA {
    DWORD dwFileAttributes;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    char cFileName[MAX_PATH];
    char cAlternateFileName[14];
};
using LPWIN32_FIND_DATAA = WIN32_FIND_DATAA *;

// Files. Share modes are honoured between the opens of this process.
HANDLE CreateFileA(LPCSTR path, DWORD access, DWORD shareMode, LPVOID security, DWORD disposition,
                   DWORD attributes, HANDLE templateFile);
BOOL CloseHandle(HANDLE handle);
BOOL ReadFile(HANDLE handle, LPVOID buffer, DWORD count, LPDWORD got, LPVOID overlapped);
BOOL WriteFile(HANDLE handle, LPCVOID buffer, DWORD count, LPDWORD written, LPVOID overlapped);
DWORD SetFilePointer(HANDLE handle, LONG distance, PLONG distanceHigh, DWORD method);
DWORD GetFileSize(HANDLE handle, LPDWORD sizeHigh);
// Never replaces an existing target.
BOOL MoveFileA(LPCSTR from, LPCSTR to);
BOOL CopyFileA(LPCSTR from, LPCSTR to, BOOL failIfExists);
BOOL DeleteFileA(LPCSTR path);
DWORD GetLastError();
void SetLastError(DWORD error);

// Directories. A pattern may hold "*" and "?" in its last component.
HANDLE FindFirstFileA(LPCSTR pattern, LPWIN32_FIND_DATAA data);
BOOL FindNextFileA(HANDLE find, LPWIN32_FIND_DATAA data);
BOOL FindClose(HANDLE find);
// Succeeds when the file system that holds root answers.
BOOL GetDiskFreeSpaceA(LPCSTR root, LPDWORD sectorsPerCluster, LPDWORD bytesPerSector, LPDWORD freeClusters,
                       LPDWORD totalClusters);

// Text. The ANSI page is Windows-1252, the OEM page 437. Both conversions
// work in place as well.
int LoadStringA(HINSTANCE module, UINT id, LPSTR buffer, int size);
BOOL CharToOemA(LPCSTR source, LPSTR destination);
BOOL OemToCharA(LPCSTR source, LPSTR destination);
BOOL CharToOemBuffA(LPCSTR source, LPSTR destination, DWORD length);

// System. The language id follows the locale of the environment.
LANGID GetSystemDefaultLangID();

// Runtime library.
void _splitpath(const char *path, char *drive, char *dir, char *fname, char *ext);
int _stricmp(const char *a, const char *b);
int _strnicmp(const char *a, const char *b, size_t count);
char *_itoa(int value, char *buffer, int radix);
char *_ltoa(long value, char *buffer, int radix);
// digits significant digits; an integral result keeps its decimal point
// ("100."), and a value that needs an exponent is written with one.
char *_gcvt(double value, int digits, char *buffer);

#endif

namespace mergedb {

// The one place that knows how paths are written on this platform.
#if defined(_WIN32)
inline constexpr char PATH_SEPARATOR = '\\';
inline constexpr bool PATH_HAS_DRIVES = true;
#else
inline constexpr char PATH_SEPARATOR = '/';
inline constexpr bool PATH_HAS_DRIVES = false;
#endif

// atol as the Windows runtime has it: 32 bits, a number beyond them gives
// the nearer limit. atoi is the same there. The old msvcrt.dll that MinGW
// links lets atol wrap around instead; strtol there gives the limit.
#if defined(_WIN32)
inline LONG runtimeAtol(const char *text) { return strtol(text, nullptr, 10); }
#else
LONG runtimeAtol(const char *text);
#endif

}  // namespace mergedb
