// The driver as a host uses it: one session, one database in a directory,
// tables opened through the exports, and walks that read every field.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "bench_data.h"
#include "bench_peers.h"
#include "mergedb/mergedb.h"

namespace mergedb::bench {

struct Table {
    std::string name;  // within the database
    std::string path;
    DataKind kind;
    TableFacts facts;
};

enum class Access : uint16_t { ReadWrite = 0, ReadOnly = 1 };

class Workspace {
public:
    // A new temporary directory, removed with the workspace.
    Workspace();
    // An existing directory, left as it is.
    explicit Workspace(std::string directory);
    Workspace(const Workspace &) = delete;
    Workspace &operator=(const Workspace &) = delete;
    ~Workspace();

    // The address table of this kind, size and shape, written on first use.
    const Table &addressTable(DataKind kind, uint64_t size, Shape shape = Shape::Address);
    // The wide table of this kind and field count, written on first use.
    const Table &wideTable(DataKind kind, int fieldCount);
    // A table that the caller wrote itself.
    Table existing(DataKind kind, const std::string &name) const;

    // The table's handle, or 0 with the failure in result.
    uint32_t open(const Table &table, Access access, DbResult &result);

    // Removes the tables written so far, freeing their disk space.
    void removeTables();

private:
    void start();
    const Table &made(DataKind kind, const std::string &name,
                      const std::function<TableFacts(const std::string &path)> &write);

    std::string directory_;
    bool owned_ = false;
    uint32_t session_ = 0;
    uint32_t database_ = 0;
    std::map<std::string, Table> tables_;
};

// The names of the table's fields, in field order.
std::vector<std::string> fieldNames(uint32_t table);

// How a walk went: what it read, and the result that ended it, which is
// DB_RESULT_END_OF_DATA for a walk that reached its end.
struct WalkOutcome {
    WalkTotals totals;
    DbResult end = DB_RESULT_OK;
};

// Reads every field of the current record as short text into a 256-byte
// buffer, as a mail merge does. Gives the first failing result, or 0.
DbResult readRecord(uint32_t table, const std::vector<std::string> &names, WalkTotals &totals);

// From the first record to the last, and from the last to the first.
WalkOutcome walkForward(uint32_t table, const std::vector<std::string> &names);
WalkOutcome walkBackward(uint32_t table, const std::vector<std::string> &names);

// The text of one field of the current record, empty on failure.
std::string fieldText(uint32_t table, const std::string &name);

}  // namespace mergedb::bench
