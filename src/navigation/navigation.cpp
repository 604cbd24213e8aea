// Moving through a table: the four moves and the jump of the host, with the
// pending edits of the change list merged into the file's records.
//
// changeCursor stands next to the current record: after a move forward on
// the first node behind it (or the last node), after a move backward on the
// last node before it (or the first node), and on the record's own node
// when it came from one. A move that ends without a record, and a jump,
// bring the cursor back next to the current record, so that the next move
// or edit finds it where it expects it.
#include <cstring>

#include "edits/change_list.h"
#include "frame/result.h"
#include "navigation/navigation.h"
#include "records/field_extraction.h"
#include "records/record_format.h"
#include "records/record_scanner.h"
#include "tablefile/window.h"

namespace mergedb {
namespace {

const EditNode *nodeAt(BlockHandle handle) { return blockLockAs<EditNode>(handle); }

bool isDeleted(const EditNode &node) { return (node.flags & NODE_DELETED) != 0; }

uint16_t changeStepForward(MergeTable &table) {
    const EditNode *node = nodeAt(table.changeCursor);
    if (node == nullptr) return ERR_MEMORY;
    if (node->next == 0) return ERR_LIST_END;
    table.changeCursor = node->next;
    return 0;
}

uint16_t changeStepBack(MergeTable &table) {
    const EditNode *node = nodeAt(table.changeCursor);
    if (node == nullptr) return ERR_MEMORY;
    if (node->prev == 0) return ERR_START_OF_FILE;
    table.changeCursor = node->prev;
    return 0;
}

// Makes the node at the cursor the current record, with a private copy of
// its image one NUL byte longer than the image.
uint16_t adoptNode(MergeTable &table) {
    const EditNode *node = nodeAt(table.changeCursor);
    auto *current = blockLockAs<EditNode>(table.current);
    if (node == nullptr || current == nullptr) return ERR_MEMORY;
    blockFree(&current->data);
    *current = *node;
    current->data = blockAlloc(static_cast<uint16_t>(node->dataLength + 1));
    auto *bytes = blockLockAs<uint8_t>(current->data);
    const auto *image = blockLockAs<uint8_t>(node->data);
    if (bytes == nullptr) return ERR_MEMORY;
    if (image != nullptr) std::memcpy(bytes, image, node->dataLength);
    current->origin = table.changeCursor;
    return 0;
}

uint16_t readRecordAt(MergeTable &table, uint32_t offset) {
    if (uint16_t code = windowSeek(table, offset)) return code;
    return readRecord(table);
}

// The node, when it lies at the window's position and so stands for the
// record there.
const EditNode *listNodeAtWindow(MergeTable &table, BlockHandle node) {
    const EditNode *found = nodeAt(node);
    return found != nullptr && found->offset == windowTell(table) ? found : nullptr;
}

uint16_t moveNext(MergeTable &table) {
    const EditNode *current = currentRecord(table);
    if (current == nullptr) return ERR_MEMORY;
    EditNode s = *current;
    uint32_t p = s.offset;
    while (const EditNode *node = nodeAt(table.changeCursor)) {
        if (node->offset <= p) {
            uint16_t code = changeStepForward(table);
            if (code == ERR_LIST_END) break;
            if (code != 0) return code;
            node = nodeAt(table.changeCursor);
        }
        if (s.offset + s.originalLength != node->offset) break;
        if (!isDeleted(*node)) return adoptNode(table);
        s = *node;
        p = s.offset;
        uint16_t code = changeStepForward(table);
        if (code == ERR_LIST_END) break;
        if (code != 0) return code;
    }
    return readRecordAt(table, s.offset + s.originalLength);
}

uint16_t movePrev(MergeTable &table) {
    const EditNode *current = currentRecord(table);
    if (current == nullptr) return ERR_MEMORY;
    EditNode s = *current;
    uint32_t p = s.offset;
    while (const EditNode *node = nodeAt(table.changeCursor)) {
        if (node->offset >= p) {
            uint16_t code = changeStepBack(table);
            if (code == ERR_START_OF_FILE) break;
            if (code != 0) return code;
            node = nodeAt(table.changeCursor);
        }
        if (node->offset + node->originalLength != p) break;
        if (!isDeleted(*node)) return adoptNode(table);
        s = *node;
        p = s.offset;
        uint16_t code = changeStepBack(table);
        if (code == ERR_START_OF_FILE) break;
        if (code != 0) return code;
    }
    if (uint16_t code = table.format->locatePrevious(table, p)) return code;
    // Only a damaged token stream puts the record before at or behind the
    // current one; the walk back ends there rather than going round.
    if (windowTell(table) >= p) return ERR_START_OF_FILE;
    return readRecord(table);
}

uint16_t moveFirst(MergeTable &table) {
    table.changeCursor = table.changeHead;
    if (windowSeek(table, table.format->dataStart(table)) != 0) return readRecord(table);
    // The head record of a tagged document is no data record.
    if (table.hasFieldNames) {
        readRecord(table);
        return moveNext(table);
    }
    if (changeFirst(table) != 0) return readRecord(table);
    const EditNode *head = listNodeAtWindow(table, table.changeCursor);
    if (head == nullptr) return readRecord(table);
    if (isDeleted(*head)) {
        readRecord(table);
        return moveNext(table);
    }
    return adoptNode(table);
}

uint16_t moveLast(MergeTable &table) {
    if (uint16_t code = table.format->locateLast(table)) return code;
    if (changeLast(table) != 0) return readRecord(table);
    const EditNode *tail = listNodeAtWindow(table, table.changeCursor);
    if (tail == nullptr) return readRecord(table);
    if (isDeleted(*tail)) {
        readRecord(table);
        return movePrev(table);
    }
    return adoptNode(table);
}

// Runs a move; when it ends without a record, the cursor goes back next to
// whatever the current record now is.
template <typename Move>
uint16_t runMove(MergeTable &table, Move move) {
    uint16_t code = move(table);
    if (code != 0) changeCursorToCurrent(table);
    return code;
}

// The result of a move as the host sees it: any failure of the walk is the
// end of the data; a record that does not split is an error.
DbResult moveResult(uint32_t handle, uint16_t (*move)(MergeTable &), uint32_t wantMark, uint32_t *mark) {
    MergeTable *table = tableLock(handle);
    if (table == nullptr) return errorResult(ERR_MEMORY);
    if (runMove(*table, move) != 0) return END_OF_DATA;
    if (uint16_t code = loadFields(*table)) return errorResult(code);
    if (wantMark != 0 && mark != nullptr) *mark = 1;
    return DB_RESULT_OK;
}

}  // namespace

uint16_t moveToFirst(MergeTable &table) { return runMove(table, moveFirst); }

uint16_t moveToNext(MergeTable &table) { return runMove(table, moveNext); }

}  // namespace mergedb

using namespace mergedb;

extern "C" DbResult MERGEDB_CALL dbFirstMerge(uint32_t table) { return moveResult(table, moveFirst, 0, nullptr); }

extern "C" DbResult MERGEDB_CALL dbLastMerge(uint32_t table, uint32_t wantMark, uint32_t *mark) {
    return moveResult(table, moveLast, wantMark, mark);
}

extern "C" DbResult MERGEDB_CALL dbNextMerge(uint32_t table, uint32_t wantMark, uint32_t *mark) {
    return moveResult(table, moveNext, wantMark, mark);
}

extern "C" DbResult MERGEDB_CALL dbPrevMerge(uint32_t table, uint32_t wantMark, uint32_t *mark) {
    return moveResult(table, movePrev, wantMark, mark);
}

// A jump reads the record at a file offset as the file has it; the change
// list is not consulted, but its cursor is brought next to the new record.
extern "C" DbResult MERGEDB_CALL dbGetRecordMerge(uint32_t handle, uint32_t wantMark, uint32_t *mark,
                                                  uint32_t position) {
    MergeTable *table = tableLock(handle);
    if (table == nullptr) return errorResult(ERR_MEMORY);
    uint16_t code = readRecordAt(*table, position);
    changeCursorToCurrent(*table);
    if (code == 0) code = loadFields(*table);
    if (code != 0) return errorResult(code);
    if (wantMark != 0 && mark != nullptr) *mark = position;
    return DB_RESULT_OK;
}
