#include "tablefile/window.h"

#include <algorithm>
#include <cstring>

#include "mergedb/mergedb.h"
#include "tablefile/file_service.h"

namespace mergedb {

WindowCursor::WindowCursor(MergeTable &table)
    : table(table), base(blockLockAs<uint8_t>(table.window.block)), cursor(nullptr), end(nullptr) {
    if (base == nullptr) return;
    cursor = base + table.window.cursor;
    end = base + table.window.end;
}

WindowCursor::~WindowCursor() {
    if (base == nullptr) return;
    table.window.cursor = static_cast<uint16_t>(cursor - base);
    table.window.end = static_cast<uint16_t>(end - base);
}

uint16_t WindowCursor::refill() {
    auto kept = static_cast<uint16_t>(end - cursor);
    // A fuller window has no room for a fill.
    if (kept >= WINDOW_FILL) return ERR_READ;
    if (kept != 0) std::memmove(base, cursor, kept);
    ReadWindow &window = table.window;
    window.fileOffset = fileTell(&table.file) - kept;
    auto asked = static_cast<uint16_t>(WINDOW_FILL - kept);
    int16_t got = fileRead(&table.file, base + kept, asked);
    if (got < 0) return ERR_READ;
    cursor = base;
    end = base + kept + got;
    // A short fill met the end of the file: nothing of a file lies behind.
    if (got < asked) std::memset(end, 0, static_cast<size_t>(base + WINDOW_BLOCK_SIZE - end));
    if (got == 0) return ERR_END_OF_FILE;
    // A fill that got fewer bytes than it asked for has reached the end of
    // the data when the file's position stands on fileSize.
    if (got < asked) {
        if (fileTell(&table.file) == table.fileSize) window.atEof = 1;
    } else {
        window.atEof = 0;
    }
    return 0;
}

uint16_t WindowCursor::read(void *destination, uint32_t count) {
    auto *out = static_cast<uint8_t *>(destination);
    while (count != 0) {
        uint32_t step = std::min(count, available());
        std::memcpy(out, cursor, step);
        out += step;
        cursor += step;
        count -= step;
        if (count != 0) {
            if (uint16_t code = refill()) return code;
        }
    }
    return 0;
}

uint16_t WindowCursor::skip(uint32_t count) {
    while (count != 0) {
        if (count < available()) {
            cursor += count;
            return 0;
        }
        count -= available();
        cursor = end;
        uint16_t code = refill();
        if (code == ERR_END_OF_FILE) return count == 0 ? 0 : ERR_END_OF_FILE;
        if (code != 0) return code;
    }
    return 0;
}

uint16_t WindowCursor::seek(uint32_t offset) {
    uint32_t start = table.window.fileOffset;
    if (offset >= start && offset - start < static_cast<uint32_t>(end - base)) {
        cursor = base + (offset - start);
        return 0;
    }
    if (fileSeek(&table.file, offset) == FILE_FAILURE) return ERR_SEEK;
    cursor = end;
    return refill();
}

uint16_t windowSeek(MergeTable &table, uint32_t offset) {
    WindowCursor window(table);
    if (!window.valid()) return ERR_MEMORY;
    return window.seek(offset);
}

}  // namespace mergedb
