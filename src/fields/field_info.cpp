// What the host may learn about a table's fields and about the table itself:
// the walk over the field names, the items of one field, the items of the
// table.
#include <cstring>

#include "fields/field_array.h"
#include "frame/host_memory.h"
#include "frame/messages.h"
#include "frame/result.h"

namespace mergedb {
namespace {

// The description of the one data type, as item 2 gives it.
constexpr uint16_t ONE_DATA_TYPE = 1;
constexpr uint16_t TYPE_SLOT_3 = 65535;
constexpr uint16_t TYPE_SLOT_4 = 0;

// Copies text, at most size - 1 bytes of it, and its end to out.
void putString(void *out, const char *text, size_t size) {
    size_t length = strnlen(text, size - 1);
    std::memcpy(out, text, length);
    static_cast<char *>(out)[length] = '\0';
}

// One step of the name walk. The cursor rises on every call after the first,
// also behind the last field.
uint16_t fieldNameNext(MergeTable &table, char *nameOut, uint16_t *indexOut, uint16_t mode) {
    table.fieldNameCursor = mode == DB_WALK_FIRST ? 0 : table.fieldNameCursor + 1;
    if (table.fieldCount <= int64_t{table.fieldNameCursor}) return ERR_NO_MORE_NAMES;
    const auto *array = blockLockAs<FieldEntry>(table.fields);
    if (array == nullptr) return ERR_MEMORY;
    putString(nameOut, array[table.fieldNameCursor].name, FIELD_NAME_SIZE);
    *indexOut = static_cast<uint16_t>(table.fieldNameCursor);
    return 0;
}

// Item 5 names the one data type and needs no field.
uint16_t typeNameInfo(void *out) {
    if (out == nullptr) return ERR_MEMORY;
    return loadOemText(DB_MSG_DATA_TYPE, TYPE_NAME_SIZE, static_cast<char *>(out)) > 0 ? 0 : ERR_MEMORY;
}

// Items 1 to 4 of the field at index, -1 standing for a name not found.
// Other items write nothing.
uint16_t fieldInfo(const MergeTable &table, int index, void *out, uint16_t item) {
    const auto *array = blockLockAs<FieldEntry>(table.fields);
    if (array == nullptr) return ERR_MEMORY;
    if (index < 0 || index >= table.fieldCount) return ERR_NO_FIELD;
    if (item < DB_FIELD_ITEM_NAME || item > DB_FIELD_ITEM_NUMBERS) return 0;
    if (out == nullptr) return ERR_MEMORY;
    const FieldEntry &entry = array[index];
    switch (item) {
    case DB_FIELD_ITEM_NAME:
        putString(out, entry.name, FIELD_NAME_SIZE);
        break;
    case DB_FIELD_ITEM_TYPE:
        // Slots 1 and 2 are the host's and stay as they are.
        storeToHost(out, ONE_DATA_TYPE, 0);
        storeToHost(out, TYPE_SLOT_3, 3);
        storeToHost(out, TYPE_SLOT_4, 4);
        break;
    case DB_FIELD_ITEM_INDEX:
        storeToHost(out, static_cast<uint16_t>(index));
        break;
    default:
        for (size_t i = 0; i < 4; ++i) storeToHost(out, entry.info[i], i);
        break;
    }
    return 0;
}

uint16_t tableInfo(const MergeTable &table, void *out, uint16_t item) {
    if (item != DB_TABLE_ITEM_KIND && item != DB_TABLE_ITEM_FIELD_COUNT && item != DB_TABLE_ITEM_PATH) {
        return ERR_UNSUPPORTED;
    }
    if (out == nullptr) return ERR_MEMORY;
    if (item == DB_TABLE_ITEM_PATH) {
        putString(out, table.fileName, PATH_BUFFER_SIZE);
    } else if (item == DB_TABLE_ITEM_KIND) {
        storeToHost(out, table.kind);
    } else {
        storeToHost(out, static_cast<uint16_t>(table.fieldCount));
    }
    return 0;
}

}  // namespace
}  // namespace mergedb

using namespace mergedb;

extern "C" DbResult MERGEDB_CALL dbGetFieldNamesMerge(uint32_t handle, char *nameOut, uint16_t *indexOut,
                                                      uint16_t mode) {
    MergeTable *table = tableLock(handle);
    if (table == nullptr || nameOut == nullptr || indexOut == nullptr) return errorResult(ERR_MEMORY);
    uint16_t code = fieldNameNext(*table, nameOut, indexOut, mode);
    return code == ERR_NO_MORE_NAMES ? END_OF_DATA : errorResult(code);
}

extern "C" DbResult MERGEDB_CALL dbGetFieldInfoMerge(uint32_t handle, const char *name, void *out, uint16_t item) {
    MergeTable *table = tableLock(handle);
    if (table == nullptr) return errorResult(ERR_MEMORY);
    if (item == DB_FIELD_ITEM_TYPE_NAME) return errorResult(typeNameInfo(out));
    if (table->fieldCount == 0) return errorResult(ERR_NO_FIELDS);
    if (name == nullptr) return errorResult(ERR_MEMORY);
    return errorResult(fieldInfo(*table, fieldFindByName(*table, name), out, item));
}

extern "C" DbResult MERGEDB_CALL dbGetFieldInfoHMerge(uint32_t handle, uint16_t index, void *out, uint16_t item) {
    const MergeTable *table = tableLock(handle);
    if (table == nullptr) return errorResult(ERR_MEMORY);
    if (item == DB_FIELD_ITEM_TYPE_NAME) return errorResult(typeNameInfo(out));
    if (table->fieldCount == 0) return errorResult(ERR_NO_FIELDS);
    return errorResult(fieldInfo(*table, index, out, item));
}

extern "C" DbResult MERGEDB_CALL dbGetTableInfoMerge(uint32_t handle, void *out, uint16_t item) {
    const MergeTable *table = tableLock(handle);
    if (table == nullptr) return errorResult(ERR_MEMORY);
    return errorResult(tableInfo(*table, out, item));
}
