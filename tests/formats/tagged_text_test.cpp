// Tagged text: measuring, copying and converting it by whole tokens.
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "formats/tagged_text.h"

namespace mergedb {
namespace {

using namespace std::literals;

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

// A value goes to the host as it is only where all of it is printable: a
// byte that is not, at any place of a value of any length, sends it through
// the conversion, which drops the tab.
TEST(TextToOem, TheHostGetsAValueConvertedWhereverItsFirstUnprintableByteIs) {
    const std::string letters = "abcdefghijklmnopqrst";
    for (size_t length = 1; length <= letters.size(); ++length) {
        for (size_t at = 0; at <= length; ++at) {
            std::string value = letters.substr(0, length);
            if (at < length) value[at] = '\t';
            // The NUL, and the room a tagged value's block keeps behind it.
            std::vector<char> block(value.begin(), value.end());
            block.insert(block.end(), 4, '\0');
            std::vector<char> host(300, 'Z');
            uint16_t count = taggedTextToHost(block, host.data(), 254, false);
            std::string expected = letters.substr(0, length);
            if (at < length) expected.erase(at, 1);
            EXPECT_EQ(std::string(host.data(), count), expected) << "length " << length << ", tab at " << at;
            EXPECT_EQ(host[count], '\0');
        }
    }
}

}  // namespace
}  // namespace mergedb
