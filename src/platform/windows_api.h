// The text, system and runtime calls of Windows that the driver is written
// against; files go through the Env (env.h).
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

#else

#include <cstddef>
#include <cstdint>

using BOOL = int;
using DWORD = uint32_t;
using LONG = int32_t;
using UINT = unsigned int;
using LANGID = uint16_t;
using HINSTANCE = void *;
using LPCSTR = const char *;
using LPSTR = char *;

inline constexpr BOOL TRUE = 1;
inline constexpr BOOL FALSE = 0;
inline constexpr int _MAX_DRIVE = 3;
inline constexpr int _MAX_DIR = 256;
inline constexpr int _MAX_FNAME = 256;
inline constexpr int _MAX_EXT = 256;

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
