// Where a record begins, worked out from where it ends. The driver walks a
// table backward without telling where its records lie, and a record's
// length is known only by scanning it forward. The host finds, before the
// end of a record (the start of the record behind it, or the end of the
// data), the places where a record may begin, and keeps those from which
// its own scan (record_scan.h) reads exactly one whole record up to that
// end. The caller confirms such a place (the driver reads there the record
// that its walk gave), and the first confirmed place is the record's start.
//
// Places are tried nearest first: behind a record delimiter in delimited
// text; in a tagged document first behind an end-of-record mark and its
// line end, then behind any line end. A record is never longer than
// LONGEST_RECORD, so no place further back is tried.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "record_scan.h"
#include "table_file.h"
#include "table_format.h"

namespace mergedb::host {

class RecordLocator {
public:
    RecordLocator(const TableFile &file, const TableFormat &format);
    ~RecordLocator();
    RecordLocator(const RecordLocator &) = delete;
    RecordLocator &operator=(const RecordLocator &) = delete;

    // The start of the record that ends at end, not before the first record
    // of the file; nothing when no place was confirmed.
    std::optional<uint64_t> startBefore(uint64_t end, const std::function<bool(uint64_t start)> &confirm);

    // Whether the host's scan finds a whole record that ends at end, behind
    // which the next one begins.
    bool recordEndsAt(uint64_t end);

    // The host's scan of the record that begins at start.
    std::optional<ScannedRecord> recordAt(uint64_t start);

    // Where the first record of the file begins, and where the data ends.
    uint64_t firstRecordOffset() const { return scanner_.firstRecordOffset(); }
    uint64_t dataEnd() const { return scanner_.dataEnd(); }

private:
    // The places in [low, high) where a record may begin, the likely ones
    // (likely true) or the others, nearest first.
    std::vector<uint64_t> places(uint64_t low, uint64_t high, bool likely);
    // Reads the bytes of the file from offset on up to end into window_.
    void read(uint64_t offset, uint64_t end);
    unsigned char byteAt(uint64_t offset) const { return static_cast<unsigned char>(window_[offset - windowStart_]); }

    TableFile file_;
    TableFormat format_;
    RecordScanner scanner_;
    int fd_ = -1;
    std::string window_;
    uint64_t windowStart_ = 0;
};

}  // namespace mergedb::host
