#include "records/record.h"

#include "mergedb/mergedb.h"

namespace mergedb {

BlockHandle nodeAlloc() { return blockAlloc(sizeof(EditNode)); }

uint16_t nodeFree(BlockHandle handle) {
    auto *node = blockLockAs<EditNode>(handle);
    if (node == nullptr) return ERR_MEMORY;
    blockFree(&node->data);
    blockFree(&handle);
    return 0;
}

}  // namespace mergedb
