// The change list: pending updates and deletes, a doubly linked list of
// record images sorted by the file offset of the record each one replaces.
//
// The list is sorted by offset, ascending, with one node for an offset, and
// each node owns its data block. changeCursor is not 0 while the list is
// not empty, and stands next to the table's current record (on its node, or
// on a neighbour on either side of its offset) whenever an edit enters the
// list.
#pragma once

#include <cstdint>

#include "records/record.h"
#include "tablefile/table.h"

namespace mergedb {

// Frees every node of the list; the table's handles stay as they are.
uint16_t changeFree(MergeTable &table);
// Links node next to the cursor's node, before it when its offset is not
// greater, and makes it the cursor.
uint16_t changeInsert(MergeTable &table, BlockHandle node);
// The cursor to the head or the tail; ERR_MEMORY for an empty list.
uint16_t changeFirst(MergeTable &table);
uint16_t changeLast(MergeTable &table);

// Brings changeCursor next to the current record: onto the record's node if
// it has one, else onto a neighbour on either side of its offset. Walks the
// list from where the cursor stands, so it is cheap after a move.
void changeCursorToCurrent(MergeTable &table);

// Enters the edit whose flag the current record carries into the list: a
// record with a node at the cursor gets its node rewritten, any other gets a
// new node beside the cursor.
uint16_t changeEnterEdit(MergeTable &table);

}  // namespace mergedb
