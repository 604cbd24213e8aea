#include "commands.h"

#include <cstddef>
#include <initializer_list>
#include <limits>
#include <string_view>
#include <vector>

namespace mergedb::cli {
namespace {

using Options = std::vector<OptionSpec>;

constexpr size_t ANY = std::numeric_limits<size_t>::max();

Options join(std::initializer_list<Options> groups) {
    Options all;
    for (const Options &group : groups) all.insert(all.end(), group.begin(), group.end());
    return all;
}

const Options DELIMITED = {
    {"--field-delimiter", "S", "between fields of delimited text (found: , ; tab or |)"},
    {"--record-delimiter", "S", "ends a record of delimited text (found: \\r\\n, \\n or \\r)"},
    {"--quote", "S", "around delimited values; may be empty (default \")"},
    {"--ignore", "S", "dropped from delimited values outside quotes (default none)"},
    {"--encoding", "NAME", "utf8, cp1252 or cp437: delimited text's encoding (found)"},
    {"--header", "", "the first record of delimited text names the fields"},
};

const Options TARGET_DELIMITED = {
    {"--to-field-delimiter", "S", "the same for a delimited TARGET (default ,)"},
    {"--to-record-delimiter", "S", "the same for a delimited TARGET (default \\r\\n)"},
    {"--to-quote", "S", "the same for a delimited TARGET (default \")"},
    {"--to-ignore", "S", "the same for a delimited TARGET (default none)"},
    {"--to-encoding", "NAME", "the same for a delimited TARGET (default utf8)"},
};

const Options OUTPUT = {
    {"--format", "FORMAT", "csv (default), json (an object a line) or table"},
    {"--field", "NAME", "write this field; repeat for more, in the order wanted"},
    {"--no-header", "", "leave out the line of field names"},
};

const Options PARTIAL = {{"--partial", "", "succeed with the records that could be read"}};
const Options LOSSY = {{"--lossy", "", "'?' for each character that the table can't store"}};
const Options BLANK = {{"--blank", "NAME", "the field must be empty; repeat for more fields"}};
const Options WHERE = {{"--where", "NAME=PATTERN", "the field must fit the pattern; repeat for more"}};
const Options SAFE_EDIT = {
    {"--dry-run", "", "show what would change, and change nothing"},
    {"--all", "", "allow an example that fits every record"},
};
const Options FORCE = {{"--force", "", "replace a file that is there already"}};
const Options KIND = {{"--kind", "KIND", "tagged0, tagged1 (tagged documents) or text"}};

constexpr std::string_view TABLE_NOTE =
    "A table is named by the path of its file, - for standard input where a\n"
    "command only reads. A file that begins with the bytes FF 5A 52 4E is a\n"
    "tagged document, any other delimited text. A table that is a link is read\n"
    "and changed where the link leads.\n\n"
    "Of delimited text, the options name what they know; the rest is found by\n"
    "looking at the start of the file: CR LF, LF or CR between records, a comma,\n"
    "semicolon, tab or bar between fields, and UTF-8 unless the text is no valid\n"
    "UTF-8 (then Windows-1252 or code page 437, whichever reads as words).\n"
    "mergedb info TABLE shows what was taken. An S of the delimiter options may\n"
    "hold the escapes \\t, \\r, \\n, \\\\ and \\xNN.";

constexpr std::string_view TEXT_NOTE =
    "Text is written out as UTF-8, and NAME and VALUE arguments are taken as\n"
    "UTF-8 and stored in the table's encoding.";

constexpr std::string_view WHOLE_NOTE =
    "The command succeeds only when it read the whole table. A record that the\n"
    "driver can't read (too long, a quote that does not close, a damaged tagged\n"
    "record), one with more or fewer fields than the table, and bytes behind the\n"
    "last record delimiter are told on stderr with the record's number and byte\n"
    "offset, and the command then ends with status 1 unless --partial.";

constexpr std::string_view PATTERN_NOTE =
    "A pattern fits a value that equals it, ignoring the case of ASCII and\n"
    "Latin-1 letters. Each '*' in it stands for any run of characters, none too:\n"
    "'ab*' fits values that begin with ab, '*ller' values that end with ller,\n"
    "'*' every value. No other character is special.";

constexpr std::string_view EDIT_NOTE =
    "The whole table is read first, and nothing changes unless it reads whole. An\n"
    "example that fits every record of a table of more than one record needs\n"
    "--all. A commit renames the table to its backup name, the file name up to\n"
    "its first '.' and then .bk, writes it anew and removes the backup; see\n"
    "mergedb recover.";

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
                   "tables, sorted by name. With --long each is looked at and shown with its\n"
                   "kind (tagged0, tagged1 or text) and number of fields, or with the reason it\n"
                   "is no table. The temporary files of a rewrite or convert, mergedb-tmp-*, are\n"
                   "no tables; one whose process is gone is told on stderr, as by every command\n"
                   "that opens a table beside it.", TABLE_NOTE}),
         join({{{"--long", "", "show the kind and number of fields of each table"}}, DELIMITED}), runTables},
        {"fields", "TABLE", 1, 1, "list the fields of a table",
         describe({"Lists the fields of TABLE: the position (from 0), the name and, where the head\n"
                   "record gives them, the four numbers of the field. Delimited text names its\n"
                   "fields 1, 2, ... by position, or by its first record with --header.", TABLE_NOTE}),
         DELIMITED, runFields},
        {"dump", "TABLE", 1, 1, "write the records of a table",
         describe({"Writes every record of TABLE: as CSV (RFC 4180 quoting, lines end with LF)\n"
                   "with a first line of the field names where the table has names (a tagged\n"
                   "document, or --header), as JSON lines, or as a table for the terminal. A\n"
                   "JSON key is the field's name, and a name that an earlier field has already\n"
                   "gets _2 behind it (or _3, ..., the first that no field has). A long walk\n"
                   "shows its progress on stderr when that is a terminal.",
                   WHOLE_NOTE, TABLE_NOTE}),
         join({{{"--reverse", "", "walk from the last record to the first"}}, OUTPUT, PARTIAL, DELIMITED}), runDump},
        {"find", "TABLE NAME=PATTERN...", 1, ANY, "write the records that fit an example",
         describe({"Writes the records of TABLE whose fields fit all the patterns given, as dump\n"
                   "does.",
                   PATTERN_NOTE, WHOLE_NOTE, TABLE_NOTE}),
         join({BLANK, OUTPUT, PARTIAL, DELIMITED}), runFind},
        {"insert", "TABLE NAME=VALUE...", 2, ANY, "add a record",
         describe({"Adds a record with the values given; the other fields are empty. A delimited\n"
                   "table without fields gets the fields 1 up to the highest number named. The\n"
                   "whole table is read first, and nothing changes unless it reads whole. A\n"
                   "delimited file whose last record has no record delimiter is refused, since\n"
                   "the new record would join it; --fix-end adds the delimiter first.", TABLE_NOTE}),
         join({{{"--fix-end", "", "end the file's last record before the new one"}}, LOSSY, DELIMITED}), runInsert},
        {"update", "TABLE", 1, 1, "change the records that fit an example",
         describe({"Sets the fields of --set in every record whose fields fit the --where\n"
                   "patterns. The changes reach the file when the table is closed.",
                   PATTERN_NOTE, EDIT_NOTE, TABLE_NOTE}),
         join({WHERE, BLANK, {{"--set", "NAME=VALUE", "the new value of a field; repeat for more"}}, SAFE_EDIT, LOSSY,
               DELIMITED}),
         runUpdate},
        {"delete", "TABLE", 1, 1, "delete the records that fit an example",
         describe({"Deletes every record whose fields fit the --where patterns. The driver\n"
                   "rewrites a table at every 200th delete; 200 deletes or more are made in one\n"
                   "rewrite instead, which copies the other records byte for byte into a new\n"
                   "file that then takes the table's place.",
                   PATTERN_NOTE, EDIT_NOTE, TABLE_NOTE}),
         join({WHERE, BLANK, SAFE_EDIT, DELIMITED}), runDelete},
        {"create", "TABLE", 1, 1, "make a new table",
         describe({"Makes a new table. A tagged document gets a head that names the fields of\n"
                   "--field, in order: printable ASCII, at most 39 bytes each. Delimited text\n"
                   "starts as an empty file, or with a first record of the --field names, to be\n"
                   "read with --header."}),
         join({KIND, {{"--field", "NAME", "a field name; repeat for more"}}, FORCE,
               {DELIMITED.begin(), DELIMITED.begin() + 5}}),
         runCreate},
        {"convert", "SOURCE TARGET", 2, 2, "copy a table into a new table of another kind",
         describe({"Makes TARGET, a table of the kind of --kind with the fields and records of\n"
                   "SOURCE. The delimiter options read SOURCE, the --to- options write TARGET. A\n"
                   "delimited TARGET gets a first record of the field names where SOURCE has\n"
                   "names (a tagged document, or --header), unless --no-header. A tagged\n"
                   "document holds printable ASCII only: other characters stop the convert\n"
                   "unless --lossy. A failed convert leaves no TARGET.",
                   WHOLE_NOTE, TABLE_NOTE}),
         join({KIND, LOSSY, {{"--no-header", "", "no first record of field names in a delimited TARGET"}}, FORCE,
               PARTIAL, DELIMITED, TARGET_DELIMITED}),
         runConvert},
        {"info", "DIR|TABLE", 1, 1, "show how a table is read, or the driver's answers",
         describe({"Of a TABLE: its kind, size, how it is read (which delimiters and encoding\n"
                   "were given or found), its fields, its records, whether it reads whole, and\n"
                   "a leftover backup. Of a directory DIR: what the driver tells about the\n"
                   "database: its path, the data type, the sizes of paths, names and values,\n"
                   "and the subtypes with their table kinds.",
                   TABLE_NOTE}),
         DELIMITED, runInfo},
        {"recover", "TABLE", 1, 1, "finish or undo a commit that did not finish",
         describe({"A commit renames the table to its backup name, the file name up to its first\n"
                   "'.' and then .bk (contacts.txt has contacts.bk), writes the table anew from\n"
                   "it, and removes it. A backup beside a table means that a commit did not\n"
                   "finish. recover keeps the table only where it can show that the table is\n"
                   "the commit's whole result, which ends with the same bytes as the backup;\n"
                   "it then removes the backup. Otherwise it puts the backup back in the table's\n"
                   "place and keeps what stood there as TABLE.partial. A backup of another kind\n"
                   "of table (contacts.txt and contacts.doc share contacts.bk; a tagged backup\n"
                   "begins with FF 5A 52 4E) is left alone.",
                   TABLE_NOTE}),
         DELIMITED, runRecover},
        {"sql", "STATEMENTS", 1, 1, "run SQL over the tables of a directory",
         describe({"Runs the SQL statements (SQLite's SQL) over the tables of the directory of\n"
                   "--db, the current one by default. Each table is there under its file name\n"
                   "(\"contacts.doc\") and under its stem (contacts1) where no other table has the\n"
                   "same stem. Columns are the fields, values are text, and the rowid is the\n"
                   "record's place in the file. A query's rows are written as dump writes them.\n"
                   "INSERT, UPDATE and DELETE change the file when their transaction commits;\n"
                   "a statement that fails changes nothing.",
                   TABLE_NOTE}),
         join({{{"--db", "DIR", "the directory of the tables (default: the current one)"}},
               {OUTPUT.begin(), OUTPUT.begin() + 1}, {OUTPUT.begin() + 2, OUTPUT.end()}, DELIMITED}),
         runSql},
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
           "\nText goes out as UTF-8, and arguments are taken as UTF-8. Delimited text is\n"
           "read in its own encoding (found, or --encoding), tagged documents in the\n"
           "driver's code page 437.\n\n"
           "Exit status: 0 on success, 1 on a failure (with the driver's own message for\n"
           "an error of the driver) or a table that was not read whole, 2 on a usage\n"
           "error. mergedb COMMAND --help tells the options of a command.\n";
}

}  // namespace mergedb::cli
