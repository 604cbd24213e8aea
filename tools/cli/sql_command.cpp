// sql: SQL over the tables of a directory, through SQLite and the module
// mergedb (tools/sql), linked in. Every table is there under its file name,
// and under its stem where no other table has the same; results are
// written as dump writes records.
#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>

#include "commands.h"
#include "open_table.h"
#include "output.h"
#include "temporary_name.h"

extern "C" int sqlite3_mergedbsqlite_init(sqlite3 *db, char **error, const sqlite3_api_routines *api);

namespace mergedb::cli {
namespace {

using host::Failure;

class Connection {
public:
    Connection() {
        sqlite3_auto_extension(reinterpret_cast<void (*)()>(sqlite3_mergedbsqlite_init));
        if (sqlite3_open(":memory:", &db_) != SQLITE_OK) throw Failure("sql", "SQLite could not start");
    }
    ~Connection() { sqlite3_close(db_); }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;
    sqlite3 *get() const { return db_; }
    std::string error() const { return sqlite3_errmsg(db_); }

private:
    sqlite3 *db_ = nullptr;
};

std::string sqlQuoted(const std::string &text, char quote) {
    std::string out(1, quote);
    for (char c : text) out += c == quote ? std::string(2, c) : std::string(1, c);
    return out + quote;
}

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; });
    return text;
}

// The options of a delimited table, as the module takes them.
std::string moduleOptions(const Invocation &invocation) {
    std::string options;
    for (std::string_view option : host::formatOptionNames()) {
        std::optional<std::string> given = invocation.value("--" + std::string(option));
        if (!given) continue;
        std::string name(option);
        std::replace(name.begin(), name.end(), '-', '_');
        options += ", " + name + "=" + sqlQuoted(*given, '\'');
    }
    return options + (invocation.has("--header") ? ", header=yes" : "");
}

// The names that SQL gives each table: its file name, and its stem where
// that is no other table's name or stem (SQL names ignore case). A backup
// that a commit left (stem.bk) is no table's stem: the table keeps its stem
// beside it, and the backup goes only by its file name, so that a query of
// a table whose file is gone does not read its backup instead.
std::map<std::string, std::string> sqlNames(const std::vector<std::string> &files) {
    auto isBackup = [](const std::string &file) { return host::backupNameOf(file) == file; };
    std::map<std::string, size_t> stems;
    std::set<std::string> names;
    for (const std::string &file : files) {
        names.insert(lowered(file));
        if (!isBackup(file)) ++stems[lowered(std::filesystem::path(file).stem().string())];
    }
    std::map<std::string, std::string> tables;
    for (const std::string &file : files) {
        tables[file] = file;
        std::string stem = std::filesystem::path(file).stem().string();
        if (stem != file && !isBackup(file) && stems[lowered(stem)] == 1 && !names.contains(lowered(stem))) {
            tables[stem] = file;
        }
    }
    return tables;
}

class Tables {
public:
    Tables(const Invocation &invocation, Connection &connection) {
        std::string directory = invocation.value("--db").value_or(".");
        std::error_code error;
        if (!std::filesystem::is_directory(directory, error)) throw Failure(directory, "there is no such directory");
        host::Session session;
        host::Database database(session, DB_SUBTYPE_DELIMITED, host::driverName(directory, directory));
        std::vector<std::string> files = host::tableNamesInUtf8(database);
        std::string options = moduleOptions(invocation);
        for (const auto &[name, file] : sqlNames(files)) {
            std::string path = invocation.has("--db") ? (std::filesystem::path(directory) / file).string() : file;
            std::string create = "CREATE VIRTUAL TABLE temp." + sqlQuoted(name, '"') + " USING mergedb(" +
                                 sqlQuoted(path, '\'') + options + ")";
            if (sqlite3_exec(connection.get(), create.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
                refused_[lowered(name)] = connection.error();
            } else if (host::TableFile table = host::locateTable(path); table.backupPresent) {
                besideBackup_.emplace(lowered(name), std::move(table));
            }
        }
        sqlite3_set_authorizer(connection.get(), gatherReads, this);
    }
    // An error of SQLite, with the reason why a table it did not find was
    // left out.
    std::string explained(const std::string &error) const {
        const std::string missing = "no such table: ";
        if (!error.starts_with(missing)) return error;
        std::string name = error.substr(missing.size());
        if (name.starts_with("temp.")) name.erase(0, 5);
        auto found = refused_.find(lowered(name));
        return found == refused_.end() ? error : error + " (" + found->second + ")";
    }

    // Says on stderr, once for each table beside a backup that a prepared
    // statement reads, that the backup lies there, as the tool's other
    // reading commands do. A statement that changes a table is refused
    // with its own message beside a backup.
    void noteReads(sqlite3_stmt *statement) {
        for (const std::string &name : read_) {
            auto found = besideBackup_.find(name);
            if (found == besideBackup_.end() || !sqlite3_stmt_readonly(statement)) continue;
            host::guard([&found] { mindBackup(found->second, host::Access::Read); });
            // Once for the file, whichever of its names the query used.
            std::filesystem::path noted = found->second.path;
            std::erase_if(besideBackup_, [&noted](const auto &entry) { return entry.second.path == noted; });
        }
        read_.clear();
    }

private:
    // Gathers the tables that a statement reads: SQLite asks while it
    // prepares the statement.
    static int gatherReads(void *self, int action, const char *name, const char *, const char *, const char *) {
        if (action == SQLITE_READ && name != nullptr) static_cast<Tables *>(self)->read_.insert(lowered(name));
        return SQLITE_OK;
    }

    std::map<std::string, std::string> refused_;
    std::map<std::string, host::TableFile> besideBackup_;  // by lowered SQL name, until noted
    std::set<std::string> read_;                           // by the statement being prepared
};

// The output format, and the options of the tables, checked before any
// statement runs, so that a usage error changes nothing.
void checkOptions(const Invocation &invocation) {
    formatRequest(invocation);
    formatWriter(invocation, false);
}

// Runs one statement, writing the rows of a query.
void runStatement(const Invocation &invocation, Connection &connection, const Tables &tables,
                  sqlite3_stmt *statement) {
    int columns = sqlite3_column_count(statement);
    std::unique_ptr<RecordWriter> writer;
    if (columns > 0) {
        writer = formatWriter(invocation, !invocation.has("--no-header"));
        std::vector<std::string> names;
        for (int i = 0; i < columns; ++i) names.emplace_back(sqlite3_column_name(statement, i));
        writer->header(names);
    }
    int result = SQLITE_ROW;
    while ((result = sqlite3_step(statement)) == SQLITE_ROW) {
        std::vector<std::string> values;
        for (int i = 0; i < columns; ++i) {
            const auto *text = reinterpret_cast<const char *>(sqlite3_column_text(statement, i));
            values.emplace_back(text == nullptr ? "" : text);
        }
        writer->record(values);
    }
    if (writer) writer->finish();
    if (result != SQLITE_DONE) throw std::runtime_error(tables.explained(connection.error()));
}

}  // namespace

int runSql(const Invocation &invocation) {
    checkOptions(invocation);
    Connection connection;
    Tables tables(invocation, connection);
    const std::string &text = invocation.operands()[0];
    const char *rest = text.c_str();
    while (*rest != '\0') {
        sqlite3_stmt *statement = nullptr;
        if (sqlite3_prepare_v2(connection.get(), rest, -1, &statement, &rest) != SQLITE_OK) {
            throw std::runtime_error(tables.explained(connection.error()));
        }
        if (statement == nullptr) continue;  // only a comment or blanks were left
        std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt *)> owned(statement, sqlite3_finalize);
        tables.noteReads(statement);
        runStatement(invocation, connection, tables, statement);
    }
    return 0;
}

}  // namespace mergedb::cli
