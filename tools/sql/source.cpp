#include "source.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <set>

#include "checked_walk.h"
#include "codepage.h"
#include "record_scan.h"

namespace mergedb::sql {
namespace {

std::string folded(const std::string &name) {
    std::string low = name;
    for (char &c : low) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    return low;
}

}  // namespace

Source::Source(const TableArguments &arguments)
    : file_(host::locateTable(arguments.path)),
      format_(host::resolveFormat(file_, arguments.request)),
      driverDirectory_(host::driverDirectory(file_)) {
    host::InDirectory here = visit();
    database_ = std::make_unique<host::Database>(session_, format_.subtype(), driverDirectory_.value_or(""));
    std::unique_ptr<host::Table> table = open(host::Access::Read);
    kind_ = table->kind();
    if (!format_.tagged && table->fieldCount() == 0) {
        throw host::Failure(file_.label, "has no fields yet; give it its first record with mergedb insert");
    }
    bool onHeader = format_.headerRecord() && table->first() == host::Moved::Record;
    fields_ = host::fieldNames(*table, format_, onHeader);
    firstRecord_ = format_.tagged ? host::RecordScanner(file_, format_).firstRecordOffset() : 0;
    table->close();
}

std::vector<std::string> Source::columnNames() const {
    std::vector<std::string> names;
    std::set<std::string> taken;
    for (size_t i = 0; i < fields_.size(); ++i) {
        std::string base = fields_[i].empty() ? std::to_string(i + 1) : fields_[i];
        std::string name = base;
        for (int copy = 2; !taken.insert(folded(name)).second; ++copy) name = base + "_" + std::to_string(copy);
        names.push_back(name);
    }
    return names;
}

std::unique_ptr<host::Table> Source::open(host::Access access, const host::TableFile *other) const {
    host::InDirectory here = visit();
    return std::make_unique<host::Table>(*database_, (other != nullptr ? *other : file_).driverName, file_.label,
                                         format_.subtype(), format_.delimiters, access);
}

Stamp Source::stamp() const {
    struct stat facts{};
    if (::stat(file_.path.c_str(), &facts) != 0) throw host::Failure(file_.label, std::strerror(errno));
    return {facts.st_dev, facts.st_ino, static_cast<uint64_t>(facts.st_size),
            static_cast<int64_t>(facts.st_ctim.tv_sec) * 1000000000 + facts.st_ctim.tv_nsec};
}

void Source::refresh() {
    std::string label = file_.label;
    file_ = host::locateTable(file_.path.string());
    file_.label = label;
}

std::optional<std::vector<uint64_t>> Source::keptSurvey() const {
    if (!surveyed_ || !(*surveyed_ == stamp())) return std::nullopt;
    return offsets_;
}

void Source::keepSurvey(const Stamp &stamp, std::vector<uint64_t> offsets) {
    surveyed_ = stamp;
    offsets_ = std::move(offsets);
}

std::vector<uint64_t> surveyOffsets(const host::TableFile &file, const host::TableFormat &format,
                                    uint16_t fieldCount, const std::stop_token &stop) {
    std::vector<uint64_t> offsets;
    host::scanTable(file, format, fieldCount, [&file](const host::Issue &issue) {
        notWhole(file.label, issue.where, issue.what);
    }, &offsets, stop);
    return offsets;
}

void notWhole(const std::string &label, const std::string &where, const std::string &what) {
    throw host::Failure(label, sqlWording(where + ": " + what) + " (the table does not read whole)");
}

void explainNotWhole(Source &source, const std::string &where, const std::string &what) {
    source.refresh();
    surveyOffsets(source.file(), source.format(), source.fieldCount());
    notWhole(source.label(), where, what);
}

bool firstOfFile(const Source &source, uint64_t offset, uint16_t field) {
    return field == 0 && offset == 0 && source.format().bomLength != 0;
}

std::string textOf(const Source &source, std::string bytes, bool firstOfFile,
                   const std::function<uint64_t()> &offset) {
    const host::TableFormat &format = source.format();
    if (format.encoding == host::Encoding::Utf8 && !host::isUtf8(bytes)) {
        notWhole(source.label(), "the record at byte " + std::to_string(offset()),
                 "holds bytes that are not UTF-8; if the file is in another page, name it with --encoding");
    }
    return host::decodeValue(std::move(bytes), format, firstOfFile);
}

}  // namespace mergedb::sql
