// The read-ahead under fileRead: whatever the order of the reads, each one
// gives the bytes the file holds at that moment, also just after a write or
// a cut through the same object, or after a read of the file that failed;
// and reads that keep one way call the file a few times, not once each.
#include <gtest/gtest.h>

#include <string>

#include "platform/env.h"
#include "support/fault_env.h"
#include "support/test_support.h"
#include "tablefile/file_service.h"

namespace mergedb {
namespace {

constexpr uint16_t WINDOW = 8191;

TEST(FileService, ReadsGiveTheFileAsItIsInAnyOrderAndAfterAWriteOrACut) {
    test::TempDir dir;
    std::string content(600000, '\0');
    for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7 + i / 251);
    dir.write("t.bin", content);
    FileObject file;
    ASSERT_EQ(fileOpen(faultEnv(), dir.file("t.bin").c_str(), MODE_OPEN_WRITE, &file), 0);
    faultReset();
    auto readAt = [&file](uint32_t offset) {
        std::string got(WINDOW, '?');
        EXPECT_EQ(fileSeek(&file, offset), offset);
        int16_t count = fileRead(&file, got.data(), WINDOW);
        got.resize(count < 0 ? 0 : static_cast<size_t>(count));
        return got;
    };

    // Forward in window steps, past the largest fill, to a short read at the
    // end; then backward in steps that overlap, as a walk back reads.
    for (uint32_t at = 0; at < content.size(); at += WINDOW) {
        EXPECT_TRUE(readAt(at) == content.substr(at, WINDOW)) << at;
    }
    EXPECT_LE(faultCalls(FaultKind::Read), 8u);
    faultReset();
    for (uint32_t end = static_cast<uint32_t>(content.size()); end > 0;) {
        uint32_t at = end > 8000 ? end - 8000 : 0;
        EXPECT_TRUE(readAt(at) == content.substr(at, WINDOW)) << at;
        end = at;
    }
    EXPECT_LE(faultCalls(FaultKind::Read), 9u);

    // A read whose fill fails fails; the next one reads the file again.
    faultArm(FaultKind::Read, 1);
    EXPECT_EQ(readAt(300000), "");
    EXPECT_TRUE(readAt(300000) == content.substr(300000, WINDOW));
    // One byte past what that read fetched: the file's byte, not the buffer's.
    EXPECT_TRUE(readAt(300001) == content.substr(300001, WINDOW));

    // A write into bytes that the last reads fetched ahead.
    readAt(100000);
    readAt(100000 + WINDOW);
    ASSERT_EQ(fileSeek(&file, 112000), 112000u);
    ASSERT_EQ(fileWrite(&file, "changed", 7), 7);
    content.replace(112000, 7, "changed");
    EXPECT_TRUE(readAt(100000 + WINDOW) == content.substr(100000 + WINDOW, WINDOW));

    // A cut inside them: the read is short at the new end.
    readAt(40000);
    readAt(40000 + WINDOW);
    ASSERT_EQ(fileTruncate(&file, 50000), 0);
    EXPECT_TRUE(readAt(40000 + WINDOW) == content.substr(40000 + WINDOW, 50000 - 40000 - WINDOW));
    EXPECT_EQ(fileClose(&file), 0);
}

}  // namespace
}  // namespace mergedb
