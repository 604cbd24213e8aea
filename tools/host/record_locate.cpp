#include "record_locate.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "descriptor.h"
#include "failure.h"

namespace mergedb::host {
namespace {

// How far back the first look reaches; it doubles while no start is found.
constexpr uint64_t FIRST_REACH = 512;
using namespace tagged;

}  // namespace

RecordLocator::RecordLocator(const TableFile &file, const TableFormat &format)
    : file_(file), format_(format), scanner_(file, format), fd_(::open(file.path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (fd_ < 0) throw Failure(file.label, std::strerror(errno));
}

RecordLocator::~RecordLocator() { ::close(fd_); }

void RecordLocator::read(uint64_t offset, uint64_t end) {
    window_.assign(end - offset, '\0');
    windowStart_ = offset;
    if (!readExactly(fd_, window_.data(), window_.size(), offset)) {
        throw Failure(file_.label, errno != 0 ? std::strerror(errno) : "the file became shorter while read");
    }
}

std::vector<uint64_t> RecordLocator::places(uint64_t low, uint64_t high, bool likely) {
    std::vector<uint64_t> found;
    const std::string &delimiter = format_.delimiters.record;
    for (uint64_t place = high; place-- > low;) {
        bool first = place == firstRecordOffset();
        bool fits = false;
        if (first) {
            fits = likely;
        } else if (!format_.tagged) {
            fits = likely && place >= windowStart_ + delimiter.size() &&
                   std::string_view(window_).substr(place - windowStart_ - delimiter.size(), delimiter.size()) ==
                       delimiter;
        } else if (place >= windowStart_ + 1 && (byteAt(place - 1) == LINE_END || byteAt(place - 1) == RECORD_LINE_END)) {
            bool marked = (place >= windowStart_ + 2 && byteAt(place - 2) == RECORD_END_MARK) ||
                          (place >= windowStart_ + 3 && byteAt(place - 2) == FUNCTION_LEAD &&
                           byteAt(place - 3) == FUNCTION_RECORD_END);
            fits = marked == likely;
        }
        if (fits) found.push_back(place);
    }
    return found;
}

std::optional<uint64_t> RecordLocator::startBefore(uint64_t end, const std::function<bool(uint64_t)> &confirm) {
    uint64_t floor = std::max(firstRecordOffset(), end > LONGEST_RECORD ? end - LONGEST_RECORD : 0);
    if (end <= floor) return std::nullopt;
    // Bytes in front of a place tell whether it is one: the delimiter, or
    // the mark and line end.
    uint64_t lookBehind = std::max<uint64_t>(format_.delimiters.record.size(), 3);
    for (bool likely : {true, false}) {
        if (!likely && !format_.tagged) break;
        for (uint64_t reach = FIRST_REACH, high = end;; reach *= 2) {
            uint64_t low = end - std::min(reach, end - floor);
            read(low > lookBehind ? low - lookBehind : 0, end);
            for (uint64_t place : places(low, high, likely)) {
                std::optional<ScannedRecord> record = recordAt(place);
                bool whole = record && record->fault == RecordFault::None && record->offset + record->length == end;
                if (whole && confirm(place)) return place;
            }
            if (low == floor) break;
            high = low;
        }
    }
    return std::nullopt;
}

bool RecordLocator::recordEndsAt(uint64_t end) {
    return startBefore(end, [](uint64_t) { return true; }).has_value();
}

std::optional<ScannedRecord> RecordLocator::recordAt(uint64_t start) {
    scanner_.restartAt(start);
    return scanner_.next();
}

}  // namespace mergedb::host
