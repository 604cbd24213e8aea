#include "fields/field_array.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "mergedb/mergedb.h"
#include "platform/windows_api.h"

namespace mergedb {
namespace {

// Ascending by the number atoi reads from each name. The difference is taken
// in 64 bits so that large numbers of opposite sign cannot overflow it.
int compareNumericNames(const void *first, const void *second) {
    int64_t difference = int64_t{std::atoi(static_cast<const FieldEntry *>(first)->name)} -
                         std::atoi(static_cast<const FieldEntry *>(second)->name);
    return (difference > 0) - (difference < 0);
}

// Folds a byte as our _stricmp does: ASCII capitals to small letters.
unsigned char foldCase(char c) {
    auto byte = static_cast<unsigned char>(c);
    return (byte >= 'A' && byte <= 'Z') ? static_cast<unsigned char>(byte + ('a' - 'A')) : byte;
}

// The walk from index 0: names whose first bytes differ after folding
// cannot be equal, so most entries are passed over without _stricmp.
int findByWalk(const MergeTable &table, const FieldEntry *array, const char *name) {
    unsigned char first = foldCase(name[0]);
    for (int i = 0; i < table.fieldCount; ++i) {
        if (foldCase(array[i].name[0]) == first && _stricmp(array[i].name, name) == 0) return i;
    }
    return -1;
}

// Open addressing over twice as many slots as fields can be; a slot holds
// a field's index + 1, 0 when empty. Only the first of equal names goes in,
// so a lookup finds what the walk from index 0 finds.
constexpr uint32_t INDEX_SLOTS = 2048;
constexpr uint32_t INDEX_MASK = INDEX_SLOTS - 1;
static_assert(INDEX_SLOTS >= 2 * FIELD_LIMIT);

// A host reads the fields of a record mostly in their order, so a lookup
// first tries the field behind the one found last. firstOfName tells which
// fields the walk from index 0 can find at all.
struct FieldNameIndex {
    BlockHandle fields;  // the array and count it was made for
    int16_t count;
    int16_t lastFound;
    uint16_t slots[INDEX_SLOTS];
    bool firstOfName[FIELD_LIMIT];
};

// _stricmp, which names that are equal byte for byte need not call.
bool sameName(const char *fieldName, const char *name) {
    const char *a = fieldName;
    const char *b = name;
    while (*a == *b && *a != '\0') ++a, ++b;
    return *a == *b || _stricmp(fieldName, name) == 0;
}

uint32_t nameHash(const char *name) {
    uint32_t hash = 2166136261u;
    for (; *name != '\0'; ++name) hash = (hash ^ foldCase(*name)) * 16777619u;
    return hash;
}

FieldNameIndex *buildIndex(MergeTable &table, const FieldEntry *array) {
    if (table.fieldIndex == 0) table.fieldIndex = blockAlloc(sizeof(FieldNameIndex));
    auto *index = blockLockAs<FieldNameIndex>(table.fieldIndex);
    if (index == nullptr) return nullptr;
    *index = FieldNameIndex{table.fields, table.fieldCount, -1, {}, {}};
    for (int i = 0; i < table.fieldCount; ++i) {
        uint32_t slot = nameHash(array[i].name);
        for (;; ++slot) {
            uint16_t &entry = index->slots[slot & INDEX_MASK];
            if (entry == 0) {
                entry = static_cast<uint16_t>(i + 1);
                index->firstOfName[i] = true;
                break;
            }
            if (_stricmp(array[entry - 1].name, array[i].name) == 0) break;
        }
    }
    return index;
}

// The table's index when it still fits its field array, else a new one;
// null when there is no memory for it.
FieldNameIndex *currentIndex(MergeTable &table, const FieldEntry *array) {
    auto *index = blockLockAs<FieldNameIndex>(table.fieldIndex);
    if (index != nullptr && index->fields == table.fields && index->count == table.fieldCount) return index;
    return buildIndex(table, array);
}

}  // namespace

uint16_t fieldsInit(BlockHandle *arraySlot, int16_t *countSlot) {
    *arraySlot = 0;
    *countSlot = 0;
    return 0;
}

uint16_t fieldsFree(BlockHandle *arraySlot, int16_t *countSlot) {
    if (auto *array = blockLockAs<FieldEntry>(*arraySlot)) {
        int entries = std::min<int>(*countSlot, blockSize(*arraySlot) / sizeof(FieldEntry));
        for (int i = 0; i < entries; ++i) blockFree(&array[i].value);
    }
    blockFree(arraySlot);
    *countSlot = 0;
    return 0;
}

uint16_t fieldsAdd(BlockHandle *arraySlot, int16_t *countSlot) {
    if (*arraySlot == 0) {
        *arraySlot = blockAlloc(sizeof(FieldEntry));
        if (*arraySlot == 0) return ERR_MEMORY;
        *countSlot = 1;
    } else {
        if (*countSlot >= FIELD_LIMIT) return ERR_TOO_MANY_FIELDS;
        BlockHandle grown = blockResize(*arraySlot, static_cast<uint16_t>((*countSlot + 1) * sizeof(FieldEntry)));
        // The count rises only with the array, so that it never names an
        // entry past the block's end.
        if (grown == 0) return ERR_MEMORY;
        *arraySlot = grown;
        ++*countSlot;
    }
    auto *array = blockLockAs<FieldEntry>(*arraySlot);
    FieldEntry &entry = array[*countSlot - 1];
    entry.value = blockAlloc(FIELD_VALUE_BLOCK);
    return entry.value == 0 ? ERR_MEMORY : 0;
}

uint16_t fieldsSortNumeric(FieldEntry *array, int16_t count) {
    if (array != nullptr && count > 1) std::qsort(array, count, sizeof(FieldEntry), compareNumericNames);
    return 0;
}

int fieldFindByName(MergeTable &table, const FieldEntry *array, const char *name) {
    if (array == nullptr) return -1;
    FieldNameIndex *index = currentIndex(table, array);
    if (index == nullptr) return findByWalk(table, array, name);
    int next = index->lastFound + 1 < index->count ? index->lastFound + 1 : 0;
    if (index->firstOfName[next] && sameName(array[next].name, name)) {
        return index->lastFound = static_cast<int16_t>(next);
    }
    for (uint32_t slot = nameHash(name);; ++slot) {
        uint16_t entry = index->slots[slot & INDEX_MASK];
        if (entry == 0) return -1;
        if (sameName(array[entry - 1].name, name)) return index->lastFound = static_cast<int16_t>(entry - 1);
    }
}

int fieldFindByName(MergeTable &table, const char *name) {
    return fieldFindByName(table, blockLockAs<FieldEntry>(table.fields), name);
}

void fieldIndexFree(MergeTable &table) { blockFree(&table.fieldIndex); }

}  // namespace mergedb
