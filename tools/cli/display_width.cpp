#include "display_width.h"

#include <algorithm>
#include <array>
#include <optional>

#include "codepage.h"

namespace mergedb::cli {
namespace {

struct Range {
    char32_t first;
    char32_t last;
};

// Combining marks and format characters that take no column, in order.
constexpr std::array ZERO_WIDTH = {
    Range{0x0300, 0x036F},   Range{0x0483, 0x0489},   Range{0x0591, 0x05BD},   Range{0x05BF, 0x05BF},
    Range{0x05C1, 0x05C2},   Range{0x05C4, 0x05C5},   Range{0x05C7, 0x05C7},   Range{0x0610, 0x061A},
    Range{0x061C, 0x061C},   Range{0x064B, 0x065F},   Range{0x0670, 0x0670},   Range{0x06D6, 0x06DC},
    Range{0x06DF, 0x06E4},   Range{0x06E7, 0x06E8},   Range{0x06EA, 0x06ED},   Range{0x0711, 0x0711},
    Range{0x0730, 0x074A},   Range{0x07A6, 0x07B0},   Range{0x07EB, 0x07F3},   Range{0x0900, 0x0902},
    Range{0x093A, 0x093A},   Range{0x093C, 0x093C},   Range{0x0941, 0x0948},   Range{0x094D, 0x094D},
    Range{0x0951, 0x0957},   Range{0x0962, 0x0963},   Range{0x0E31, 0x0E31},   Range{0x0E34, 0x0E3A},
    Range{0x0E47, 0x0E4E},   Range{0x1160, 0x11FF},   Range{0x1AB0, 0x1AFF},   Range{0x1DC0, 0x1DFF},
    Range{0x200B, 0x200F},   Range{0x202A, 0x202E},   Range{0x2060, 0x2064},   Range{0x20D0, 0x20FF},
    Range{0x302A, 0x302D},   Range{0x3099, 0x309A},   Range{0xFE00, 0xFE0F},   Range{0xFE20, 0xFE2F},
    Range{0xFEFF, 0xFEFF},   Range{0xE0001, 0xE0001}, Range{0xE0020, 0xE007F}, Range{0xE0100, 0xE01EF},
};

// Wide and full-width characters that take two columns, in order.
constexpr std::array WIDE = {
    Range{0x1100, 0x115F},   Range{0x231A, 0x231B},   Range{0x2329, 0x232A},   Range{0x23E9, 0x23EC},
    Range{0x23F0, 0x23F0},   Range{0x23F3, 0x23F3},   Range{0x25FD, 0x25FE},   Range{0x2614, 0x2615},
    Range{0x2648, 0x2653},   Range{0x267F, 0x267F},   Range{0x2693, 0x2693},   Range{0x26A1, 0x26A1},
    Range{0x26AA, 0x26AB},   Range{0x26BD, 0x26BE},   Range{0x26C4, 0x26C5},   Range{0x26CE, 0x26CE},
    Range{0x26D4, 0x26D4},   Range{0x26EA, 0x26EA},   Range{0x26F2, 0x26F3},   Range{0x26F5, 0x26F5},
    Range{0x26FA, 0x26FA},   Range{0x26FD, 0x26FD},   Range{0x2705, 0x2705},   Range{0x270A, 0x270B},
    Range{0x2728, 0x2728},   Range{0x274C, 0x274C},   Range{0x274E, 0x274E},   Range{0x2753, 0x2755},
    Range{0x2757, 0x2757},   Range{0x2795, 0x2797},   Range{0x27B0, 0x27B0},   Range{0x27BF, 0x27BF},
    Range{0x2B1B, 0x2B1C},   Range{0x2B50, 0x2B50},   Range{0x2B55, 0x2B55},   Range{0x2E80, 0x303E},
    Range{0x3041, 0x3098},   Range{0x309B, 0x33FF},   Range{0x3400, 0x4DBF},   Range{0x4E00, 0x9FFF},
    Range{0xA000, 0xA4CF},   Range{0xA960, 0xA97F},   Range{0xAC00, 0xD7A3},   Range{0xF900, 0xFAFF},
    Range{0xFE10, 0xFE19},   Range{0xFE30, 0xFE6F},   Range{0xFF00, 0xFF60},   Range{0xFFE0, 0xFFE6},
    Range{0x16FE0, 0x16FE4}, Range{0x17000, 0x18AFF}, Range{0x1B000, 0x1B2FF}, Range{0x1F004, 0x1F004},
    Range{0x1F0CF, 0x1F0CF}, Range{0x1F18E, 0x1F18E}, Range{0x1F191, 0x1F19A}, Range{0x1F200, 0x1F251},
    Range{0x1F300, 0x1F64F}, Range{0x1F680, 0x1F6FF}, Range{0x1F900, 0x1F9FF}, Range{0x1FA70, 0x1FAFF},
    Range{0x20000, 0x2FFFD}, Range{0x30000, 0x3FFFD},
};

template <size_t N>
bool within(const std::array<Range, N> &ranges, char32_t character) {
    auto after = std::upper_bound(ranges.begin(), ranges.end(), character,
                                  [](char32_t value, const Range &range) { return value < range.first; });
    return after != ranges.begin() && character <= std::prev(after)->last;
}

template <size_t N>
constexpr bool ordered(const std::array<Range, N> &ranges) {
    for (size_t i = 0; i < N; ++i) {
        if (ranges[i].first > ranges[i].last || (i > 0 && ranges[i - 1].last >= ranges[i].first)) return false;
    }
    return true;
}
static_assert(ordered(ZERO_WIDTH) && ordered(WIDE));

size_t columns(char32_t character) {
    if (within(ZERO_WIDTH, character)) return 0;
    return within(WIDE, character) ? 2 : 1;
}

}  // namespace

size_t displayWidth(std::string_view utf8) {
    size_t width = 0;
    for (size_t position = 0; position < utf8.size();) {
        std::optional<char32_t> character = host::nextUtf8(utf8, position);
        width += character ? columns(*character) : 1;
    }
    return width;
}

}  // namespace mergedb::cli
