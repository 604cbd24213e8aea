#include "checked_walk.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "codepage.h"

namespace mergedb::host {
namespace {

constexpr std::string_view UTF8_BOM = "\xEF\xBB\xBF";

std::string fieldsText(size_t count) { return std::to_string(count) + (count == 1 ? " field" : " fields"); }

std::string bytesText(uint64_t count) { return std::to_string(count) + (count == 1 ? " byte" : " bytes"); }

bool leftOut(const ScannedRecord &record, uint16_t fieldCount, bool tagged) {
    return record.fault != RecordFault::None || (!tagged && record.fields < fieldCount);
}

std::string whereText(const ScannedRecord &record, size_t fileRecord, bool header) {
    std::string at = " at byte " + std::to_string(record.offset);
    if (header && fileRecord == 1) return "the header record" + at;
    return "record " + std::to_string(fileRecord - (header ? 1 : 0)) + at;
}

std::string withoutBom(std::string bytes, const TableFormat &format, bool firstOfFile) {
    if (firstOfFile && format.bomLength != 0 && bytes.starts_with(UTF8_BOM)) bytes.erase(0, UTF8_BOM.size());
    return bytes;
}

}  // namespace

std::string recordProblem(const ScannedRecord &record, const TableFormat &format, uint16_t fieldCount,
                          uint64_t dataEnd) {
    switch (record.fault) {
    case RecordFault::TooLong:
        return "has " + bytesText(record.length) + ", more than the " + std::to_string(LONGEST_RECORD) +
               " bytes of the longest record that the driver reads; it is left out";
    case RecordFault::Unterminated:
        if (format.tagged) return "the file ends inside this record, so the driver does not read it";
        return "the last " + bytesText(record.length) + " have no record delimiter (" +
               delimiterText(format.delimiters.record) +
               ") behind them, so the driver reads no record there (insert --fix-end adds one)";
    case RecordFault::UnclosedQuote:
        return "the quote at byte " + std::to_string(record.faultOffset) +
               " does not close, so the driver reads no record from here to the end of the file (" +
               bytesText(dataEnd - record.offset) + ")";
    case RecordFault::Damaged:
        return "holds a byte at " + std::to_string(record.faultOffset) +
               " that no record of a tagged document may hold, so the driver reads nothing from here on";
    case RecordFault::None: break;
    }
    if (format.tagged) return "";
    if (record.fields < fieldCount && record.length == format.delimiters.record.size()) {
        return "is an empty line, a record of 1 field to the driver, the table " + std::to_string(fieldCount) +
               "; it is left out";
    }
    if (record.fields < fieldCount) {
        return "has " + fieldsText(record.fields) + ", the table " + std::to_string(fieldCount) + "; it is left out";
    }
    if (record.fields > fieldCount || (record.fields == fieldCount && record.bytesBehindFields)) {
        std::string more = record.fields > fieldCount ? fieldsText(record.fields) : "bytes behind its last field";
        return "has " + more + ", the table " + std::to_string(fieldCount) + "; the driver reads only the first " +
               std::to_string(fieldCount);
    }
    if (record.nulOffset) {
        return "holds a NUL byte at byte " + std::to_string(*record.nulOffset) +
               ", where the driver ends the value; the rest of that value is not read";
    }
    if (record.otherLineEnd) {
        return "its line ends are not the table's (" + delimiterText(format.delimiters.record) +
               "): the line ends are mixed; name the record delimiter with --record-delimiter";
    }
    return "";
}

std::string decodeValue(std::string bytes, const TableFormat &format, bool firstOfFile) {
    return toUtf8(withoutBom(std::move(bytes), format, firstOfFile), format.encoding);
}

std::vector<std::string> fieldNames(Table &table, const TableFormat &format, bool onHeader) {
    std::vector<std::string> names;
    if (format.tagged) {
        for (const std::string &name : table.fieldNames()) names.push_back(toUtf8(name, Encoding::Cp437));
        return names;
    }
    uint16_t count = table.fieldCount();
    for (uint16_t i = 0; i < count; ++i) {
        names.push_back(onHeader ? decodeValue(table.value(i), format, i == 0) : std::to_string(i + 1));
    }
    return names;
}

CheckedWalk::CheckedWalk(Table &table, const TableFile &file, const TableFormat &format, IssueSink sink)
    : table_(table),
      format_(format),
      scanner_(file, format),
      sink_(std::move(sink)),
      path_(file.path),
      fileSize_(file.size) {
    fieldCount_ = table.fieldCount();
    names_ = fieldNames(table, format, format.headerRecord() && step());
}

Moved CheckedWalk::move(const std::optional<ScannedRecord> &expected) {
    if (!started_) {
        started_ = true;
        return table_.first();
    }
    if (!jump_) return table_.next();
    jump_ = false;
    if (!expected || expected->offset > std::numeric_limits<uint32_t>::max()) return Moved::End;
    return table_.jump(static_cast<uint32_t>(expected->offset));
}

void CheckedWalk::report(const ScannedRecord &record, const std::string &what) {
    ++issues_;
    if (sink_) sink_({whereText(record, fileRecords_, format_.headerRecord()), what});
}

bool CheckedWalk::step() {
    std::optional<ScannedRecord> expected = scanner_.next();
    Moved moved = move(expected);
    if (!expected) {
        if (moved != Moved::End) {
            ++fileRecords_;
            ScannedRecord behind;
            behind.offset = scanner_.dataEnd();
            std::error_code error;
            uint64_t size = std::filesystem::file_size(path_, error);
            report(behind, !error && size > fileSize_
                               ? "the table grew while it was read: another program is adding records to it; "
                                 "try again when it is done"
                               : "the driver reads a record behind the end of the data that the host found");
        }
        finish();
        return false;
    }
    ++fileRecords_;
    current_ = *expected;
    return accepted(moved);
}

bool CheckedWalk::next() {
    while (!ended_) {
        if (step()) {
            number_ = fileRecords_ - (format_.headerRecord() ? 1 : 0);
            return true;
        }
    }
    return false;
}

bool CheckedWalk::accepted(Moved moved) {
    std::string problem = recordProblem(current_, format_, fieldCount_, scanner_.dataEnd());
    if (moved == Moved::End) {
        report(current_, problem.empty() ? "the driver's walk ends here, before the end of the table" : problem);
        jump_ = current_.fault == RecordFault::TooLong;
        ended_ = !jump_;
        if (ended_) finish();
        return false;
    }
    if (moved == Moved::Unsplit) {
        report(current_, leftOut(current_, fieldCount_, format_.tagged)
                             ? problem
                             : "the driver can't split it into the table's fields (" + table_.moveError() +
                                   "); it is left out");
        return false;
    }
    if (!problem.empty()) report(current_, problem);
    return true;
}

std::string CheckedWalk::bytes(uint16_t index) { return table_.value(index); }

std::string CheckedWalk::value(uint16_t index) {
    std::string raw = table_.value(index);
    bool firstOfFile = fileRecords_ == 1 && index == 0;
    if (format_.encoding != Encoding::Utf8) return decodeValue(std::move(raw), format_, firstOfFile);
    if (isUtf8(raw)) return withoutBom(std::move(raw), format_, firstOfFile);
    if (lastNumberChecked_ != number_) {
        lastNumberChecked_ = number_;
        report(current_, std::string(NOT_UTF8));
    }
    return decodeValue(std::move(raw), format_, firstOfFile);
}

// The driver's walk and the scan agree; the driver's own last record, found
// from the end of the file, must then be the record where the walk ended.
void CheckedWalk::finish() {
    ended_ = true;
    if (issues_ != 0 || fileRecords_ == 0) return;
    std::vector<std::string> walked = table_.values(fieldCount_);
    if (table_.last() == Moved::Record && table_.values(fieldCount_) == walked) return;
    report(current_, "the driver finds another last record when it reads from the end (the table's bytes read one "
                     "way forward and another backward), so a walk back does not show what this walk shows");
}

size_t scanTable(const TableFile &file, const TableFormat &format, uint16_t fieldCount, const IssueSink &sink,
                 std::vector<uint64_t> *offsets, const std::stop_token &stop) {
    RecordScanner scanner(file, format);
    bool header = format.headerRecord();
    size_t records = 0;
    size_t read = 0;
    while (std::optional<ScannedRecord> record = scanner.next()) {
        if (stop.stop_requested()) break;
        ++records;
        std::string problem = recordProblem(*record, format, fieldCount, scanner.dataEnd());
        if (!problem.empty() && sink) sink({whereText(*record, records, header), problem, record->offset});
        bool data = !leftOut(*record, fieldCount, format.tagged) && !(header && records == 1);
        if (data && offsets != nullptr) offsets->push_back(record->offset);
        read += data;
    }
    return read;
}

}  // namespace mergedb::host
