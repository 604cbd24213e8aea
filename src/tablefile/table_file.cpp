// A table's file: opening and measuring it, the first fill of its window,
// and the header test of a tagged document.
#include "tablefile/table_file.h"

#include <cstring>

#include "formats/tagged_format.h"
#include "mergedb/mergedb.h"
#include "tablefile/file_service.h"
#include "tablefile/window.h"

namespace mergedb {
namespace {

// fileSize leaves out a final byte 26: it is no data. A file whose size
// the offsets can't reach is no table.
uint16_t measureFile(MergeTable &table) {
    table.fileSize = fileSize(&table.file);
    if (table.fileSize == FILE_FAILURE) return ERR_OPEN;
    if (table.fileSize != 0) {
        uint8_t last = 0;
        if (fileSeek(&table.file, table.fileSize - 1) == FILE_FAILURE) return ERR_SEEK;
        if (fileRead(&table.file, &last, 1) != 1) return ERR_READ;
        if (last == END_OF_FILE_MARK) table.fileSize--;
    }
    return fileSeek(&table.file, 0) == FILE_FAILURE ? ERR_SEEK : 0;
}

// The first fill of a new window; an empty file leaves it empty.
uint16_t firstFill(MergeTable &table) {
    WindowCursor window(table);
    uint16_t code = window.refill();
    return code == ERR_END_OF_FILE ? 0 : code;
}

}  // namespace

uint32_t tableDocOffset(const MergeTable &table) {
    const uint8_t *bytes = table.header + HEADER_DOC_OFFSET;
    return bytes[0] | (bytes[1] << 8) | (bytes[2] << 16) | (static_cast<uint32_t>(bytes[3]) << 24);
}

uint16_t tableFileOpen(MergeTable &table, const Env &env, const char *path) {
    if (fileOpen(env, path, table.accessFlags, &table.file) != 0) return ERR_OPEN;
    std::strcpy(table.fileName, path);
    table.window = ReadWindow{blockAlloc(WINDOW_BLOCK_SIZE), 0, 0, 0, 0};
    table.scratch = blockAlloc(TABLE_SCRATCH_SIZE);
    uint16_t code = table.window.block == 0 || table.scratch == 0 ? uint16_t{ERR_MEMORY} : measureFile(table);
    if (code == 0) code = firstFill(table);
    if (code != 0) tableFileClose(table);
    return code;
}

uint16_t tableFileClose(MergeTable &table) {
    blockFree(&table.window.block);
    blockFree(&table.scratch);
    return fileClose(&table.file);
}

uint16_t headerCheck(MergeTable &table) {
    {
        WindowCursor window(table);
        if (!window.valid()) return ERR_MEMORY;
        if (uint16_t code = window.read(table.header, TAGGED_HEADER_SIZE)) return code;
    }
    if (!isTaggedMagic(table.header)) return ERR_WRONG_FILE;
    if (!isAcceptedProductType(table.header[HEADER_PRODUCT_TYPE])) return ERR_WRONG_FILE;
    if (!isAcceptedFileType(table.header[HEADER_FILE_TYPE])) return ERR_WRONG_FILE;
    if (uint16_t seek = windowSeek(table, tableDocOffset(table))) return seek;
    if (table.header[HEADER_MAJOR_VERSION] != 0) return ERR_WRONG_FILE;
    table.kind = taggedKindOfMinorVersion(table.header[HEADER_MINOR_VERSION]);
    return table.kind == 0 ? ERR_WRONG_FILE : 0;
}

}  // namespace mergedb
