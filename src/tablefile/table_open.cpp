// Opening and closing a table: the file, its read window, the header test
// of a tagged document, and the steps of the other subsystems that a table's
// life begins and ends with.
#include <cstring>

#include "edits/change_list.h"
#include "edits/commit.h"
#include "fields/field_array.h"
#include "fields/discovery.h"
#include "formats/tagged_format.h"
#include "frame/database.h"
#include "frame/result.h"
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
    uint32_t flags = access == 1 ? MODE_OPEN_READ : MODE_OPEN_WRITE;
    return flags | (exclusive == 0 ? MODE_SHARE_READ : MODE_SHARE_NONE);
}

// fileSize leaves out a final byte 26: it is no data. A file whose size
// the offsets can't reach is no table.
uint16_t measureFile(MergeTable &table) {
    table.fileSize = fileSize(&table.file);
    if (table.fileSize == FILE_FAILURE) return ERR_OPEN;
    if (table.fileSize != 0) {
        uint8_t last = 0;
        if (fileSeek(&table.file, table.fileSize - 1, 0) == FILE_FAILURE) return ERR_SEEK;
        if (fileRead(&table.file, &last, 1) != 1) return ERR_READ;
        if (last == END_OF_FILE_MARK) table.fileSize--;
    }
    return fileSeek(&table.file, 0, 0) == FILE_FAILURE ? ERR_SEEK : 0;
}

// The steps after tableFileOpen that the open unwinds on failure.
uint16_t openContents(MergeTable &table, uint16_t subtype) {
    if (subtype == DB_SUBTYPE_DELIMITED) {
        table.firstRecordOffset = 0;
        table.kind = DB_KIND_DELIMITED;
        return table.fileSize != 0 ? discoverFields(table) : 0;
    }
    if (uint16_t code = headerCheck(table)) return code;
    if (uint16_t code = discoverFields(table)) return code;
    table.firstRecordOffset = windowTell(table);
    return 0;
}

void freeCurrent(MergeTable &table) {
    if (table.current != 0) nodeFree(table.current);
    table.current = 0;
}

}  // namespace

uint32_t tableDocOffset(const MergeTable &table) {
    const uint8_t *bytes = table.header + HEADER_DOC_OFFSET;
    return bytes[0] | (bytes[1] << 8) | (bytes[2] << 16) | (static_cast<uint32_t>(bytes[3]) << 24);
}

uint16_t tableFileOpen(MergeTable &table, const Env &env, const char *path) {
    if (fileOpen(env, path, table.accessFlags, &table.file) != 0) return ERR_OPEN;
    std::strcpy(table.fileName, path);
    table.window = blockAlloc(WINDOW_BLOCK_SIZE);
    if (table.window == 0) {
        fileClose(&table.file);
        return ERR_MEMORY;
    }
    table.windowCursor = 0;
    table.windowEnd = 0;
    uint16_t code = measureFile(table);
    if (code == 0) code = windowLoad(table);
    if (code == 0) {
        code = windowRefill(table);
        windowSave(table);
        if (code == ERR_END_OF_FILE) code = 0;
    }
    if (code != 0) {
        blockFree(&table.window);
        fileClose(&table.file);
    }
    return code;
}

uint16_t tableFileClose(MergeTable &table) {
    blockFree(&table.window);
    return fileClose(&table.file);
}

uint16_t headerCheck(MergeTable &table) {
    if (uint16_t code = windowLoad(table)) return code;
    uint16_t code = windowRead(table, table.header, TAGGED_HEADER_SIZE);
    windowSave(table);
    if (code != 0) return code;
    if (!isTaggedMagic(table.header)) return ERR_WRONG_FILE;
    if (!isAcceptedProductType(table.header[HEADER_PRODUCT_TYPE])) return ERR_WRONG_FILE;
    if (!isAcceptedFileType(table.header[HEADER_FILE_TYPE])) return ERR_WRONG_FILE;
    if (uint16_t seek = windowSeek(table, tableDocOffset(table))) return seek;
    if (table.header[HEADER_MAJOR_VERSION] != 0) return ERR_WRONG_FILE;
    table.kind = taggedKindOfMinorVersion(table.header[HEADER_MINOR_VERSION]);
    return table.kind == 0 ? ERR_WRONG_FILE : 0;
}

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
    BlockHandle handle = blockAlloc(sizeof(MergeTable));
    auto *table = tableLock(handle);
    if (table == nullptr) return errorResult(ERR_MEMORY);
    char path[PATH_BUFFER_SIZE];
    uint16_t code = joinTablePath(*database, tableName, TableName::BaseName, path) ? 0 : ERR_OPEN;
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
    changeListInit(*table);
    fieldsInit(&table->fields, &table->fieldCount);
    if (uint16_t failed = openContents(*table, subtype)) {
        fieldsFree(&table->fields, &table->fieldCount);
        changeFree(*table);
        freeCurrent(*table);
        tableFileClose(*table);
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
    if (uint16_t code = fieldsFree(&table->fields, &table->fieldCount)) return errorResult(code);
    if (uint16_t code = changeFree(*table)) return errorResult(code);
    freeCurrent(*table);
    fieldsFree(&table->criteria, &table->criteriaCount);
    fieldIndexFree(*table);
    uint16_t code = tableFileClose(*table);
    blockFree(tableSlot);
    return errorResult(code);
}
