#include "formats/tagged_text.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "formats/byte_runs.h"
#include "formats/tagged_tokens.h"

namespace mergedb {
namespace {

// The OEM byte of an extended character that the character table lacks.
constexpr uint8_t UNMAPPED_CHARACTER = 0xFE;

struct CharacterEntry {
    uint16_t key;  // set * 256 + number
    uint8_t value;
};

// The rows of the sets above 0; set 0 is its run 0x20-0x7F and key 0.
constexpr CharacterEntry UPPER_SET_ROWS[] = {
    // Set 1.
    {0x0117, 0xE1}, {0x011B, 0xA0}, {0x011D, 0x83}, {0x011E, 0x8E}, {0x011F, 0x84}, {0x0121, 0x85},
    {0x0122, 0x8F}, {0x0123, 0x86}, {0x0124, 0x92}, {0x0125, 0x91}, {0x0126, 0x80}, {0x0127, 0x87},
    {0x0128, 0x90}, {0x0129, 0x82}, {0x012B, 0x88}, {0x012D, 0x89}, {0x012F, 0x8A}, {0x0131, 0xA1},
    {0x0133, 0x8C}, {0x0135, 0x8B}, {0x0137, 0x8D}, {0x0138, 0xA5}, {0x0139, 0xA4}, {0x013B, 0xA2},
    {0x013D, 0x93}, {0x013E, 0x99}, {0x013F, 0x94}, {0x0141, 0x95}, {0x0143, 0xA3}, {0x0145, 0x96},
    {0x0146, 0x9A}, {0x0147, 0x81}, {0x0149, 0x97}, {0x018B, 0x98},
    // Set 3.
    {0x0300, 0xB0}, {0x0301, 0xB1}, {0x0302, 0xB2}, {0x0303, 0xDB}, {0x0304, 0xDD}, {0x0305, 0xDF},
    {0x0306, 0xDE}, {0x0307, 0xDC}, {0x0308, 0xC4}, {0x0309, 0xB3}, {0x030A, 0xDA}, {0x030B, 0xBF},
    {0x030C, 0xD9}, {0x030D, 0xC0}, {0x030E, 0xC3}, {0x030F, 0xC2}, {0x0310, 0xB4}, {0x0311, 0xC1},
    {0x0312, 0xC5}, {0x0313, 0xCD}, {0x0314, 0xBA}, {0x0315, 0xC9}, {0x0316, 0xBB}, {0x0317, 0xBC},
    {0x0318, 0xC8}, {0x0319, 0xCC}, {0x031A, 0xCB}, {0x031B, 0xB9}, {0x031C, 0xCA}, {0x031D, 0xCE},
    {0x031E, 0xD5}, {0x031F, 0xB8}, {0x0320, 0xBE}, {0x0321, 0xD4}, {0x0322, 0xD6}, {0x0323, 0xB7},
    {0x0324, 0xBD}, {0x0325, 0xD3}, {0x0326, 0xC6}, {0x0327, 0xD2}, {0x0328, 0xB5}, {0x0329, 0xD0},
    {0x032A, 0xC7}, {0x032B, 0xD1}, {0x032C, 0xB6}, {0x032D, 0xCF}, {0x032E, 0xD7}, {0x032F, 0xD8},
    // Set 4.
    {0x0400, 0x07}, {0x0401, 0x09}, {0x0402, 0xFE}, {0x0405, 0x14}, {0x0406, 0x15}, {0x0407, 0xAD},
    {0x0408, 0xA8}, {0x0409, 0xAE}, {0x040A, 0xAF}, {0x040B, 0x9C}, {0x040C, 0x9D}, {0x040D, 0x9E},
    {0x040E, 0x9F}, {0x040F, 0xA6}, {0x0410, 0xA7}, {0x0411, 0xAB}, {0x0412, 0xAC}, {0x0413, 0x9B},
    {0x0414, 0xFD}, {0x0415, 0xFC},
    // Set 5.
    {0x0500, 0x03}, {0x0501, 0x04}, {0x0502, 0x05}, {0x0503, 0x06}, {0x0504, 0x0B}, {0x0505, 0x0C},
    {0x0506, 0x0F}, {0x0507, 0x01}, {0x0508, 0x02}, {0x0509, 0x0D}, {0x050A, 0x0E}, {0x050B, 0x16},
    {0x050D, 0x13}, {0x050F, 0x17}, {0x0510, 0xA9}, {0x0511, 0x1C}, {0x0512, 0x08}, {0x0513, 0x0A},
    // Set 6.
    {0x0601, 0xF1}, {0x0602, 0xF3}, {0x0603, 0xF2}, {0x0608, 0xF6}, {0x060D, 0xF7}, {0x060E, 0xF0},
    {0x0610, 0xEF}, {0x0613, 0xEC}, {0x0614, 0xAA}, {0x0615, 0x1A}, {0x0616, 0x1B}, {0x0617, 0x18},
    {0x0618, 0x19}, {0x0619, 0x1D}, {0x061A, 0x12}, {0x061B, 0x10}, {0x061C, 0x11}, {0x061D, 0x1E},
    {0x061E, 0x1F}, {0x061F, 0xF9}, {0x0620, 0xFA}, {0x0624, 0xF8},
    // Set 7.
    {0x0700, 0xF4}, {0x0701, 0xF5}, {0x0704, 0xFB},
    // Set 8.
    {0x0801, 0xE0}, {0x0806, 0xE2}, {0x0809, 0xEB}, {0x080B, 0xEE}, {0x0810, 0xE9}, {0x0819, 0xE6},
    {0x0821, 0xE3}, {0x0824, 0xE4}, {0x0825, 0xE5}, {0x0829, 0xE7}, {0x082C, 0xE8}, {0x082D, 0xED},
    {0x0832, 0xEA}
};

constexpr uint16_t SET0_FIRST_PRINTABLE = 0x20;
constexpr uint16_t SET0_LAST_PRINTABLE = 0x7F;
constexpr size_t SET0_ENTRIES = 1 + SET0_LAST_PRINTABLE - SET0_FIRST_PRINTABLE + 1;

constexpr auto CHARACTER_TABLE = [] {
    std::array<CharacterEntry, SET0_ENTRIES + std::size(UPPER_SET_ROWS)> table{};
    size_t next = 1;
    for (uint16_t number = SET0_FIRST_PRINTABLE; number <= SET0_LAST_PRINTABLE; ++number)
        table[next++] = {number, static_cast<uint8_t>(number)};
    for (const CharacterEntry &row : UPPER_SET_ROWS) table[next++] = row;
    return table;
}();

constexpr bool keysAscend() {
    for (size_t i = 1; i < CHARACTER_TABLE.size(); ++i)
        if (CHARACTER_TABLE[i - 1].key >= CHARACTER_TABLE[i].key) return false;
    return true;
}

// Each OEM byte 0-254 once, and never 255.
constexpr bool valuesAreOemBytesOnce() {
    std::array<bool, 256> seen{};
    for (const CharacterEntry &entry : CHARACTER_TABLE) {
        if (seen[entry.value] || entry.value == 255) return false;
        seen[entry.value] = true;
    }
    return true;
}

static_assert(CHARACTER_TABLE.size() == 255);
static_assert(keysAscend(), "keys ascend, so none occurs twice");
static_assert(valuesAreOemBytesOnce());
// No key lies below the first, so the search's high index never drops
// below 0.
static_assert(CHARACTER_TABLE[0].key == 0);

const uint8_t *bytesOf(std::span<const char> text) { return reinterpret_cast<const uint8_t *>(text.data()); }

// The walk over the tokens of text from position on; the text ends at the
// first token that is not whole in it, a NUL among them.
TokenWalk walkFrom(std::span<const char> text, size_t position) {
    return TokenWalk(bytesOf(text) + position, bytesOf(text) + text.size());
}

// Passes over the tokens that yield no character: on to the first printable
// or extended character, or the text's end.
void skipToCharacter(TokenWalk &walk) {
    while (walk.whole() && !isCharacter(walk.token()) && !isExtendedChar(walk.token())) walk.next();
}

// The OEM byte of an extended character's key, set * 256 + number.
uint8_t mapCharacter(uint16_t key) {
    uint16_t low = 0;
    uint16_t high = static_cast<uint16_t>(CHARACTER_TABLE.size() - 1);
    uint16_t middle = 0;
    bool found = false;
    while (!found && high >= low) {
        middle = static_cast<uint16_t>((low + high) / 2);
        if (key > CHARACTER_TABLE[middle].key) low = static_cast<uint16_t>(middle + 1);
        else if (key < CHARACTER_TABLE[middle].key) high = static_cast<uint16_t>(middle - 1);
        else found = true;
    }
    if (!found) return UNMAPPED_CHARACTER;
    while (middle > 0 && CHARACTER_TABLE[middle - 1].key == key) --middle;
    return CHARACTER_TABLE[middle].value;
}

// The shared loop of both conversions; raw looks keys up by number alone
// and starts on src's first token as it stands, where a fixed token counts
// as a character of 4 bytes, as an extended character does.
void convertToOem(std::span<const char> src, std::span<char> dst, bool raw) {
    if (dst.empty()) return;
    TokenWalk walk = walkFrom(src, 0);
    if (!raw) skipToCharacter(walk);
    size_t written = 0;
    while (written + 1 < dst.size() && walk.whole()) {
        const uint8_t *token = walk.position();
        if (isCharacter(walk.token())) {
            dst[written++] = static_cast<char>(*token);
            walk.next();
        } else if (isFixedToken(walk.token())) {
            auto position = static_cast<size_t>(token - bytesOf(src));
            if (src.size() - position < TOKEN_EXTENDED_CHAR_SIZE) break;
            uint16_t key = raw ? token[1] : static_cast<uint16_t>(token[1] | token[2] << 8);
            dst[written++] = static_cast<char>(mapCharacter(key));
            walk = walkFrom(src, position + TOKEN_EXTENDED_CHAR_SIZE);
        }
        skipToCharacter(walk);
    }
    dst[written] = '\0';
}

}  // namespace

uint16_t textLength(std::span<const char> text) {
    TokenWalk walk = walkFrom(text, 0);
    while (walk.whole()) walk.next();
    return static_cast<uint16_t>(walk.position() - bytesOf(text));
}

void textCopy(std::span<char> dst, std::span<const char> src) {
    if (dst.empty()) return;
    size_t position = 0;
    for (TokenWalk walk = walkFrom(src, 0); walk.whole() && position + walk.token().step.length < dst.size();
         walk.next()) {
        std::memcpy(dst.data() + position, src.data() + position, walk.token().step.length);
        position += walk.token().step.length;
    }
    dst[position] = '\0';
}

void textToOem(std::span<const char> src, std::span<char> dst) { convertToOem(src, dst, false); }

void textToOemRaw(std::span<const char> src, std::span<char> dst) { convertToOem(src, dst, true); }

uint16_t taggedTextToHost(std::span<const char> value, char *buffer, size_t limit, bool) {
    size_t measured = std::min(value.size(), limit);
    // Text of nothing but printable characters up to its NUL or the limit
    // converts to itself.
    size_t count = printableBytes(value.data(), measured);
    if (count == measured || value[count] == '\0') return copyTextOut(buffer, value.data(), count);
    textToOem(value, {buffer, limit + 1});
    return static_cast<uint16_t>(strnlen(buffer, limit));
}

void taggedTextFromHost(const char *text, std::span<char> block, bool) {
    textToOemRaw(std::span<const char>(text, strnlen(text, block.size() - 1)), block);
}

}  // namespace mergedb
