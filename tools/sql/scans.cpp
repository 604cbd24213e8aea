#include "scans.h"

#include <future>
#include <limits>
#include <optional>

#include "checked_walk.h"
#include "record_locate.h"

namespace mergedb::sql {
namespace {

using host::Moved;

// Whether the driver, sent to offset, reads a record there, and the one
// whose values are wanted if given.
bool readsAt(host::Table &table, uint64_t offset, const std::vector<std::string> *wanted = nullptr) {
    if (offset > std::numeric_limits<uint32_t>::max()) return false;
    if (table.jump(static_cast<uint32_t>(offset)) != Moved::Record) return false;
    return wanted == nullptr || table.values(static_cast<uint16_t>(wanted->size())) == *wanted;
}

// The start of the record that the driver stands on, which ends at end:
// the first of the host's places before end where the driver reads the
// same record. The driver stands on it again afterwards.
std::optional<uint64_t> startOf(const Source &source, host::Table &table, host::RecordLocator &locator,
                                uint64_t end) {
    std::vector<std::string> walked = table.values(source.fieldCount());
    return locator.startBefore(end, [&](uint64_t start) { return readsAt(table, start, &walked); });
}

// Fails the query when the record that begins at start is one that the
// driver reads only in part (extra fields, bytes behind its last field) or
// not at all, as the forward walk does; reading is what the driver says
// about the record when the host's scan finds nothing against it.
void checkWhole(Source &source, host::RecordLocator &locator, uint64_t start, const std::string &reading = "") {
    std::optional<host::ScannedRecord> record = locator.recordAt(start);
    std::string problem =
        record ? host::recordProblem(*record, source.format(), source.fieldCount(), locator.dataEnd()) : "";
    if (problem.empty()) problem = reading;
    if (!problem.empty()) explainNotWhole(source, "the record at byte " + std::to_string(start), problem);
}

class ForwardScan : public FileScan {
public:
    explicit ForwardScan(Source &source)
        : table_(source.open(host::Access::Read)),
          walk_(*table_, source.file(), source.format(), [&source](const host::Issue &issue) {
              notWhole(source.label(), issue.where, issue.what);
          }) {}
    bool next() override { return walk_.next(); }
    uint64_t rowid() override { return walk_.offset(); }
    std::string value(uint16_t field) override { return walk_.value(field); }

private:
    std::unique_ptr<host::Table> table_;
    host::CheckedWalk walk_;
};

class JumpScan : public FileScan {
public:
    JumpScan(Source &source, uint64_t rowid) : source_(source), rowid_(rowid) {}
    bool next() override {
        if (done_) return false;
        done_ = true;
        return found();
    }
    uint64_t rowid() override { return rowid_; }
    std::string value(uint16_t field) override {
        return textOf(source_, values_[field], firstOfFile(source_, rowid_, field), [this] { return rowid_; });
    }
    const std::vector<std::string> &bytes() const { return values_; }

private:
    // A rowid names a record when the driver reads one there, and the record
    // before it (if any) ends there, by the host's scan and the driver alike.
    bool found() {
        host::RecordLocator locator(source_.file(), source_.format());
        uint64_t first = source_.firstRecordOffset();
        if (rowid_ < first || rowid_ >= locator.dataEnd()) return false;
        if (rowid_ == first && source_.format().headerRecord()) return false;
        table_ = source_.open(host::Access::Read);
        if (!readsAt(*table_, rowid_)) {
            // A record of the file that begins there, by the host's scan,
            // and that the driver can't read fails the query rather than
            // give no row.
            if (rowid_ == first || locator.recordEndsAt(rowid_)) {
                checkWhole(source_, locator, rowid_, "the driver reads no record there");
            }
            return false;
        }
        values_ = table_->values(source_.fieldCount());
        bool begins = rowid_ == first ||
                      (table_->previous() == Moved::Record && startOf(source_, *table_, locator, rowid_).has_value());
        if (begins) checkWhole(source_, locator, rowid_);
        return begins;
    }

    Source &source_;
    uint64_t rowid_;
    std::unique_ptr<host::Table> table_;
    std::vector<std::string> values_;
    bool done_ = false;
};

class BackwardScan : public FileScan {
public:
    explicit BackwardScan(Source &source)
        : source_(source), table_(source.open(host::Access::Read)), locator_(source.file(), source.format()),
          start_(locator_.dataEnd()) {}
    bool next() override {
        if (start_ <= source_.firstRecordOffset()) return false;
        std::string where = "the record that ends at byte " + std::to_string(start_);
        Moved moved = started_ ? table_->previous() : table_->last();
        started_ = true;
        if (moved == Moved::End) explainNotWhole(source_, where, "the driver's walk back ends there");
        if (moved == Moved::Unsplit) {
            explainNotWhole(source_, where, "the driver can't split it into the fields (" + table_->moveError() + ")");
        }
        std::optional<uint64_t> start = startOf(source_, *table_, locator_, start_);
        if (!start) {
            explainNotWhole(source_, where,
                            "the driver's walk back reads a record there whose start the host's scan does not find");
        }
        start_ = *start;
        if (start_ == source_.firstRecordOffset() && source_.format().headerRecord()) return false;
        checkWhole(source_, locator_, start_);
        return true;
    }
    uint64_t rowid() override { return start_; }
    std::string value(uint16_t field) override {
        return textOf(source_, table_->value(field), firstOfFile(source_, start_, field), [this] { return start_; });
    }

private:
    Source &source_;
    std::unique_ptr<host::Table> table_;
    host::RecordLocator locator_;
    uint64_t start_;  // of the current record, the end of the one before it
    bool started_ = false;
};

class FindScan : public FileScan {
public:
    FindScan(Source &source, const std::vector<Criterion> &example)
        : source_(source), table_(source.open(host::Access::Read)) {
        table_->clear();
        for (const Criterion &criterion : example) table_->put(criterion.field, criterion.bytes);
        if (std::optional<std::vector<uint64_t>> kept = source.keptSurvey()) {
            offsets_ = std::move(*kept);
            return;
        }
        stamp_ = source.stamp();
        survey_ = std::async(std::launch::async, surveyOffsets, source.file(), source.format(), source.fieldCount(),
                             stopSurvey_.get_token());
    }
    // A query that ends before the search does (a LIMIT) stops the survey
    // rather than wait for it: nothing then rests on it.
    ~FindScan() override { stopSurvey_.request_stop(); }
    FindScan(const FindScan &) = delete;
    FindScan &operator=(const FindScan &) = delete;
    bool next() override {
        rowid_.reset();
        while (table_->find(!started_) == Moved::Record) {
            bool first = !started_;
            started_ = true;
            if (!first || !source_.format().headerRecord() || !onFirstRecord()) return true;
        }
        offsets();  // the search is over only when the table read whole
        return false;
    }
    // The records between the last one found and this one did not fit the
    // example, and one that reads the same as this one would: so this is
    // the first of them whose values are its own. Only a query that asks
    // for rowids pays for the jumps.
    uint64_t rowid() override {
        if (rowid_) return *rowid_;
        std::vector<std::string> found = table_->values(source_.fieldCount());
        while (next_ < offsets().size()) {
            uint64_t offset = offsets_[next_++];
            if (readsAt(*table_, offset, &found)) return *(rowid_ = offset);
        }
        notWhole(source_.label(), "a record found by example",
                 "the host's scan of the file finds no record where the driver found it");
    }
    std::string value(uint16_t field) override {
        bool first = firstOfFile(source_, 0, field) && !source_.format().headerRecord() && rowid() == 0;
        return textOf(source_, table_->value(field), first, [this] { return rowid(); });
    }

private:
    // The records' offsets, by the host's scan of the file, which runs in
    // another thread while the driver searches, and finds the table whole.
    const std::vector<uint64_t> &offsets() {
        if (survey_.valid()) {
            offsets_ = survey_.get();
            source_.keepSurvey(stamp_, offsets_);
        }
        return offsets_;
    }
    // Whether the record found is the first of the file: the header record,
    // no data. The driver is back on it afterwards.
    bool onFirstRecord() {
        if (table_->previous() != Moved::Record) return true;
        table_->next();
        return false;
    }

    Source &source_;
    std::unique_ptr<host::Table> table_;
    std::stop_source stopSurvey_;
    std::future<std::vector<uint64_t>> survey_;  // joined as it goes, after the stop
    Stamp stamp_;
    std::vector<uint64_t> offsets_;
    std::optional<uint64_t> rowid_;
    size_t next_ = 0;
    bool started_ = false;
};

}  // namespace

std::unique_ptr<FileScan> forwardScan(Source &source) { return std::make_unique<ForwardScan>(source); }

std::unique_ptr<FileScan> jumpScan(Source &source, uint64_t rowid) { return std::make_unique<JumpScan>(source, rowid); }

std::optional<std::vector<std::string>> recordAt(Source &source, uint64_t rowid) {
    JumpScan scan(source, rowid);
    if (!scan.next()) return std::nullopt;
    return scan.bytes();
}

std::unique_ptr<FileScan> backwardScan(Source &source) { return std::make_unique<BackwardScan>(source); }

std::unique_ptr<FileScan> findScan(Source &source, const std::vector<Criterion> &example) {
    return std::make_unique<FindScan>(source, example);
}

}  // namespace mergedb::sql
