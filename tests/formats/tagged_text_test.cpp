// Tagged text: measuring, copying and converting it by whole tokens.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include <string>
#include <string_view>
#include <vector>

#include "formats/byte_runs.h"
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

// The count of printable bytes in front of the first that is not, for every
// length up to 24 and every place of that byte, whatever stands behind it:
// the word checks mark some printable bytes above an unprintable one, and
// only the lowest mark may count. The bytes lie in a buffer of their exact
// length, so that a read past them is caught under the address sanitizer.
TEST(PrintableBytes, CountUpToTheFirstUnprintableByteOfAnyLength) {
    for (size_t length = 0; length <= 24; ++length) {
        for (size_t at = 0; at <= length; ++at) {
            for (char bad : {'\0', '\t', '\x1F', '\x7F', '\x80', '\xFF'}) {
                for (char behind : {' ', '~'}) {
                    std::vector<char> bytes(length, 'a');
                    if (at < length) bytes[at] = bad;
                    for (size_t i = at + 1; i < length; ++i) bytes[i] = behind;
                    EXPECT_EQ(printableBytes(bytes.data(), length), at)
                        << "length " << length << ", byte " << int(static_cast<uint8_t>(bad)) << " at " << at;
                }
            }
        }
    }
}

// A stop scan, forward and backward over random bytes, finds exactly the
// bytes that its set's table names: single bytes, bytes from a bound on,
// below a bound, and both, which the whole pieces of 64 bytes test by
// their own arithmetic.
TEST(StopScan, FindsTheBytesItsSetNames) {
    StopBytes single;
    for (uint8_t byte : {',', '\n', '"'}) stopBytesAdd(single, byte);
    StopBytes high = single;
    stopBytesAddFrom(high, 200);
    StopBytes outside;
    stopBytesAddBelow(outside, 32);
    stopBytesAddFrom(outside, 127);
    StopBytes below;
    stopBytesAddBelow(below, 48);
    std::mt19937 random(7);
    for (const StopBytes *stops : {&single, &high, &outside, &below}) {
        std::vector<uint8_t> bytes(300);
        for (uint8_t &b : bytes) b = static_cast<uint8_t>(random() % 4 == 0 ? random() : ' ' + random() % 95);
        const uint8_t *begin = bytes.data();
        const uint8_t *end = begin + bytes.size();
        auto isStop = [stops](uint8_t b) { return stops->isStop[b]; };
        StopScan forward = stopScanStart(*stops, begin, end);
        for (const uint8_t *p = begin; p < end;) {
            const uint8_t *found = nextStop(forward, p);
            ASSERT_EQ(found, std::find_if(p, end, isStop)) << "from " << p - begin;
            p = found == end ? end : found + 1;
        }
        StopScan backward = stopScanStart(*stops, begin, end);
        for (auto at = static_cast<ptrdiff_t>(bytes.size()) - 1; at >= 0; --at) {
            const uint8_t *found = prevStop(backward, begin + at);
            ptrdiff_t expected = at;
            while (expected >= 0 && !isStop(bytes[expected])) --expected;
            ASSERT_EQ(found, expected < 0 ? nullptr : begin + expected) << "from " << at;
            at = expected;
        }
    }
}

}  // namespace
}  // namespace mergedb
