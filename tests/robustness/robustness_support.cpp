#include "robustness/robustness_support.h"

#include <cstdio>

namespace mergedb::test {
namespace {

std::string id(int record) {
    char text[16];
    std::snprintf(text, sizeof text, "%06d", record);
    return text;
}

std::string oldValue(int record) { return "record number " + id(record); }
std::string newValue(int record) { return "changed record " + id(record) + " with a longer value"; }

// A record's bytes with the given values, as the driver writes them.
Bytes recordBytes(bool tagged, const std::string &first, const std::string &second) {
    return tagged ? taggedRecord(0, {first, second}) : bytesOf(first + "," + second + "\n");
}

// The head record of dialect 0 that names the fields Id and Text.
Bytes head() { return taggedHead(0, {"Id", "Text"}); }

Bytes fileOf(const LargeTable &table, const std::vector<Edit> &edits) {
    Bytes stream = table.tagged ? head() : Bytes{};
    for (int r = 0; r < table.records; ++r) {
        const Edit *edit = nullptr;
        for (const Edit &e : edits) {
            if (e.record == r) edit = &e;
        }
        if (edit != nullptr && edit->remove) continue;
        Bytes record = recordBytes(table.tagged, id(r), edit != nullptr ? newValue(r) : oldValue(r));
        stream.insert(stream.end(), record.begin(), record.end());
    }
    return table.tagged ? taggedDocument(0, stream) : stream;
}

}  // namespace

LargeTable largeTable(bool tagged, int records) {
    LargeTable table{tagged,
                     tagged ? "big.doc" : "big.txt",
                     "big.bk",
                     tagged ? static_cast<uint32_t>(16 + head().size()) : 0,
                     static_cast<uint32_t>(recordBytes(tagged, id(0), oldValue(0)).size()),
                     records,
                     {}};
    table.before = fileOf(table, {});
    return table;
}

DbResult openLargeTable(uint32_t database, const LargeTable &table, uint32_t *handle) {
    return table.tagged ? openTagged(database, table.name, handle)
                        : openDelimited(database, table.name, handle, ",", "\n", "", "");
}

DbResult applyEdit(uint32_t handle, const LargeTable &table, Edit edit) {
    uint32_t offset = table.firstOffset + static_cast<uint32_t>(edit.record) * table.recordSize;
    if (DbResult jumped = dbGetRecordMerge(handle, 0, nullptr, offset)) return jumped;
    if (edit.remove) return dbDeleteMerge(handle);
    std::string value = newValue(edit.record);
    if (DbResult put = dbPutFieldValueHMerge(handle, 1, value.c_str(), DB_TYPE_TEXT,
                                             static_cast<uint16_t>(value.size()))) {
        return put;
    }
    return dbUpdateMerge(handle, 0, nullptr);
}

Bytes afterCommit(const LargeTable &table, const std::vector<Edit> &edits) { return fileOf(table, edits); }

Where whereRecordsAre(const TempDir &dir, const LargeTable &table, const Bytes &after) {
    bool hasTable = dir.exists(table.name);
    bool hasBackup = dir.exists(table.backup);
    Bytes current = hasTable ? dir.read(table.name) : Bytes{};
    Bytes backup = hasBackup ? dir.read(table.backup) : Bytes{};
    if (hasTable && current == after && (!hasBackup || backup == table.before)) return Where::NewTable;
    if (hasTable && current == table.before && !hasBackup) return Where::OldTable;
    if (hasBackup && backup == table.before) return Where::Backup;
    return Where::Lost;
}

}  // namespace mergedb::test
