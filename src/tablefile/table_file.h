// The steps of opening and closing a table's file.
#pragma once

#include <cstdint>

#include "tablefile/table.h"

namespace mergedb {

// Opens the file through env with table.accessFlags, measures it, gives the
// table its window and scratch blocks and makes the first fill. A file
// beyond the largest that 32-bit offsets reach is refused with ERR_OPEN.
// Leaves nothing open on failure.
uint16_t tableFileOpen(MergeTable &table, const Env &env, const char *path);

// Frees the window and scratch and closes the file.
uint16_t tableFileClose(MergeTable &table);

// Tests the header of a tagged document, leaves the window on the first
// byte of its document stream and sets the table's kind.
uint16_t headerCheck(MergeTable &table);

}  // namespace mergedb
