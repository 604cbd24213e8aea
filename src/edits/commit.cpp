#include "edits/commit.h"

#include <cstring>

#include "edits/change_list.h"
#include "formats/tagged_format.h"
#include "frame/result.h"
#include "tablefile/file_service.h"

namespace mergedb {
namespace {

constexpr uint16_t COPY_BLOCK = 4096;
constexpr uint32_t MODE_OLD_FILE = MODE_OPEN_EXCLUSIVE;  // 290

// The backup name: the path with ".bk" from its first "." on, or added.
bool backupName(const char *path, char (&out)[PATH_BUFFER_SIZE]) {
    static constexpr char SUFFIX[] = ".bk";
    const char *dot = std::strchr(path, '.');
    size_t keep = dot == nullptr ? std::strlen(path) : static_cast<size_t>(dot - path);
    if (keep + sizeof SUFFIX > PATH_BUFFER_SIZE) return false;
    std::memcpy(out, path, keep);
    std::memcpy(out + keep, SUFFIX, sizeof SUFFIX);
    return true;
}

// Copies count bytes from the source's position to the destination's. A
// read that brings nothing, or a write that falls short, ends the copy
// with a failure, so that a damaged new file is never taken for whole.
uint16_t copyRange(FileObject &destination, FileObject &source, uint32_t count) {
    BlockHandle block = blockAlloc(COPY_BLOCK);
    auto *buffer = blockLockAs<uint8_t>(block);
    if (buffer == nullptr) return ERR_MEMORY;
    uint16_t code = 0;
    while (count != 0 && code == 0) {
        auto wanted = static_cast<uint16_t>(count < COPY_BLOCK ? count : COPY_BLOCK);
        int16_t got = fileRead(&source, buffer, wanted);
        if (got <= 0) {
            code = ERR_READ;
        } else if (fileWrite(&destination, buffer, static_cast<uint16_t>(got)) != got) {
            code = ERR_WRITE;
        } else {
            count -= static_cast<uint32_t>(got);
        }
    }
    blockFree(&block);
    return code;
}

uint16_t copyFrom(FileObject &destination, FileObject &source, uint32_t offset, uint32_t count) {
    if (count == 0) return 0;
    if (fileSeek(&source, offset, 0) == FILE_FAILURE) return ERR_SEEK;
    return copyRange(destination, source, count);
}

// Writes the new file: the bytes in front of the document stream, then the
// stretches between the list's nodes and their images, then the tail.
uint16_t writeNewFile(MergeTable &table, FileObject &newFile) {
    bool tagged = isTaggedKind(table.kind);
    uint32_t position = tagged ? tableDocOffset(table) : 0;
    if (uint16_t code = copyFrom(newFile, table.file, 0, position)) return code;
    if (changeFirst(table) != 0) return ERR_MEMORY;
    EditNode node{};
    for (;;) {
        if (cursorSnapshot(table, &node) != 0) return ERR_MEMORY;
        if (position < node.offset) {
            if (uint16_t code = copyFrom(newFile, table.file, position, node.offset - position)) return code;
        }
        if (!(node.flags & NODE_DELETED)) {
            const auto *image = blockLockAs<uint8_t>(node.data);
            if (image == nullptr) return ERR_MEMORY;
            if (fileWrite(&newFile, image, static_cast<uint16_t>(node.dataLength)) !=
                static_cast<int16_t>(node.dataLength)) {
                return ERR_WRITE;
            }
        }
        position = node.offset + node.originalLength;
        if (node.next == 0) break;
        table.changeCursor = node.next;
    }
    return table.fileSize > position ? copyFrom(newFile, table.file, position, table.fileSize - position) : 0;
}

// A table record that names no file and no block: what the host's handle
// holds after a compaction whose close let go of the table, so that the
// host can still close it.
MergeTable closedTable() {
    MergeTable table{};
    table.file.handle = INVALID_HANDLE_VALUE;
    return table;
}

}  // namespace

uint16_t commitTable(MergeTable &table) {
    char savedName[PATH_BUFFER_SIZE];
    char backup[PATH_BUFFER_SIZE];
    std::memcpy(savedName, table.fileName, PATH_BUFFER_SIZE);
    if (!backupName(savedName, backup)) return ERR_RENAME;
    fileClose(&table.file);
    if (fileRename(backup, table.fileName) != 0) return ERR_RENAME;
    if (fileOpen(backup, MODE_OLD_FILE, &table.file) != 0) return ERR_OPEN;
    std::memcpy(table.fileName, backup, PATH_BUFFER_SIZE);
    FileObject newFile{};
    if (fileCreate(savedName, MODE_CREATE_REPLACE, &newFile) != 0) return ERR_CREATE;
    if (uint16_t code = writeNewFile(table, newFile)) {
        fileClose(&newFile);
        fileDelete(savedName);
        return code;
    }
    fileClose(&table.file);
    fileDelete(table.fileName);
    table.file = newFile;
    std::memcpy(table.fileName, savedName, PATH_BUFFER_SIZE);
    return 0;
}

DbResult compactTable(uint32_t handle) {
    MergeTable *table = tableLock(handle);
    if (table == nullptr) return errorResult(ERR_MEMORY);
    BlockHandle copyHandle = blockAlloc(sizeof(MergeTable));
    MergeTable *copy = tableLock(copyHandle);
    if (copy == nullptr) return errorResult(ERR_MEMORY);
    *copy = *table;
    uint32_t copySlot = copyHandle;
    if (DbResult result = dbCloseTableMerge(&copySlot)) {
        // The handle takes over what the failed close left: the table as a
        // failed commit left it, or nothing once the close let go of all.
        const MergeTable *left = tableLock(copySlot);
        *table = left != nullptr ? *left : closedTable();
        blockFree(&copySlot);
        return result;
    }
    bool delimited = table->subtype == DB_SUBTYPE_DELIMITED;
    uint32_t reopened = 0;
    DbResult result = dbOpenTableMerge(table->subtype, table->database, table->fileName, 0, 0, &reopened,
                                       delimited ? table->fieldDelimiter : nullptr,
                                       delimited ? table->recordDelimiter : nullptr,
                                       delimited ? table->quote : nullptr, delimited ? table->ignore : nullptr, 0);
    if (result != DB_RESULT_OK) {
        *table = closedTable();
        return result;
    }
    MergeTable *fresh = tableLock(reopened);
    fresh->oemConversion = table->oemConversion;
    *table = *fresh;
    blockFree(&reopened);
    return DB_RESULT_OK;
}

}  // namespace mergedb
