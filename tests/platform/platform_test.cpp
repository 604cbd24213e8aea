// The platform's Env behind the file service keeps the contracts that the
// driver expects of Windows, and the POSIX stand-ins for the text and
// runtime calls keep theirs.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "platform/windows_api.h"
#include "support/fault_env.h"
#include "support/test_platform.h"
#include "support/test_support.h"
#include "tablefile/file_service.h"

namespace mergedb {
namespace {

using test::TempDir;

const Env &env = platformEnv();

TEST(PlatformFiles, ReadsAndWritesGoWhereTheFileStands) {
    TempDir dir;
    dir.write("f", std::string("0123456789"));
    FileObject file;
    ASSERT_EQ(fileOpen(env, dir.file("f").c_str(), MODE_OPEN_WRITE | MODE_SHARE_NONE, &file), 0);
    char buffer[8] = {};
    EXPECT_EQ(fileRead(&file, buffer, 4), 4);
    EXPECT_EQ(fileTell(&file), 4u);
    EXPECT_EQ(fileWrite(&file, "ab", 2), 2);
    EXPECT_EQ(fileSeek(&file, 7, 0), 7u);
    EXPECT_EQ(fileRead(&file, buffer, 8), 3);
    EXPECT_EQ(fileRead(&file, buffer, 8), 0);
    EXPECT_EQ(std::string(buffer, 3), "789");
    EXPECT_EQ(fileSeek(&file, 12, 0), 12u);
    EXPECT_EQ(fileWrite(&file, "z", 1), 1);
    EXPECT_EQ(fileSize(&file), 13u);
    // Offsets are unsigned: a seek to 3 GiB lands there.
    EXPECT_EQ(fileSeek(&file, 0xC0000000u, 0), 0xC0000000u);
    EXPECT_EQ(fileSeek(&file, FILE_FAILURE, 0), FILE_FAILURE);
    EXPECT_EQ(fileTruncate(&file, 11), 0);
    EXPECT_EQ(fileClose(&file), 0);
    EXPECT_EQ(dir.read("f"), test::bytesOf(std::string("0123ab6789\0", 11)));
}

// The share mode of an open refuses the opens of others that it forbids; a
// read-only open shares for everyone, whatever bits it was given. What
// stands at a path decides too: a missing file, a directory.
TEST(PlatformFiles, OpensFollowShareModesAndWhatIsThere) {
    TempDir dir;
    dir.write("f", "x");
    std::filesystem::create_directory(dir.file("d"));
    auto opens = [&](const std::string &name, uint32_t mode) {
        FileObject file;
        bool opened = fileOpen(env, dir.file(name).c_str(), mode, &file) == 0;
        fileClose(&file);
        return opened;
    };
    EXPECT_FALSE(opens("none", MODE_OPEN_WRITE));
    EXPECT_FALSE(opens("d", MODE_OPEN_READ));
    EXPECT_FALSE(opens("none", MODE_OPEN_READ | MODE_CREATE));

    FileObject held;
    ASSERT_EQ(fileOpen(env, dir.file("f").c_str(), MODE_OPEN_WRITE | MODE_SHARE_READ, &held), 0);
    EXPECT_TRUE(opens("f", MODE_OPEN_READ | MODE_SHARE_NONE));
    EXPECT_FALSE(opens("f", MODE_OPEN_WRITE | MODE_SHARE_ALL));
    EXPECT_EQ(fileWrite(&held, "y", 1), 1);
    EXPECT_EQ(fileClose(&held), 0);
    ASSERT_EQ(fileOpen(env, dir.file("f").c_str(), MODE_OPEN_READ | MODE_SHARE_NONE, &held), 0);
    EXPECT_TRUE(opens("f", MODE_OPEN_READ));
    EXPECT_EQ(fileWrite(&held, "x", 1), -1);
    EXPECT_EQ(fileClose(&held), 0);
}

TEST(PlatformFiles, RenameNeverReplacesAndAnOpenFileStays) {
    TempDir dir;
    dir.write("a", "first");
    dir.write("b", "second");
    EXPECT_EQ(fileRename(env, dir.file("a").c_str(), dir.file("b").c_str()), ERR_RENAME);
    EXPECT_EQ(fileRename(env, dir.file("a").c_str(), dir.file("a").c_str()), 0);
    EXPECT_EQ(fileRename(env, dir.file("a").c_str(), dir.file("c").c_str()), 0);
    EXPECT_EQ(dir.read("c"), test::bytesOf("first"));
    EXPECT_FALSE(dir.exists("a"));
    EXPECT_EQ(fileRename(env, dir.file("none").c_str(), dir.file("e").c_str()), ERR_RENAME);

    FileObject file;
    ASSERT_EQ(fileOpen(env, dir.file("c").c_str(), MODE_OPEN_READ, &file), 0);
    EXPECT_EQ(fileDelete(env, dir.file("c").c_str()), ERR_DELETE);
    EXPECT_EQ(fileRename(env, dir.file("c").c_str(), dir.file("d").c_str()), ERR_RENAME);
    EXPECT_EQ(fileClose(&file), 0);
    EXPECT_EQ(fileDelete(env, dir.file("c").c_str()), 0);
    EXPECT_EQ(fileDelete(env, dir.file("c").c_str()), ERR_DELETE);
}

// The walk's attributes are tested through the catalogue's walk.
TEST(PlatformFiles, ExistsSeesFilesDirectoriesAndRoots) {
    TempDir dir;
    dir.write("x.txt", "1");
    std::filesystem::create_directory(dir.file("sub"));
    EXPECT_EQ(fileExists(env, dir.path().c_str()), 0);
    // A trailing separator names nothing, but the root of the drive or file
    // system that holds the directory exists.
    EXPECT_EQ(fileExists(env, dir.file("").c_str()), -1);
    EXPECT_EQ(fileExists(env, std::filesystem::path(dir.path()).root_path().string().c_str()), 0);
    EXPECT_EQ(fileExists(env, dir.file("x.txt").c_str()), 0);
    EXPECT_EQ(fileExists(env, dir.file("missing/y.txt").c_str()), -1);
}

// A text is cut to the buffer, and one that the module lacks gives 0.
TEST(PlatformText, StringResources) {
    char buffer[8];
    std::memset(buffer, 'Z', sizeof buffer);
    auto module = static_cast<HINSTANCE>(test::messagesModule());
    EXPECT_EQ(LoadStringA(module, 203, buffer, 8), 4);
    EXPECT_STREQ(buffer, "Text");
    EXPECT_EQ(LoadStringA(module, 4, buffer, 8), 7);
    EXPECT_STREQ(buffer, "The tab");
    // A text that the module lacks gives 0 (our layer leaves the buffer as
    // it was; the Windows call may empty it).
    EXPECT_EQ(LoadStringA(module, 999, buffer, 8), 0);
    EXPECT_EQ(LoadStringA(nullptr, 4, buffer, 8), 0);
}

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
