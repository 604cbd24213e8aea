// The stop scans and short copies against byte-by-byte answers, on random
// buffers of every length around the 64-byte pieces.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "formats/byte_runs.h"

namespace mergedb {
namespace {

StopBytes someStops(std::mt19937 &random) {
    StopBytes stops;
    for (int n = random() % 5; n > 0; --n) stopBytesAdd(stops, static_cast<uint8_t>(random() % 8));
    if (random() % 2 == 0) stopBytesAddFrom(stops, static_cast<uint8_t>(120 + random() % 100));
    return stops;
}

TEST(ByteRuns, StopScansFindEveryStopForwardAndBackward) {
    std::mt19937 random(7);
    for (int round = 0; round < 400; ++round) {
        StopBytes stops = someStops(random);
        // Small byte values make stops frequent; high ones reach highFrom.
        std::vector<uint8_t> buffer(random() % 200);
        for (uint8_t &byte : buffer) byte = random() % 3 == 0 ? static_cast<uint8_t>(random()) : random() % 12;
        const uint8_t *start = buffer.data();
        const uint8_t *end = start + buffer.size();
        std::vector<const uint8_t *> expected;
        for (const uint8_t *p = start; p < end; ++p) {
            if (stops.isStop[*p]) expected.push_back(p);
        }

        std::vector<const uint8_t *> forward;
        StopScan scan = stopScanStart(stops, start, end);
        for (const uint8_t *p = nextStop(scan, start); p < end; p = nextStop(scan, p + 1)) forward.push_back(p);
        ASSERT_EQ(forward, expected) << round;

        std::vector<const uint8_t *> backward;
        StopScan back = stopScanStart(stops, start, end);
        for (const uint8_t *p = end; p != start;) {
            p = prevStop(back, p - 1);
            if (p == nullptr) break;
            backward.insert(backward.begin(), p);
        }
        ASSERT_EQ(backward, expected) << round;

        if (buffer.size() >= STOP_PIECE) {
            ASSERT_EQ(stopMaskWhole(start, stops), stopMaskPortable(start, start + STOP_PIECE, stops)) << round;
        }
    }
}

TEST(ByteRuns, ShortTextMeasuresAndCopies) {
    std::mt19937 random(11);
    for (int round = 0; round < 2000; ++round) {
        std::vector<char> text(random() % 40);
        for (char &c : text) c = static_cast<char>(random() % 6 == 0 ? random() % 256 : 'a' + random() % 26);
        size_t max = text.empty() ? 0 : random() % (text.size() + 1);
        size_t printable = 0;
        while (printable < max && text[printable] >= 32 && text[printable] < 127) ++printable;
        ASSERT_EQ(printableBytes(text.data(), max), printable);

        std::vector<char> copy(text.size() + 2, '#');
        copyBytes(copy.data() + 1, text.data(), text.size());
        ASSERT_EQ(copy.front(), '#');
        ASSERT_EQ(copy.back(), '#');
        ASSERT_TRUE(std::equal(text.begin(), text.end(), copy.begin() + 1));
    }
}

}  // namespace
}  // namespace mergedb
