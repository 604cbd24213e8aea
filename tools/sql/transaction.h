// A transaction over the tables of one SQLite connection. SQLite syncs
// each table that a transaction changed, one after the other, and then
// ends the transaction on each. The first table to commit takes hold of
// every table with changes and checks it (holdForCommit) before any file
// is written, so that a table that can't be committed stops the commit
// with nothing changed; a failure that comes only once some tables were
// written says which were committed and which were not.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "commit.h"
#include "driver.h"
#include "pending.h"
#include "source.h"

namespace mergedb::sql {

// One table's part in the transactions of its connection.
struct TableChanges {
    Source *source = nullptr;
    Pending pending;
    std::optional<EditBase> base;       // taken at the transaction's first change
    std::unique_ptr<host::Table> held;  // from the commit's hold until the table is written
    bool committed = false;             // written by the commit under way
};

class Transaction {
public:
    // A table of the connection (with its source set), and one that is gone.
    void join(TableChanges &table);
    void leave(TableChanges &table);
    // Writes the changes of table, first holding every table with changes
    // when none is held yet. Throws a Failure.
    void commit(TableChanges &table);
    // The transaction is over for table, committed or rolled back.
    static void end(TableChanges &table);

private:
    void holdAll();
    // What became of the transaction's tables, for a failure of one of them.
    std::string outcome() const;

    std::vector<TableChanges *> tables_;
};

}  // namespace mergedb::sql
