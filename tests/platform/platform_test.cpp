// The POSIX stand-ins for the text calls of Windows answer as Windows does.
// The file contracts of the Env are held through the exports: share modes
// by the share mode test, renames by the commits, existence by the
// catalogue. The delete that hands its last close to a thread is held here
// as well, for its room coming back is not seen through the exports.
#include <gtest/gtest.h>

#include <string>
#if defined(__linux__)
#include <sys/stat.h>
#endif

#include "platform/env.h"
#include "platform/windows_api.h"
#include "support/fault_env.h"
#include "support/test_platform.h"
#include "support/test_support.h"

namespace mergedb {
namespace {

// The system's language follows the locale as Windows has it: zh_SG is
// Chinese of Singapore, and a name it does not know is US English (the
// languages of double-byte paths are the ones that count).
TEST(PlatformText, TheSystemLanguageFollowsTheLocale) {
    std::string ids;
    for (const char *locale : {"ja_JP.UTF-8", "ko_KR", "zh_CN.GBK", "zh_SG", "zh_TW", "xx_YY"}) {
        test::SystemLocale set(locale);
        ids += std::to_string(faultEnv().systemLanguage()) + " ";
    }
    EXPECT_EQ(ids, "1041 1042 2052 4100 1028 1033 ");
}

// Every byte of both pages converts as on Windows, look-alikes (best fit)
// included: a digest (FNV-1a) of the two whole tables, as Windows gives them.
TEST(PlatformText, BothWholeTablesAsOnWindows) {
    uint32_t digest = 0x811C9DC5u;
    for (auto convert : {CharToOemA, OemToCharA}) {
        for (int byte = 1; byte < 256; ++byte) {
            char text[2] = {static_cast<char>(byte), '\0'};
            convert(text, text);
            digest = (digest ^ static_cast<uint8_t>(text[0])) * 0x01000193u;
        }
    }
    EXPECT_EQ(digest, 0xEF631F94u);
}

#if defined(__linux__)
// A commit deletes its backup with closeAndRemove, which may leave the last
// close to a thread. It refuses what a close and then a remove would, and
// the room of what it deletes is back before the Env writes again.
TEST(PlatformFiles, CloseAndRemoveRefusesWhatRemoveDoesAndGivesTheRoomBackBeforeTheNextWrite) {
    const Env &env = platformEnv();
    test::TempDir dir;
    const std::string path = dir.file("t.bk");
    const OpenRequest shared{true, ShareMode::ReadWrite, Disposition::OpenExisting};
    dir.write("t.bk", "old records\n");

    EnvFile *first = env.open(path.c_str(), shared);
    EnvFile *second = env.open(path.c_str(), shared);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_FALSE(env.closeAndRemove(first, path.c_str()));
    EXPECT_TRUE(dir.exists("t.bk"));

    ASSERT_EQ(chmod(path.c_str(), 0444), 0);
    EXPECT_FALSE(env.closeAndRemove(second, path.c_str()));
    EXPECT_EQ(dir.read("t.bk"), test::bytesOf("old records\n"));
    ASSERT_EQ(chmod(path.c_str(), 0644), 0);

    EnvFile *backup = env.open(path.c_str(), shared);
    ASSERT_NE(backup, nullptr);
    ASSERT_TRUE(env.closeAndRemove(backup, path.c_str()));
    EXPECT_FALSE(dir.exists("t.bk"));
    EnvFile *other = env.open(dir.file("new.txt").c_str(), {true, ShareMode::None, Disposition::CreateAlways});
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(env.writeAt(other, 0, "x", 1), 1);
    EXPECT_EQ(test::heldAfterDelete("/t.bk"), 0);
    env.close(other);
}
#endif

}  // namespace
}  // namespace mergedb
