// The read window: the 8 KiB buffered view through which every record and
// field name of a table is read.
//
// An operation reads through a WindowCursor, which takes the table's saved
// cursor and end when it is made and saves them when it goes. Between the
// two nothing else may move the window of that table; one cursor per table
// at a time.
#pragma once

#include <cstdint>

#include "tablefile/table.h"

namespace mergedb {

inline constexpr uint16_t WINDOW_BLOCK_SIZE = 8212;
// A fill leaves at most this many valid bytes, so that the last bytes of
// the block never hold file data. After a fill that met the end of the
// file the bytes behind the valid ones are 0, so that a reader that looks a
// delimiter's length and a byte past the data's end meets no stale bytes.
inline constexpr uint16_t WINDOW_FILL = 8191;
static_assert(WINDOW_BLOCK_SIZE - WINDOW_FILL >= DELIMITER_SIZE);

// The final byte of a file that is not part of its data.
inline constexpr uint8_t END_OF_FILE_MARK = 26;

class WindowCursor {
public:
    explicit WindowCursor(MergeTable &table);
    ~WindowCursor();
    WindowCursor(const WindowCursor &) = delete;
    WindowCursor &operator=(const WindowCursor &) = delete;

    // False when the table has no window block; nothing may then be read.
    bool valid() const { return base != nullptr; }

    // Moves the unread bytes to the block's start and fills behind them
    // from the file's position: 0, ERR_END_OF_FILE or ERR_READ. Callers
    // refill with at most a delimiter's length unread.
    uint16_t refill();
    // Copies count bytes out of the window, refilling as needed.
    uint16_t read(void *destination, uint32_t count);
    // Moves forward by count bytes; ending exactly at the end of the file is
    // no failure.
    uint16_t skip(uint32_t count);
    // Goes to a file offset: inside the valid bytes without a file call,
    // else by a fill from there. A seek to or past the end of the file gives
    // ERR_END_OF_FILE.
    uint16_t seek(uint32_t offset);

    // The last fill reached the end of the data, and the cursor is there.
    bool atEof() const { return table.window.atEof != 0 && cursor == end; }
    uint32_t position() const { return table.window.fileOffset + static_cast<uint32_t>(cursor - base); }
    uint32_t available() const { return static_cast<uint32_t>(end - cursor); }

    MergeTable &table;
    uint8_t *base;    // the window block; null when the table has none
    uint8_t *cursor;  // the next byte to read
    uint8_t *end;     // one past the last valid byte
};

// A seek for an operation that holds no cursor.
uint16_t windowSeek(MergeTable &table, uint32_t offset);

// The file offset of the saved cursor.
inline uint32_t windowTell(const MergeTable &table) { return table.window.fileOffset + table.window.cursor; }

}  // namespace mergedb
