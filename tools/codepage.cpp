#include "codepage.h"

#include <algorithm>
#include <array>

namespace tool {
namespace {

// The characters of bytes 128 to 255 of code page 437.
constexpr std::array<char16_t, 128> UPPER_HALF = {
    0x00C7, 0x00FC, 0x00E9, 0x00E2, 0x00E4, 0x00E0, 0x00E5, 0x00E7, 0x00EA, 0x00EB, 0x00E8, 0x00EF, 0x00EE,
    0x00EC, 0x00C4, 0x00C5, 0x00C9, 0x00E6, 0x00C6, 0x00F4, 0x00F6, 0x00F2, 0x00FB, 0x00F9, 0x00FF, 0x00D6,
    0x00DC, 0x00A2, 0x00A3, 0x00A5, 0x20A7, 0x0192, 0x00E1, 0x00ED, 0x00F3, 0x00FA, 0x00F1, 0x00D1, 0x00AA,
    0x00BA, 0x00BF, 0x2310, 0x00AC, 0x00BD, 0x00BC, 0x00A1, 0x00AB, 0x00BB, 0x2591, 0x2592, 0x2593, 0x2502,
    0x2524, 0x2561, 0x2562, 0x2556, 0x2555, 0x2563, 0x2551, 0x2557, 0x255D, 0x255C, 0x255B, 0x2510, 0x2514,
    0x2534, 0x252C, 0x251C, 0x2500, 0x253C, 0x255E, 0x255F, 0x255A, 0x2554, 0x2569, 0x2566, 0x2560, 0x2550,
    0x256C, 0x2567, 0x2568, 0x2564, 0x2565, 0x2559, 0x2558, 0x2552, 0x2553, 0x256B, 0x256A, 0x2518, 0x250C,
    0x2588, 0x2584, 0x258C, 0x2590, 0x2580, 0x03B1, 0x00DF, 0x0393, 0x03C0, 0x03A3, 0x03C3, 0x00B5, 0x03C4,
    0x03A6, 0x0398, 0x03A9, 0x03B4, 0x221E, 0x03C6, 0x03B5, 0x2229, 0x2261, 0x00B1, 0x2265, 0x2264, 0x2320,
    0x2321, 0x00F7, 0x2248, 0x00B0, 0x2219, 0x00B7, 0x221A, 0x207F, 0x00B2, 0x25A0, 0x00A0,
};

std::optional<char> oemByte(char32_t character) {
    if (character < 0x80) return static_cast<char>(character);
    const auto *found = std::find(UPPER_HALF.begin(), UPPER_HALF.end(), character);
    if (found == UPPER_HALF.end()) return std::nullopt;
    return static_cast<char>(0x80 + (found - UPPER_HALF.begin()));
}

// Decodes the character at position, moving position behind it.
std::optional<char32_t> decodeUtf8(std::string_view text, size_t &position) {
    auto lead = static_cast<unsigned char>(text[position++]);
    if (lead < 0x80) return lead;
    size_t trailing = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : 0;
    if (trailing == 0 || lead > 0xF4 || position + trailing > text.size()) return std::nullopt;
    char32_t character = lead & (0x3F >> trailing);
    for (size_t i = 0; i < trailing; ++i) {
        auto next = static_cast<unsigned char>(text[position++]);
        if ((next & 0xC0) != 0x80) return std::nullopt;
        character = (character << 6) | (next & 0x3F);
    }
    return character;
}

}  // namespace

char32_t oemCharacter(unsigned char byte) { return byte < 0x80 ? byte : UPPER_HALF[byte - 0x80]; }

void appendUtf8(std::string &out, char32_t character) {
    auto put = [&out](unsigned value) { out.push_back(static_cast<char>(value)); };
    if (character < 0x80) {
        put(character);
    } else if (character < 0x800) {
        put(0xC0 | (character >> 6));
        put(0x80 | (character & 0x3F));
    } else {
        // Code page 437 has nothing beyond the basic plane.
        put(0xE0 | (character >> 12));
        put(0x80 | ((character >> 6) & 0x3F));
        put(0x80 | (character & 0x3F));
    }
}

std::string oemToUtf8(std::string_view oem) {
    std::string out;
    out.reserve(oem.size());
    for (char byte : oem) appendUtf8(out, oemCharacter(static_cast<unsigned char>(byte)));
    return out;
}

std::optional<std::string> utf8ToOem(std::string_view utf8) {
    std::string out;
    for (size_t position = 0; position < utf8.size();) {
        std::optional<char32_t> character = decodeUtf8(utf8, position);
        std::optional<char> byte = character ? oemByte(*character) : std::nullopt;
        if (!byte) return std::nullopt;
        out.push_back(*byte);
    }
    return out;
}

}  // namespace tool
