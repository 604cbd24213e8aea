// The field array of a table: one entry per field, in field order, with the
// field's name, its value in the current record and the four numbers a head
// record may give. Search criteria use a second array of the same entries.
#pragma once

#include <cstdint>

#include "frame/blocks.h"
#include "tablefile/table.h"

namespace mergedb {

inline constexpr uint16_t FIELD_NAME_SIZE = 40;
inline constexpr int16_t FIELD_LIMIT = 1000;
inline constexpr uint16_t FIELD_VALUE_BLOCK = 4096;

struct FieldEntry {
    char name[FIELD_NAME_SIZE];
    BlockHandle value;  // NUL-ended value in the current record
    uint16_t length;
    uint16_t capacity;
    uint16_t info[4];
    uint32_t blankCriterion;
};

static_assert(sizeof(FieldEntry) == 60, "1000 entries must fit one block");

uint16_t fieldsInit(BlockHandle *arraySlot, int16_t *countSlot);
uint16_t fieldsFree(BlockHandle *arraySlot, int16_t *countSlot);
uint16_t fieldsAdd(BlockHandle *arraySlot, int16_t *countSlot);
uint16_t fieldsSortNumeric(FieldEntry *array, int16_t count);

// Index of the first field whose name equals name, ignoring case; -1 when
// there is none. Looks the name up in the table's name index, which it
// makes when the field array has changed since.
int fieldFindByName(MergeTable &table, const char *name);
// The same in array, which is table.fields locked by the caller.
int fieldFindByName(MergeTable &table, const FieldEntry *array, const char *name);

// Frees the table's name index.
void fieldIndexFree(MergeTable &table);

}  // namespace mergedb
