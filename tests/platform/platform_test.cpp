// The POSIX stand-ins for the text calls of Windows answer as Windows does.
// The file contracts of the Env are held through the exports: share modes
// by the share mode test, renames by the commits, existence by the
// catalogue.
#include <gtest/gtest.h>

#include <string>

#include "platform/windows_api.h"
#include "support/fault_env.h"
#include "support/test_platform.h"

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

}  // namespace
}  // namespace mergedb
