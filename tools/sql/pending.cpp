#include "pending.h"

#include <algorithm>

namespace mergedb::sql {

bool Pending::editsFile() const {
    return std::any_of(changes_.begin(), changes_.end(),
                       [](const auto &entry) { return entry.second.edit != Edit::Insert; });
}

size_t Pending::deletes() const {
    return static_cast<size_t>(std::count_if(changes_.begin(), changes_.end(),
                                             [](const auto &entry) { return entry.second.edit == Edit::Delete; }));
}

const Change *Pending::find(uint64_t rowid) const {
    auto found = changes_.find(rowid);
    return found == changes_.end() ? nullptr : &found->second;
}

void Pending::set(uint64_t rowid, std::optional<Change> change) {
    auto found = changes_.find(rowid);
    undo_.emplace_back(rowid, found == changes_.end() ? std::nullopt : std::optional<Change>(found->second));
    if (change) {
        changes_[rowid] = std::move(*change);
    } else if (found != changes_.end()) {
        changes_.erase(found);
    }
}

void Pending::update(uint64_t rowid, std::vector<std::string> values) {
    const Change *before = find(rowid);
    set(rowid, Change{before != nullptr ? before->edit : Edit::Update, std::move(values)});
}

void Pending::remove(uint64_t rowid) {
    const Change *before = find(rowid);
    if (before != nullptr && before->edit == Edit::Insert) {
        set(rowid, std::nullopt);  // a record that never reached the file
    } else {
        set(rowid, Change{Edit::Delete, {}});
    }
}

uint64_t Pending::insert(std::vector<std::string> values, uint64_t dataEnd) {
    uint64_t rowid = std::max(nextInsert_, dataEnd);
    nextInsert_ = rowid + 1;
    set(rowid, Change{Edit::Insert, std::move(values)});
    return rowid;
}

void Pending::savepoint(int level) {
    release(level);
    savepoints_.emplace_back(level, undo_.size());
}

void Pending::release(int level) {
    while (!savepoints_.empty() && savepoints_.back().first >= level) savepoints_.pop_back();
}

// A savepoint that this table never saw was set before its first change of
// the transaction: going back to it undoes them all.
void Pending::rollbackTo(int level) {
    size_t length = 0;
    for (const auto &[saved, at] : savepoints_) {
        if (saved <= level) length = at;
    }
    while (undo_.size() > length) {
        auto [rowid, before] = std::move(undo_.back());
        undo_.pop_back();
        if (before) {
            changes_[rowid] = std::move(*before);
        } else {
            changes_.erase(rowid);
        }
    }
    while (!savepoints_.empty() && savepoints_.back().first > level) savepoints_.pop_back();
}

void Pending::clear() {
    changes_.clear();
    undo_.clear();
    savepoints_.clear();
    nextInsert_ = 0;
}

}  // namespace mergedb::sql
