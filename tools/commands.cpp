#include "commands.h"

#include <cstddef>
#include <initializer_list>
#include <limits>
#include <string_view>
#include <vector>

namespace tool {
namespace {

using Options = std::vector<OptionSpec>;

constexpr size_t ANY = std::numeric_limits<size_t>::max();

Options join(std::initializer_list<Options> groups) {
    Options all;
    for (const Options &group : groups) all.insert(all.end(), group.begin(), group.end());
    return all;
}

const Options TEXT = {
    {"--utf8", "", "UTF-8 for output and for NAME and VALUE arguments"},
};

const Options DELIMITED = {
    {"--field-delimiter", "S", "between fields of delimited text (default ,)"},
    {"--record-delimiter", "S", "ends a record of delimited text (default \\r\\n)"},
    {"--quote", "S", "around delimited values; may be empty (default \")"},
    {"--ignore", "S", "dropped from values outside quotes (default none)"},
    {"--ansi", "", "the delimited file holds Windows-1252 text"},
};

const Options TARGET_DELIMITED = {
    {"--to-field-delimiter", "S", "the same for a delimited TARGET"},
    {"--to-record-delimiter", "S", "the same for a delimited TARGET"},
    {"--to-quote", "S", "the same for a delimited TARGET"},
    {"--to-ignore", "S", "the same for a delimited TARGET"},
    {"--to-ansi", "", "the same for a delimited TARGET"},
};

const Options OUTPUT = {
    {"--format", "FORMAT", "csv (default), json (an object a line) or table"},
    {"--field", "NAME", "write this field; repeat for more, in the order wanted"},
    {"--no-header", "", "leave out the line of field names"},
};

const Options BLANK = {{"--blank", "NAME", "the field must be empty; repeat for more fields"}};
const Options WHERE = {{"--where", "NAME=PATTERN", "the field must fit the pattern; repeat for more"}};
const Options FORCE = {{"--force", "", "replace a file that is there already"}};
const Options KIND = {{"--kind", "KIND", "tagged0, tagged1 (tagged documents) or text"}};

constexpr std::string_view TABLE_NOTE =
    "A table is named by the path of its file: a tagged document when the file\n"
    "begins with the bytes FF 5A 52 4E, delimited text otherwise. An S of the\n"
    "delimiter options may hold the escapes \\t, \\r, \\n, \\\\ and \\xNN.";

constexpr std::string_view TEXT_NOTE =
    "Text goes out byte for byte in code page 437, as the driver gives it, and\n"
    "names and values are handed to the driver as given, unless --utf8.";

constexpr std::string_view PATTERN_NOTE =
    "A pattern fits a value that equals it, ignoring case. A '*' asks for a prefix:\n"
    "the value must begin with what stands in front of the first '*'.";

// The paragraphs of a command's help, with the note on text last.
std::string describe(std::initializer_list<std::string_view> paragraphs) {
    std::string text;
    for (std::string_view paragraph : paragraphs) text += std::string(paragraph) + "\n\n";
    return text + std::string(TEXT_NOTE);
}

std::vector<CommandSpec> makeCommands() {
    return {
        {"tables", "DIR", 1, 1, "list the tables of a database",
         describe({"Lists the files of the database in directory DIR that the driver offers as\n"
                   "tables, sorted by name. With --long each is opened and shown with its kind\n"
                   "(tagged0, tagged1 or text) and number of fields.", TABLE_NOTE}),
         join({{{"--long", "", "show the kind and number of fields of each table"}}, DELIMITED, TEXT}), runTables},
        {"fields", "TABLE", 1, 1, "list the fields of a table",
         describe({"Lists the fields of TABLE: the position (from 0), the name and, where the head\n"
                   "record gives them, the four numbers of the field. Delimited text names its\n"
                   "fields 1, 2, ... by position.", TABLE_NOTE}),
         join({DELIMITED, TEXT}), runFields},
        {"dump", "TABLE", 1, 1, "write the records of a table",
         describe({"Writes every record of TABLE: as CSV with a first line of field names\n"
                   "(RFC 4180 quoting, lines end with LF), as JSON lines, which are always UTF-8,\n"
                   "or as a table for the terminal. A long walk shows its progress on stderr\n"
                   "when that is a terminal.", TABLE_NOTE}),
         join({{{"--reverse", "", "walk from the last record to the first"}}, OUTPUT, DELIMITED, TEXT}), runDump},
        {"find", "TABLE NAME=PATTERN...", 1, ANY, "write the records that fit an example",
         describe({"Writes the records of TABLE whose fields fit all the patterns given, as dump\n"
                   "does.",
                   PATTERN_NOTE, TABLE_NOTE}),
         join({BLANK, OUTPUT, DELIMITED, TEXT}), runFind},
        {"insert", "TABLE NAME=VALUE...", 2, ANY, "add a record",
         describe({"Adds a record with the values given; the other fields are empty. A delimited\n"
                   "table without fields gets the fields 1 up to the highest number named.", TABLE_NOTE}),
         join({DELIMITED, TEXT}), runInsert},
        {"update", "TABLE", 1, 1, "change the records that fit an example",
         describe({"Sets the fields of --set in every record whose fields fit the --where\n"
                   "patterns. The changes reach the file when the table is closed.",
                   PATTERN_NOTE, TABLE_NOTE}),
         join({WHERE, BLANK, {{"--set", "NAME=VALUE", "the new value of a field; repeat for more"}}, DELIMITED,
               TEXT}),
         runUpdate},
        {"delete", "TABLE", 1, 1, "delete the records that fit an example",
         describe({"Deletes every record whose fields fit the --where patterns.", PATTERN_NOTE, TABLE_NOTE}),
         join({WHERE, BLANK, DELIMITED, TEXT}), runDelete},
        {"create", "TABLE", 1, 1, "make a new table",
         describe({"Makes a new table. A tagged document gets a head that names the fields of\n"
                   "--field, in order: printable ASCII, at most 39 bytes each. Delimited text\n"
                   "starts as an empty file; its fields are named 1, 2, ... and come with its\n"
                   "first insert."}),
         join({KIND, {{"--field", "NAME", "a field of a tagged document; repeat for more"}}, FORCE, TEXT}),
         runCreate},
        {"convert", "SOURCE TARGET", 2, 2, "copy a table into a new table of another kind",
         describe({"Makes TARGET, a table of the kind of --kind with the fields and records of\n"
                   "SOURCE. The delimiter options read SOURCE, the --to- options write TARGET. A\n"
                   "tagged document holds printable ASCII only: other characters stop the convert\n"
                   "unless --lossy puts '?' in their place. A failed convert leaves no TARGET.", TABLE_NOTE}),
         join({KIND, {{"--lossy", "", "'?' for characters a tagged document can't hold"}}, FORCE,
               DELIMITED, TARGET_DELIMITED, TEXT}),
         runConvert},
        {"info", "DIR", 1, 1, "show the driver's answers about a database",
         describe({"Shows what the driver tells about the database in directory DIR: its path,\n"
                   "the data type, the sizes of paths, names and values, the subtypes with\n"
                   "their table kinds, and the option of delimited text."}),
         TEXT, runInfo},
        {"recover", "TABLE", 1, 1, "put back a table that a failed commit left as its backup",
         describe({"A commit renames the table to its backup name, the file name up to its first\n"
                   "'.' and then .bk (contacts.txt has contacts.bk), and writes the table anew.\n"
                   "When that fails, the old table stays under the backup name. recover puts it\n"
                   "back when the table is missing, or when the table does not read to its end\n"
                   "while the backup does and is larger. A table that reads whole is never\n"
                   "replaced. The tool opens a table from inside its directory, so the backup\n"
                   "lies beside the table.", TABLE_NOTE}),
         join({DELIMITED, TEXT}), runRecover},
    };
}

}  // namespace

std::span<const CommandSpec> commandList() {
    static const std::vector<CommandSpec> commands = makeCommands();
    return commands;
}

std::string overview() {
    std::string text =
        "Usage: mergedb COMMAND ARGUMENTS [options]\n\n"
        "Reads and changes the tables of the mergedb driver: tagged documents and\n"
        "delimited text files.\n\nCommands:\n";
    for (const CommandSpec &command : commandList()) {
        text += "  " + std::string(command.name) + std::string(10 - command.name.size(), ' ') +
                std::string(command.summary) + "\n";
    }
    return text +
           "\nText: the driver speaks code page 437. Values, names and messages are written\n"
           "byte for byte as the driver gives them, and arguments are handed to it as they\n"
           "are; --utf8 converts both ways. JSON is always UTF-8.\n\n"
           "Exit status: 0 on success, 1 on a failure (with the driver's own message for\n"
           "an error of the driver), 2 on a usage error.\n"
           "mergedb COMMAND --help tells the options of a command.\n";
}

}  // namespace tool
