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

int fieldFindByName(const MergeTable &table, const char *name) {
    const auto *array = blockLockAs<FieldEntry>(table.fields);
    if (array == nullptr) return -1;
    // Names whose first bytes differ after folding cannot be equal, so most
    // entries are passed over without a call to _stricmp.
    unsigned char first = foldCase(name[0]);
    for (int i = 0; i < table.fieldCount; ++i) {
        if (foldCase(array[i].name[0]) == first && _stricmp(array[i].name, name) == 0) return i;
    }
    return -1;
}

}  // namespace mergedb
