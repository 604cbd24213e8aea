// The commands that change a table: insert, update, delete and create.
#include <cctype>
#include <charconv>
#include <map>
#include <set>

#include "command_support.h"
#include "commands.h"
#include "output.h"

namespace tool {
namespace {

// The driver rewrites and reopens a table at every 200th delete, which
// forgets the example and the place of a search.
constexpr size_t DELETES_PER_COMPACTION = 200;
constexpr int MOST_FIELDS = 1000;

struct Change {
    uint16_t index;
    std::string value;
};

std::vector<Change> changesOf(const Table &table, const std::vector<Assignment> &given) {
    std::vector<Change> changes;
    for (const Assignment &assignment : given) changes.push_back({table.fieldIndex(assignment.name), assignment.value});
    return changes;
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
void putNumbered(const Invocation &invocation, Table &table, const std::vector<Assignment> &given) {
    std::map<int, std::string> values;
    for (const Assignment &assignment : given) {
        std::optional<int> number = fieldNumber(assignment.name);
        if (!number) invocation.fail("the table has no fields yet; name them 1, 2, ... up to 1000");
        values[*number] = assignment.value;
    }
    for (int number = 1; number <= values.rbegin()->first; ++number) {
        auto value = values.find(number);
        table.putByName(std::to_string(number), value == values.end() ? "" : value->second);
    }
}

void report(const std::string &done, size_t count) { writeOut(done + " " + recordCount(count) + "\n"); }

std::string folded(std::string name) {
    for (char &c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return name;
}

// The names of --field, checked against what the head of the kind can hold.
std::vector<std::string> newFieldNames(const Invocation &invocation, uint16_t kind) {
    std::vector<std::string> given = invocation.values("--field");
    if (kind == DB_KIND_DELIMITED) {
        if (!given.empty()) invocation.fail("delimited text names its fields 1, 2, ... by position; give no --field");
        return {};
    }
    if (given.empty()) invocation.fail("a tagged document needs at least one --field");
    if (given.size() > MOST_FIELDS) invocation.fail("a table has at most 1000 fields");
    std::vector<std::string> names;
    std::set<std::string> seen;
    for (const std::string &argument : given) {
        std::string name = invocation.text(argument);
        if (std::optional<std::string> reason = unstorableName(kind, name)) {
            invocation.fail("the field name '" + argument + "' " + *reason);
        }
        if (!seen.insert(folded(name)).second) invocation.fail("the field name '" + argument + "' is given twice");
        names.push_back(name);
    }
    return names;
}

}  // namespace

int runInsert(const Invocation &invocation) {
    std::vector<std::string> arguments(invocation.operands().begin() + 1, invocation.operands().end());
    std::vector<Assignment> values = assignments(invocation, arguments);
    TableCommand command(invocation, Access::Write);
    Table &table = command.table;
    for (const Assignment &value : values) requireStorable(invocation, command, value.name, value.value);
    table.clear();
    if (table.kind() == DB_KIND_DELIMITED && table.fieldCount() == 0) {
        putNumbered(invocation, table, values);
    } else {
        for (const Change &change : changesOf(table, values)) table.put(change.index, change.value);
    }
    table.insert();
    table.close();
    report("inserted", 1);
    return 0;
}

int runUpdate(const Invocation &invocation) {
    Example example = exampleOf(invocation, invocation.values("--where"), "--where NAME=PATTERN");
    std::vector<Assignment> sets = assignments(invocation, invocation.values("--set"));
    if (sets.empty()) invocation.fail("nothing to change: give --set NAME=VALUE");
    TableCommand command(invocation, Access::Write);
    Table &table = command.table;
    requireStorable(invocation, command, example);
    for (const Assignment &set : sets) requireStorable(invocation, command, set.name, set.value);
    std::vector<Change> changes = changesOf(table, sets);
    putExample(table, example);
    Progress progress("update", false);
    for (bool found = table.find(true, example.blankRule); found; found = table.find(false, example.blankRule)) {
        for (const Change &change : changes) table.put(change.index, change.value);
        table.update();
        progress.tick();
    }
    table.close();
    report("updated", progress.count());
    return 0;
}

int runDelete(const Invocation &invocation) {
    Example example = exampleOf(invocation, invocation.values("--where"), "--where NAME=PATTERN");
    TableCommand command(invocation, Access::Write);
    Table &table = command.table;
    requireStorable(invocation, command, example);
    putExample(table, example);
    Progress progress("delete", false);
    bool first = true;
    while (table.find(first, example.blankRule)) {
        table.remove();
        progress.tick();
        first = progress.count() % DELETES_PER_COMPACTION == 0;
        if (first) putExample(table, example);
    }
    table.close();
    report("deleted", progress.count());
    return 0;
}

int runCreate(const Invocation &invocation) {
    KindChoice choice = requiredKind(invocation);
    std::vector<std::string> fields = newFieldNames(invocation, choice.kind);
    TablePlace place(invocation, choice.subtype);
    refuseExisting(invocation, place.database, place.path);
    place.database.create(place.path, choice.kind, fields);
    return 0;
}

}  // namespace tool
