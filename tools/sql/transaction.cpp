#include "transaction.h"

#include <stdexcept>

#include "failure.h"

namespace mergedb::sql {
namespace {

bool hasChanges(const TableChanges &table) { return table.base && !table.pending.empty(); }

bool sameFile(const Stamp &one, const Stamp &other) { return one.device == other.device && one.inode == other.inode; }

// "a, b and c"
std::string listed(const std::vector<std::string> &labels) {
    std::string text;
    for (size_t i = 0; i < labels.size(); ++i) {
        text += (i == 0 ? "" : i + 1 == labels.size() ? " and " : ", ") + labels[i];
    }
    return text;
}

}  // namespace

void Transaction::join(TableChanges &table) { tables_.push_back(&table); }

void Transaction::leave(TableChanges &table) { std::erase(tables_, &table); }

void Transaction::holdAll() {
    std::vector<TableChanges *> holding;
    for (TableChanges *table : tables_) {
        if (!hasChanges(*table) || table->held || table->committed) continue;
        for (const TableChanges *other : holding) {
            if (!sameFile(table->base->stamp, other->base->stamp)) continue;
            throw host::Failure(table->source->label(), "is the same file as " + other->source->label() +
                                                            ", and one transaction can change a file through one "
                                                            "table only; nothing was changed");
        }
        holding.push_back(table);
    }
    try {
        for (TableChanges *table : holding) table->held = holdForCommit(*table->source, *table->base);
    } catch (...) {
        for (TableChanges *table : holding) table->held.reset();
        throw;
    }
}

void Transaction::commit(TableChanges &table) {
    if (!hasChanges(table)) return;
    if (!table.held) holdAll();
    try {
        applyChanges(*table.source, *table.held, table.pending, *table.base);
    } catch (const std::exception &failure) {
        table.held.reset();
        std::string committed = outcome();
        if (committed.empty()) throw;
        throw std::runtime_error(failure.what() + committed);
    }
    table.held.reset();
    table.committed = true;
}

std::string Transaction::outcome() const {
    std::vector<std::string> committed;
    std::vector<std::string> notCommitted;
    for (const TableChanges *table : tables_) {
        if (table->committed) {
            committed.push_back(table->source->label());
        } else if (hasChanges(*table)) {
            notCommitted.push_back(table->source->label());
        }
    }
    if (committed.empty()) return "";
    return " Of this transaction, the changes to " + listed(committed) + " were committed; those to " +
           listed(notCommitted) + " were not.";
}

void Transaction::end(TableChanges &table) {
    table.pending.clear();
    table.base.reset();
    table.held.reset();
    table.committed = false;
}

}  // namespace mergedb::sql
