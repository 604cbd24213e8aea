#include "module.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "commit.h"
#include "transaction.h"
#include "failure.h"
#include "json_text.h"
#include "pending.h"
#include "plan.h"
#include "scans.h"
#include "source.h"

namespace mergedb::sql {
namespace {

constexpr const char *MODULE_NAME = "mergedb";
constexpr double BYTES_PER_RECORD = 100;  // for the planner's estimates
constexpr double LARGEST_ROWID = 0x1p63;  // rowids lie below it
// The table-valued function: a record as JSON, then its arguments.
constexpr int FUNCTION_RECORD = 0;
constexpr int FUNCTION_PATH = 1;
constexpr int FUNCTION_OPTIONS = 6;
constexpr const char *FUNCTION_SCHEMA =
    "CREATE TABLE x(record TEXT, path HIDDEN, option1 HIDDEN, option2 HIDDEN, option3 HIDDEN, option4 HIDDEN, "
    "option5 HIDDEN, option6 HIDDEN)";

std::recursive_mutex &driverLock() {
    static std::recursive_mutex lock;
    return lock;
}

struct Table : sqlite3_vtab, TableChanges {
    explicit Table(Transaction &transaction) : transaction(transaction) {}
    ~Table() {
        transaction.leave(*this);
        held.reset();  // before the source whose database it is open in
    }
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;

    Transaction &transaction;        // of the table's connection
    std::unique_ptr<Source> owned;   // none for the table-valued function
    std::vector<std::string> columns;
};

struct Cursor : sqlite3_vtab_cursor {
    Table &table() const { return *static_cast<Table *>(pVtab); }

    std::unique_ptr<Source> ownSource;  // the function's table
    Source *source = nullptr;
    std::vector<std::string> arguments;  // the function's, by hidden column
    std::vector<std::string> recordKeys;  // the function's record column's, as JSON
    std::unique_ptr<FileScan> scan;
    bool backward = false;
    bool jump = false;
    uint64_t jumpRowid = 0;
    bool editsFile = false;
    // The transaction's inserted records, in the scan's order, and those
    // still to come.
    std::vector<std::pair<uint64_t, std::vector<std::string>>> inserted;
    size_t nextInserted = 0;
    bool insertedFirst = false;
    // The current row: from the file, or with the transaction's values.
    bool eof = true;
    std::optional<uint64_t> rowid;
    std::optional<std::vector<std::string>> values;
};

// Runs body under the driver's lock; a failure becomes the table's error
// message and SQLITE_ERROR.
template <typename Body>
int run(sqlite3_vtab *table, Body &&body) {
    std::lock_guard<std::recursive_mutex> lock(driverLock());
    std::optional<std::string> failure = host::guard(std::forward<Body>(body));
    if (!failure) return SQLITE_OK;
    sqlite3_free(table->zErrMsg);
    table->zErrMsg = sqlite3_mprintf("%s", failure->c_str());
    return SQLITE_ERROR;
}

std::string quotedName(const std::string &name) {
    std::string quoted = "\"";
    for (char c : name) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

std::string schemaOf(const std::vector<std::string> &columns) {
    std::string schema = "CREATE TABLE x(";
    for (size_t i = 0; i < columns.size(); ++i) schema += (i == 0 ? "" : ", ") + quotedName(columns[i]) + " TEXT";
    return schema + ")";
}

std::string textOf(sqlite3_value *value) {
    const auto *text = reinterpret_cast<const char *>(sqlite3_value_text(value));
    return text == nullptr ? "" : std::string(text, static_cast<size_t>(sqlite3_value_bytes(value)));
}

int connect(sqlite3 *db, void *transaction, int argc, const char *const *argv, sqlite3_vtab **made, char **error) {
    std::lock_guard<std::recursive_mutex> lock(driverLock());
    auto table = std::make_unique<Table>(*static_cast<Transaction *>(transaction));
    std::string schema = FUNCTION_SCHEMA;
    std::optional<std::string> failure = host::guard([&] {
        if (argc <= 3 && std::string_view(argv[2]) == MODULE_NAME) return;  // the table-valued function
        std::vector<std::string> arguments(argv + 3, argv + argc);
        table->owned = std::make_unique<Source>(parseArguments(arguments));
        table->source = table->owned.get();
        table->columns = table->source->columnNames();
        table->transaction.join(*table);
        schema = schemaOf(table->columns);
    });
    if (failure) {
        *error = sqlite3_mprintf("%s", failure->c_str());
        return SQLITE_ERROR;
    }
    int result = sqlite3_declare_vtab(db, schema.c_str());
    if (result != SQLITE_OK) return result;
    *made = table.release();
    return SQLITE_OK;
}

int disconnect(sqlite3_vtab *table) {
    std::lock_guard<std::recursive_mutex> lock(driverLock());
    delete static_cast<Table *>(table);
    return SQLITE_OK;
}

// The function needs its path; each argument given goes to xFilter, and
// idxNum tells which were given.
int functionPlan(sqlite3_index_info *info) {
    int given = 0;
    int count = 0;
    for (int column = FUNCTION_PATH; column <= FUNCTION_PATH + FUNCTION_OPTIONS; ++column) {
        for (int i = 0; i < info->nConstraint; ++i) {
            const auto &constraint = info->aConstraint[i];
            if (constraint.iColumn != column || constraint.op != SQLITE_INDEX_CONSTRAINT_EQ) continue;
            if (!constraint.usable) return SQLITE_CONSTRAINT;
            info->aConstraintUsage[i].argvIndex = ++count;
            info->aConstraintUsage[i].omit = 1;
            given |= 1 << column;
            break;
        }
    }
    if ((given & (1 << FUNCTION_PATH)) == 0) return SQLITE_CONSTRAINT;
    info->idxNum = given;
    info->estimatedCost = 1e6;
    return SQLITE_OK;
}

int bestIndex(sqlite3_vtab *vtab, sqlite3_index_info *info) {
    Table &table = *static_cast<Table *>(vtab);
    if (!table.source) return functionPlan(info);
    return run(vtab, [&] {
        double records = 1 + static_cast<double>(table.source->file().size) / BYTES_PER_RECORD;
        choosePlan(info, table.columns, records);
    });
}

int open(sqlite3_vtab *, sqlite3_vtab_cursor **made) {
    *made = new Cursor();
    return SQLITE_OK;
}

int close(sqlite3_vtab_cursor *cursor) {
    std::lock_guard<std::recursive_mutex> lock(driverLock());
    delete static_cast<Cursor *>(cursor);
    return SQLITE_OK;
}

// Moves the cursor to its next row: the file's records less those that the
// transaction deleted, then (or first, walking back) the ones it inserted.
void advance(Cursor &cursor) {
    cursor.rowid.reset();
    cursor.values.reset();
    const Pending &pending = cursor.table().pending;
    auto takeInserted = [&cursor] {
        if (cursor.nextInserted >= cursor.inserted.size()) return false;
        auto &[rowid, values] = cursor.inserted[cursor.nextInserted++];
        cursor.rowid = rowid;
        cursor.values = values;
        return true;
    };
    if (cursor.insertedFirst && takeInserted()) return;
    while (cursor.scan && cursor.scan->next()) {
        if (!cursor.editsFile) return;
        uint64_t rowid = cursor.scan->rowid();
        const Change *change = pending.find(rowid);
        if (change != nullptr && change->edit == Edit::Delete) continue;
        cursor.rowid = rowid;
        if (change != nullptr) cursor.values = change->values;
        return;
    }
    cursor.scan.reset();  // the table is closed as soon as it is read
    if (!cursor.insertedFirst && takeInserted()) return;
    cursor.eof = true;
}

void startFunction(Cursor &cursor, int given, int argc, sqlite3_value **argv) {
    cursor.arguments.assign(FUNCTION_PATH + FUNCTION_OPTIONS + 1, "");
    std::vector<std::string> arguments;
    for (int column = FUNCTION_PATH, next = 0; column <= FUNCTION_PATH + FUNCTION_OPTIONS && next < argc; ++column) {
        if ((given & (1 << column)) == 0) continue;
        cursor.arguments[static_cast<size_t>(column)] = textOf(argv[next++]);
        arguments.push_back(cursor.arguments[static_cast<size_t>(column)]);
    }
    std::string path = arguments.empty() ? "" : arguments.front();
    cursor.ownSource = std::make_unique<Source>(
        parseOptions(path, std::span<const std::string>(arguments).subspan(arguments.empty() ? 0 : 1)));
    cursor.source = cursor.ownSource.get();
    cursor.recordKeys = host::jsonKeys(cursor.source->columnNames());
    cursor.scan = forwardScan(*cursor.source);
}

// The rowid that the value of rowid = ? names, taken as SQLite takes a
// value compared with a rowid (numeric affinity): an integer, a real that
// is one, or a text that reads as one of them. Nothing for anything else,
// which no rowid equals.
std::optional<uint64_t> rowidOf(sqlite3_value *value) {
    std::unique_ptr<sqlite3_value, void (*)(sqlite3_value *)> copy(sqlite3_value_dup(value), sqlite3_value_free);
    if (!copy) throw std::bad_alloc();
    switch (sqlite3_value_numeric_type(copy.get())) {
    case SQLITE_INTEGER: {
        sqlite3_int64 number = sqlite3_value_int64(copy.get());
        if (number >= 0) return static_cast<uint64_t>(number);
        return std::nullopt;
    }
    case SQLITE_FLOAT: {
        double number = sqlite3_value_double(copy.get());
        if (number >= 0 && number < LARGEST_ROWID && std::floor(number) == number) return static_cast<uint64_t>(number);
        return std::nullopt;
    }
    default: return std::nullopt;
    }
}

void startTable(Cursor &cursor, Way way, const char *planText, int argc, sqlite3_value **argv) {
    Table &table = cursor.table();
    Source &source = *table.source;
    cursor.source = &source;
    source.refresh();
    const Pending &pending = table.pending;
    cursor.editsFile = pending.editsFile();
    if (way == Way::Find && cursor.editsFile) way = Way::Forward;  // the driver's find sees the file alone
    cursor.backward = way == Way::Backward;
    cursor.insertedFirst = cursor.backward;
    if (way == Way::Jump) {
        std::optional<uint64_t> named = argc < 1 ? std::nullopt : rowidOf(argv[0]);
        if (!named) return;
        uint64_t rowid = *named;
        const Change *change = pending.find(rowid);
        if (change != nullptr && change->edit == Edit::Insert) {
            cursor.inserted.emplace_back(rowid, change->values);
            return;
        }
        cursor.scan = jumpScan(source, rowid);
        return;
    }
    for (const auto &[rowid, change] : pending.changes()) {
        if (change.edit == Edit::Insert) cursor.inserted.emplace_back(rowid, change.values);
    }
    if (cursor.backward) std::reverse(cursor.inserted.begin(), cursor.inserted.end());
    if (way == Way::Find) {
        cursor.scan = findScan(source, exampleOf(planText == nullptr ? "" : planText, argc, argv, source));
    } else {
        cursor.scan = way == Way::Backward ? backwardScan(source) : forwardScan(source);
    }
}

int filter(sqlite3_vtab_cursor *base, int plan, const char *planText, int argc, sqlite3_value **argv) {
    Cursor &cursor = *static_cast<Cursor *>(base);
    return run(cursor.pVtab, [&] {
        cursor.scan.reset();
        cursor.inserted.clear();
        cursor.nextInserted = 0;
        cursor.eof = false;
        if (!cursor.table().source) {
            startFunction(cursor, plan, argc, argv);
        } else {
            startTable(cursor, static_cast<Way>(plan), planText, argc, argv);
        }
        advance(cursor);
    });
}

int next(sqlite3_vtab_cursor *base) {
    Cursor &cursor = *static_cast<Cursor *>(base);
    return run(cursor.pVtab, [&] { advance(cursor); });
}

int eof(sqlite3_vtab_cursor *base) { return static_cast<Cursor *>(base)->eof ? 1 : 0; }

std::string valueOf(Cursor &cursor, int column) {
    if (cursor.values) return (*cursor.values)[static_cast<size_t>(column)];
    return cursor.scan->value(static_cast<uint16_t>(column));
}

int column(sqlite3_vtab_cursor *base, sqlite3_context *context, int column) {
    Cursor &cursor = *static_cast<Cursor *>(base);
    std::string text;
    int result = run(cursor.pVtab, [&] {
        if (cursor.table().source) {
            text = valueOf(cursor, column);
        } else if (column == FUNCTION_RECORD) {
            std::vector<std::string> values;
            for (uint16_t i = 0; i < cursor.source->fieldCount(); ++i) values.push_back(valueOf(cursor, i));
            text = host::jsonObject(cursor.recordKeys, values);
        } else {
            text = cursor.arguments[static_cast<size_t>(column)];
        }
    });
    if (result != SQLITE_OK) {
        sqlite3_result_error(context, cursor.pVtab->zErrMsg, -1);
        return result;
    }
    sqlite3_result_text(context, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
    return SQLITE_OK;
}

int rowid(sqlite3_vtab_cursor *base, sqlite3_int64 *rowid) {
    Cursor &cursor = *static_cast<Cursor *>(base);
    return run(cursor.pVtab, [&] {
        *rowid = static_cast<sqlite3_int64>(cursor.rowid ? *cursor.rowid : cursor.scan->rowid());
    });
}

std::vector<std::string> rowValues(const Table &table, sqlite3_value **argv) {
    std::vector<std::string> values;
    for (size_t i = 0; i < table.columns.size(); ++i) values.push_back(textOf(argv[i]));
    return values;
}

// argc 1: delete argv[0]; argv[0] NULL: insert argv[2...]; else update
// the record argv[0] to argv[2...].
int update(sqlite3_vtab *vtab, int argc, sqlite3_value **argv, sqlite3_int64 *newRowid) {
    Table &table = *static_cast<Table *>(vtab);
    return run(vtab, [&] {
        if (!table.source) {
            throw host::Failure(MODULE_NAME, "the table-valued function only reads; to change a table, make it "
                                             "one with CREATE VIRTUAL TABLE ... USING mergedb(...)");
        }
        Source &source = *table.source;
        bool inserting = argc > 1 && sqlite3_value_type(argv[0]) == SQLITE_NULL;
        bool ownRowid = argc > 1 && sqlite3_value_type(argv[1]) != SQLITE_NULL &&
                        (inserting || sqlite3_value_int64(argv[1]) != sqlite3_value_int64(argv[0]));
        if (ownRowid) {
            throw host::Failure(source.label(), "a rowid is the place of a record in the file; it can't be given "
                                                "or changed");
        }
        if (!table.base) table.base = prepareEdit(source);
        if (argc == 1) {
            table.pending.remove(static_cast<uint64_t>(sqlite3_value_int64(argv[0])));
            return;
        }
        std::vector<std::string> values = rowValues(table, argv + 2);
        if (inserting) {
            checkRecord(source, values, std::nullopt);
            *newRowid = static_cast<sqlite3_int64>(table.pending.insert(std::move(values), table.base->dataEnd));
        } else {
            auto rowid = static_cast<uint64_t>(sqlite3_value_int64(argv[0]));
            checkRecord(source, values, rowid);
            table.pending.update(rowid, std::move(values));
        }
    });
}

int begin(sqlite3_vtab *) { return SQLITE_OK; }

int sync(sqlite3_vtab *vtab) {
    Table &table = *static_cast<Table *>(vtab);
    return run(vtab, [&] {
        table.transaction.commit(table);
    });
}

int finish(sqlite3_vtab *vtab) {
    std::lock_guard<std::recursive_mutex> lock(driverLock());
    Transaction::end(*static_cast<Table *>(vtab));
    return SQLITE_OK;
}

int savepoint(sqlite3_vtab *vtab, int level) {
    static_cast<Table *>(vtab)->pending.savepoint(level);
    return SQLITE_OK;
}

int release(sqlite3_vtab *vtab, int level) {
    static_cast<Table *>(vtab)->pending.release(level);
    return SQLITE_OK;
}

int rollbackTo(sqlite3_vtab *vtab, int level) {
    static_cast<Table *>(vtab)->pending.rollbackTo(level);
    return SQLITE_OK;
}

sqlite3_module makeModule() {
    sqlite3_module module{};
    module.iVersion = 2;
    module.xCreate = connect;  // the same as xConnect: the module is also a table-valued function
    module.xConnect = connect;
    module.xBestIndex = bestIndex;
    module.xDisconnect = disconnect;
    module.xDestroy = disconnect;
    module.xOpen = open;
    module.xClose = close;
    module.xFilter = filter;
    module.xNext = next;
    module.xEof = eof;
    module.xColumn = column;
    module.xRowid = rowid;
    module.xUpdate = update;
    module.xBegin = begin;
    module.xSync = sync;
    module.xCommit = finish;
    module.xRollback = finish;
    module.xSavepoint = savepoint;
    module.xRelease = release;
    module.xRollbackTo = rollbackTo;
    return module;
}

}  // namespace

int registerModule(sqlite3 *db) {
    static const sqlite3_module module = makeModule();
    return sqlite3_create_module_v2(db, MODULE_NAME, &module, new Transaction(),
                                    [](void *transaction) { delete static_cast<Transaction *>(transaction); });
}

}  // namespace mergedb::sql
