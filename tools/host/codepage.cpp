#include "codepage.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace mergedb::host {
namespace {

using UpperHalf = std::array<char16_t, 128>;

// The characters of bytes 128 to 255 of code page 437.
constexpr UpperHalf CP437_UPPER = {
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

// Windows-1252: bytes 128 to 159 hold punctuation and a few letters, the
// five bytes that it leaves free stand for the control characters of their
// number, as Windows reads them; bytes 160 to 255 are Latin-1.
constexpr UpperHalf cp1252Upper() {
    constexpr char16_t LOW[32] = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                  0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                  0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                  0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};
    UpperHalf upper{};
    for (size_t i = 0; i < upper.size(); ++i) upper[i] = i < 32 ? LOW[i] : static_cast<char16_t>(0x80 + i);
    return upper;
}
constexpr UpperHalf CP1252_UPPER = cp1252Upper();
static_assert(CP1252_UPPER[0x20] == 0x00A0 && CP1252_UPPER[0x7F] == 0x00FF);

constexpr char32_t REPLACEMENT = 0xFFFD;

struct EncodingNames {
    Encoding encoding;
    std::string_view name;
    std::string_view option;
};

// In the order of the enumeration.
constexpr EncodingNames ENCODINGS[] = {
    {Encoding::Utf8, "UTF-8", "utf8"},
    {Encoding::Cp1252, "Windows-1252", "cp1252"},
    {Encoding::Cp437, "code page 437", "cp437"},
};
static_assert(ENCODINGS[static_cast<size_t>(Encoding::Cp437)].encoding == Encoding::Cp437 &&
              ENCODINGS[static_cast<size_t>(Encoding::Cp1252)].encoding == Encoding::Cp1252);

const UpperHalf &upperHalf(Encoding page) { return page == Encoding::Cp437 ? CP437_UPPER : CP1252_UPPER; }

std::optional<char> storedByte(char32_t character, TextTarget target) {
    if (target.printableAsciiOnly) {
        if (character >= 0x20 && character < 0x7F) return static_cast<char>(character);
        return std::nullopt;
    }
    std::optional<unsigned char> byte = pageByte(character, target.encoding);
    if (!byte) return std::nullopt;
    return static_cast<char>(*byte);
}

std::string refusal(char32_t character, TextTarget target) {
    std::string what = "holds " + describeCharacter(character);
    if (target.printableAsciiOnly) {
        return what + ", and the driver writes only printable ASCII into a tagged document";
    }
    return what + ", which " + std::string(encodingName(target.encoding)) + " lacks";
}

}  // namespace

std::string_view encodingName(Encoding encoding) { return ENCODINGS[static_cast<size_t>(encoding)].name; }

std::string_view encodingOption(Encoding encoding) { return ENCODINGS[static_cast<size_t>(encoding)].option; }

std::optional<Encoding> encodingNamed(std::string_view name) {
    auto lowered = [](std::string_view text) {
        std::string low(text);
        std::transform(low.begin(), low.end(), low.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; });
        return low;
    };
    std::string wanted = lowered(name);
    for (const EncodingNames &encoding : ENCODINGS) {
        if (wanted == encoding.option || wanted == lowered(encoding.name)) return encoding.encoding;
    }
    return std::nullopt;
}

void appendUtf8(std::string &out, char32_t character) {
    auto put = [&out](char32_t value) { out.push_back(static_cast<char>(value)); };
    if (character < 0x80) {
        put(character);
    } else if (character < 0x800) {
        put(0xC0 | (character >> 6));
        put(0x80 | (character & 0x3F));
    } else if (character < 0x10000) {
        put(0xE0 | (character >> 12));
        put(0x80 | ((character >> 6) & 0x3F));
        put(0x80 | (character & 0x3F));
    } else {
        put(0xF0 | (character >> 18));
        put(0x80 | ((character >> 12) & 0x3F));
        put(0x80 | ((character >> 6) & 0x3F));
        put(0x80 | (character & 0x3F));
    }
}

std::optional<char32_t> nextUtf8(std::string_view text, size_t &position) {
    auto lead = static_cast<unsigned char>(text[position++]);
    if (lead < 0x80) return lead;
    size_t trailing = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC2 ? 1 : 0;
    if (trailing == 0 || lead > 0xF4 || position + trailing > text.size()) return std::nullopt;
    char32_t character = lead & (0x3F >> trailing);
    for (size_t i = 0; i < trailing; ++i) {
        auto next = static_cast<unsigned char>(text[position + i]);
        if ((next & 0xC0) != 0x80) return std::nullopt;
        character = (character << 6) | (next & 0x3F);
    }
    // Overlong forms, surrogates and characters past the last plane.
    constexpr char32_t SMALLEST[4] = {0, 0x80, 0x800, 0x10000};
    if (character < SMALLEST[trailing] || (character >= 0xD800 && character < 0xE000) || character > 0x10FFFF) {
        return std::nullopt;
    }
    position += trailing;
    return character;
}

bool isUtf8(std::string_view text) {
    for (size_t position = 0; position < text.size();) {
        if (static_cast<unsigned char>(text[position]) < 0x80) {
            ++position;
        } else if (!nextUtf8(text, position)) {
            return false;
        }
    }
    return true;
}

namespace {

// UTF-8 text with every byte that starts no valid character replaced.
std::string repairedUtf8(std::string_view bytes) {
    if (isUtf8(bytes)) return std::string(bytes);
    std::string out;
    out.reserve(bytes.size() + bytes.size() / 8);
    for (size_t position = 0; position < bytes.size();) {
        size_t start = position;
        if (nextUtf8(bytes, position)) {
            out.append(bytes.substr(start, position - start));
        } else {
            appendUtf8(out, REPLACEMENT);
        }
    }
    return out;
}

}  // namespace

std::optional<unsigned char> pageByte(char32_t character, Encoding page) {
    if (character < 0x80) return static_cast<unsigned char>(character);
    const UpperHalf &upper = upperHalf(page);
    const auto *found = std::find(upper.begin(), upper.end(), character);
    if (found == upper.end()) return std::nullopt;
    return static_cast<unsigned char>(0x80 + (found - upper.begin()));
}

std::string toUtf8(std::string_view bytes, Encoding encoding) {
    if (encoding == Encoding::Utf8) return repairedUtf8(bytes);
    std::string out;
    out.reserve(bytes.size() + bytes.size() / 8);
    const UpperHalf &upper = upperHalf(encoding);
    for (char byte : bytes) {
        auto value = static_cast<unsigned char>(byte);
        if (value < 0x80) {
            out.push_back(byte);
        } else {
            appendUtf8(out, upper[value - 0x80]);
        }
    }
    return out;
}

Encoded fromUtf8(std::string_view utf8, TextTarget target, bool lossy) {
    Encoded encoded;
    encoded.bytes.reserve(utf8.size());
    for (size_t position = 0; position < utf8.size();) {
        size_t start = position;
        std::optional<char32_t> character = nextUtf8(utf8, position);
        if (!character) {
            encoded.problem = "holds bytes that are not UTF-8";
            return encoded;
        }
        if (target.encoding == Encoding::Utf8 && !target.printableAsciiOnly) {
            encoded.bytes.append(utf8.substr(start, position - start));
        } else if (std::optional<char> byte = storedByte(*character, target)) {
            encoded.bytes.push_back(*byte);
        } else if (lossy) {
            encoded.bytes.push_back('?');
        } else {
            encoded.problem = refusal(*character, target);
            encoded.lossyHelps = true;
            return encoded;
        }
    }
    return encoded;
}

std::string describeCharacter(char32_t character) {
    std::string text = "'";
    if (character < 0x20 || character == 0x7F) {
        text.clear();
    } else {
        appendUtf8(text, character);
        text += "' ";
    }
    char code[16];
    std::snprintf(code, sizeof code, "(U+%04X)", static_cast<unsigned>(character));
    return text + code;
}

}  // namespace mergedb::host
