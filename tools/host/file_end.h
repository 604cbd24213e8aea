// The bytes of a table file behind its data, kept before the file's end is
// changed (an insert appends over them, a mend writes a record delimiter
// there), so that the old end can be put back.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "table_file.h"

namespace mergedb::host {

class FileEnd {
public:
    // Reads what lies behind dataEnd in file; throws a Failure when it
    // can't, saying that nothing was changed.
    FileEnd(const TableFile &file, uint64_t dataEnd);

    // Cuts the file at dataEnd and writes the kept bytes behind it, to the
    // disk. False when that fails, errno telling why.
    bool restore() const;

private:
    std::filesystem::path path_;
    uint64_t dataEnd_;
    std::string tail_;
};

}  // namespace mergedb::host
