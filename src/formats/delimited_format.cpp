#include "formats/delimited_format.h"

#include <algorithm>

#include "platform/windows_api.h"

namespace mergedb {

DelimitedBytes delimitedBytesOf(const DelimitedStrings &s) {
    DelimitedBytes bytes{};
    bool firstsDiffer = true;
    for (auto [text, bit] : {std::pair{s.quote, OPENS_QUOTE}, std::pair{s.record, OPENS_RECORD},
                             std::pair{s.field, OPENS_FIELD}, std::pair{s.ignore, OPENS_IGNORE}}) {
        if (text.empty()) continue;
        auto first = static_cast<uint8_t>(text[0]);
        firstsDiffer = firstsDiffer && bytes.opens[first] == 0;
        bytes.opens[first] |= bit;
        stopBytesAdd(bytes.stops, first);
        stopBytesAdd(bytes.lastBytes, static_cast<uint8_t>(text.back()));
    }
    bytes.singlePass = firstsDiffer && !s.field.empty() && !s.record.empty() && s.quote.size() <= 1;
    bytes.sizes = {static_cast<uint8_t>(s.field.size()), static_cast<uint8_t>(s.record.size()),
                   static_cast<uint8_t>(s.quote.size()), static_cast<uint8_t>(s.ignore.size())};
    return bytes;
}

void plainCopy(std::span<char> dst, std::span<const char> src) {
    if (dst.empty()) return;
    size_t length = std::min(plainLength(src), dst.size() - 1);
    if (length != 0) std::memcpy(dst.data(), src.data(), length);
    dst[length] = '\0';
}

namespace {

// plainTextToHost of a long value, or with the conversion.
[[gnu::noinline]] uint16_t plainTextToHostAtLength(std::span<const char> value, char *buffer, size_t limit,
                                                   bool ansi) {
    uint16_t count = copyTextOut(buffer, value.data(), plainLength(value.first(std::min(value.size(), limit))));
    if (ansi) CharToOemA(buffer, buffer);
    return count;
}

}  // namespace

// Measuring no more than limit bytes spares the scan of a long value. The
// conversion makes no NUL of another byte, so the count stays the length.
// A short value without the conversion, which most reads are, calls
// nothing.
uint16_t plainTextToHost(std::span<const char> value, char *buffer, size_t limit, bool ansi) {
    constexpr size_t SHORT = 16;
    if (ansi || value.size() > SHORT) return plainTextToHostAtLength(value, buffer, limit, ansi);
    return copyTextOut(buffer, value.data(), plainLength(value.first(std::min(value.size(), limit))));
}

void plainTextFromHost(const char *text, std::span<char> block, bool ansi) {
    size_t length = strnlen(text, block.size() - 1);
    std::memcpy(block.data(), text, length);
    block[length] = '\0';
    if (ansi) OemToCharA(block.data(), block.data());
}

}  // namespace mergedb
