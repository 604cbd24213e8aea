// Runs of ordinary bytes. The readers of both formats spend most of their
// time passing over bytes that mean nothing to them, up to the next byte
// that may begin a delimiter, a quote or a token, and copying short values.
//
// A stop scan finds the stop bytes of a buffer 64 bytes at a time: it makes
// a mask of the stops of one piece (with SSE2 where the processor has it),
// and each stop in that piece then costs a bit scan. Nothing outside the
// buffer is read.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace mergedb {

// The bytes that end a run: up to four single bytes, every byte below
// lowBelow and every byte from highFrom on. A byte given twice costs
// nothing more.
struct StopBytes {
    std::array<bool, 256> isStop{};
    std::array<uint8_t, 4> bytes{};
    int count = 0;
    uint16_t lowBelow = 0;
    uint16_t highFrom = 256;
};

inline void stopBytesAdd(StopBytes &stops, uint8_t byte) {
    if (stops.isStop[byte]) return;
    stops.isStop[byte] = true;
    stops.bytes[stops.count++] = byte;
    for (int i = stops.count; i < 4; ++i) stops.bytes[i] = stops.bytes[0];
}

inline void stopBytesAddFrom(StopBytes &stops, uint8_t first) {
    stops.highFrom = first;
    for (int byte = first; byte < 256; ++byte) stops.isStop[byte] = true;
}

inline void stopBytesAddBelow(StopBytes &stops, uint8_t bound) {
    stops.lowBelow = bound;
    for (int byte = 0; byte < bound; ++byte) stops.isStop[byte] = true;
}

inline constexpr size_t STOP_PIECE = 64;

// Bit i set where p[i] is a stop, for the bytes from p up to end, at most 64.
inline uint64_t stopMaskPortable(const uint8_t *p, const uint8_t *end, const StopBytes &stops) {
    size_t count = end - p < static_cast<ptrdiff_t>(STOP_PIECE) ? static_cast<size_t>(end - p) : STOP_PIECE;
    uint64_t mask = 0;
    for (size_t i = 0; i < count; ++i) mask |= uint64_t{stops.isStop[p[i]]} << i;
    return mask;
}

// The stops of the 64 bytes from p on, which all lie before the end.
inline uint64_t stopMaskWhole(const uint8_t *p, const StopBytes &stops) {
#if defined(__SSE2__)
    const __m128i b0 = _mm_set1_epi8(static_cast<char>(stops.bytes[0]));
    const __m128i b1 = _mm_set1_epi8(static_cast<char>(stops.bytes[1]));
    const __m128i b2 = _mm_set1_epi8(static_cast<char>(stops.bytes[2]));
    const __m128i b3 = _mm_set1_epi8(static_cast<char>(stops.bytes[3]));
    // v outside [lowBelow, highFrom), where there are bounds: the distance
    // d = v - lowBelow, taken modulo 256, is at least the range's width,
    // as max(d, width) == d. Below lowBelow, d wraps to the top.
    const bool outside = stops.lowBelow != 0 || stops.highFrom < 256;
    const __m128i low = _mm_set1_epi8(static_cast<char>(stops.lowBelow));
    const __m128i width = _mm_set1_epi8(static_cast<char>(stops.highFrom - stops.lowBelow));
    uint64_t mask = 0;
    for (size_t i = 0; i < STOP_PIECE; i += 16) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + i));
        __m128i hits = _mm_setzero_si128();
        if (stops.count != 0) {
            hits = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, b0), _mm_cmpeq_epi8(v, b1)),
                                _mm_or_si128(_mm_cmpeq_epi8(v, b2), _mm_cmpeq_epi8(v, b3)));
        }
        if (outside) {
            __m128i d = _mm_sub_epi8(v, low);
            hits = _mm_or_si128(hits, _mm_cmpeq_epi8(_mm_max_epu8(d, width), d));
        }
        mask |= uint64_t{static_cast<uint16_t>(_mm_movemask_epi8(hits))} << i;
    }
    return mask;
#else
    return stopMaskPortable(p, p + STOP_PIECE, stops);
#endif
}

// A walk over one buffer that asks for the next stop again and again.
struct StopScan {
    const StopBytes *stops;
    const uint8_t *start;  // the buffer's start
    const uint8_t *end;    // the buffer's end
    const uint8_t *base;   // where the piece of the mask begins
    uint64_t mask;         // the stops of the piece
    size_t covered;        // bytes of the piece, 0 before the first
};

inline StopScan stopScanStart(const StopBytes &stops, const uint8_t *start, const uint8_t *end) {
    return StopScan{&stops, start, end, start, 0, 0};
}

// Makes the mask of the piece that holds p: the 64 bytes from p on, or,
// near the end, the last 64 bytes of the buffer, so that whole pieces are
// read where the buffer has them.
inline void stopScanLoad(StopScan &scan, const uint8_t *p) {
    constexpr auto PIECE = static_cast<ptrdiff_t>(STOP_PIECE);
    if (scan.end - p >= PIECE) {
        scan.base = p;
    } else if (scan.end - scan.start >= PIECE) {
        scan.base = scan.end - PIECE;
    } else {
        scan.base = p;
        scan.mask = stopMaskPortable(p, scan.end, *scan.stops);
        scan.covered = static_cast<size_t>(scan.end - p);
        return;
    }
    scan.mask = stopMaskWhole(scan.base, *scan.stops);
    scan.covered = STOP_PIECE;
}

// The first stop at or behind p, which lies at or behind the scan's last
// answer; the buffer's end when there is none.
inline const uint8_t *nextStop(StopScan &scan, const uint8_t *p) {
    for (;;) {
        if (p >= scan.end) return scan.end;
        auto offset = static_cast<size_t>(p - scan.base);
        if (p < scan.base || offset >= scan.covered) {
            stopScanLoad(scan, p);
            offset = static_cast<size_t>(p - scan.base);
        }
        if (uint64_t ahead = scan.mask >> offset) return p + std::countr_zero(ahead);
        p = scan.base + scan.covered;
    }
}

// The first stop from p on that is the given byte, passing over the other
// stops; the buffer's end when there is none.
inline const uint8_t *nextStopOf(StopScan &scan, const uint8_t *p, uint8_t byte) {
    p = nextStop(scan, p);
    while (p < scan.end && *p != byte) p = nextStop(scan, p + 1);
    return p;
}

// The last stop at or before p, which lies at or before the scan's last
// answer, looking no further back than the buffer's start; null when there
// is none. The same scan serves a walk forward or a walk backward, not both.
inline const uint8_t *prevStop(StopScan &scan, const uint8_t *p) {
    constexpr auto PIECE = static_cast<ptrdiff_t>(STOP_PIECE);
    for (;;) {
        if (p < scan.start) return nullptr;
        if (p < scan.base || static_cast<size_t>(p - scan.base) >= scan.covered) {
            if (p - scan.start + 1 >= PIECE) {
                scan.base = p - (PIECE - 1);
                scan.mask = stopMaskWhole(scan.base, *scan.stops);
                scan.covered = STOP_PIECE;
            } else {
                scan.base = scan.start;
                scan.mask = stopMaskPortable(scan.start, p + 1, *scan.stops);
                scan.covered = static_cast<size_t>(p - scan.start) + 1;
            }
        }
        auto offset = static_cast<size_t>(p - scan.base);
        uint64_t behind = offset == STOP_PIECE - 1 ? scan.mask : scan.mask & ((uint64_t{2} << offset) - 1);
        if (behind != 0) return scan.base + (STOP_PIECE - 1 - std::countl_zero(behind));
        if (scan.base == scan.start) return nullptr;
        p = scan.base - 1;
    }
}

namespace byteruns {

inline uint64_t wordAt(const void *p) {
    uint64_t word;
    std::memcpy(&word, p, sizeof word);
    return word;
}

inline constexpr uint64_t ONES = 0x0101010101010101ull;
inline constexpr uint64_t HIGHS = 0x8080808080808080ull;

// The high bit of every byte of word that is no printable ASCII: below 32,
// or 127 and above. Marks above the lowest may be wrong; the lowest is right.
constexpr uint64_t unprintableBytes(uint64_t word) {
    uint64_t below32 = (word - 32 * ONES) & ~word & HIGHS;
    uint64_t from127 = (((word & ~HIGHS) + ONES) | word) & HIGHS;
    return below32 | from127;
}

// The high bit of every byte of word that is 0. Marks above the lowest may
// be wrong; the lowest is right.
template <typename Word>
constexpr Word zeroBytes(Word word) {
    constexpr Word ones = static_cast<Word>(ONES);
    constexpr Word highs = static_cast<Word>(HIGHS);
    return static_cast<Word>((word - ones) & ~word & highs);
}

// The bytes in front of the first 0 among count bytes at p, from
// sizeof(Word) to twice that many, read as two words that overlap in the
// middle; count when there is none.
template <typename Word>
size_t bytesBeforeZero(const uint8_t *p, size_t count) {
    Word head;
    Word tail;
    std::memcpy(&head, p, sizeof head);
    std::memcpy(&tail, p + count - sizeof tail, sizeof tail);
    if (Word found = zeroBytes(head)) return static_cast<size_t>(std::countr_zero(found)) >> 3;
    if (Word found = zeroBytes(tail)) return count - sizeof tail + (static_cast<size_t>(std::countr_zero(found)) >> 3);
    return count;
}

// count bytes, from sizeof(Word) to twice that many, as two words that
// overlap in the middle.
template <typename Word>
void copyHeadAndTail(uint8_t *d, const uint8_t *s, size_t count) {
    Word head;
    Word tail;
    std::memcpy(&head, s, sizeof head);
    std::memcpy(&tail, s + count - sizeof tail, sizeof tail);
    std::memcpy(d, &head, sizeof head);
    std::memcpy(d + count - sizeof tail, &tail, sizeof tail);
}

}  // namespace byteruns

// How many bytes from text on, at most max, are printable ASCII (32-126).
// From 8 to 16 bytes, which most values are, two words that overlap in the
// middle answer without a loop: a word without marks has no mark wrong, so
// the tail's lowest mark lies behind the head.
inline size_t printableBytes(const char *text, size_t max) {
    const auto *p = reinterpret_cast<const uint8_t *>(text);
    if (max >= 8 && max <= 16) {
        uint64_t head = byteruns::unprintableBytes(byteruns::wordAt(p));
        uint64_t tail = byteruns::unprintableBytes(byteruns::wordAt(p + max - 8));
        if (head != 0) return static_cast<size_t>(std::countr_zero(head)) >> 3;
        if (tail != 0) return max - 8 + (static_cast<size_t>(std::countr_zero(tail)) >> 3);
        return max;
    }
    size_t count = 0;
    for (; max - count >= 8; count += 8) {
        if (uint64_t found = byteruns::unprintableBytes(byteruns::wordAt(p + count))) {
            return count + (std::countr_zero(found) >> 3);
        }
    }
    while (count < max && p[count] >= 32 && p[count] < 127) ++count;
    return count;
}

// strnlen, without a call for the short values that fill most fields.
inline size_t textBytes(const char *text, size_t max) {
    const auto *p = reinterpret_cast<const uint8_t *>(text);
    if (max > 16) return strnlen(text, max);
    if (max >= 8) return byteruns::bytesBeforeZero<uint64_t>(p, max);
    if (max >= 4) return byteruns::bytesBeforeZero<uint32_t>(p, max);
    size_t count = 0;
    while (count < max && p[count] != 0) ++count;
    return count;
}

// memcpy for the short values that fill most fields, without a call.
inline void copyBytes(void *dst, const void *src, size_t count) {
    auto *d = static_cast<uint8_t *>(dst);
    const auto *s = static_cast<const uint8_t *>(src);
    if (count >= 8 && count <= 16) {
        byteruns::copyHeadAndTail<uint64_t>(d, s, count);
    } else if (count >= 4 && count < 8) {
        byteruns::copyHeadAndTail<uint32_t>(d, s, count);
    } else if (count < 4) {
        for (size_t i = 0; i < count; ++i) d[i] = s[i];
    } else {
        std::memcpy(d, s, count);
    }
}

// count bytes of text and a NUL behind them into the host's buffer, which
// has room for them; gives count, the length the host is told.
inline uint16_t copyTextOut(char *buffer, const char *text, size_t count) {
    copyBytes(buffer, text, count);
    buffer[count] = '\0';
    return static_cast<uint16_t>(count);
}

}  // namespace mergedb
