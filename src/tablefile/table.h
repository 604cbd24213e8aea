// MergeTable, the record behind a table handle: handles and numbers that
// the subsystems above keep here, each in its own members.
//
// A table record is copied whole by compaction, so nothing in it may point
// into the record itself; what the table owns it holds by handle.
#pragma once

#include <cstdint>

#include "frame/blocks.h"
#include "tablefile/file_service.h"

namespace mergedb {

// The operations of a table's format, chosen when it opens (records layer).
struct RecordFormat;

// Sizes of the delimited-text strings, terminator included.
inline constexpr uint16_t DELIMITER_SIZE = 21;
inline constexpr uint16_t QUOTE_SIZE = 5;

// Room that one operation at a time borrows for its work: a record being
// gathered, a value being built. It is held as long as the table.
inline constexpr uint16_t TABLE_SCRATCH_SIZE = 32768;

struct FieldEntry;

// The field found last by name, for the array and count it was found in;
// fields 0 when there is none. It keeps the array's address too: the field
// array is only ever grown, and only with its count, and freed only with
// the table, so the address holds while the handle and count are the same.
struct NameGuess {
    BlockHandle fields;
    int16_t count;
    int16_t last;
    const FieldEntry *array;
};

// The read window: a block through which every byte of the table is read,
// and what of the file it holds. The cursor and end are saved here between
// operations; a WindowCursor works on them (window.h).
struct ReadWindow {
    BlockHandle block;
    uint32_t fileOffset;  // the file offset of the block's first byte
    uint16_t cursor;      // the next byte to read, from the block's start
    uint16_t end;         // one past the last valid byte
    uint32_t atEof;       // the last fill reached the end of the data
};

struct MergeTable {
    uint16_t subtype;
    uint16_t kind;
    const RecordFormat *format;
    FileObject file;
    char fileName[PATH_BUFFER_SIZE];
    uint8_t header[16];
    uint32_t dirty;
    ReadWindow window;
    BlockHandle scratch;
    uint32_t fileSize;  // of the data: a final byte 26 is left out
    uint32_t accessFlags;
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
    // What the readers of delimited text look up for each byte, made from
    // the four strings when the table opens.
    BlockHandle delimitedBytes;
    uint32_t pendingDeletes;
    uint32_t oemConversion;
    BlockHandle database;
    // A hash of the field names, made on the first lookup by name and made
    // anew when the field array changes.
    BlockHandle fieldIndex;
    // The field that a lookup by name found last, in the field array and
    // count it was found in, held where it is looked at first (fields layer).
    NameGuess nameGuess;
    // Where the fields of the record just scanned lie, where the scan could
    // note them (records layer); made on the first scan that can.
    BlockHandle fieldMap;
};

// The table behind a host's handle, or null for 0, a stale handle, or a
// block that is no table record.
inline MergeTable *tableLock(BlockHandle handle) { return blockLockKind<MergeTable>(handle, BlockKind::Table); }

// A new, zeroed table record, or 0.
inline BlockHandle tableAlloc() { return blockAlloc(sizeof(MergeTable), BlockKind::Table); }

// docOffset of a tagged table, from its saved header.
uint32_t tableDocOffset(const MergeTable &table);

}  // namespace mergedb
