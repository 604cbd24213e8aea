#include "edits/change_list.h"

#include <cstring>

#include "mergedb/mergedb.h"

namespace mergedb {
namespace {

const EditNode *nodeAt(BlockHandle handle) { return blockLockAs<EditNode>(handle); }

// A new block holding a copy of the current record's bytes, or 0.
BlockHandle copyOfData(const EditNode &current) {
    auto length = static_cast<uint16_t>(current.dataLength);
    BlockHandle copy = blockAlloc(length);
    auto *bytes = blockLockAs<uint8_t>(copy);
    const auto *source = blockLockAs<uint8_t>(current.data);
    if (bytes == nullptr || (source == nullptr && length != 0)) {
        blockFree(&copy);
        return 0;
    }
    if (length != 0) std::memcpy(bytes, source, length);
    return copy;
}

// The record was edited before and its node stands at the cursor: the node
// takes the new state, keeping its place in the list.
uint16_t rewriteNode(EditNode &node, EditNode &current) {
    blockFree(&node.data);
    BlockHandle next = node.next;
    BlockHandle prev = node.prev;
    node = current;
    node.next = next;
    node.prev = prev;
    node.origin = 0;
    node.data = copyOfData(current);
    return node.data == 0 ? ERR_MEMORY : 0;
}

uint16_t insertNewNode(MergeTable &table, EditNode &current) {
    BlockHandle handle = nodeAlloc();
    auto *node = blockLockAs<EditNode>(handle);
    if (node == nullptr) return ERR_MEMORY;
    *node = current;
    node->data = 0;
    node->next = 0;
    node->prev = 0;
    node->origin = 0;
    if (!(current.flags & NODE_DELETED)) {
        node->data = copyOfData(current);
        if (node->data == 0) {
            nodeFree(handle);
            return ERR_MEMORY;
        }
    }
    current.origin = handle;
    return changeInsert(table, handle);
}

}  // namespace

uint16_t changeFree(MergeTable &table) {
    BlockHandle handle = table.changeHead;
    while (handle != 0) {
        const auto *node = blockLockAs<EditNode>(handle);
        if (node == nullptr) return ERR_MEMORY;
        BlockHandle next = node->next;
        nodeFree(handle);
        handle = next;
    }
    return 0;
}

uint16_t changeInsert(MergeTable &table, BlockHandle handle) {
    auto *node = blockLockAs<EditNode>(handle);
    if (table.changeHead == 0) {
        if (node == nullptr) return ERR_MEMORY;
        node->next = 0;
        node->prev = 0;
        table.changeHead = table.changeTail = handle;
        table.changeCursor = handle;
        return 0;
    }
    auto *cursor = blockLockAs<EditNode>(table.changeCursor);
    if (node == nullptr || cursor == nullptr) return ERR_MEMORY;
    if (node->offset <= cursor->offset) {
        node->next = table.changeCursor;
        node->prev = cursor->prev;
        if (auto *before = blockLockAs<EditNode>(cursor->prev)) {
            before->next = handle;
        } else {
            table.changeHead = handle;
        }
        cursor->prev = handle;
    } else {
        node->prev = table.changeCursor;
        node->next = cursor->next;
        if (auto *after = blockLockAs<EditNode>(cursor->next)) {
            after->prev = handle;
        } else {
            table.changeTail = handle;
        }
        cursor->next = handle;
    }
    table.changeCursor = handle;
    return 0;
}

uint16_t changeFirst(MergeTable &table) {
    if (table.changeHead == 0) return ERR_MEMORY;
    table.changeCursor = table.changeHead;
    return 0;
}

uint16_t changeLast(MergeTable &table) {
    if (table.changeTail == 0) return ERR_MEMORY;
    table.changeCursor = table.changeTail;
    return 0;
}

void changeCursorToCurrent(MergeTable &table) {
    const EditNode *current = nodeAt(table.current);
    if (current == nullptr) return;
    uint32_t offset = current->offset;
    while (const EditNode *node = nodeAt(table.changeCursor)) {
        const EditNode *next = nodeAt(node->next);
        const EditNode *prev = nodeAt(node->prev);
        if (node->offset < offset && next != nullptr && next->offset <= offset) {
            table.changeCursor = node->next;
        } else if (node->offset > offset && prev != nullptr && prev->offset >= offset) {
            table.changeCursor = node->prev;
        } else {
            return;
        }
    }
}

uint16_t changeEnterEdit(MergeTable &table) {
    auto *current = blockLockAs<EditNode>(table.current);
    if (current == nullptr) return ERR_MEMORY;
    auto *atCursor = blockLockAs<EditNode>(table.changeCursor);
    if (atCursor != nullptr && atCursor->offset == current->offset) return rewriteNode(*atCursor, *current);
    return insertNewNode(table, *current);
}

}  // namespace mergedb
