#include "records/backward.h"

#include <algorithm>

#include "formats/byte_runs.h"
#include "formats/delimited_format.h"
#include "formats/tagged_tokens.h"
#include "mergedb/mergedb.h"
#include "records/record_format.h"
#include "tablefile/window.h"

namespace mergedb {
namespace {

// The smallest variable token takes 8 bytes.
constexpr uint32_t SMALLEST_VARIABLE_TOKEN = 8;

// How far into the window a backward step that leaves it lands: the window
// is filled from there on, so that the next steps back find their bytes in
// it, and the record which a backward move then reads forward most likely
// lies inside it too, within the bytes left behind the landing place.
constexpr uint32_t BACK_REACH = WINDOW_FILL - 256;

// Moves the window's position back by count bytes, which callers keep
// within the file.
uint16_t moveBack(WindowCursor &window, uint32_t count) {
    auto behind = static_cast<uint32_t>(window.cursor - window.base);
    if (count <= behind) {
        window.cursor -= count;
        return 0;
    }
    uint32_t position = window.position();
    if (count > position) return ERR_START_OF_FILE;
    uint32_t target = position - count;
    uint32_t start = target - std::min(target, BACK_REACH);
    if (uint16_t code = window.seek(start)) return code;
    window.cursor = window.base + (target - start);
    return 0;
}

// Moves back by length, but never below firstRecordOffset.
uint16_t backToFloor(WindowCursor &window, uint32_t length) {
    uint32_t room = window.position() - window.table.firstRecordOffset;
    return moveBack(window, std::min(length, room));
}

// Steps back over a run of one-byte tokens that end nothing, within the
// window and above the floor; at the window's start one step refills it.
uint16_t backOverRun(WindowCursor &window) {
    uint32_t room = std::min<uint32_t>(static_cast<uint32_t>(window.cursor - window.base),
                                       window.position() - window.table.firstRecordOffset);
    if (room == 0) return moveBack(window, 1);
    uint32_t run = 1;
    while (run < room && isOneByteToken(window.cursor[-static_cast<ptrdiff_t>(run)]) &&
           window.cursor[-static_cast<ptrdiff_t>(run)] != MARK_RECORD_END) {
        ++run;
    }
    window.cursor -= run;
    return 0;
}

// One step back over the token that ends at the window's position, or over
// a run of one-byte tokens; crossed tells whether it was a record's end. A
// variable token is read from its last four bytes, which a step across the
// window's start first brings into the window; one that ends fewer than 8
// bytes behind the first record starts in front of it, and the step lands
// there.
uint16_t stepBack(WindowCursor &window, bool &crossed) {
    Token token = tokenEndingAt(window.cursor, window.base);
    if (token.step.length == 1) {
        crossed = endsRecord(token);
        return crossed ? moveBack(window, 1) : backOverRun(window);
    }
    if (token.step.kind == TOKEN_STEP_NONE) return ERR_FORMAT;
    uint32_t room = window.position() - window.table.firstRecordOffset;
    if (isVariableToken(token) && room < SMALLEST_VARIABLE_TOKEN - 1) {
        return backToFloor(window, SMALLEST_VARIABLE_TOKEN);
    }
    if (token.step.length == 0) {
        if (uint16_t code = moveBack(window, TOKEN_VARIABLE_HEAD_SIZE - 1)) return code;
        window.cursor += TOKEN_VARIABLE_HEAD_SIZE - 1;
        token = tokenEndingAt(window.cursor, window.base);
    }
    crossed = endsRecord(token);
    return moveBack(window, std::min(token.step.length, room));
}

// Backward over tokens until an end-of-record mark was crossed, or to the
// first data record. The window ends on the last byte of the token in
// front of the mark.
uint16_t walkBackToMark(WindowCursor &window) {
    for (bool crossed = false; !crossed;) {
        if (window.position() == window.table.firstRecordOffset) return 0;
        if (uint16_t code = stepBack(window, crossed)) return code;
    }
    return 0;
}

enum class ForwardTarget { RecordEnd, LineEnd };

// Forward over tokens to just behind the end-of-record mark, or behind the
// line end that follows it. A variable token whose head lies across the
// window's end is read after a fill.
uint16_t walkForwardTo(WindowCursor &window, ForwardTarget target) {
    for (;;) {
        if (window.cursor == window.end) {
            if (uint16_t code = window.refill()) return code;
        }
        Token token = tokenAt(window.cursor, window.end);
        if (token.step.kind == TOKEN_STEP_NONE) return ERR_FORMAT;
        if (token.step.length == 0) {
            if (uint16_t code = window.refill()) return code;
            continue;
        }
        bool ended = target == ForwardTarget::RecordEnd ? endsRecord(token) : endsLine(token);
        if (uint16_t code = window.skip(token.step.length)) return code;
        if (ended) return 0;
    }
}

uint16_t walkTagged(WindowCursor &window) {
    if (uint16_t code = walkBackToMark(window)) return code;
    if (window.position() == window.table.firstRecordOffset) return 0;
    if (uint16_t code = walkBackToMark(window)) return code;
    if (window.position() == window.table.firstRecordOffset) return 0;
    if (uint16_t code = walkForwardTo(window, ForwardTarget::RecordEnd)) return code;
    return walkForwardTo(window, ForwardTarget::LineEnd);
}

// Tagged text enters the walk back on the last byte of the wanted record.
uint16_t locateTaggedStart(MergeTable &table, uint32_t lastByte) {
    if (table.firstRecordOffset >= lastByte) return ERR_START_OF_FILE;
    WindowCursor window(table);
    if (!window.valid()) return ERR_MEMORY;
    if (uint16_t code = window.seek(lastByte)) return code;
    return walkTagged(window);
}

// The backward walk of delimited text. Strings are recognised by their
// last byte and matched from their end; offset 0 ends the walk.
class DelimitedBackWalk {
public:
    DelimitedBackWalk(WindowCursor &window, const DelimitedSyntax &syntax)
        : window_(window), bytes_(syntax.bytes), s_(syntax.strings) {
        restartScan();
    }

    uint16_t run() {
        int delimitersPassed = 0;
        while (!atStart_) {
            uint8_t byte = *window_.cursor;
            bool complete = false;
            uint16_t code = 0;
            if (endsWith(s_.record, byte)) {
                code = matchBack(s_.record, complete);
                if (code == 0 && complete && ++delimitersPassed == 2) {
                    // Behind the terminator of the record in front of ours.
                    return window_.skip(static_cast<uint32_t>(s_.record.size()) + (atStart_ ? 0 : 1));
                }
            } else if (endsWith(s_.field, byte)) {
                code = matchBack(s_.field, complete);
            } else if (endsWith(s_.ignore, byte)) {
                code = matchBack(s_.ignore, complete);
            } else if (endsWith(s_.quote, byte)) {
                code = matchBack(s_.quote, complete);
                if (code == 0 && complete) code = backwardStretch();
            } else {
                code = backOverPlainBytes();
            }
            if (code != 0) return code;
        }
        return 0;
    }

private:
    static bool endsWith(std::string_view text, uint8_t byte) {
        return !text.empty() && static_cast<uint8_t>(text.back()) == byte;
    }

    // The stop scan over the window's bytes, made anew whenever the window
    // may have been filled.
    void restartScan() { scan_ = stopScanStart(bytes_.lastBytes, window_.base, window_.end); }

    // One byte back; at offset 0 the window stays and the walk is over.
    uint16_t stepBack() {
        if (window_.cursor > window_.base) {
            --window_.cursor;
            return 0;
        }
        if (window_.position() == 0) {
            atStart_ = true;
            return 0;
        }
        uint16_t code = moveBack(window_, 1);
        restartScan();
        return code;
    }

    // Back to the last byte in front of the position that may end a string
    // and for which wanted holds, or to the window's start.
    template <typename Wanted>
    void backWithinWindow(Wanted wanted) {
        const uint8_t *p = window_.cursor > window_.base ? prevStop(scan_, window_.cursor - 1) : nullptr;
        while (p != nullptr && !wanted(*p)) p = prevStop(scan_, p - 1);
        window_.cursor = p != nullptr ? window_.base + (p - window_.base) : window_.base;
    }

    uint16_t matchBack(std::string_view text, bool &complete) {
        complete = false;
        for (size_t i = text.size(); i-- > 0;) {
            if (*window_.cursor != static_cast<uint8_t>(text[i])) return 0;
            complete = i == 0;
            if (uint16_t code = stepBack()) return code;
            if (atStart_) return 0;
        }
        return 0;
    }

    uint16_t backOverPlainBytes() {
        if (window_.cursor == window_.base) return stepBack();
        backWithinWindow([](uint8_t) { return true; });
        return 0;
    }

    // Inside a quoted stretch, met from its closing end: only a quote with
    // a delimiter's or ignore's last byte in front of it opens the stretch.
    uint16_t backwardStretch() {
        auto quoteEnd = static_cast<uint8_t>(s_.quote.back());
        while (!atStart_) {
            if (*window_.cursor != quoteEnd) {
                // Back over the text within the window; at its start one
                // step refills it or ends the walk at offset 0.
                backWithinWindow([quoteEnd](uint8_t byte) { return byte == quoteEnd; });
                if (*window_.cursor != quoteEnd) {
                    if (uint16_t code = stepBack()) return code;
                }
                continue;
            }
            bool complete = false;
            if (uint16_t code = matchBack(s_.quote, complete)) return code;
            if (complete && !atStart_) {
                uint8_t before = *window_.cursor;
                if (endsWith(s_.record, before) || endsWith(s_.field, before) || endsWith(s_.ignore, before)) {
                    return 0;
                }
            }
        }
        return 0;
    }

    WindowCursor &window_;
    const DelimitedBytes &bytes_;
    DelimitedStrings s_;
    StopScan scan_{};
    bool atStart_ = false;
};

// Delimited text enters the walk back on the first byte of the record
// behind the wanted one, or on the file's last byte.
uint16_t locateDelimitedStart(MergeTable &table, uint32_t entry, bool atFileEnd) {
    WindowCursor window(table);
    if (!window.valid()) return ERR_MEMORY;
    if (uint16_t code = window.seek(entry)) return code;
    if (window.position() == 0) return ERR_END_OF_FILE;
    if (!atFileEnd) {
        if (uint16_t code = moveBack(window, 1)) return code;
    }
    return DelimitedBackWalk(window, delimitedSyntax(table)).run();
}

}  // namespace

uint16_t locateDelimitedPrevious(MergeTable &table, uint32_t offset) {
    if (table.firstRecordOffset >= offset) return ERR_START_OF_FILE;
    return locateDelimitedStart(table, offset, false);
}

uint16_t locateDelimitedLast(MergeTable &table) { return locateDelimitedStart(table, table.fileSize - 1, true); }

uint16_t locateTaggedPrevious(MergeTable &table, uint32_t offset) {
    if (offset == 0) return ERR_START_OF_FILE;
    return locateTaggedStart(table, offset - 1);
}

uint16_t locateTaggedLast(MergeTable &table) { return locateTaggedStart(table, table.fileSize - 1); }

}  // namespace mergedb
