// The commands that only read: tables, fields, dump, find and info.
#include <algorithm>
#include <memory>

#include "commands.h"
#include "match.h"
#include "open_table.h"
#include "output.h"
#include "temporary_name.h"

namespace mergedb::cli {
namespace {

using host::Access;
using host::CheckedWalk;
using host::Failure;
using host::Moved;

// The fields that a dump writes, by position, with their names.
struct Selection {
    std::vector<uint16_t> indexes;
    std::vector<std::string> names;
};

Selection selection(const Invocation &invocation, const std::vector<std::string> &names, const std::string &label) {
    Selection selection;
    std::vector<std::string> wanted = invocation.values("--field");
    if (wanted.empty()) {
        for (uint16_t index = 0; index < names.size(); ++index) selection.indexes.push_back(index);
        selection.names = names;
    }
    for (const std::string &name : wanted) {
        uint16_t index = fieldIndex(names, name, label);
        selection.indexes.push_back(index);
        selection.names.push_back(names[index]);
    }
    return selection;
}

// A table has names where a tagged document's head or a header record gives
// them; delimited text without --header gets no invented line of names.
std::unique_ptr<RecordWriter> recordWriter(const Invocation &invocation, const host::TableFormat &format) {
    return formatWriter(invocation, format.header && !invocation.has("--no-header"));
}

std::vector<std::string> selectedValues(CheckedWalk &walk, const Selection &fields) {
    std::vector<std::string> values;
    values.reserve(fields.indexes.size());
    for (uint16_t index : fields.indexes) values.push_back(walk.value(index));
    return values;
}

// Writes the records of a forward walk that fit the example, or all of
// them without one.
void writeWalk(const Invocation &invocation, OpenTable &open, CheckedWalk &walk, const Example *example,
               const std::string &label) {
    std::unique_ptr<RecordWriter> writer = recordWriter(invocation, open.format);
    Selection fields = selection(invocation, walk.names(), open.file.label);
    writer->header(fields.names);
    Progress progress(label, true);
    while (walk.next()) {
        if (example == nullptr || example->fits(walk)) writer->record(selectedValues(walk, fields));
        progress.tick();
    }
    writer->finish();
    requireWhole(invocation, open.file.label, walk.issues());
}

std::string recordAt(uint64_t offset) { return "the record at byte " + std::to_string(offset); }

// The selected values of a record that begins at offset, as UTF-8; bytes
// of a UTF-8 table that are no UTF-8 are told.
std::vector<std::string> textValues(const std::vector<std::string> &raw, const Selection &fields,
                                    const host::TableFormat &format, uint64_t offset, const host::IssueSink &sink) {
    std::vector<std::string> values;
    bool told = false;
    for (uint16_t index : fields.indexes) {
        if (!told && format.encoding == host::Encoding::Utf8 && !host::isUtf8(raw[index])) {
            told = true;
            sink({recordAt(offset), std::string(host::NOT_UTF8)});
        }
        values.push_back(host::decodeValue(raw[index], format, offset == 0 && index == 0));
    }
    return values;
}

// From the last record to the first, each record of the driver's walk back
// held against the host's scan of the file: sent to the start of the record
// that the scan expects there, the driver must read the same record. The
// walk goes on from that record, so a record that the walk back passes
// over or reads otherwise is told, and the scan's record is written. The
// scan tells what it finds wrong, as a forward walk does; a record that it
// told of is not told again where the walk back reads it.
void writeBackward(const Invocation &invocation, OpenTable &open) {
    std::unique_ptr<RecordWriter> writer = recordWriter(invocation, open.format);
    IssuePrinter issues(open.file.label);
    host::IssueSink sink = issues.sink();
    uint16_t count = open.table.fieldCount();
    std::vector<uint64_t> starts;
    std::vector<uint64_t> told;
    host::scanTable(open.file, open.format, count, [&](const host::Issue &issue) {
        if (issue.offset) told.push_back(*issue.offset);
        sink(issue);
    }, &starts);
    // Whether the scan told of a record from the ith start on, before the next.
    auto toldFrom = [&](size_t i) {
        uint64_t end = i + 1 < starts.size() ? starts[i + 1] : UINT64_MAX;
        return std::any_of(told.begin(), told.end(), [&](uint64_t at) { return at >= starts[i] && at < end; });
    };
    bool onHeader = open.format.headerRecord() && open.table.first() == Moved::Record;
    Selection fields = selection(invocation, host::fieldNames(open.table, open.format, onHeader), open.file.label);
    writer->header(fields.names);
    Moved moved = open.table.last();
    for (size_t i = starts.size(); i-- > 0; moved = open.table.previous()) {
        std::vector<std::string> walked;
        if (moved == Moved::Record) walked = open.table.values(count);
        if (open.table.jump(static_cast<uint32_t>(starts[i])) != Moved::Record) {
            sink({recordAt(starts[i]), "the driver can't split it into the table's fields (" + open.table.moveError() +
                             "); it is left out"});
            continue;
        }
        std::vector<std::string> raw = open.table.values(count);
        if ((moved != Moved::Record || raw != walked) && !toldFrom(i)) {
            sink({recordAt(starts[i]), "the driver's walk back reads another record here than its walk forward"});
        }
        writer->record(textValues(raw, fields, open.format, starts[i], sink));
    }
    writer->finish();
    requireWhole(invocation, open.file.label, issues.count());
}

std::string describeTable(const Invocation &invocation, const std::string &name) {
    // The driver lists a name that its code pages can't hold with a stand-in
    // for each character it lacks, which names no file.
    std::error_code error;
    if (!std::filesystem::exists(std::filesystem::symlink_status(name, error))) {
        return "not a table: its name holds characters that the driver's code pages lack";
    }
    try {
        OpenTable open(invocation, name, Access::Read);
        uint16_t fields = open.table.fieldCount();
        std::string line = std::string(host::kindName(open.table.kind())) + "\t" + std::to_string(fields) +
                           (fields == 1 ? " field" : " fields");
        if (!open.format.tagged) {
            const host::Delimiters &d = open.format.delimiters;
            line += "\t" + host::delimiterText(d.field) + " " + host::delimiterText(d.record) + " " +
                    std::string(host::encodingName(open.format.encoding));
        }
        open.table.close();
        return line;
    } catch (const Failure &failure) {
        return "not a table: " + failure.reason();
    }
}

std::string numbersText(const std::array<uint16_t, 4> &numbers) {
    if (std::all_of(numbers.begin(), numbers.end(), [](uint16_t number) { return number == 0; })) return "";
    std::string text;
    for (uint16_t number : numbers) text += (text.empty() ? "\t" : ",") + std::to_string(number);
    return text;
}

// A database's subtype with its name and the table kinds that it offers.
std::string subtypeLines(const host::Database &database, int subtype) {
    std::string lines =
        "subtype " + std::to_string(subtype) + ": " + database.textInfo(DB_DATABASE_ITEM_SUBTYPE_NAME) + "\n";
    for (const auto &[kind, name] : database.tableKinds()) {
        lines += "  kind " + std::to_string(kind) + " (" + std::string(host::kindName(kind)) + "): " + name + "\n";
    }
    return lines;
}

// A directory as given, without the separators at its end, which name
// nothing for the driver.
std::string directoryOperand(const Invocation &invocation) {
    std::string directory = invocation.operands()[0];
    while (directory.size() > 1 && directory.ends_with('/')) directory.pop_back();
    return directory;
}

int databaseInfo(const std::string &directory) {
    std::string path = host::driverName(directory, directory);
    host::Session session;
    host::Database tagged(session, DB_SUBTYPE_TAGGED, path);
    host::Database text(session, DB_SUBTYPE_DELIMITED, path);
    writeOut("database: " + text.textInfo(DB_DATABASE_ITEM_PATH) + "\n" + "data type: " + session.dataTypeName() +
             "\n" + "path size: " + std::to_string(text.numberInfo<uint16_t>(DB_DATABASE_ITEM_PATH_SIZE)) + "\n" +
             "field name size: " + std::to_string(text.numberInfo<uint16_t>(DB_DATABASE_ITEM_NAME_SIZE)) + "\n" +
             "value size: " + std::to_string(text.numberInfo<uint16_t>(DB_DATABASE_ITEM_VALUE_SIZE)) + "\n" +
             subtypeLines(tagged, DB_SUBTYPE_TAGGED) + subtypeLines(text, DB_SUBTYPE_DELIMITED));
    return 0;
}

std::string kindText(uint16_t kind) {
    switch (kind) {
    case DB_KIND_TAGGED_0: return "tagged document, dialect 0 (tagged0)";
    case DB_KIND_TAGGED_1: return "tagged document, dialect 1 (tagged1)";
    default: return "delimited text (text)";
    }
}

int tableInfo(const Invocation &invocation) {
    OpenTable open(invocation, invocation.operands()[0], Access::Read);
    const host::TableFile &file = open.file;
    std::string lines = "table: " + file.label + "\n" + "file: " + file.path.string() + "\n" +
                        "kind: " + kindText(open.table.kind()) + "\n" + "size: " + host::sizeText(file.size) + "\n";
    for (const auto &[setting, value] : host::describeFormat(open.format)) lines += setting + ": " + value + "\n";
    IssuePrinter issues(file.label);
    CheckedWalk walk(open.table, file, open.format, issues.sink());
    size_t records = 0;
    while (walk.next()) {
        ++records;
        for (uint16_t i = 0; i < walk.fieldCount(); ++i) walk.value(i);  // tells bytes that are no UTF-8
    }
    std::string names = joined(walk.names());
    lines += "fields: " + std::to_string(walk.fieldCount()) + (names.empty() ? "" : " (" + names + ")") + "\n";
    lines += "records: " + std::to_string(records) + "\n";
    std::string whole = walk.issues() == 0 ? "yes" : "no, " + problemCount(walk.issues()) + " (on stderr)";
    lines += "reads whole: " + whole + "\n";
    std::string backup = file.backupPresent ? file.backupName + " lies beside it (see mergedb recover)" : "none";
    lines += "backup: " + backup + "\n";
    writeOut(lines);
    return 0;
}

}  // namespace

int runTables(const Invocation &invocation) {
    std::string directory = directoryOperand(invocation);
    std::error_code error;
    if (!std::filesystem::is_directory(directory, error)) throw Failure(directory, "there is no such directory");
    std::filesystem::current_path(directory, error);
    if (error) throw Failure(directory, "can't be entered: " + error.message());
    host::Session session;
    host::Database database(session, DB_SUBTYPE_DELIMITED, "");
    std::vector<std::string> names = host::tableNamesInUtf8(database);
    std::sort(names.begin(), names.end());
    mindLeftovers(std::filesystem::current_path(), directory);
    for (const std::string &name : names) {
        writeOut(invocation.has("--long") ? name + "\t" + describeTable(invocation, name) + "\n" : name + "\n");
    }
    return 0;
}

int runFields(const Invocation &invocation) {
    OpenTable open(invocation, invocation.operands()[0], Access::Read);
    IssuePrinter issues(open.file.label);
    CheckedWalk walk(open.table, open.file, open.format, issues.sink());
    const std::vector<std::string> &names = walk.names();
    for (uint16_t index = 0; index < names.size(); ++index) {
        std::string numbers = open.format.tagged ? numbersText(open.table.fieldNumbers(index)) : "";
        writeOut(std::to_string(index) + "\t" + names[index] + numbers + "\n");
    }
    if (!open.format.tagged) {
        std::string how;
        for (const auto &[setting, value] : host::describeFormat(open.format)) how += "; " + setting + " " + value;
        note(open.file.label, "read as delimited text" + how);
    }
    return 0;
}

int runDump(const Invocation &invocation) {
    OpenTable open(invocation, invocation.operands()[0], Access::Read);
    if (invocation.has("--reverse")) {
        writeBackward(invocation, open);
        return 0;
    }
    IssuePrinter issues(open.file.label);
    CheckedWalk walk(open.table, open.file, open.format, issues.sink());
    writeWalk(invocation, open, walk, nullptr, "dump");
    return 0;
}

int runFind(const Invocation &invocation) {
    OpenTable open(invocation, invocation.operands()[0], Access::Read);
    std::vector<std::string> patterns(invocation.operands().begin() + 1, invocation.operands().end());
    IssuePrinter issues(open.file.label);
    CheckedWalk walk(open.table, open.file, open.format, issues.sink());
    Example example(invocation, patterns, "NAME=PATTERN", walk.names(), open.file.label);
    writeWalk(invocation, open, walk, &example, "find");
    return 0;
}

int runInfo(const Invocation &invocation) {
    std::string operand = directoryOperand(invocation);
    std::error_code error;
    if (std::filesystem::is_directory(operand, error)) return databaseInfo(operand);
    return tableInfo(invocation);
}

}  // namespace mergedb::cli
