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

static_assert(FIELD_INDEX_SLOTS >= 2 * FIELD_LIMIT);
constexpr uint32_t INDEX_MASK = FIELD_INDEX_SLOTS - 1;

uint32_t nameHash(const char *name) {
    uint32_t hash = 2166136261u;
    for (; *name != '\0'; ++name) hash = (hash ^ foldCase(*name)) * 16777619u;
    return hash;
}

FieldNameIndex *buildIndex(MergeTable &table, const FieldEntry *array) {
    if (table.fieldIndex == 0) table.fieldIndex = blockAlloc(sizeof(FieldNameIndex));
    auto *index = blockLockAs<FieldNameIndex>(table.fieldIndex);
    if (index == nullptr) return nullptr;
    *index = FieldNameIndex{table.fields, table.fieldCount, true, {}};
    for (int i = 0; i < table.fieldCount; ++i) {
        uint32_t slot = nameHash(array[i].name);
        for (;; ++slot) {
            uint16_t &entry = index->slots[slot & INDEX_MASK];
            if (entry == 0) {
                entry = static_cast<uint16_t>(i + 1);
                break;
            }
            if (_stricmp(array[entry - 1].name, array[i].name) == 0) {
                index->unique = false;
                break;
            }
        }
    }
    return index;
}

// The table's index when it still fits its field array, else a new one;
// null when there is no memory for it.
FieldNameIndex *currentIndex(MergeTable &table, const FieldEntry *array) {
    if (FieldNameIndex *index = fieldIndexOf(table)) return index;
    return buildIndex(table, array);
}

}  // namespace

void fieldsFree(BlockHandle *arraySlot, int16_t *countSlot) {
    if (auto *array = blockLockAs<FieldEntry>(*arraySlot)) {
        int entries = std::min<int>(*countSlot, blockSize(*arraySlot) / sizeof(FieldEntry));
        for (int i = 0; i < entries; ++i) blockFree(&array[i].value);
    }
    blockFree(arraySlot);
    *countSlot = 0;
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

void fieldsSortNumeric(FieldEntry *array, int16_t count) {
    if (array != nullptr && count > 1) std::qsort(array, count, sizeof(FieldEntry), compareNumericNames);
}

int fieldFindByNameInIndex(MergeTable &table, const FieldEntry *array, const char *name) {
    if (array == nullptr) return -1;
    FieldNameIndex *index = currentIndex(table, array);
    if (index == nullptr) return findByWalk(table, array, name);
    for (uint32_t slot = nameHash(name);; ++slot) {
        uint16_t entry = index->slots[slot & INDEX_MASK];
        if (entry == 0) return -1;
        if (!sameName(array[entry - 1].name, name)) continue;
        int16_t found = static_cast<int16_t>(entry - 1);
        table.nameGuess = index->unique ? NameGuess{table.fields, table.fieldCount, found, array} : NameGuess{};
        return found;
    }
}

void fieldIndexFree(MergeTable &table) { blockFree(&table.fieldIndex); }

}  // namespace mergedb
