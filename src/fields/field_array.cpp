#include "fields/field_array.h"

#include <algorithm>

#include "mergedb/mergedb.h"

namespace mergedb {

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

}  // namespace mergedb
