// A walk through the driver's records that knows whether it saw the whole
// table. The driver's own walk ends at the first record that it can't read,
// as if the table ended there, and passes over a record's extra fields
// without a word. This walk holds every record against the host's own scan
// of the file (record_scan.h): a record that the driver can't read or
// split, a record with more fields than the table, bytes behind the last
// record, a walk that ends early are each told to an issue sink with the
// record's number and byte offset, and the walk goes on behind the record
// where the file lets it. Values come out as UTF-8, the header record and
// a byte-order mark are no data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <stop_token>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "driver.h"
#include "record_scan.h"
#include "table_file.h"
#include "table_format.h"

namespace mergedb::host {

struct Issue {
    std::string where;  // "record 5 at byte 1234"
    std::string what;
    std::optional<uint64_t> offset = std::nullopt;  // of the record the scan tells of
};

using IssueSink = std::function<void(const Issue &)>;

class CheckedWalk {
public:
    // table is open on file, read with format. The header record, when the
    // format has one, is read at once.
    CheckedWalk(Table &table, const TableFile &file, const TableFormat &format, IssueSink sink);

    // Moves to the next data record that the driver reads; false at the end
    // of the table, after the checks of the end.
    bool next();

    // The current data record: its number from 1, its place in the file.
    size_t number() const { return number_; }
    uint64_t offset() const { return current_.offset; }
    uint64_t length() const { return current_.length; }

    uint16_t fieldCount() const { return fieldCount_; }
    // UTF-8 names: the head record's, the header record's, or 1, 2, ...
    const std::vector<std::string> &names() const { return names_; }
    // A value of the current record as UTF-8, and as the driver gives it.
    std::string value(uint16_t index);
    std::string bytes(uint16_t index);

    // Issues told so far; the table was seen whole when there were none.
    size_t issues() const { return issues_; }
    // Where the table's data ends: the file's size, less a final byte 26.
    uint64_t dataEnd() const { return scanner_.dataEnd(); }

private:
    // One record further, by the scan and by the driver; false when it is
    // no record to hand out.
    bool step();
    Moved move(const std::optional<ScannedRecord> &expected);
    void report(const ScannedRecord &record, const std::string &what);
    // Checks what the driver read of a record against the scan; false when
    // the record is no data to hand out.
    bool accepted(Moved moved);
    void finish();

    Table &table_;
    const TableFormat &format_;
    RecordScanner scanner_;
    IssueSink sink_;
    std::filesystem::path path_;
    uint64_t fileSize_;  // when the table was found, to tell a file that grew since
    uint16_t fieldCount_ = 0;
    std::vector<std::string> names_;
    ScannedRecord current_;
    size_t fileRecords_ = 0;  // records of the file passed, the header record too
    size_t number_ = 0;
    size_t issues_ = 0;
    size_t lastNumberChecked_ = 0;  // the record whose UTF-8 was checked last
    bool started_ = false;
    bool jump_ = false;
    bool ended_ = false;
};

// The records of a table by the host's scan alone, with the issues that the
// scan can tell without the driver. fieldCount is the table's. Gives the
// number of data records that the driver reads, and their offsets in
// offsets, if given. A scan that stop asks to stop ends at once, with what
// it found so far, which then says nothing about the table.
size_t scanTable(const TableFile &file, const TableFormat &format, uint16_t fieldCount, const IssueSink &sink,
                 std::vector<uint64_t> *offsets = nullptr, const std::stop_token &stop = {});

// What keeps the driver from reading a scanned record, or from reading all
// of it, as far as the scan shows; empty when nothing does.
std::string recordProblem(const ScannedRecord &record, const TableFormat &format, uint16_t fieldCount,
                          uint64_t dataEnd);

// A value as the driver gives it, as UTF-8; the first value of the first
// record loses the byte-order mark of the file.
std::string decodeValue(std::string bytes, const TableFormat &format, bool firstOfFile);

// What is wrong with a record of a UTF-8 table whose value holds bytes
// that are no UTF-8, which decodeValue shows as U+FFFD.
inline constexpr std::string_view NOT_UTF8 =
    "holds bytes that are not UTF-8 (shown as U+FFFD); if the file is in another page, name it with --encoding "
    "cp1252 or --encoding cp437";

// The names of a table's fields as UTF-8: a tagged document's head names
// them; a delimited table's header record does when the table stands on it
// (onHeader), else they are 1, 2, ...
std::vector<std::string> fieldNames(Table &table, const TableFormat &format, bool onHeader);

}  // namespace mergedb::host
