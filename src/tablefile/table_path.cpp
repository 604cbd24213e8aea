#include "tablefile/table_path.h"

#include <cstring>
#include <string_view>

#include "platform/windows_api.h"

namespace mergedb {
namespace {

// Appends text to path at length, within PATH_BUFFER_SIZE.
bool appendPath(char (&path)[PATH_BUFFER_SIZE], size_t &length, std::string_view text) {
    if (length + text.size() >= PATH_BUFFER_SIZE) return false;
    std::memcpy(path + length, text.data(), text.size());
    length += text.size();
    path[length] = '\0';
    return true;
}

}  // namespace

bool joinTablePath(const char *directoryPath, const char *name, TableName part,
                   char (&path)[PATH_BUFFER_SIZE]) {
    // A name that fits no path is refused here, so that _splitpath, whose
    // parts hold as much as a path, never has to cut one of them.
    size_t nameLength = strnlen(name, PATH_BUFFER_SIZE);
    if (nameLength >= PATH_BUFFER_SIZE) return false;
    size_t length = 0;
    path[0] = '\0';
    if (!appendPath(path, length, {directoryPath, strnlen(directoryPath, PATH_BUFFER_SIZE)})) return false;
    char last = length == 0 ? '\0' : path[length - 1];
    bool needsSeparator = length != 0 && last != PATH_SEPARATOR && !(PATH_HAS_DRIVES && last == ':');
    if (needsSeparator && !appendPath(path, length, {&PATH_SEPARATOR, 1})) return false;
    if (part == TableName::Whole) return appendPath(path, length, {name, nameLength});
    char drive[_MAX_DRIVE];
    char directory[_MAX_DIR];
    char baseName[_MAX_FNAME];
    char extension[_MAX_EXT];
    _splitpath(name, drive, directory, baseName, extension);
    return appendPath(path, length, baseName) && appendPath(path, length, extension);
}

}  // namespace mergedb
