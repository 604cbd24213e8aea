// The commands that add, change and make records and tables: insert,
// update and create.
#include <charconv>
#include <map>
#include <set>

#include "commands.h"
#include "edit_support.h"
#include "line_end.h"
#include "match.h"
#include "open_table.h"
#include "output.h"

namespace mergedb::cli {
namespace {

using host::Access;
using host::CheckedWalk;
using host::Failure;
using host::recordSize;
using host::Stored;
using host::storedName;
using host::storedValue;

constexpr int MOST_FIELDS = 1000;

struct Change {
    uint16_t index;
    std::string name;
    std::string value;  // UTF-8, as given
    std::string bytes;  // as the table stores it
};

Change stored(const Invocation &invocation, const host::TableFormat &format, uint16_t index,
              const Assignment &assignment) {
    Stored value = storedValue(format, assignment.value, invocation.has("--lossy"));
    if (!value.problem.empty()) invocation.fail("the value for " + assignment.name + " " + refusalText(value));
    return {index, assignment.name, assignment.value, value.bytes};
}

std::vector<Change> changesOf(const Invocation &invocation, const std::vector<std::string> &names,
                              const host::TableFormat &format, const std::string &label,
                              const std::vector<Assignment> &given) {
    std::vector<Change> changes;
    for (const Assignment &assignment : given) {
        changes.push_back(stored(invocation, format, fieldIndex(names, assignment.name, label), assignment));
    }
    return changes;
}

// What an update would change in the current record.
std::string changeLine(CheckedWalk &walk, const std::vector<Change> &changes) {
    std::string line = whereText(walk) + ":";
    for (const Change &change : changes) {
        line += " " + change.name + " '" + walk.value(change.index) + "' -> '" + change.value + "'";
    }
    return line;
}

std::optional<int> fieldNumber(const std::string &name) {
    int number = 0;
    auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    if (error != std::errc() || end != name.data() + name.size() || number < 1 || number > MOST_FIELDS) {
        return std::nullopt;
    }
    return number;
}

// A delimited table without fields takes them from its first record. Read
// back, they are numbered from 1 by position, so the record holds the fields
// 1 up to the highest number named.
std::vector<std::string> putNumbered(const Invocation &invocation, OpenTable &open,
                                     const std::vector<Assignment> &given) {
    std::map<int, Change> values;
    for (const Assignment &assignment : given) {
        std::optional<int> number = fieldNumber(assignment.name);
        if (!number || open.format.header) {
            invocation.fail("the table has no fields yet: name them 1, 2, ... up to 1000 (no --header)");
        }
        values[*number] = stored(invocation, open.format, 0, assignment);
    }
    std::vector<std::string> image;
    for (int number = 1; number <= values.rbegin()->first; ++number) {
        auto value = values.find(number);
        image.push_back(value == values.end() ? "" : value->second.bytes);
        open.table.putByName(std::to_string(number), image.back());
    }
    return image;
}

// The names of a new table's fields, checked against what its head (or,
// in delimited text, its encoding) can hold.
std::vector<std::string> newFieldNames(const Invocation &invocation, uint16_t kind,
                                       const host::TableFormat &format) {
    std::vector<std::string> given = invocation.values("--field");
    if (kind != DB_KIND_DELIMITED && given.empty()) invocation.fail("a tagged document needs at least one --field");
    if (given.size() > MOST_FIELDS) invocation.fail("a table has at most 1000 fields");
    std::vector<std::string> names;
    std::set<std::string> seen;
    for (const std::string &argument : given) {
        Stored name =
            kind == DB_KIND_DELIMITED ? storedValue(format, argument, false) : storedName(kind, argument, false);
        if (!name.problem.empty()) invocation.fail("the field name '" + argument + "' " + refusalText(name));
        if (!seen.insert(folded(argument)).second) invocation.fail("the field name '" + argument + "' is given twice");
        names.push_back(name.bytes);
    }
    return names;
}

}  // namespace

// An insert appends to a table that reads whole, as the other edits change
// only such a table: a record behind an unclosed quote, say, would become
// part of that quote's value.
int runInsert(const Invocation &invocation) {
    std::vector<std::string> arguments(invocation.operands().begin() + 1, invocation.operands().end());
    std::vector<Assignment> values = invocation.assignments(arguments);
    LineEnd end;
    OpenTable open(invocation, invocation.operands()[0], Access::Write,
                   [&](host::TableFile &file, const host::TableFormat &format) {
                       end.mind(file, format, invocation.has("--fix-end"));
                   });
    host::Table &table = open.table;
    const std::string &label = open.file.label;
    bool empty = !open.format.tagged && table.fieldCount() == 0;
    if (empty && open.format.header) throw Failure(label, "has no header record yet to name its fields");
    IssuePrinter issues(label);
    CheckedWalk walk(table, open.file, open.format, issues.sink());
    while (walk.next()) {
    }
    requireWholeForEdit(label, walk);
    std::vector<Change> changes;
    if (!empty) changes = changesOf(invocation, walk.names(), open.format, label, values);
    table.clear();
    std::vector<std::string> image(empty ? 0 : table.fieldCount());
    if (empty) {
        image = putNumbered(invocation, open, values);
    } else {
        for (const Change &change : changes) {
            table.put(change.index, change.bytes);
            image[change.index] = change.bytes;
        }
    }
    if (recordSize(open.format, table.kind(), image) > host::LONGEST_RECORD) {
        throw Failure(label, "the new record would be longer than the " + std::to_string(host::LONGEST_RECORD) +
                                 " bytes of the longest record that the driver reads; nothing was changed");
    }
    table.insert();
    end.keep();
    table.close();
    report("inserted", 1);
    return 0;
}

int runUpdate(const Invocation &invocation) {
    std::vector<Assignment> sets = invocation.assignments(invocation.values("--set"));
    if (sets.empty()) invocation.fail("nothing to change: give --set NAME=VALUE");
    OpenTable open(invocation, invocation.operands()[0], Access::Write);
    const std::string &label = open.file.label;
    IssuePrinter issues(label);
    CheckedWalk walk(open.table, open.file, open.format, issues.sink());
    Example example(invocation, invocation.values("--where"), "--where NAME=PATTERN", walk.names(), label);
    std::vector<Change> changes = changesOf(invocation, walk.names(), open.format, label, sets);
    uint16_t kind = open.table.kind();
    std::vector<size_t> fitting;
    std::vector<std::string> preview;
    size_t records = 0;
    while (walk.next()) {
        ++records;
        if (!example.fits(walk)) continue;
        fitting.push_back(walk.number());
        std::vector<std::string> image;
        for (uint16_t i = 0; i < walk.fieldCount(); ++i) image.push_back(walk.bytes(i));
        for (const Change &change : changes) image[change.index] = change.bytes;
        if (recordSize(open.format, kind, image) > host::LONGEST_RECORD) {
            throw Failure(label, whereText(walk) + " would grow past the " + std::to_string(host::LONGEST_RECORD) +
                                     " bytes of the longest record that the driver reads; nothing was changed");
        }
        if (invocation.has("--dry-run")) preview.push_back(changeLine(walk, changes));
    }
    requireWholeForEdit(label, walk);
    requireChoice(invocation, label, fitting.size(), records);
    if (invocation.has("--dry-run")) {
        for (const std::string &line : preview) writeOut(line + "\n");
        report("would update", fitting.size());
        return 0;
    }
    auto next = fitting.begin();
    walkNumbers(open, [&](size_t number) {
        if (next == fitting.end() || *next != number) return;
        for (const Change &change : changes) open.table.put(change.index, change.bytes);
        open.table.update();
        ++next;
    });
    commitEdits(open);
    report("updated", fitting.size());
    return 0;
}

int runCreate(const Invocation &invocation) {
    uint16_t kind = requiredKind(invocation);
    host::TableFormat format = host::newDelimitedFormat(formatRequest(invocation));
    std::vector<std::string> names = newFieldNames(invocation, kind, format);
    host::TableFile file = host::plannedTable(invocation.operands()[0]);
    if (file.size != 0 || std::filesystem::exists(file.path)) {
        if (!invocation.has("--force")) throw Failure(file.label, "is there already; --force replaces it");
    }
    host::InDirectory here(file.directory(), file.label, true);
    host::Session session;
    uint16_t subtype = kind == DB_KIND_DELIMITED ? DB_SUBTYPE_DELIMITED : DB_SUBTYPE_TAGGED;
    host::Database database(session, subtype, "");
    database.create(file.driverName, file.label, kind, kind == DB_KIND_DELIMITED ? std::vector<std::string>{} : names);
    std::string made = "created " + file.label + ": ";
    if (kind != DB_KIND_DELIMITED) {
        writeOut(made + "a tagged document of dialect " + (kind == DB_KIND_TAGGED_1 ? "1" : "0") +
                 " with the fields " + joined(invocation.values("--field")) + "\n");
        return 0;
    }
    if (names.empty()) {
        writeOut(made + "an empty delimited text file; its first insert gives it its fields\n");
        return 0;
    }
    host::Table table(database, file.driverName, file.label, subtype, format.delimiters, Access::Write);
    table.clear();
    for (size_t i = 0; i < names.size(); ++i) table.putByName(std::to_string(i + 1), names[i]);
    table.insert();
    table.close();
    writeOut(made + "delimited text with a header record of the fields " + joined(invocation.values("--field")) +
             " (read it with --header)\n");
    return 0;
}

}  // namespace mergedb::cli
