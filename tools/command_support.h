// What several commands share: naming and opening tables from the command
// line, examples for searches, and the test whether a text can be stored.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "arguments.h"
#include "driver.h"

namespace tool {

// Refused by the table name rules of the driver: at most 15 characters
// before the extension, 11 with the point after it, and plain ASCII, which
// passes the driver's code page conversion of paths unchanged.
TablePath tablePath(const Invocation &invocation, const std::string &argument);

// The delimiter options whose names begin with prefix, "--" or "--to-".
Delimiters delimitersOf(const Invocation &invocation, std::string_view prefix = "--");

// Makes the table's directory the current one, after the driver has checked
// it. Tables are opened from there by their bare file name, so the backup
// that the driver makes at commit, named from the first "." of the path,
// lies beside the table whatever the directory's path holds.
void enterDirectory(const Session &session, const TablePath &path);

// A command's session with the database of the table of its first
// operand, in the table's directory.
struct TablePlace {
    explicit TablePlace(const Invocation &invocation, uint16_t subtype = DB_SUBTYPE_DELIMITED);

    Session session;
    TablePath path;
    Delimiters delimiters;
    Database database;
};

// The same with the table open.
struct TableCommand : TablePlace {
    TableCommand(const Invocation &invocation, Access access);

    Table table;
};

struct KindChoice {
    uint16_t subtype;
    uint16_t kind;
};

// The table kind of --kind.
KindChoice requiredKind(const Invocation &invocation);

// A search by example: each field must fit its pattern, or be empty when it
// has none.
struct Criterion {
    std::string field;
    std::optional<std::string> pattern;
};

struct Example {
    std::vector<Criterion> criteria;
    bool blankRule = false;
};

// NAME=PATTERN arguments and the --blank options; at least one. patternForm
// names the arguments in the message when there is none.
Example exampleOf(const Invocation &invocation, const std::vector<std::string> &patterns, std::string_view patternForm);
void putExample(Table &table, const Example &example);

std::vector<Assignment> assignments(const Invocation &invocation, const std::vector<std::string> &arguments);

// Why a value can't be stored in a table of that kind and read back the same,
// or nothing when it can.
std::optional<std::string> unstorable(uint16_t kind, const Delimiters &delimiters, std::string_view value);
std::optional<std::string> unstorableName(uint16_t kind, std::string_view name);
// A usage error for an argument that the table can't store.
void requireStorable(const Invocation &invocation, const TableCommand &command, const std::string &name,
                     const std::string &value);
void requireStorable(const Invocation &invocation, const TableCommand &command, const Example &example);

// A failure when the table's file is there already and --force was not given.
void refuseExisting(const Invocation &invocation, const Database &database, const TablePath &path);

}  // namespace tool
