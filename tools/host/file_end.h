// The bytes of a table file behind its data, kept before the file's end is
// changed (an insert appends over them, a mend writes a record delimiter
// there), so that the old end can be put back.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "table_file.h"

namespace mergedb::host {

class FileEnd {
public:
    // Reads what lies behind dataEnd in file; throws a Failure when it
    // can't, saying that nothing was changed.
    FileEnd(const TableFile &file, uint64_t dataEnd);

    // Cuts the file at dataEnd and writes the kept bytes behind it, to the
    // disk. Only while the table's name still leads to the file that was
    // read and, when size is given, the file has that size: otherwise
    // another program has put a new table in its place or written to it
    // since, and the file is left alone (errno ESTALE). False when the end
    // is not put back, errno telling why.
    bool restore(std::optional<uint64_t> size = std::nullopt) const;

private:
    std::filesystem::path path_;
    uint64_t dataEnd_;
    std::string tail_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

}  // namespace mergedb::host
