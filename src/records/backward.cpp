#include "records/backward.h"

#include <algorithm>
#include <cstring>

#include "formats/byte_runs.h"
#include "formats/delimited_format.h"
#include "formats/tagged_format.h"
#include "mergedb/mergedb.h"
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
uint16_t moveBack(MergeTable &table, uint32_t count) {
    auto behind = static_cast<uint32_t>(regCursor - regBase);
    if (count <= behind) {
        regCursor -= count;
        return 0;
    }
    uint32_t position = windowPosition(table);
    if (count > position) return ERR_START_OF_FILE;
    uint32_t target = position - count;
    uint32_t start = target - std::min(target, BACK_REACH);
    if (uint16_t code = windowSeek(table, start)) return code;
    regCursor = regBase + (target - start);
    return 0;
}

bool isOneByteToken(uint8_t byte) {
    uint8_t cls = tokenClass(&byte);
    return cls == TOKEN_CONTROL || cls == TOKEN_SINGLE || cls == TOKEN_CHAR;
}

// Moves back by length, but never below firstRecordOffset.
uint16_t backToFloor(MergeTable &table, uint32_t length) {
    uint32_t room = windowPosition(table) - table.firstRecordOffset;
    return moveBack(table, std::min(length, room));
}

uint16_t skipFixedBack(MergeTable &table) {
    uint8_t length = fixedTokenLength(regCursor);
    if (length == 0) return ERR_FORMAT;
    return backToFloor(table, length);
}

// The variable token that ends at the window's position, read from its own
// last four bytes (the trailing L, the sub-code and the first byte), also
// when they lie across the window's start. Gives in isRecordEnd whether it
// was FUNCTION_RECORD_END.
uint16_t skipVariableBack(MergeTable &table, bool &isRecordEnd) {
    isRecordEnd = false;
    if (windowPosition(table) - table.firstRecordOffset < SMALLEST_VARIABLE_TOKEN - 1) {
        return backToFloor(table, SMALLEST_VARIABLE_TOKEN);
    }
    uint8_t tail[4];
    if (regCursor - regBase >= 3) {
        std::memcpy(tail, regCursor - 3, sizeof tail);
    } else {
        uint16_t code = moveBack(table, 3);
        if (code == 0) code = windowRead(table, tail, sizeof tail);
        if (code == 0) code = moveBack(table, 1);
        if (code != 0) return code;
    }
    isRecordEnd = isFunctionEnd(tail + 3, FUNCTION_RECORD_END);
    return backToFloor(table, (tail[0] | (tail[1] << 8)) + 4u);
}

// Steps back over a run of one-byte tokens that end nothing, within the
// window and above the floor; at the window's start one step refills it.
uint16_t backOverRun(MergeTable &table) {
    uint32_t room = std::min<uint32_t>(static_cast<uint32_t>(regCursor - regBase),
                                       windowPosition(table) - table.firstRecordOffset);
    if (room == 0) return moveBack(table, 1);
    uint32_t run = 1;
    while (run < room && isOneByteToken(regCursor[-static_cast<ptrdiff_t>(run)]) &&
           regCursor[-static_cast<ptrdiff_t>(run)] != MARK_RECORD_END) {
        ++run;
    }
    regCursor -= run;
    return 0;
}

// Backward over tokens until an end-of-record mark was crossed, or to the
// first data record. The window ends on the last byte of the token in
// front of the mark.
uint16_t walkBackToMark(MergeTable &table) {
    for (;;) {
        if (windowPosition(table) == table.firstRecordOffset) return 0;
        uint8_t byte = *regCursor;
        uint16_t code = 0;
        switch (tokenClass(regCursor)) {
        case TOKEN_END: return ERR_FORMAT;
        case TOKEN_FIXED: code = skipFixedBack(table); break;
        case TOKEN_VARIABLE: {
            bool isRecordEnd = false;
            code = skipVariableBack(table, isRecordEnd);
            if (code == 0 && isRecordEnd) return 0;
            break;
        }
        default:
            if (byte == MARK_RECORD_END) {
                code = moveBack(table, 1);
                if (code == 0) return 0;
            } else {
                code = backOverRun(table);
            }
            break;
        }
        if (code != 0) return code;
    }
}

enum class ForwardTarget { RecordEnd, LineEnd };

uint16_t skipVariableForward(MergeTable &table, bool &isRecordEnd) {
    uint8_t lead[2];
    uint8_t length[2];
    uint16_t code = windowRead(table, lead, sizeof lead);
    if (code == 0) code = windowRead(table, length, sizeof length);
    if (code == 0) code = windowSkip(table, static_cast<uint32_t>(length[0] | (length[1] << 8)));
    isRecordEnd = isFunction(lead, FUNCTION_RECORD_END);
    return code;
}

// Forward over tokens to just behind the end-of-record mark, or behind the
// line end that follows it.
uint16_t walkForwardTo(MergeTable &table, ForwardTarget target) {
    for (;;) {
        if (regCursor == regEnd) {
            if (uint16_t code = windowRefill(table)) return code;
        }
        uint8_t byte = *regCursor;
        uint16_t code = 0;
        bool ended = false;
        switch (tokenClass(regCursor)) {
        case TOKEN_END: return ERR_FORMAT;
        case TOKEN_FIXED: {
            uint8_t length = fixedTokenLength(regCursor);
            code = length == 0 ? uint16_t{ERR_FORMAT} : windowSkip(table, length);
            break;
        }
        case TOKEN_VARIABLE:
            code = skipVariableForward(table, ended);
            ended = ended && target == ForwardTarget::RecordEnd;
            break;
        case TOKEN_CONTROL:
            ended = target == ForwardTarget::RecordEnd ? byte == MARK_RECORD_END
                                                       : byte == MARK_LINE_END || byte == MARK_RECORD_LINE_END;
            code = windowSkip(table, 1);
            break;
        default: code = windowSkip(table, 1); break;
        }
        if (code != 0 || ended) return code;
    }
}

uint16_t walkTagged(MergeTable &table) {
    if (uint16_t code = walkBackToMark(table)) return code;
    if (windowPosition(table) == table.firstRecordOffset) return 0;
    if (uint16_t code = walkBackToMark(table)) return code;
    if (windowPosition(table) == table.firstRecordOffset) return 0;
    if (uint16_t code = walkForwardTo(table, ForwardTarget::RecordEnd)) return code;
    return walkForwardTo(table, ForwardTarget::LineEnd);
}

uint16_t locateTaggedStart(MergeTable &table) {
    if (table.firstRecordOffset >= windowTell(table)) return ERR_END_OF_FILE;
    if (uint16_t code = windowLoad(table)) return code;
    uint16_t code = walkTagged(table);
    windowSave(table);
    return code;
}

// The backward walk of delimited text. Strings are recognised by their
// last byte and matched from their end; offset 0 ends the walk.
class DelimitedBackWalk {
public:
    explicit DelimitedBackWalk(MergeTable &table)
        : table_(table), bytes_(delimitedBytes(table)), s_(bytes_.strings) {
        restartScan();
    }

    uint16_t run() {
        int delimitersPassed = 0;
        while (!atStart_) {
            uint8_t byte = *regCursor;
            bool complete = false;
            uint16_t code = 0;
            if (endsWith(s_.record, byte)) {
                code = matchBack(s_.record, complete);
                if (code == 0 && complete && ++delimitersPassed == 2) {
                    // Behind the terminator of the record in front of ours.
                    return windowSkip(table_, static_cast<uint32_t>(s_.record.size()) + (atStart_ ? 0 : 1));
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
    void restartScan() { scan_ = stopScanStart(bytes_.lastBytes, regBase, regEnd); }

    // One byte back; at offset 0 the window stays and the walk is over.
    uint16_t stepBack() {
        if (regCursor > regBase) {
            --regCursor;
            return 0;
        }
        if (windowPosition(table_) == 0) {
            atStart_ = true;
            return 0;
        }
        uint16_t code = moveBack(table_, 1);
        restartScan();
        return code;
    }

    // Back to the last byte in front of the position that may end a string
    // and for which wanted holds, or to the window's start.
    template <typename Wanted>
    void backWithinWindow(Wanted wanted) {
        const uint8_t *p = regCursor > regBase ? prevStop(scan_, regCursor - 1) : nullptr;
        while (p != nullptr && !wanted(*p)) p = prevStop(scan_, p - 1);
        regCursor = p != nullptr ? regBase + (p - regBase) : regBase;
    }

    uint16_t matchBack(std::string_view text, bool &complete) {
        complete = false;
        for (size_t i = text.size(); i-- > 0;) {
            if (*regCursor != static_cast<uint8_t>(text[i])) return 0;
            complete = i == 0;
            if (uint16_t code = stepBack()) return code;
            if (atStart_) return 0;
        }
        return 0;
    }

    uint16_t backOverPlainBytes() {
        if (regCursor == regBase) return stepBack();
        backWithinWindow([](uint8_t) { return true; });
        return 0;
    }

    // Inside a quoted stretch, met from its closing end: only a quote with
    // a delimiter's or ignore's last byte in front of it opens the stretch.
    uint16_t backwardStretch() {
        auto quoteEnd = static_cast<uint8_t>(s_.quote.back());
        while (!atStart_) {
            if (*regCursor != quoteEnd) {
                // Back over the text within the window; at its start one
                // step refills it or ends the walk at offset 0.
                backWithinWindow([quoteEnd](uint8_t byte) { return byte == quoteEnd; });
                if (*regCursor != quoteEnd) {
                    if (uint16_t code = stepBack()) return code;
                }
                continue;
            }
            bool complete = false;
            if (uint16_t code = matchBack(s_.quote, complete)) return code;
            if (complete && !atStart_) {
                uint8_t before = *regCursor;
                if (endsWith(s_.record, before) || endsWith(s_.field, before) || endsWith(s_.ignore, before)) {
                    return 0;
                }
            }
        }
        return 0;
    }

    MergeTable &table_;
    const DelimitedBytes &bytes_;
    const DelimitedStrings &s_;
    StopScan scan_{};
    bool atStart_ = false;
};

uint16_t locateDelimitedStart(MergeTable &table, bool atFileEnd) {
    if (uint16_t code = windowLoad(table)) return code;
    uint16_t code = 0;
    if (windowPosition(table) == 0) {
        code = ERR_END_OF_FILE;
    } else if (!atFileEnd) {
        code = moveBack(table, 1);
    }
    if (code == 0) code = DelimitedBackWalk(table).run();
    windowSave(table);
    return code;
}

}  // namespace

uint16_t locateRecordStart(MergeTable &table, bool atFileEnd) {
    return table.kind == DB_KIND_DELIMITED ? locateDelimitedStart(table, atFileEnd) : locateTaggedStart(table);
}

}  // namespace mergedb
