// The field array of a table: one entry per field, in field order, with the
// field's name, its value in the current record and the four numbers a head
// record may give. Search criteria use a second array of the same entries.
#pragma once

#include <cstdint>

#include "frame/blocks.h"
#include "platform/windows_api.h"
#include "tablefile/table.h"

namespace mergedb {

inline constexpr uint16_t FIELD_NAME_SIZE = 40;
inline constexpr int16_t FIELD_LIMIT = 1000;
inline constexpr uint16_t FIELD_VALUE_BLOCK = 4096;
// The most bytes of text a value holds, and that a host reads or puts at
// once: the driver's largest transfer.
inline constexpr uint16_t FIELD_VALUE_LIMIT = 32000;

struct FieldEntry {
    char name[FIELD_NAME_SIZE];
    BlockHandle value;  // NUL-ended value in the current record
    uint16_t length;
    uint16_t capacity;
    uint16_t info[4];
    uint32_t blankCriterion;
};

static_assert(sizeof(FieldEntry) == 60, "1000 entries must fit one block");

// Frees the array and every value block, and leaves an empty array.
void fieldsFree(BlockHandle *arraySlot, int16_t *countSlot);
// Adds an entry with a value block of FIELD_VALUE_BLOCK bytes behind the
// others; the count rises only with the array. 0, ERR_TOO_MANY_FIELDS or
// ERR_MEMORY.
uint16_t fieldsAdd(BlockHandle *arraySlot, int16_t *countSlot);
// Sorts whole entries by the number that atoi reads from their names.
void fieldsSortNumeric(FieldEntry *array, int16_t count);

// A table's index of its field names: open addressing over twice as many
// slots as fields can be; a slot holds a field's index + 1, 0 when empty.
// Only the first of equal names goes in, so a lookup finds what the walk
// from index 0 finds. A host reads the fields of a record mostly in their
// order, so a lookup first tries the field behind the one found last;
// firstOfName tells which fields the walk from index 0 can find at all.
inline constexpr uint32_t FIELD_INDEX_SLOTS = 2048;

struct FieldNameIndex {
    BlockHandle fields;  // the array and count it was made for
    int16_t count;
    int16_t lastFound;
    uint16_t slots[FIELD_INDEX_SLOTS];
    bool firstOfName[FIELD_LIMIT];
};

// The table's index, if it still fits the table's field array.
inline FieldNameIndex *fieldIndexOf(const MergeTable &table) {
    auto *index = blockLockAs<FieldNameIndex>(table.fieldIndex);
    return index != nullptr && index->fields == table.fields && index->count == table.fieldCount ? index : nullptr;
}

// _stricmp, which names that are equal byte for byte need not call, nor
// names that first differ in two ASCII bytes that are no letters of one
// case pair.
inline bool sameName(const char *fieldName, const char *name) {
    const char *a = fieldName;
    const char *b = name;
    while (*a == *b && *a != '\0') ++a, ++b;
    if (*a == *b) return true;
    auto x = static_cast<unsigned char>(*a | 0x20);
    auto y = static_cast<unsigned char>(*b | 0x20);
    bool asciiPair = static_cast<unsigned char>(*a) < 128 && static_cast<unsigned char>(*b) < 128;
    if (asciiPair && (x != y || x < 'a' || x > 'z')) return false;
    return _stricmp(fieldName, name) == 0;
}

// fieldFindByName through the index, which it makes when the field array
// has changed since the last lookup.
int fieldFindByNameInIndex(MergeTable &table, const FieldEntry *array, const char *name);

// Index of the first field whose name equals name, ignoring case; -1 when
// there is none. array is table.fields, locked by the caller.
inline int fieldFindByName(MergeTable &table, const FieldEntry *array, const char *name) {
    FieldNameIndex *index = fieldIndexOf(table);
    if (index != nullptr && array != nullptr) {
        int next = index->lastFound + 1 < index->count ? index->lastFound + 1 : 0;
        if (index->firstOfName[next] && sameName(array[next].name, name)) {
            return index->lastFound = static_cast<int16_t>(next);
        }
        // A host that reads one field again and again.
        int last = index->lastFound;
        if (last >= 0 && index->firstOfName[last] && sameName(array[last].name, name)) return last;
    }
    return fieldFindByNameInIndex(table, array, name);
}

inline int fieldFindByName(MergeTable &table, const char *name) {
    return fieldFindByName(table, blockLockAs<FieldEntry>(table.fields), name);
}

// Frees the table's name index.
void fieldIndexFree(MergeTable &table);

}  // namespace mergedb
