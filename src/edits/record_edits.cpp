// The host's record edits. Insert and update build the record's image from
// the field values, in the table's own file form, in the current record's
// block; insert appends it to the file at once, update and delete leave it
// in the change list for the commit at close. The delete's export, which
// may compact the table, is the table layer's.
#include <algorithm>

#include "edits/change_list.h"
#include "edits/record_edits.h"
#include "fields/field_array.h"
#include "frame/result.h"
#include "records/parse_cursor.h"
#include "records/record_format.h"
#include "tablefile/file_service.h"
#include "tablefile/window.h"

namespace mergedb {
namespace {

// The entry's value as it stands in a record: its length bytes.
std::span<const uint8_t> valueBytes(const FieldEntry &entry) {
    const auto *value = blockLockAs<uint8_t>(entry.value);
    if (value == nullptr) return {};
    return {value, std::min<uint32_t>(entry.length, blockSize(entry.value))};
}

// Builds the image of all fields into node's block, from its first byte.
// The block starts at one step; the node's dataLength ends as the bytes
// written.
uint16_t buildImage(MergeTable &table, EditNode &node) {
    const auto *fields = blockLockAs<FieldEntry>(table.fields);
    if (fields == nullptr && table.fieldCount != 0) return ERR_MEMORY;
    ParseCursor image(node);
    if (!image.valid()) return ERR_MEMORY;
    const RecordFormat &format = *table.format;
    uint16_t code = 0;
    for (int i = 0; i < table.fieldCount && code == 0; ++i) {
        if (blockLockAs<uint8_t>(fields[i].value) == nullptr) return ERR_MEMORY;
        code = format.writeField(table, image, valueBytes(fields[i]), i == table.fieldCount - 1);
    }
    if (code == 0) code = format.writeRecordEnd(table, image);
    if (code == 0) node.dataLength = image.offset();
    return code;
}

// Gives the node a fresh block of one build step.
uint16_t startImage(EditNode &node) {
    BlockHandle block = blockResize(node.data, RECORD_BLOCK_STEP);
    if (block == 0) return ERR_MEMORY;
    node.data = block;
    node.dataLength = RECORD_BLOCK_STEP;
    return 0;
}

// Puts the file's end back where it was before an append that failed: the
// bytes behind fileSize go, and a final byte 26 that the append wrote over
// comes back, so that the next append does not follow a fragment.
void restoreEnd(MergeTable &table, uint32_t oldSize) {
    if (fileTruncate(&table.file, oldSize) != 0 || oldSize == table.fileSize) return;
    if (fileSeek(&table.file, table.fileSize) != FILE_FAILURE) fileWrite(&table.file, &END_OF_FILE_MARK, 1);
}

// Writes the image at fileSize, over a final byte 26. A file that would
// grow beyond what 32-bit offsets reach is not written to.
uint16_t appendImage(MergeTable &table, const EditNode &node) {
    uint32_t oldSize = fileSize(&table.file);
    if (oldSize == FILE_FAILURE || node.dataLength > LARGEST_FILE - table.fileSize) return ERR_WRITE;
    if (fileSeek(&table.file, table.fileSize) == FILE_FAILURE) return ERR_SEEK;
    const auto *image = blockLockAs<uint8_t>(node.data);
    if (fileWrite(&table.file, image, static_cast<uint16_t>(node.dataLength)) != static_cast<int16_t>(node.dataLength)) {
        restoreEnd(table, oldSize);
        return ERR_WRITE;
    }
    return 0;
}

uint16_t insertRecord(MergeTable &table) {
    if (table.current == 0) table.current = nodeAlloc();
    auto *node = blockLockAs<EditNode>(table.current);
    if (node == nullptr) return ERR_MEMORY;
    blockFree(&node->data);
    if (uint16_t code = startImage(*node)) return code;
    if (uint16_t code = buildImage(table, *node)) return code;
    node->flags = 0;
    if (uint16_t code = appendImage(table, *node)) return code;
    node->offset = table.fileSize;
    node->originalLength = node->dataLength;
    table.window.atEof = 0;
    table.fileSize += node->dataLength;
    // The window may hold bytes from behind the old end (a final byte 26 or
    // an earlier short write); empty it so that the seek reads the file.
    table.window.cursor = table.window.end = 0;
    // As after a jump, the list's cursor comes next to the new record, so
    // that the next move sees the nodes of the records in front of it.
    changeCursorToCurrent(table);
    return windowSeek(table, node->offset);
}

}  // namespace

// The cursor is first brought next to the current record, so that an edit
// after an insert, a jump or the end of the data still finds the record's
// node or its place in the list.
uint16_t editCurrent(MergeTable &table, uint8_t mode) {
    auto *node = blockLockAs<EditNode>(table.current);
    if (node == nullptr) return ERR_MEMORY;
    changeCursorToCurrent(table);
    if (uint16_t code = startImage(*node)) return code;
    if (mode == NODE_UPDATED) {
        if (table.fields == 0) return ERR_MEMORY;
        if (uint16_t code = buildImage(table, *node)) return code;
    }
    node->flags |= mode;
    return changeEnterEdit(table);
}

namespace {

void writeMark(uint32_t wantMark, uint32_t *mark) {
    if (wantMark != 0 && mark != nullptr) *mark = 1;
}

}  // namespace
}  // namespace mergedb

using namespace mergedb;

extern "C" DbResult MERGEDB_CALL dbInsertMerge(uint32_t handle, uint32_t wantMark, uint32_t *mark) {
    MergeTable *table = tableLock(handle);
    if (table == nullptr) return errorResult(ERR_MEMORY);
    if (uint16_t code = insertRecord(*table)) return errorResult(code);
    writeMark(wantMark, mark);
    return DB_RESULT_OK;
}

extern "C" DbResult MERGEDB_CALL dbUpdateMerge(uint32_t handle, uint32_t wantMark, uint32_t *mark) {
    MergeTable *table = tableLock(handle);
    if (table == nullptr) return errorResult(ERR_MEMORY);
    if (uint16_t code = editCurrent(*table, NODE_UPDATED)) return errorResult(code);
    table->dirty = 1;
    writeMark(wantMark, mark);
    return DB_RESULT_OK;
}
