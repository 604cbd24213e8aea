// The ways through a table that a query plan can take (plan.h), each over
// the table's file through the driver, with the host's checks:
//   - forward: the driver's walk, held record by record against the host's
//     scan of the file (a checked walk), whose offsets are the rowids;
//   - jump: dbGetRecordMerge at a rowid, which must be a record's start;
//   - backward: dbLastMerge and dbPrevMerge, with each record's start
//     worked out by the host from the end of the record behind it;
//   - find: dbFindRecordMerge with an example, while the host's scan of the
//     file, in another thread, checks that the table reads whole: the
//     driver ends a search at a record that it can't read as if the table
//     ended there.
// A scan that meets a table that does not read whole throws a Failure.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "source.h"

namespace mergedb::sql {

class FileScan {
public:
    virtual ~FileScan() = default;
    // The next record of the file; false at the end.
    virtual bool next() = 0;
    virtual uint64_t rowid() = 0;
    // A value of the current record as UTF-8.
    virtual std::string value(uint16_t field) = 0;
};

// One field of the example: the driver's criterion, as the table stores it;
// a '*' ends a prefix.
struct Criterion {
    uint16_t field = 0;
    std::string bytes;
};

std::unique_ptr<FileScan> forwardScan(Source &source);
std::unique_ptr<FileScan> jumpScan(Source &source, uint64_t rowid);
// The values of the record at rowid as the driver gives them, found as a
// jump finds it; nothing when no record of the file begins there.
std::optional<std::vector<std::string>> recordAt(Source &source, uint64_t rowid);
std::unique_ptr<FileScan> backwardScan(Source &source);
std::unique_ptr<FileScan> findScan(Source &source, const std::vector<Criterion> &example);

}  // namespace mergedb::sql
