// Putting typed values into a table's fields. Each value becomes text at
// once, in the form the record will hold, in the field's value block; a
// delimited table makes a field that does not exist yet.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "fields/field_array.h"
#include "frame/result.h"
#include "platform/windows_api.h"
#include "records/record_format.h"

namespace mergedb {
namespace {

constexpr uint16_t FORMATTED_BLOCK = 132;
constexpr int FLOAT_DIGITS = 7;
constexpr int DOUBLE_DIGITS = 15;

bool isTextType(uint16_t type) {
    return type == DB_TYPE_TEXT || type == DB_TYPE_TEXT_8 || type == DB_TYPE_LONG_TEXT || type == DB_TYPE_TEXT_10 ||
           type == DB_TYPE_TEXT_15;
}

bool isKnownType(uint16_t type) {
    return isTextType(type) || (type >= DB_TYPE_INT16 && type <= DB_TYPE_TIME) || type == DB_TYPE_LOGICAL ||
           type == DB_TYPE_DATE_TIME;
}

template <typename T>
T hostValue(const void *value) {
    T result;
    std::memcpy(&result, value, sizeof result);
    return result;
}

// The date word: the year in the high 16 bits (signed), then the first
// and second number of the text form.
int printDate(char *out, size_t size, uint32_t date) {
    return std::snprintf(out, size, "%02d/%02d/%04d", (date >> 8) & 0xFF, date & 0xFF,
                         static_cast<int16_t>(date >> 16));
}

int printTime(char *out, size_t size, uint32_t time) {
    return std::snprintf(out, size, "%02d:%02d:%02d.%02d", time >> 24, (time >> 16) & 0xFF, (time >> 8) & 0xFF,
                         time & 0xFF);
}

// Writes the value's text into the block and gives its length.
uint16_t formatFieldValue(const MergeTable &table, char *block, uint16_t capacity, const void *value,
                          uint16_t type) {
    switch (type) {
    case DB_TYPE_INT16: _itoa(hostValue<int16_t>(value), block, 10); break;
    case DB_TYPE_INT32: _ltoa(hostValue<int32_t>(value), block, 10); break;
    case DB_TYPE_FLOAT: _gcvt(hostValue<float>(value), FLOAT_DIGITS, block); break;
    case DB_TYPE_DOUBLE: _gcvt(hostValue<double>(value), DOUBLE_DIGITS, block); break;
    case DB_TYPE_DATE:
    case DB_TYPE_TIME: {
        auto word = hostValue<uint32_t>(value);
        block[0] = '\0';
        if (word == 0) return 0;
        (type == DB_TYPE_DATE ? printDate : printTime)(block, capacity, word);
        break;
    }
    case DB_TYPE_LOGICAL: std::strcpy(block, (hostValue<uint32_t>(value) & 0xFFFF) != 0 ? "T" : "F"); break;
    case DB_TYPE_DATE_TIME: {
        auto words = hostValue<std::array<uint32_t, 2>>(value);
        int length = printDate(block, capacity, words[0]);
        block[length] = ' ';
        printTime(block + length + 1, capacity - length - 1u, words[1]);
        break;
    }
    default:
        // Host text: as it is for delimited text (in the ANSI page when the
        // table converts), reduced to plain characters for a tagged table.
        table.format->textFromHost(static_cast<const char *>(value), {block, capacity}, table.oemConversion != 0);
        break;
    }
    return table.format->textLength(std::span<const char>(block, capacity));
}

uint16_t storeFieldValue(const MergeTable &table, FieldEntry &entry, const void *value, uint16_t length,
                         uint16_t type) {
    entry.printable = false;
    if (length == 0) {
        entry.blankCriterion = 1;
        entry.length = 0;
        return 0;
    }
    // A type that makes no text leaves the entry as it was.
    if (!isKnownType(type)) return 0;
    if (value == nullptr) return ERR_MEMORY;
    uint32_t size = FORMATTED_BLOCK;
    if (isTextType(type)) size = std::min<uint32_t>(4u * length + 1, FIELD_VALUE_LIMIT);
    BlockHandle block = blockResize(entry.value, static_cast<uint16_t>(size));
    if (block == 0) return ERR_MEMORY;
    entry.value = block;
    entry.length = formatFieldValue(table, blockLockAs<char>(block), static_cast<uint16_t>(size), value, type);
    entry.capacity = static_cast<uint16_t>(size);
    return 0;
}

// A new field of a delimited table, stored and then sorted into its
// numeric place.
uint16_t addField(MergeTable &table, const char *name, const void *value, uint16_t length, uint16_t type) {
    if (!table.format->fieldsFromPuts || strnlen(name, FIELD_NAME_SIZE) >= FIELD_NAME_SIZE) return ERR_NO_FIELD;
    if (uint16_t code = fieldsAdd(&table.fields, &table.fieldCount)) return code;
    auto *array = blockLockAs<FieldEntry>(table.fields);
    FieldEntry &entry = array[table.fieldCount - 1];
    std::strcpy(entry.name, name);
    if (uint16_t code = storeFieldValue(table, entry, value, length, type)) return code;
    fieldsSortNumeric(array, table.fieldCount);
    return 0;
}

uint16_t putFieldByName(MergeTable &table, const char *name, const void *value, uint16_t length, uint16_t type) {
    int index = fieldFindByName(table, name);
    if (index >= 0) {
        return storeFieldValue(table, blockLockAs<FieldEntry>(table.fields)[index], value, length, type);
    }
    return addField(table, name, value, length, type);
}

uint16_t putFieldByNumber(MergeTable &table, uint16_t number, const void *value, uint16_t length, uint16_t type) {
    auto *array = blockLockAs<FieldEntry>(table.fields);
    if (array != nullptr && number < table.fieldCount) {
        return storeFieldValue(table, array[number], value, length, type);
    }
    char name[FIELD_NAME_SIZE];
    _itoa(number, name, 10);
    return addField(table, name, value, length, type);
}

}  // namespace
}  // namespace mergedb

using namespace mergedb;

extern "C" DbResult MERGEDB_CALL dbPutFieldValueMerge(uint32_t handle, const char *name, const void *value,
                                                      uint16_t type, uint16_t length) {
    MergeTable *table = tableLock(handle);
    if (table == nullptr || name == nullptr) return errorResult(ERR_MEMORY);
    return errorResult(putFieldByName(*table, name, value, length, type));
}

extern "C" DbResult MERGEDB_CALL dbPutFieldValueHMerge(uint32_t handle, uint16_t number, const void *value,
                                                       uint16_t type, uint16_t length) {
    MergeTable *table = tableLock(handle);
    if (table == nullptr) return errorResult(ERR_MEMORY);
    return errorResult(putFieldByNumber(*table, number, value, length, type));
}

extern "C" DbResult MERGEDB_CALL dbClearRecordMerge(uint32_t handle) {
    MergeTable *table = tableLock(handle);
    if (table == nullptr) return errorResult(ERR_MEMORY);
    auto *array = blockLockAs<FieldEntry>(table->fields);
    if (array == nullptr) return errorResult(table->format->fieldsFromPuts ? 0 : ERR_NOT_BOUND);
    for (int i = 0; i < table->fieldCount; ++i) {
        if (auto *value = blockLockAs<char>(array[i].value)) value[0] = '\0';
        array[i].length = 0;
        array[i].blankCriterion = 0;
    }
    return DB_RESULT_OK;
}
