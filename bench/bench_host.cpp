#include "bench_host.h"

#include <dlfcn.h>

#include <filesystem>
#include <stdexcept>

namespace mergedb::bench {
namespace {

// A host's buffer for short text.
constexpr size_t TEXT_BUFFER = 256;

std::string kindTag(DataKind kind) {
    switch (kind) {
    case DataKind::Delimited: return "d";
    case DataKind::Tagged0: return "t0";
    case DataKind::Tagged1: return "t1";
    }
    return "";
}

std::string extension(DataKind kind) { return kind == DataKind::Delimited ? ".txt" : ".doc"; }

}  // namespace

Workspace::Workspace() : owned_(true) {
    std::string pattern = (std::filesystem::temp_directory_path() / "mergedb-bench-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a temporary directory");
    directory_ = pattern;
    start();
}

Workspace::Workspace(std::string directory) : directory_(std::move(directory)) { start(); }

void Workspace::start() {
    dbInitMerge(1, 0, 0, 0, &session_, dlopen(MERGEDB_MESSAGES_MODULE, RTLD_NOW));
    if (dbOpenDBMerge(DB_SUBTYPE_DELIMITED, 0, 0, directory_.c_str(), &database_) != DB_RESULT_OK) {
        throw std::runtime_error("cannot open the database " + directory_);
    }
}

Workspace::~Workspace() {
    dbCloseDBMerge(&database_);
    dbExitMerge(&session_);
    if (owned_) std::filesystem::remove_all(directory_);
}

const Table &Workspace::made(DataKind kind, const std::string &name,
                             const std::function<TableFacts(const std::string &path)> &write) {
    auto found = tables_.find(name);
    if (found != tables_.end()) return found->second;
    Table table = existing(kind, name);
    table.facts = write(table.path);
    return tables_.emplace(name, table).first->second;
}

const Table &Workspace::addressTable(DataKind kind, uint64_t size, Shape shape) {
    const char *shapeTag = shape == Shape::Quoted ? "q_" : shape == Shape::LongText ? "l_" : "";
    return made(kind, "address_" + kindTag(kind) + "_" + shapeTag + std::to_string(size) + extension(kind),
                [=](const std::string &path) { return writeAddressTable(path, kind, size, shape); });
}

const Table &Workspace::wideTable(DataKind kind, int fieldCount) {
    return made(kind, "wide_" + kindTag(kind) + "_" + std::to_string(fieldCount) + extension(kind),
                [=](const std::string &path) { return writeWideTable(path, kind, fieldCount); });
}

Table Workspace::existing(DataKind kind, const std::string &name) const {
    return Table{name, directory_ + "/" + name, kind, {}};
}

uint32_t Workspace::open(const Table &table, Access access, DbResult &result) {
    uint32_t handle = 0;
    auto accessWord = static_cast<uint16_t>(access);
    result = table.kind == DataKind::Delimited
                 ? dbOpenTableMerge(DB_SUBTYPE_DELIMITED, database_, table.name.c_str(), accessWord, 0, &handle,
                                    FIELD_DELIMITER, RECORD_DELIMITER, QUOTE, "", 0)
                 : dbOpenTableMerge(DB_SUBTYPE_TAGGED, database_, table.name.c_str(), accessWord, 0, &handle,
                                    nullptr, nullptr, nullptr, nullptr, 0);
    return result == DB_RESULT_OK ? handle : 0;
}

void Workspace::removeTables() {
    for (const auto &[name, table] : tables_) std::filesystem::remove(table.path);
    tables_.clear();
}

std::vector<std::string> fieldNames(uint32_t table) {
    std::vector<std::string> names;
    char name[TEXT_BUFFER];
    uint16_t index = 0;
    for (uint16_t mode = 1; dbGetFieldNamesMerge(table, name, &index, mode) == DB_RESULT_OK; mode = 0) {
        names.emplace_back(name);
    }
    return names;
}

DbResult readRecord(uint32_t table, const std::vector<std::string> &names, WalkTotals &totals) {
    char buffer[TEXT_BUFFER];
    for (const std::string &name : names) {
        uint16_t length = 0;
        if (DbResult result = dbGetFieldValueMerge(table, name.c_str(), buffer, DB_TYPE_TEXT, &length)) {
            return result;
        }
        totals.textBytes += length;
    }
    totals.records++;
    return DB_RESULT_OK;
}

namespace {

// Reads every record from the one that start moves to, with step, until a
// move or a read fails.
template <typename Start, typename Step>
WalkOutcome walk(uint32_t table, const std::vector<std::string> &names, Start start, Step step) {
    WalkOutcome outcome;
    for (outcome.end = start(); outcome.end == DB_RESULT_OK; outcome.end = step()) {
        if (DbResult result = readRecord(table, names, outcome.totals)) {
            outcome.end = result;
            break;
        }
    }
    return outcome;
}

}  // namespace

WalkOutcome walkForward(uint32_t table, const std::vector<std::string> &names) {
    return walk(
        table, names, [table] { return dbFirstMerge(table); }, [table] { return dbNextMerge(table, 0, nullptr); });
}

WalkOutcome walkBackward(uint32_t table, const std::vector<std::string> &names) {
    return walk(
        table, names, [table] { return dbLastMerge(table, 0, nullptr); },
        [table] { return dbPrevMerge(table, 0, nullptr); });
}

std::string fieldText(uint32_t table, const std::string &name) {
    char buffer[TEXT_BUFFER];
    uint16_t length = 0;
    if (dbGetFieldValueMerge(table, name.c_str(), buffer, DB_TYPE_TEXT, &length) != DB_RESULT_OK) return "";
    return std::string(buffer, length);
}

}  // namespace mergedb::bench
