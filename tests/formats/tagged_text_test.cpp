// Tagged text: measuring, copying and converting it, and the character
// table behind extended characters.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "mergedb/mergedb.h"
#include "formats/delimited_format.h"
#include "formats/tagged_text.h"

namespace mergedb {
namespace {

using namespace std::literals;

// The rows of sets 1 to 8 as listed, set first; set 0 is 00:00 and the run
// 20-7F with value = number.
constexpr const char *LISTED_ROWS = R"(
1 17:E1 1B:A0 1D:83 1E:8E 1F:84 21:85 22:8F 23:86 24:92 25:91 26:80 27:87 28:90 29:82 2B:88 2D:89 2F:8A 31:A1 33:8C 35:8B 37:8D 38:A5 39:A4 3B:A2 3D:93 3E:99 3F:94 41:95 43:A3 45:96 46:9A 47:81 49:97 8B:98
3 00:B0 01:B1 02:B2 03:DB 04:DD 05:DF 06:DE 07:DC 08:C4 09:B3 0A:DA 0B:BF 0C:D9 0D:C0 0E:C3 0F:C2 10:B4 11:C1 12:C5 13:CD 14:BA 15:C9 16:BB 17:BC 18:C8 19:CC 1A:CB 1B:B9 1C:CA 1D:CE 1E:D5 1F:B8 20:BE 21:D4 22:D6 23:B7 24:BD 25:D3 26:C6 27:D2 28:B5 29:D0 2A:C7 2B:D1 2C:B6 2D:CF 2E:D7 2F:D8
4 00:07 01:09 02:FE 05:14 06:15 07:AD 08:A8 09:AE 0A:AF 0B:9C 0C:9D 0D:9E 0E:9F 0F:A6 10:A7 11:AB 12:AC 13:9B 14:FD 15:FC
5 00:03 01:04 02:05 03:06 04:0B 05:0C 06:0F 07:01 08:02 09:0D 0A:0E 0B:16 0D:13 0F:17 10:A9 11:1C 12:08 13:0A
6 01:F1 02:F3 03:F2 08:F6 0D:F7 0E:F0 10:EF 13:EC 14:AA 15:1A 16:1B 17:18 18:19 19:1D 1A:12 1B:10 1C:11 1D:1E 1E:1F 1F:F9 20:FA 24:F8
7 00:F4 01:F5 04:FB
8 01:E0 06:E2 09:EB 0B:EE 10:E9 19:E6 21:E3 24:E4 25:E5 29:E7 2C:E8 2D:ED 32:EA
)";

std::map<uint16_t, uint8_t> listedTable() {
    std::map<uint16_t, uint8_t> table{{0, 0}};
    for (unsigned number = 0x20; number <= 0x7F; ++number) table[number] = static_cast<uint8_t>(number);
    std::istringstream lines(LISTED_ROWS);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        unsigned set = 0, number = 0, value = 0;
        char colon = 0;
        words >> set;
        while (words >> std::hex >> number >> colon >> value) table[static_cast<uint16_t>(set << 8 | number)] = value;
    }
    return table;
}

TEST(CharacterTable, MatchesTheListedRows) {
    auto table = listedTable();
    ASSERT_EQ(table.size(), 255u);
    for (unsigned key = 0; key <= 0xFFFF; ++key) {
        auto row = table.find(static_cast<uint16_t>(key));
        EXPECT_EQ(mapCharacter(static_cast<uint16_t>(key)), row == table.end() ? 0xFE : row->second) << key;
    }
}

// Exactly the bytes given, with no terminator added: reads past them are
// caught by the address sanitizer.
std::vector<char> text(std::string_view bytes) { return {bytes.begin(), bytes.end()}; }

std::string toOem(std::string_view src, size_t capacity = 32, bool raw = false) {
    std::vector<char> dst(capacity, 'Z');
    (raw ? textToOemRaw : textToOem)(text(src), dst);
    return dst.data();
}

std::string copyOf(std::string_view src, size_t capacity) {
    std::vector<char> dst(capacity, 'Z');
    textCopy(dst, text(src));
    return {dst.data(), textLength(dst)};
}

TEST(TextTokens, LengthAndCopyStepOverWholeTokens) {
    EXPECT_EQ(textLength({}), 0);
    EXPECT_EQ(textLength(text("ab\xC0\x17\x01\xC0\0"sv)), 6);
    const auto setZero = "a\xC0\x41\0\xC0" "b\0"sv;  // a zero byte inside the token
    EXPECT_EQ(textLength(text(setZero)), 6);
    EXPECT_EQ(textLength(text("a\x7F\x05\x06\0\0\0\x06\0\x05\x7F" "b\0"sv)), 12);
    EXPECT_EQ(textLength(text("a\xC8" "b\0"sv)), 1);
    EXPECT_EQ(textLength(text("a\xDE\x05\xFC\xFF" "bcdefgh\0"sv)), 1);
    EXPECT_EQ(copyOf(setZero, 16), setZero.substr(0, 6));
    EXPECT_EQ(copyOf(setZero, 5), "a");  // a token that does not fit is left out whole
}

TEST(TextTokens, BrokenTokensAtTheBufferEndEndTheText) {
    for (auto broken : {"ab"sv, "ab\xC0\x41"sv, "ab\xDE\x31"sv, "ab\xDE\x31\x08\0\0\0"sv, "ab\x7F"sv}) {
        EXPECT_EQ(textLength(text(broken)), 2);
        EXPECT_EQ(copyOf(broken, 16), "ab");
        EXPECT_EQ(toOem(broken), "ab");
        EXPECT_EQ(toOem(broken, 32, true), "ab");
    }
    EXPECT_EQ(toOem("\xC3\x41\xC3"sv, 32, true), "");
}

TEST(TextToOem, KeepsPrintableAndExtendedCharactersOnly) {
    EXPECT_EQ(toOem(""sv), "");
    EXPECT_EQ(toOem("\xC0\x17\x01\xC0\0"sv), "\xE1");
    EXPECT_EQ(toOem("\xC0\x17\x01\xC0\0"sv, 32, true), "\xFE");
    EXPECT_EQ(toOem("\xC0\x41\x05\xC0\0"sv, 32, true), "A");
    EXPECT_EQ(toOem("a\tb\xA9\n\0"sv), "ab");
    EXPECT_EQ(toOem("ab\xC0\x17\x01\xC0\0"sv), "ab\xE1");
    EXPECT_EQ(toOem("a\xDE\x31\x04\0\x04\0\x31\xDE" "b\xC8" "c\0"sv), "ab");
    // A fixed token first in src: the raw form takes it as a character of 4 bytes.
    EXPECT_EQ(toOem("\xC3\x41\xC3xy\0"sv), "xy");
    EXPECT_EQ(toOem("\xC3\x41\xC3xy\0"sv, 32, true), "Ay");
    EXPECT_EQ(toOem("abcd\0"sv, 3), "ab");

    std::vector<char> dst(4, 'Z');
    textToOem(text("a\xC0\0\0\xC0" "b\0"sv), dst);
    EXPECT_EQ(std::string(dst.data(), 4), "a\0b\0"sv);
}

// Tagged text is measured and copied by whole tokens, plain text up to its
// NUL.
TEST(TextFormat, TaggedAndPlainTextMeasureAndCopyDifferently) {
    const auto value = text("a\xC0\x41\0\xC0" "bcd\0"sv);
    std::vector<char> dst(4, 'Z');
    EXPECT_EQ(textLength(value), 8);
    textCopy(dst, value);
    EXPECT_EQ(std::string(dst.data(), 2), "a\0"sv);
    EXPECT_EQ(plainLength(value), 3u);  // a plain length stops inside the token
    plainCopy(dst, text("abcdef"sv));
    EXPECT_EQ(std::string(dst.data(), 4), "abc\0"sv);
}

}  // namespace
}  // namespace mergedb
