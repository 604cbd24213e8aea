// The end of a delimited file that an insert appends to. The driver writes
// a new record right behind the file's data, so a last record without its
// record delimiter would take the new record into itself. --fix-end adds
// the delimiter; it must do so before the driver opens the table (the
// driver can't open a table whose only record is not ended), so the mend
// is taken back when the insert does not happen.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "file_end.h"
#include "table_file.h"
#include "table_format.h"

namespace mergedb::cli {

class LineEnd {
public:
    LineEnd() = default;
    // Takes back the mend, unless kept; says so on stderr when it can't.
    ~LineEnd();
    LineEnd(const LineEnd &) = delete;
    LineEnd &operator=(const LineEnd &) = delete;

    // Refuses a delimited file whose data does not end with its record
    // delimiter, or with fix adds the delimiter there. Nothing is written
    // unless the end needs it and fix asks for it; file then has its new
    // size.
    void mind(host::TableFile &file, const host::TableFormat &format, bool fix);

    // The insert happened: the mend stays.
    void keep() { before_.reset(); }

private:
    std::string label_;
    std::optional<host::FileEnd> before_;  // the end before the mend, while it may be taken back
    std::optional<uint64_t> mendedSize_;   // the file's size once the mend is whole
};

}  // namespace mergedb::cli
