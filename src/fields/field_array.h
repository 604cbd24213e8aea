// The field array of a table: one entry per field, in field order, with the
// field's name, its value in the current record and the four numbers a head
// record may give. Search criteria use a second array of the same entries.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

#include "formats/byte_runs.h"
#include "frame/blocks.h"
#include "mergedb/mergedb.h"
#include "platform/windows_api.h"
#include "tablefile/table.h"

namespace mergedb {

inline constexpr uint16_t FIELD_NAME_SIZE = 40;
inline constexpr int16_t FIELD_LIMIT = 1000;
static_assert(FIELD_LIMIT == DB_MOST_FIELDS, "the public header tells the host this limit");
inline constexpr uint16_t FIELD_VALUE_BLOCK = 4096;
// The most bytes of text a value holds, and that a host reads or puts at
// once, a put's NUL included: the driver's largest transfer.
inline constexpr uint16_t FIELD_VALUE_LIMIT = DB_LONGEST_PUT + 1;

struct FieldEntry {
    char name[FIELD_NAME_SIZE];
    BlockHandle value;  // NUL-ended value in the current record
    uint16_t length;
    uint16_t capacity;
    uint16_t info[4];
    uint32_t blankCriterion;
    // Whenever this is set, the value is length printable characters
    // (32-126) and its NUL, which a read gives the host as they stand. Set
    // only by the extraction of a tagged value that saw it so; cleared
    // before anything else writes the value or its length, unless it
    // writes an empty value.
    bool printable;
};

static_assert(sizeof(FieldEntry) * FIELD_LIMIT <= UINT16_MAX, "1000 entries must fit one block");

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
// from index 0 finds.
inline constexpr uint32_t FIELD_INDEX_SLOTS = 2048;

struct FieldNameIndex {
    BlockHandle fields;  // the array and count it was made for
    int16_t count;
    bool unique;  // no two of the fields share a name
    uint16_t slots[FIELD_INDEX_SLOTS];
};

// The table's index, if it still fits the table's field array.
inline FieldNameIndex *fieldIndexOf(const MergeTable &table) {
    auto *index = blockLockAs<FieldNameIndex>(table.fieldIndex);
    return index != nullptr && index->fields == table.fields && index->count == table.fieldCount ? index : nullptr;
}

// Eight bytes of the host's name are read at once only from an address
// that is a multiple of eight: such a read lies in one page, so it can't
// fault whatever follows the name's NUL, and in one word of the name's
// allocation, which checkers of memory such as Valgrind's accept.
inline bool wordAligned(const char *p) { return (reinterpret_cast<uintptr_t>(p) & (sizeof(uint64_t) - 1)) == 0; }

// _stricmp, which names that are equal byte for byte need not call, nor
// names that first differ in two ASCII bytes that are no letters of one
// case pair. Equal names are passed over eight bytes at a time from the
// first aligned byte of the host's name on; a field's name ends within its
// 40 bytes, so its words stay inside its entry. Under AddressSanitizer,
// which would take the bytes behind a name's NUL for an overflow, byte by
// byte only.
inline bool sameName(const char *fieldName, const char *name) {
    const char *a = fieldName;
    const char *b = name;
#ifndef MERGEDB_ASAN
    while (!wordAligned(b) && *a == *b && *a != '\0') ++a, ++b;
    // Names that differ at once, as the guess that misses mostly does, are
    // told by their first bytes.
    while (*a == *b && wordAligned(b)) {
        uint64_t x = 0;
        uint64_t y = 0;
        std::memcpy(&x, a, sizeof x);
        std::memcpy(&y, b, sizeof y);
        uint64_t difference = x ^ y;
        uint64_t end = byteruns::zeroBytes(x);
        if (end == 0 && difference == 0) {
            a += sizeof x;
            b += sizeof y;
            continue;
        }
        // Equal up to the field name's NUL: the host's name ends there too.
        if (end != 0 && (difference & (end ^ (end - 1))) == 0) return true;
        // On to the first byte that differs, for the checks below.
        auto first = static_cast<size_t>(std::countr_zero(difference | end)) >> 3;
        a += first;
        b += first;
        break;
    }
#endif
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

// Whether the table's guess was made for its present field array.
inline bool guessHolds(const MergeTable &table) {
    const NameGuess &guess = table.nameGuess;
    return guess.fields == table.fields && guess.count == table.fieldCount && guess.fields != 0;
}

// Index of the first field whose name equals name, ignoring case; -1 when
// there is none. array is table.fields, locked by the caller.
//
// A host reads the fields of a record mostly in their order, so a lookup
// first tries the field behind the one found last, then that one again, in
// a table whose fields all have names of their own (nameGuess is kept only
// for those): whichever has the name is the field. Both are read from the
// table itself, so that the common lookup waits for no other block.
inline int fieldFindByName(MergeTable &table, const FieldEntry *array, const char *name) {
    NameGuess &guess = table.nameGuess;
    if (guessHolds(table) && array != nullptr) {
        int last = guess.last;
        int next = last + 1 < guess.count ? last + 1 : 0;
        if (sameName(array[next].name, name)) return guess.last = static_cast<int16_t>(next);
        if (sameName(array[last].name, name)) return last;
    }
    return fieldFindByNameInIndex(table, array, name);
}

// The table's field array, from the guess while it holds, which spares a
// lookup on every read by name; null when there is none.
inline const FieldEntry *fieldArrayOf(const MergeTable &table) {
    return guessHolds(table) ? table.nameGuess.array : blockLockAs<const FieldEntry>(table.fields);
}

inline int fieldFindByName(MergeTable &table, const char *name) {
    return fieldFindByName(table, fieldArrayOf(table), name);
}

// Frees the table's name index.
void fieldIndexFree(MergeTable &table);

}  // namespace mergedb
