#include "command_support.h"

#include <algorithm>
#include <filesystem>

namespace tool {
namespace {

constexpr size_t LONGEST_BASE_NAME = 15;
constexpr size_t LONGEST_EXTENSION = 11;  // the point included
constexpr size_t LONGEST_FIELD_NAME = 39;
constexpr size_t LONGEST_VALUE = 31999;  // the text that one put can store
constexpr std::string_view TAGGED_TEXT_ONLY =
    "holds characters other than printable ASCII, which a tagged document can't store";

bool printable(char c) { return c >= ' ' && c <= '~'; }

bool allPrintable(std::string_view text) { return std::all_of(text.begin(), text.end(), printable); }

Database databaseIn(const Session &session, const TablePath &path, uint16_t subtype) {
    enterDirectory(session, path);
    return Database(session, subtype, "");
}

struct DelimiterOption {
    std::string_view name;
    std::string Delimiters::*member;
    size_t longest;
    bool mayBeEmpty;
};

constexpr DelimiterOption DELIMITER_OPTIONS[] = {
    {"field-delimiter", &Delimiters::field, 20, false},
    {"record-delimiter", &Delimiters::record, 20, false},
    {"quote", &Delimiters::quote, 4, true},
    {"ignore", &Delimiters::ignore, 20, true},
};

// A quoted value reads back split where a quote touches a string that
// closes the quote: the scanner looks at the byte behind a quote, the
// backward walk at the byte in front of it.
bool quoteTouchesDelimiter(const Delimiters &delimiters, std::string_view value, size_t at) {
    auto opensString = [&delimiters](char c) {
        return c == delimiters.field.front() || c == delimiters.record.front() ||
               (!delimiters.ignore.empty() && c == delimiters.ignore.front());
    };
    auto closesString = [&delimiters](char c) {
        return c == delimiters.field.back() || c == delimiters.record.back() ||
               (!delimiters.ignore.empty() && c == delimiters.ignore.back());
    };
    size_t after = at + delimiters.quote.size();
    return (after < value.size() && opensString(value[after])) || (at > 0 && closesString(value[at - 1]));
}

}  // namespace

TablePath tablePath(const Invocation &invocation, const std::string &argument) {
    std::filesystem::path path(argument);
    std::string name = path.filename().string();
    if (name.empty() || name == "." || name == "..") invocation.fail("'" + argument + "' names no table file");
    if (!allPrintable(name)) invocation.fail("the table name '" + name + "' is not plain ASCII");
    size_t point = name.rfind('.');
    size_t base = point == std::string::npos ? name.size() : point;
    if (base > LONGEST_BASE_NAME || name.size() - base > LONGEST_EXTENSION) {
        invocation.fail("the table name '" + name + "' is too long: at most 15 characters, a point and 10 more");
    }
    return {path.parent_path().string(), name, argument};
}

Delimiters delimitersOf(const Invocation &invocation, std::string_view prefix) {
    Delimiters delimiters;
    for (const DelimiterOption &option : DELIMITER_OPTIONS) {
        std::string name = std::string(prefix) + std::string(option.name);
        std::optional<std::string> given = invocation.value(name);
        if (!given) continue;
        std::optional<std::string> bytes = unescape(*given);
        if (!bytes) invocation.fail(name + " '" + *given + "' has a bad escape; use \\t, \\r, \\n, \\\\ or \\xNN");
        if (bytes->empty() && !option.mayBeEmpty) invocation.fail(name + " can't be empty");
        if (bytes->size() > option.longest) {
            invocation.fail(name + " takes at most " + std::to_string(option.longest) + " bytes");
        }
        delimiters.*option.member = *bytes;
    }
    delimiters.ansi = invocation.has(std::string(prefix) + "ansi");
    return delimiters;
}

void enterDirectory(const Session &session, const TablePath &path) {
    if (path.directory.empty()) return;
    Database check(session, DB_SUBTYPE_DELIMITED, path.directory);
    std::error_code error;
    std::filesystem::current_path(path.directory, error);
    if (error) throw Failure(path.directory, error.message());
}

TablePlace::TablePlace(const Invocation &invocation, uint16_t subtype)
    : session(invocation.utf8()),
      path(tablePath(invocation, invocation.operands()[0])),
      delimiters(delimitersOf(invocation)),
      database(databaseIn(session, path, subtype)) {}

TableCommand::TableCommand(const Invocation &invocation, Access access)
    : TablePlace(invocation), table(database, path, delimiters, access) {}

KindChoice requiredKind(const Invocation &invocation) {
    std::optional<std::string> name = invocation.value("--kind");
    if (!name) invocation.fail("missing --kind");
    if (*name == "tagged0") return {DB_SUBTYPE_TAGGED, DB_KIND_TAGGED_0};
    if (*name == "tagged1") return {DB_SUBTYPE_TAGGED, DB_KIND_TAGGED_1};
    if (*name == "text") return {DB_SUBTYPE_DELIMITED, DB_KIND_DELIMITED};
    invocation.fail("unknown kind '" + *name + "'; tagged0, tagged1 or text");
}

Example exampleOf(const Invocation &invocation, const std::vector<std::string> &patterns,
                  std::string_view patternForm) {
    Example example;
    for (const Assignment &given : assignments(invocation, patterns)) {
        if (given.value.empty()) {
            invocation.fail("an empty pattern for " + given.name + "; --blank asks for an empty field");
        }
        example.criteria.push_back({given.name, given.value});
    }
    for (const std::string &name : invocation.values("--blank")) {
        example.criteria.push_back({invocation.text(name), std::nullopt});
        example.blankRule = true;
    }
    if (example.criteria.empty()) {
        invocation.fail("nothing to look for: give " + std::string(patternForm) + " or --blank NAME");
    }
    return example;
}

void putExample(Table &table, const Example &example) {
    table.clear();
    for (const Criterion &criterion : example.criteria) {
        uint16_t index = table.fieldIndex(criterion.field);
        if (criterion.pattern) {
            table.put(index, *criterion.pattern);
        } else {
            table.putBlank(index);
        }
    }
}

std::vector<Assignment> assignments(const Invocation &invocation, const std::vector<std::string> &arguments) {
    std::vector<Assignment> all;
    for (const std::string &argument : arguments) all.push_back(invocation.assignment(argument));
    return all;
}

std::optional<std::string> unstorable(uint16_t kind, const Delimiters &delimiters, std::string_view value) {
    if (value.size() > LONGEST_VALUE) return "is longer than 31999 bytes";
    if (kind != DB_KIND_DELIMITED) {
        if (allPrintable(value)) return std::nullopt;
        return std::string(TAGGED_TEXT_ONLY);
    }
    if (delimiters.quote.empty()) {
        for (const std::string *text : {&delimiters.field, &delimiters.record, &delimiters.ignore}) {
            if (!text->empty() && value.find(*text) != std::string_view::npos) {
                return "holds a delimiter or the ignored string, and the table has no quote to protect it";
            }
        }
        return std::nullopt;
    }
    for (size_t at = value.find(delimiters.quote); at != std::string_view::npos;
         at = value.find(delimiters.quote, at + 1)) {
        if (quoteTouchesDelimiter(delimiters, value, at)) {
            return "holds a quote next to a delimiter, which would split it";
        }
    }
    return std::nullopt;
}

std::optional<std::string> unstorableName(uint16_t kind, std::string_view name) {
    if (name.empty()) return "is empty";
    if (name.size() > LONGEST_FIELD_NAME) return "is longer than 39 bytes";
    if (!allPrintable(name)) return std::string(TAGGED_TEXT_ONLY);
    if (kind == DB_KIND_TAGGED_1 && name.find('~') != std::string_view::npos) {
        return "holds a '~', which ends a name in a dialect 1 head";
    }
    return std::nullopt;
}

void requireStorable(const Invocation &invocation, const TableCommand &command, const std::string &name,
                     const std::string &value) {
    if (std::optional<std::string> reason = unstorable(command.table.kind(), command.delimiters, value)) {
        invocation.fail("the value for " + command.session.show(name) + " " + *reason);
    }
}

void requireStorable(const Invocation &invocation, const TableCommand &command, const Example &example) {
    for (const Criterion &criterion : example.criteria) {
        if (criterion.pattern) requireStorable(invocation, command, criterion.field, *criterion.pattern);
    }
}

void refuseExisting(const Invocation &invocation, const Database &database, const TablePath &path) {
    if (!invocation.has("--force") && database.exists(path.name)) {
        throw Failure(path.label, "is there already; --force replaces it");
    }
}

}  // namespace tool
