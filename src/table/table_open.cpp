// Opening and closing a table: its file and window, its format, its fields,
// and the steps of the other subsystems that a table's life begins and ends
// with.
#include <cstring>

#include "catalogue/database.h"
#include "edits/change_list.h"
#include "edits/commit.h"
#include "fields/field_array.h"
#include "frame/result.h"
#include "records/record_format.h"
#include "tablefile/file_service.h"
#include "tablefile/table_file.h"
#include "tablefile/table_path.h"
#include "tablefile/window.h"

namespace mergedb {
namespace {

// Copies a delimited-text string into its table field; one over the
// field's limit is refused rather than cut.
bool copyDelimiter(char *field, size_t size, const char *text) {
    size_t length = strnlen(text, size);
    if (length >= size) return false;
    std::memcpy(field, text, length + 1);
    return true;
}

uint16_t copyDelimiters(MergeTable &table, const char *fieldDelimiter, const char *recordDelimiter,
                        const char *quote, const char *ignore) {
    if (fieldDelimiter == nullptr || recordDelimiter == nullptr || quote == nullptr || ignore == nullptr) {
        return ERR_MEMORY;
    }
    bool fits = copyDelimiter(table.fieldDelimiter, DELIMITER_SIZE, fieldDelimiter) &&
                copyDelimiter(table.recordDelimiter, DELIMITER_SIZE, recordDelimiter) &&
                copyDelimiter(table.quote, QUOTE_SIZE, quote) &&
                copyDelimiter(table.ignore, DELIMITER_SIZE, ignore);
    return fits ? 0 : ERR_UNSUPPORTED;
}

uint32_t accessFlagsFor(uint16_t access, uint16_t exclusive) {
    uint32_t flags = access == DB_ACCESS_READ_ONLY ? MODE_OPEN_READ : MODE_OPEN_WRITE;
    return flags | (exclusive == 0 ? MODE_SHARE_READ : MODE_SHARE_NONE);
}

// Delimited text starts with its first record; a tagged document has a
// header, which tells its kind, and a head record in front of its records.
uint16_t chooseFormat(MergeTable &table, uint16_t subtype) {
    if (subtype == DB_SUBTYPE_DELIMITED) {
        table.kind = DB_KIND_DELIMITED;
        table.format = recordFormatOf(table.kind);
        return delimitedBytesMake(table);
    }
    if (uint16_t code = headerCheck(table)) return code;
    table.format = recordFormatOf(table.kind);
    return 0;
}

// The steps after tableFileOpen that the open unwinds on failure.
uint16_t openContents(MergeTable &table, uint16_t subtype) {
    if (uint16_t code = chooseFormat(table, subtype)) return code;
    table.firstRecordOffset = table.format->dataStart(table);
    if (uint16_t code = table.format->discover(table)) return code;
    if (table.hasFieldNames) table.firstRecordOffset = windowTell(table);
    return 0;
}

// Lets go of everything the table holds but the record itself: fields,
// pending edits, current record, criteria, the name index, the format's
// bytes, the field map, the window and the file. Gives the code of the
// file's close.
uint16_t releaseTable(MergeTable &table) {
    fieldsFree(&table.fields, &table.fieldCount);
    changeFree(table);
    if (table.current != 0) nodeFree(table.current);
    table.current = 0;
    fieldsFree(&table.criteria, &table.criteriaCount);
    fieldIndexFree(table);
    blockFree(&table.delimitedBytes);
    blockFree(&table.fieldMap);
    return tableFileClose(table);
}

}  // namespace

}  // namespace mergedb

using namespace mergedb;

extern "C" DbResult MERGEDB_CALL dbOpenTableMerge(uint16_t subtype, uint32_t databaseHandle, const char *tableName,
                                                  uint16_t access, uint16_t exclusive, uint32_t *tableOut,
                                                  const char *fieldDelimiter, const char *recordDelimiter,
                                                  const char *quote, const char *ignore, uint32_t) {
    const auto *database = databaseLock(databaseHandle);
    if (database == nullptr) return errorResult(ERR_MEMORY);
    if (tableOut == nullptr) return errorResult(ERR_MEMORY);
    if (tableName == nullptr) return errorResult(ERR_OPEN);
    BlockHandle handle = tableAlloc();
    auto *table = tableLock(handle);
    if (table == nullptr) return errorResult(ERR_MEMORY);
    char path[PATH_BUFFER_SIZE];
    uint16_t code = joinTablePath(database->path, tableName, TableName::BaseName, path) ? 0 : ERR_OPEN;
    if (code == 0 && subtype == DB_SUBTYPE_DELIMITED) {
        code = copyDelimiters(*table, fieldDelimiter, recordDelimiter, quote, ignore);
    }
    if (code != 0) {
        blockFree(&handle);
        return errorResult(code);
    }
    table->accessFlags = accessFlagsFor(access, exclusive);
    if (uint16_t opened = tableFileOpen(*table, *database->env, path)) {
        blockFree(&handle);
        return errorResult(opened);
    }
    if (uint16_t failed = openContents(*table, subtype)) {
        releaseTable(*table);
        blockFree(&handle);
        return errorResult(failed);
    }
    table->subtype = subtype;
    table->database = databaseHandle;
    *tableOut = handle;
    return DB_RESULT_OK;
}

extern "C" DbResult MERGEDB_CALL dbCloseTableMerge(uint32_t *tableSlot) {
    auto *table = tableSlot == nullptr ? nullptr : tableLock(*tableSlot);
    if (table == nullptr) return errorResult(ERR_MEMORY);
    if (table->dirty != 0) {
        if (uint16_t code = commitTable(*table)) return errorResult(code);
    }
    uint16_t code = releaseTable(*table);
    blockFree(tableSlot);
    return errorResult(code);
}
