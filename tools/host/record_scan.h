// The records of a table file as the host finds them by reading the file
// itself, by the rules that the driver's scanner follows: where each record
// begins and ends, how many fields a delimited record splits into, and what
// keeps the driver from reading a record at all. A walk through the driver
// is held against this list (checked_walk.h), since the driver's own walk
// ends at the first record that it can't read and tells neither where nor
// why.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "table_file.h"
#include "table_format.h"

namespace mergedb::host {

// The longest record that the driver reads, in bytes.
inline constexpr uint64_t LONGEST_RECORD = DB_LONGEST_RECORD;

// A tagged record ends with its mark, byte 5 or the function token 52
// (whose lead byte is 222), and then at the next line end, byte 10 or 12.
namespace tagged {
inline constexpr unsigned char RECORD_END_MARK = 5;
inline constexpr unsigned char LINE_END = 10;
inline constexpr unsigned char RECORD_LINE_END = 12;
inline constexpr unsigned char FUNCTION_LEAD = 222;
inline constexpr unsigned char FUNCTION_RECORD_END = 52;
}  // namespace tagged

enum class RecordFault : uint8_t {
    None,
    TooLong,        // longer than LONGEST_RECORD
    Unterminated,   // the file ends before the record does
    UnclosedQuote,  // a quote opens a stretch that the end of the file cuts off
    Damaged,        // a tagged document: a byte that no record may hold
};

struct ScannedRecord {
    uint64_t offset = 0;
    uint64_t length = 0;
    RecordFault fault = RecordFault::None;
    uint64_t faultOffset = 0;  // the opening quote, or the damaged byte
    // Delimited text: the fields that the record holds, each ended by a
    // delimiter outside quotes, and whether bytes stand behind the last of
    // them (a quote that closes only past the record's end).
    size_t fields = 0;
    bool bytesBehindFields = false;
    // Delimited text: the first NUL byte of the record, where the driver
    // ends the value that holds it.
    std::optional<uint64_t> nulOffset;
    // The record ends with CR LF in a table whose line ends were found to be
    // LF, or holds a lone LF outside quotes in one of CR LF.
    bool otherLineEnd = false;
};

class RecordSource;

class RecordScanner {
public:
    RecordScanner(const TableFile &file, const TableFormat &format);
    ~RecordScanner();
    RecordScanner(const RecordScanner &) = delete;
    RecordScanner &operator=(const RecordScanner &) = delete;

    // The next record of the file, the head record of a tagged document not
    // counted; nothing at the end of the data. Once a record with the fault
    // Unterminated, UnclosedQuote or Damaged is given, nothing follows it.
    std::optional<ScannedRecord> next();
    // Scans on from offset, as if a record began there: the host's look at
    // one record whose start it knows or supposes.
    void restartAt(uint64_t offset);
    // Where the data ends: the file's size, less a final byte 26.
    uint64_t dataEnd() const;
    // Where the first data record begins.
    uint64_t firstRecordOffset() const { return firstRecord_; }

private:
    ScannedRecord delimitedRecord();
    ScannedRecord taggedRecord();
    // Copies bytes of the record being scanned, as far as they are kept.
    void take(size_t count);
    bool takeString(const std::string &text);
    bool takeToken(ScannedRecord &record);
    void countFields(ScannedRecord &record) const;

    TableFormat format_;
    std::unique_ptr<RecordSource> source_;
    std::array<bool, 256> special_{};  // the first bytes of the delimited strings
    uint64_t firstRecord_ = 0;
    bool ended_ = false;
};

}  // namespace mergedb::host
