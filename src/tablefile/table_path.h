// The path of a table: a database's directory joined with a table's name.
#pragma once

#include <cstdint>

#include "tablefile/file_service.h"

namespace mergedb {

// How much of the table's name goes into its path.
enum class TableName : uint8_t {
    Whole,     // the name as given, directories in it included
    BaseName,  // only its base name and extension
};

// The directory, a separator unless the directory is empty or
// already ends in one (or in a drive's colon), and the name. False, with
// path unspecified, when name is longer than a path may be or the whole does
// not fit the buffer; nothing is cut short. name must not be null.
bool joinTablePath(const char *directoryPath, const char *name, TableName part,
                   char (&path)[PATH_BUFFER_SIZE]);

}  // namespace mergedb
