#include "tablefile/window.h"

#include <algorithm>
#include <cstring>

#include "mergedb/mergedb.h"
#include "tablefile/file_service.h"

namespace mergedb {

uint8_t *regBase = nullptr;
uint8_t *regCursor = nullptr;
uint8_t *regEnd = nullptr;

namespace {

// atEof: a fill that got fewer bytes than it asked for has reached the end
// of the data when the file's position stands on fileSize.
void noteFillEnd(MergeTable &table, int16_t got, uint16_t asked) {
    if (got < asked) {
        if (fileTell(&table.file) == table.fileSize) table.atEof = 1;
    } else {
        table.atEof = 0;
    }
}

}  // namespace

uint16_t windowLoad(MergeTable &table) {
    auto *base = blockLockAs<uint8_t>(table.window);
    if (base == nullptr) return ERR_MEMORY;
    regBase = base;
    regCursor = base + table.windowCursor;
    regEnd = base + table.windowEnd;
    return 0;
}

uint16_t windowSave(MergeTable &table) {
    table.windowCursor = static_cast<uint16_t>(regCursor - regBase);
    table.windowEnd = static_cast<uint16_t>(regEnd - regBase);
    return 0;
}

uint16_t windowRefill(MergeTable &table) {
    auto kept = static_cast<uint16_t>(regEnd - regCursor);
    // Callers refill with at most a delimiter's length unread; a fuller
    // window has no room for a fill.
    if (kept >= WINDOW_FILL) return ERR_READ;
    if (kept != 0) std::memmove(regBase, regCursor, kept);
    table.windowFileOffset = fileTell(&table.file) - kept;
    auto asked = static_cast<uint16_t>(WINDOW_FILL - kept);
    int16_t got = fileRead(&table.file, regBase + kept, asked);
    if (got < 0) return ERR_READ;
    regCursor = regBase;
    if (got == 0) {
        regEnd = regBase + kept;
        return ERR_END_OF_FILE;
    }
    noteFillEnd(table, got, asked);
    regEnd = regBase + kept + got;
    return 0;
}

uint16_t windowRefillBack(MergeTable &table) {
    uint32_t oldStart = table.windowFileOffset;
    uint32_t newStart = oldStart > WINDOW_BACK_FILL ? oldStart - WINDOW_BACK_FILL : 0;
    table.windowFileOffset = fileSeek(&table.file, newStart, 0);
    int16_t got = fileRead(&table.file, regBase, WINDOW_BACK_FILL);
    if (got < 0) return ERR_READ;
    if (got == 0) return ERR_END_OF_FILE;
    noteFillEnd(table, got, WINDOW_BACK_FILL);
    regEnd = regBase + got;
    regCursor = newStart != 0 ? regEnd : regBase + std::min<uint32_t>(oldStart, got);
    return 0;
}

uint16_t windowRead(MergeTable &table, void *destination, uint32_t count) {
    auto *out = static_cast<uint8_t *>(destination);
    while (count != 0) {
        uint32_t step = std::min(count, windowAvailable());
        std::memcpy(out, regCursor, step);
        out += step;
        regCursor += step;
        count -= step;
        if (count != 0) {
            if (uint16_t code = windowRefill(table)) return code;
        }
    }
    return 0;
}

uint16_t windowSkip(MergeTable &table, uint32_t count) {
    while (count != 0) {
        if (count < windowAvailable()) {
            regCursor += count;
            return 0;
        }
        count -= windowAvailable();
        regCursor = regEnd;
        uint16_t code = windowRefill(table);
        if (code == ERR_END_OF_FILE) return count == 0 ? 0 : ERR_END_OF_FILE;
        if (code != 0) return code;
    }
    return 0;
}

uint16_t windowBack(MergeTable &table, uint32_t count) {
    while (count != 0) {
        auto behind = static_cast<uint32_t>(regCursor - regBase);
        if (count <= behind) {
            regCursor -= count;
            return 0;
        }
        // Nothing lies before the file's first byte.
        if (table.windowFileOffset == 0) return ERR_START_OF_FILE;
        count -= behind;
        regCursor = regBase;
        if (uint16_t code = windowRefillBack(table)) return code;
    }
    return 0;
}

uint16_t windowSeek(MergeTable &table, uint32_t offset) {
    if (uint16_t code = windowLoad(table)) return code;
    uint32_t valid = static_cast<uint32_t>(regEnd - regBase);
    if (offset >= table.windowFileOffset && offset - table.windowFileOffset < valid) {
        regCursor = regBase + (offset - table.windowFileOffset);
        return windowSave(table);
    }
    if (fileSeek(&table.file, offset, 0) == FILE_FAILURE) {
        windowSave(table);
        return ERR_SEEK;
    }
    regCursor = regEnd;
    uint16_t code = windowRefill(table);
    windowSave(table);
    return code;
}

uint32_t windowTell(const MergeTable &table) { return table.windowFileOffset + table.windowCursor; }

int windowAtEof(const MergeTable &table) { return table.atEof != 0 && regCursor == regEnd ? 1 : 0; }

}  // namespace mergedb
