// MergeTable, the record behind a table handle.
#pragma once

#include <cstdint>

#include "frame/blocks.h"
#include "tablefile/file_service.h"

namespace mergedb {

// Sizes of the delimited-text strings, terminator included.
inline constexpr uint16_t DELIMITER_SIZE = 21;
inline constexpr uint16_t QUOTE_SIZE = 5;

struct MergeTable {
    uint16_t subtype;
    FileObject file;
    char fileName[PATH_BUFFER_SIZE];
    uint8_t header[16];
    uint32_t dirty;
    uint32_t windowFileOffset;
    uint32_t atEof;
    uint16_t kind;
    BlockHandle window;
    uint32_t fileSize;
    uint32_t accessFlags;
    uint16_t windowCursor;
    uint16_t windowEnd;
    uint32_t hasFieldNames;
    uint32_t firstRecordOffset;
    BlockHandle changeHead;
    BlockHandle current;
    BlockHandle changeCursor;
    BlockHandle changeTail;
    BlockHandle fields;
    int16_t fieldCount;
    uint32_t fieldNameCursor;
    BlockHandle criteria;
    int16_t criteriaCount;
    char fieldDelimiter[DELIMITER_SIZE];
    char recordDelimiter[DELIMITER_SIZE];
    char quote[QUOTE_SIZE];
    char ignore[DELIMITER_SIZE];
    uint32_t pendingDeletes;
    uint32_t oemConversion;
    BlockHandle database;
    // Our own addition: a hash of the field names, made on the first lookup
    // by name and made anew when the field array changes.
    BlockHandle fieldIndex;
};

// Where the fields of a tagged document's header lie.
inline constexpr int HEADER_DOC_OFFSET = 4;
inline constexpr int HEADER_PRODUCT_TYPE = 8;
inline constexpr int HEADER_FILE_TYPE = 9;
inline constexpr int HEADER_MAJOR_VERSION = 10;
inline constexpr int HEADER_MINOR_VERSION = 11;

// The table behind a host's handle, or null for 0, a stale handle, or a
// block that is no table record.
inline MergeTable *tableLock(BlockHandle handle) {
    uint16_t size = 0;
    auto *record = blockLockSized<MergeTable>(handle, size);
    return size == sizeof(MergeTable) ? record : nullptr;
}

// docOffset of a tagged table, from its saved header.
uint32_t tableDocOffset(const MergeTable &table);

}  // namespace mergedb
