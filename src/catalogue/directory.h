// The walk over a database's directory, and the path functions beneath it.
//
// Paths are byte strings that may hold double-byte characters of the
// system's language; every scan steps over a lead byte and its trail byte
// together, so that a trail byte equal to the separator is no separator.
#pragma once

#include <cstdint>

#include "catalogue/database.h"

namespace mergedb {

// Language classes, after the system's default language.
inline constexpr int LANGUAGE_SIMPLIFIED_CHINESE = 6;
inline constexpr int LANGUAGE_TRADITIONAL_CHINESE = 7;
inline constexpr int LANGUAGE_OTHER = 14;
inline constexpr int LANGUAGE_JAPANESE = 26;
inline constexpr int LANGUAGE_KOREAN = 27;

// What a step of a walk over a directory gives: an entry, the end of the
// directory, a name too long for a path, or a directory that can't be read.
enum WalkCode : uint16_t { WALK_ENTRY = 0, WALK_END, WALK_NAME_TOO_LONG, WALK_FAILED };

// Opens a walk over directory and finds its first entry that passes mask
// (attribute bits; the normal bit 0x80 brings in archive, 0x20, and entries
// without attributes). resultPath receives the directory joined with the
// entry's name. A failure leaves no walk open.
uint16_t dirFindFirst(const Env &env, const char *directory, uint8_t mask, FindState &find,
                      char (&resultPath)[PATH_BUFFER_SIZE], uint8_t &attributesOut);

// The next entry of the walk that passes its mask; the walk stays open on
// failure.
uint16_t dirFindNext(const Env &env, FindState &find, char (&resultPath)[PATH_BUFFER_SIZE],
                     uint8_t &attributesOut);

// Closes the walk if one is open. Safe to call twice.
void dirFindClose(const Env &env, FindState &find);

// Appends name to the text of buffer that ends at end, with a separator
// between them where the text lacks one, and moves end behind it. 0 or
// WALK_NAME_TOO_LONG when the result would not fit the buffer.
uint16_t pathAppend(char (&buffer)[PATH_BUFFER_SIZE], const char *name, char **end, int languageClass);

// Copies the file name part of path into out.
void baseName(const char *path, char (&out)[PATH_BUFFER_SIZE], int languageClass);

// The class of the system's language, as the Env tells it.
int languageClass(const Env &env);
bool isLeadByte(uint8_t byte, int languageClass);

// The character after the one at position; a lead byte is never taken
// past the terminator.
const char *nextChar(const char *position, int languageClass);

// The start of the last whole character in [start, end); start when the
// range is empty. Reads no byte at or behind end.
const char *lastChar(const char *start, const char *end, int languageClass);

// Where the file name in path begins: behind its last separator (or drive
// colon, when asked for and the platform has drives).
const char *nameStart(const char *path, bool stopAtColon, int languageClass);

// True for a path whose extension is one the table walk leaves out.
bool isSkippedExtension(const char *path);

}  // namespace mergedb
