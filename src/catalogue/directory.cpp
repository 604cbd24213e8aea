// The walk over a database's directory for its tables, and the path and
// character functions it stands on.
#include "catalogue/directory.h"

#include <algorithm>
#include <cstring>

#include "frame/result.h"
#include "platform/windows_api.h"

namespace mergedb {
namespace {

// Language classes, after the system's default language.
constexpr int LANGUAGE_SIMPLIFIED_CHINESE = 6;
constexpr int LANGUAGE_TRADITIONAL_CHINESE = 7;
constexpr int LANGUAGE_OTHER = 14;
constexpr int LANGUAGE_JAPANESE = 26;
constexpr int LANGUAGE_KOREAN = 27;

// What a step of a walk over a directory gives: an entry, the end of the
// directory, a name too long for a path, or a directory that can't be read.
enum WalkCode : uint16_t { WALK_ENTRY = 0, WALK_END, WALK_NAME_TOO_LONG, WALK_FAILED };

// Normal files and archive files, and so every plain file; no directories.
constexpr uint8_t TABLE_WALK_MASK = ATTRIBUTE_NORMAL;

// Extensions of files that are never tables, compared without case.
constexpr const char *SKIPPED_EXTENSIONS[] = {"DLL", "EXE", "COM", "OBJ", "ZRQ", "SET", "DO", "ML", "BIF"};

struct LeadByteRange {
    int languageClass;
    uint8_t first;
    uint8_t last;
};

constexpr LeadByteRange LEAD_BYTE_RANGES[] = {
    {LANGUAGE_SIMPLIFIED_CHINESE, 0x81, 0xFE},
    {LANGUAGE_TRADITIONAL_CHINESE, 0x81, 0xFE},
    {LANGUAGE_JAPANESE, 0x81, 0x9F},
    {LANGUAGE_JAPANESE, 0xE0, 0xFC},
    {LANGUAGE_KOREAN, 0xA1, 0xFE},
};

// Parts of a Windows language id.
constexpr LANGID PRIMARY_LANGUAGE_BITS = 0x03FF;
constexpr LANGID SUBLANGUAGE_BITS = 0xFC00;
constexpr LANGID LANGUAGE_CHINESE = 0x04;
constexpr LANGID SUBLANGUAGE_SIMPLIFIED = 0x0800;
constexpr LANGID LANGUAGE_JAPANESE_ID = 0x11;
constexpr LANGID LANGUAGE_KOREAN_ID = 0x12;

// The class of the system's language, as the Env tells it.
int languageClass(const Env &env) {
    LANGID id = env.systemLanguage();
    switch (id & PRIMARY_LANGUAGE_BITS) {
    case LANGUAGE_CHINESE:
        return (id & SUBLANGUAGE_BITS) == SUBLANGUAGE_SIMPLIFIED ? LANGUAGE_SIMPLIFIED_CHINESE
                                                                 : LANGUAGE_TRADITIONAL_CHINESE;
    case LANGUAGE_JAPANESE_ID:
        return LANGUAGE_JAPANESE;
    case LANGUAGE_KOREAN_ID:
        return LANGUAGE_KOREAN;
    default:
        return LANGUAGE_OTHER;
    }
}

bool isLeadByte(uint8_t byte, int languageClass) {
    return std::ranges::any_of(LEAD_BYTE_RANGES, [&](const LeadByteRange &range) {
        return range.languageClass == languageClass && byte >= range.first && byte <= range.last;
    });
}

// The character after the one at position; a lead byte is never taken
// past the terminator.
const char *nextChar(const char *position, int languageClass) {
    bool pair = isLeadByte(static_cast<uint8_t>(position[0]), languageClass) && position[1] != '\0';
    return position + (pair ? 2 : 1);
}

// The start of the last whole character in [start, end); start when the
// range is empty. Reads no byte at or behind end.
const char *lastChar(const char *start, const char *end, int languageClass) {
    const char *last = start;
    for (const char *position = start; position < end;) {
        last = position;
        position += isLeadByte(static_cast<uint8_t>(*position), languageClass) ? 2 : 1;
    }
    return last;
}

// Where the file name in path begins: behind its last separator (or drive
// colon, when asked for and the platform has drives).
const char *nameStart(const char *path, bool stopAtColon, int languageClass) {
    const char *name = path;
    for (const char *position = path; *position != '\0'; position = nextChar(position, languageClass)) {
        // Separators are single bytes, never lead bytes.
        bool separator = *position == PATH_SEPARATOR || (PATH_HAS_DRIVES && stopAtColon && *position == ':');
        if (separator) name = position + 1;
    }
    return name;
}

// Appends name to the text of buffer that ends at end, with a separator
// between them where the text lacks one, and moves end behind it. 0 or
// WALK_NAME_TOO_LONG when the result would not fit the buffer.
uint16_t pathAppend(char (&buffer)[PATH_BUFFER_SIZE], const char *name, char **end, int languageClass) {
    char *position = *end;
    if (position != buffer && *lastChar(buffer, position, languageClass) != PATH_SEPARATOR) {
        // The separator needs room for itself and a terminator.
        if (position - buffer + 2 > PATH_BUFFER_SIZE) return WALK_NAME_TOO_LONG;
        *position++ = PATH_SEPARATOR;
        *position = '\0';
        *end = position;
    }
    size_t used = static_cast<size_t>(position - buffer);
    size_t length = std::strlen(name);
    if (used + length + 1 > PATH_BUFFER_SIZE) return WALK_NAME_TOO_LONG;
    std::memcpy(position, name, length + 1);
    *end = position + length;
    return 0;
}

// Copies the file name part of path into out.
void baseName(const char *path, char (&out)[PATH_BUFFER_SIZE], int languageClass) {
    const char *name = nameStart(path, true, languageClass);
    size_t length = strnlen(name, PATH_BUFFER_SIZE - 1);
    std::memcpy(out, name, length);
    out[length] = '\0';
}

// True for a path whose extension is one the table walk leaves out.
bool isSkippedExtension(const char *path) {
    const char *dot = std::strrchr(path, '.');
    if (dot == nullptr || dot[1] == '\0') return false;
    return std::ranges::any_of(SKIPPED_EXTENSIONS,
                               [&](const char *extension) { return _stricmp(dot + 1, extension) == 0; });
}

uint16_t findNextEntry(const Env &env, FindState &find) {
    return env.walkNext(find.walk, &find.entry) ? WALK_ENTRY : WALK_END;
}

bool isDotName(const char *name) { return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0; }

// A directory is left out unless the mask asks for directories.
bool isUnwantedDirectory(uint32_t attributes, uint8_t mask) {
    return (mask & ATTRIBUTE_DIRECTORY) == 0 && (attributes & ATTRIBUTE_DIRECTORY) != 0;
}

// An entry passes when its attributes share a bit with the mask, or when it
// has none at all and the mask holds the normal bit.
bool attributesPass(uint32_t attributes, uint8_t mask) {
    return (attributes & mask) != 0 || ((mask & ATTRIBUTE_NORMAL) != 0 && attributes == 0);
}

// Steps the walk over what its mask leaves out: first "." and ".." (when
// testDotNames) and unwanted directories, then entries whose attributes do
// not pass. The second loop does not repeat the first test.
uint16_t skipFiltered(const Env &env, FindState &find, uint8_t mask, bool testDotNames) {
    const DirEntry &entry = find.entry;
    while ((testDotNames && isDotName(entry.name)) || isUnwantedDirectory(entry.attributes, mask)) {
        if (uint16_t code = findNextEntry(env, find)) return code;
    }
    while (!attributesPass(entry.attributes, mask)) {
        if (uint16_t code = findNextEntry(env, find)) return code;
    }
    return WALK_ENTRY;
}

// path: directory, then name behind a separator where one is needed.
uint16_t buildPath(const Env &env, const char *directory, const char *name, char (&path)[PATH_BUFFER_SIZE]) {
    size_t length = strnlen(directory, PATH_BUFFER_SIZE);
    if (length == PATH_BUFFER_SIZE) return WALK_NAME_TOO_LONG;
    std::memcpy(path, directory, length + 1);
    char *end = path + length;
    return pathAppend(path, name, &end, languageClass(env));
}

// Hands the walk's entry to the caller.
uint16_t takeEntry(const Env &env, const FindState &find, const char *directory, char (&resultPath)[PATH_BUFFER_SIZE],
                   uint8_t &attributesOut) {
    if (uint16_t code = buildPath(env, directory, find.entry.name, resultPath)) return code;
    attributesOut = static_cast<uint8_t>(find.entry.attributes);
    return WALK_ENTRY;
}

// Opens a walk over directory and finds its first entry that passes mask
// (attribute bits; the normal bit 0x80 brings in archive, 0x20, and entries
// without attributes). resultPath receives the directory joined with the
// entry's name. A failure leaves no walk open.
uint16_t dirFindFirst(const Env &env, const char *directory, uint8_t mask, FindState &find,
                      char (&resultPath)[PATH_BUFFER_SIZE], uint8_t &attributesOut) {
    find.walk = nullptr;
    if (directory == nullptr) return WALK_FAILED;
    if (strnlen(directory, PATH_BUFFER_SIZE) == PATH_BUFFER_SIZE) return WALK_NAME_TOO_LONG;
    if ((mask & ATTRIBUTE_NORMAL) != 0) mask |= ATTRIBUTE_ARCHIVE;
    find.walk = env.walkFirst(directory, &find.entry);
    if (find.walk == nullptr) return WALK_FAILED;
    uint16_t code = skipFiltered(env, find, mask, true);
    if (code == 0) code = takeEntry(env, find, directory, resultPath, attributesOut);
    if (code != 0) {
        dirFindClose(env, find);
        return code;
    }
    find.attributeMask = mask;
    std::memcpy(find.dirPrefix, directory, std::strlen(directory) + 1);
    return WALK_ENTRY;
}

// The next entry of the walk that passes its mask; the walk stays open on
// failure.
uint16_t dirFindNext(const Env &env, FindState &find, char (&resultPath)[PATH_BUFFER_SIZE],
                     uint8_t &attributesOut) {
    if (find.walk == nullptr) return WALK_END;
    uint16_t code = findNextEntry(env, find);
    if (code == 0) code = skipFiltered(env, find, find.attributeMask, false);
    if (code == 0) code = takeEntry(env, find, find.dirPrefix, resultPath, attributesOut);
    return code;
}

// One step of the table name walk: 0 with the entry in resultPath, or the
// code that ended it.
uint16_t tableWalkStep(MergeDatabase &database, uint16_t firstOrNext, char (&resultPath)[PATH_BUFFER_SIZE]) {
    const Env &env = *database.env;
    FindState &find = database.find;
    uint8_t attributes = 0;
    uint16_t code = 0;
    if (firstOrNext == DB_WALK_FIRST) {
        // A walk that was left open is given up, not leaked.
        dirFindClose(env, find);
        code = dirFindFirst(env, database.path, TABLE_WALK_MASK, find, resultPath, attributes);
        database.findOpen = code == 0 ? 1 : 0;
    } else {
        code = dirFindNext(env, find, resultPath, attributes);
    }
    while (code == 0 && isSkippedExtension(resultPath)) code = dirFindNext(env, find, resultPath, attributes);
    if (code == WALK_END && database.findOpen != 0) dirFindClose(env, find);
    return code;
}

}  // namespace

void dirFindClose(const Env &env, FindState &find) {
    if (find.walk != nullptr) env.walkClose(find.walk);
    find.walk = nullptr;
}

}  // namespace mergedb

using namespace mergedb;

// The next table of the database: a file name without directory, in the OEM
// page. Whatever stops the walk reads as its end.
extern "C" DbResult MERGEDB_CALL dbGetTableNamesMerge(uint32_t handle, char *nameOut, uint16_t firstOrNext) {
    MergeDatabase *database = databaseLock(handle);
    if (database == nullptr || nameOut == nullptr) return errorResult(ERR_MEMORY);
    char resultPath[PATH_BUFFER_SIZE];
    if (tableWalkStep(*database, firstOrNext, resultPath) != 0) return END_OF_DATA;
    char name[PATH_BUFFER_SIZE];
    baseName(resultPath, name, languageClass(*database->env));
    CharToOemA(name, nameOut);
    return DB_RESULT_OK;
}
