// The commands that only read: tables, fields, dump, find and info.
#include <algorithm>
#include <functional>
#include <memory>

#include "command_support.h"
#include "commands.h"
#include "output.h"

namespace tool {
namespace {

enum DatabaseItem : uint16_t {
    ITEM_PATH = 1,
    ITEM_SUBTYPE_NAME = 2,
    ITEM_PATH_SIZE = 3,
    ITEM_NAME_SIZE = 4,
    ITEM_VALUE_SIZE = 6,
    ITEM_OEM_OPTION = 15,
};

// The fields that a dump writes, by position, with their names.
struct Selection {
    std::vector<uint16_t> indexes;
    std::vector<std::string> names;
};

Selection selection(const Invocation &invocation, const Table &table) {
    Selection selection;
    std::vector<std::string> names = table.fieldNames();
    std::vector<std::string> wanted = invocation.values("--field");
    if (wanted.empty()) {
        for (uint16_t index = 0; index < names.size(); ++index) selection.indexes.push_back(index);
        selection.names = names;
    }
    for (const std::string &name : wanted) {
        uint16_t index = table.fieldIndex(invocation.text(name));
        selection.indexes.push_back(index);
        selection.names.push_back(names.at(index));
    }
    return selection;
}

std::unique_ptr<RecordWriter> recordWriter(const Invocation &invocation) {
    std::string format = invocation.value("--format").value_or("csv");
    std::unique_ptr<RecordWriter> writer = makeWriter(format, invocation.utf8(), !invocation.has("--no-header"));
    if (!writer) invocation.fail("unknown format '" + format + "'; csv, json or table");
    return writer;
}

// Writes the records that a walk visits: move(true) goes to the first,
// move(false) to each further one, and false ends the walk.
void writeWalk(RecordWriter &writer, Table &table, const Selection &fields, const std::string &label,
               const std::function<bool(bool first)> &move) {
    Progress progress(label, true);
    for (bool more = move(true); more; more = move(false)) {
        writer.record(table.values(fields.indexes));
        progress.tick();
    }
    writer.finish();
    table.close();
}

std::string describeTable(const Database &database, const std::string &name, const Delimiters &delimiters) {
    try {
        Table table(database, {"", name, name}, delimiters, Access::Read);
        std::string description =
            std::string(kindName(table.kind())) + "\t" + std::to_string(table.fieldCount()) + " fields";
        table.close();
        return description;
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
std::string subtypeLines(const Database &database, int subtype) {
    std::string lines = "subtype " + std::to_string(subtype) + ": " + database.textInfo(ITEM_SUBTYPE_NAME) + "\n";
    for (const auto &[kind, name] : database.tableKinds()) {
        lines += "  kind " + std::to_string(kind) + " (" + std::string(kindName(kind)) + "): " + name + "\n";
    }
    return lines;
}

}  // namespace

int runTables(const Invocation &invocation) {
    Delimiters delimiters = delimitersOf(invocation);
    Session session(invocation.utf8());
    Database database(session, DB_SUBTYPE_DELIMITED, invocation.operands()[0]);
    std::vector<std::string> names = database.tableNames();
    std::sort(names.begin(), names.end());
    for (const std::string &name : names) {
        std::string line = session.show(name);
        if (invocation.has("--long")) line += "\t" + describeTable(database, name, delimiters);
        writeOut(line + "\n");
    }
    return 0;
}

int runFields(const Invocation &invocation) {
    TableCommand command(invocation, Access::Read);
    std::vector<std::string> names = command.table.fieldNames();
    for (uint16_t index = 0; index < names.size(); ++index) {
        writeOut(std::to_string(index) + "\t" + command.session.show(names[index]) +
                 numbersText(command.table.fieldNumbers(index)) + "\n");
    }
    command.table.close();
    return 0;
}

int runDump(const Invocation &invocation) {
    std::unique_ptr<RecordWriter> writer = recordWriter(invocation);
    bool reverse = invocation.has("--reverse");
    TableCommand command(invocation, Access::Read);
    Table &table = command.table;
    Selection fields = selection(invocation, table);
    writer->header(fields.names);
    writeWalk(*writer, table, fields, "dump", [&table, reverse](bool first) {
        if (reverse) return first ? table.last() : table.previous();
        return first ? table.first() : table.next();
    });
    return 0;
}

int runFind(const Invocation &invocation) {
    std::unique_ptr<RecordWriter> writer = recordWriter(invocation);
    std::vector<std::string> patterns(invocation.operands().begin() + 1, invocation.operands().end());
    Example example = exampleOf(invocation, patterns, "NAME=PATTERN");
    TableCommand command(invocation, Access::Read);
    Table &table = command.table;
    requireStorable(invocation, command, example);
    Selection fields = selection(invocation, table);
    putExample(table, example);
    writer->header(fields.names);
    writeWalk(*writer, table, fields, "find",
              [&table, &example](bool first) { return table.find(first, example.blankRule); });
    return 0;
}

int runInfo(const Invocation &invocation) {
    Session session(invocation.utf8());
    const std::string &directory = invocation.operands()[0];
    Database tagged(session, DB_SUBTYPE_TAGGED, directory);
    Database text(session, DB_SUBTYPE_DELIMITED, directory);
    std::string lines = "database: " + text.textInfo(ITEM_PATH) + "\n" +
                        "data type: " + session.dataTypeName() + "\n" +
                        "path size: " + std::to_string(text.numberInfo<uint16_t>(ITEM_PATH_SIZE)) + "\n" +
                        "field name size: " + std::to_string(text.numberInfo<uint16_t>(ITEM_NAME_SIZE)) + "\n" +
                        "value size: " + std::to_string(text.numberInfo<uint16_t>(ITEM_VALUE_SIZE)) + "\n";
    lines += subtypeLines(tagged, DB_SUBTYPE_TAGGED) + subtypeLines(text, DB_SUBTYPE_DELIMITED);
    bool ansiOption = text.numberInfo<uint32_t>(ITEM_OEM_OPTION) != 0;
    writeOut(lines + "  option 1: " +
             (ansiOption ? "converts field text between the file's ANSI page and OEM (--ansi)" : "none") + "\n");
    return 0;
}

}  // namespace tool
