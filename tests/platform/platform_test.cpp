// The POSIX stand-in for the Windows calls keeps their contracts, and the
// file service maps its failures as the driver expects.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "platform/fault_injection.h"
#include "platform/windows_api.h"
#include "support/test_support.h"
#include "tablefile/file_service.h"

namespace mergedb {
namespace {

using test::TempDir;

TEST(PlatformFiles, ErrorsMapToPortableCodes) {
    EXPECT_EQ(portError(0), 0);
    EXPECT_EQ(portError(2), PORT_NOT_FOUND);
    EXPECT_EQ(portError(32), PORT_DENIED);
    EXPECT_EQ(portError(183), PORT_DENIED);
    EXPECT_EQ(portError(112), PORT_DISK_FULL);
    EXPECT_EQ(portError(206), PORT_NAME_TOO_LONG);
    EXPECT_EQ(portError(1117), PORT_GENERAL);
    EXPECT_EQ(portError(17), PORT_GENERAL);

    TempDir dir;
    FileObject file{};
    EXPECT_EQ(portOpen(dir.file("none").c_str(), MODE_OPEN_WRITE, &file, 1), PORT_NOT_FOUND);
    EXPECT_EQ(file.handle, INVALID_HANDLE_VALUE);
    EXPECT_EQ(portOpen(dir.file("none").c_str(), MODE_OPEN_READ | MODE_CREATE, &file, 1), PORT_DENIED);
    EXPECT_EQ(portClose(&file), 0);
}

TEST(PlatformFiles, ReadsSeeksAndSizesFollowTheDriverLayer) {
    TempDir dir;
    dir.write("f", std::string(140, 'q'));
    FileObject file{};
    ASSERT_EQ(fileOpen(dir.file("f").c_str(), MODE_OPEN_READ | MODE_SHARE_NONE, &file), 0);
    char buffer[100];
    EXPECT_EQ(fileRead(&file, buffer, 100), 100);
    EXPECT_EQ(fileRead(&file, buffer, 100), 40);
    EXPECT_EQ(fileRead(&file, buffer, 100), 0);
    EXPECT_EQ(fileSeek(&file, 0, 2), 140u);
    EXPECT_EQ(fileSize(&file), 140u);
    EXPECT_EQ(fileTell(&file), 140u);
    // A read-only open shares for everyone, whatever bits it was given.
    FileObject second{};
    ASSERT_EQ(fileOpen(dir.file("f").c_str(), MODE_OPEN_READ | MODE_SHARE_NONE, &second), 0);
    EXPECT_EQ(fileWrite(&second, "x", 1), -1);
    EXPECT_EQ(fileClose(&second), 0);
    EXPECT_EQ(fileClose(&file), 0);
}

// The position that reads and writes go to: moved by each, by seeks from
// the start, the current place and the end, and past the end, where a write
// fills the gap with zeros.
TEST(PlatformFiles, ReadsAndWritesGoWhereTheFileStands) {
    TempDir dir;
    dir.write("f", std::string("0123456789"));
    FileObject file{};
    ASSERT_EQ(fileOpen(dir.file("f").c_str(), MODE_OPEN_WRITE | MODE_SHARE_NONE, &file), 0);
    char buffer[8] = {};
    EXPECT_EQ(fileRead(&file, buffer, 4), 4);
    EXPECT_EQ(fileTell(&file), 4u);
    EXPECT_EQ(fileWrite(&file, "ab", 2), 2);
    EXPECT_EQ(fileSeek(&file, 1, 1), 7u);
    EXPECT_EQ(fileRead(&file, buffer, 8), 3);
    EXPECT_EQ(std::string(buffer, 3), "789");
    EXPECT_EQ(fileSeek(&file, 2, 2), 12u);
    EXPECT_EQ(fileWrite(&file, "z", 1), 1);
    EXPECT_EQ(fileSeek(&file, 0, 0), 0u);
    EXPECT_EQ(fileRead(&file, buffer, 8), 8);
    EXPECT_EQ(std::string(buffer, 8), "0123ab67");
    EXPECT_EQ(fileSeek(&file, static_cast<uint32_t>(-20), 1), FILE_FAILURE);
    EXPECT_EQ(fileTell(&file), 8u);
    EXPECT_EQ(fileClose(&file), 0);
    EXPECT_EQ(dir.read("f"), test::bytesOf(std::string("0123ab6789\0\0z", 13)));
}

TEST(PlatformFiles, RenameNeverReplacesAndCopyOverwrites) {
    TempDir dir;
    dir.write("a", "first");
    dir.write("b", "second");
    EXPECT_EQ(fileRename(dir.file("b").c_str(), dir.file("a").c_str()), ERR_RENAME);
    EXPECT_FALSE(MoveFileA(dir.file("a").c_str(), dir.file("b").c_str()));
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(fileRename(dir.file("a").c_str(), dir.file("a").c_str()), 0);
    EXPECT_EQ(fileRename(dir.file("c").c_str(), dir.file("a").c_str()), 0);
    EXPECT_EQ(dir.read("c"), test::bytesOf("first"));
    EXPECT_FALSE(dir.exists("a"));
    EXPECT_EQ(portCopy(dir.file("c").c_str(), dir.file("b").c_str()), 0);
    EXPECT_EQ(dir.read("b"), test::bytesOf("first"));
    EXPECT_EQ(portCopy(dir.file("none").c_str(), dir.file("b").c_str()), PORT_OPEN_FAILED);

    // An open file is neither moved nor deleted.
    FileObject file{};
    ASSERT_EQ(fileOpen(dir.file("c").c_str(), MODE_OPEN_WRITE | MODE_SHARE_READ, &file), 0);
    EXPECT_EQ(fileDelete(dir.file("c").c_str()), ERR_DELETE);
    EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(fileRename(dir.file("d").c_str(), dir.file("c").c_str()), ERR_RENAME);
    EXPECT_EQ(fileClose(&file), 0);
    EXPECT_EQ(fileDelete(dir.file("c").c_str()), 0);
    EXPECT_EQ(fileDelete(dir.file("c").c_str()), ERR_DELETE);
}

TEST(PlatformFiles, ExistsAndFindSeeFilesAndDirectories) {
    TempDir dir;
    dir.write("x.txt", "1");
    EXPECT_EQ(fileExists(dir.path().c_str()), 0);
    // A trailing separator names nothing, but the root of the drive or file
    // system that holds the directory exists.
    EXPECT_EQ(fileExists(dir.file("").c_str()), -1);
    EXPECT_EQ(fileExists(std::filesystem::path(dir.path()).root_path().string().c_str()), 0);
    EXPECT_EQ(fileExists(dir.file("x.txt").c_str()), 0);
    EXPECT_EQ(fileExists(dir.file("y.txt").c_str()), -1);
    EXPECT_EQ(pathExists(dir.file("missing/y.txt").c_str()), PORT_NOT_FOUND);

    WIN32_FIND_DATAA data;
    HANDLE find = FindFirstFileA(dir.file("*.*").c_str(), &data);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    int files = 0;
    do {
        if (std::strcmp(data.cFileName, "x.txt") == 0) {
            EXPECT_EQ(data.dwFileAttributes, FILE_ATTRIBUTE_ARCHIVE);
            ++files;
        }
    } while (FindNextFileA(find, &data));
    EXPECT_EQ(GetLastError(), ERROR_NO_MORE_FILES);
    EXPECT_TRUE(FindClose(find));
    EXPECT_EQ(files, 1);
}

// The error numbers that the calls leave for GetLastError, as Windows
// gives them: a missing file or directory, a file that exists, a directory
// taken for a file, and an open that the share mode of another refuses.
TEST(PlatformFiles, ErrorNumbersAsOnWindows) {
    TempDir dir;
    dir.write("f", "x");
    std::filesystem::create_directory(dir.file("d"));
    auto openError = [](const std::string &path, DWORD access, DWORD share, DWORD disposition) {
        HANDLE handle = CreateFileA(path.c_str(), access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
        DWORD error = handle == INVALID_HANDLE_VALUE ? GetLastError() : ERROR_SUCCESS;
        if (handle != INVALID_HANDLE_VALUE) CloseHandle(handle);
        return error;
    };
    const DWORD readWrite = GENERIC_READ | GENERIC_WRITE;
    EXPECT_EQ(openError(dir.file("none"), GENERIC_READ, 0, OPEN_EXISTING), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(openError(dir.file("f"), readWrite, 0, CREATE_NEW), ERROR_FILE_EXISTS);
    EXPECT_EQ(openError(dir.file("d"), readWrite, 0, OPEN_EXISTING), ERROR_ACCESS_DENIED);

    HANDLE held = CreateFileA(dir.file("f").c_str(), readWrite, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(held, INVALID_HANDLE_VALUE);
    EXPECT_EQ(openError(dir.file("f"), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING),
              ERROR_SUCCESS);
    EXPECT_EQ(openError(dir.file("f"), readWrite, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING),
              ERROR_SHARING_VIOLATION);
    EXPECT_EQ(openError(dir.file("f"), GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING), ERROR_SHARING_VIOLATION);
    EXPECT_TRUE(CloseHandle(held));

    WIN32_FIND_DATAA data;
    EXPECT_EQ(FindFirstFileA(dir.file("*.none").c_str(), &data), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(FindFirstFileA(dir.file("none/*.*").c_str(), &data), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
    EXPECT_FALSE(DeleteFileA(dir.file("none").c_str()));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(DeleteFileA(dir.file("d").c_str()));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_FALSE(MoveFileA(dir.file("none").c_str(), dir.file("g").c_str()));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST(PlatformRuntime, SplitPathAndCaseFolding) {
    char drive[_MAX_DRIVE], directory[_MAX_DIR], name[_MAX_FNAME], extension[_MAX_EXT];
    // Only where paths have drives does "C:" count as one.
    _splitpath(test::native("C:/data.old/a.b.txt").c_str(), drive, directory, name, extension);
    EXPECT_STREQ(drive, PATH_HAS_DRIVES ? "C:" : "");
    EXPECT_EQ(std::string(drive) + directory, test::native("C:/data.old/"));
    EXPECT_STREQ(name, "a.b");
    EXPECT_STREQ(extension, ".txt");
    _splitpath("plain", drive, directory, name, extension);
    EXPECT_STREQ(directory, "");
    EXPECT_STREQ(name, "plain");
    EXPECT_STREQ(extension, "");
    EXPECT_EQ(_stricmp("Name", "nAME"), 0);
    EXPECT_LT(_stricmp("abc", "abd"), 0);
    EXPECT_NE(_stricmp("\xC9", "\xE9"), 0);
}

TEST(PlatformText, CodePagesAndStringResources) {
    char text[] = "caf\xE9 \x80";
    CharToOemA(text, text);
    EXPECT_STREQ(text, "caf\x82 ?");
    OemToCharA(text, text);
    EXPECT_STREQ(text, "caf\xE9 ?");
    // A character that the other page lacks becomes its look-alike (best
    // fit) where Windows has one: A with grave accent, Y with diaeresis and
    // a curly quote become A, Y and a plain quote; the lines of a box become
    // "+", a broken bar and "-".
    char ansi[] = "\xC0\x9F\x93\x81";
    CharToOemA(ansi, ansi);
    EXPECT_STREQ(ansi, "AY\"?");
    char box[] = "\xC9\xB3\xC4";
    OemToCharA(box, box);
    EXPECT_STREQ(box, "+\xA6-");

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

// Every byte of both pages converts as on Windows, look-alikes included: a
// digest (FNV-1a) of the two whole tables.
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

TEST(PlatformFaults, TheArmedCallFailsAndTheRestGoOn) {
    TempDir dir;
    dir.write("f", std::string(10, 'q'));
    FileObject file{};
    ASSERT_EQ(fileOpen(dir.file("f").c_str(), MODE_OPEN_WRITE | MODE_SHARE_NONE, &file), 0);
    faultReset();
    faultArm(FaultKind::Read, 2);
    char buffer[4];
    EXPECT_EQ(fileRead(&file, buffer, 4), 4);
    EXPECT_EQ(fileRead(&file, buffer, 4), -1);
    EXPECT_EQ(fileRead(&file, buffer, 4), 4);
    faultArm(FaultKind::ShortWrite, 1);
    EXPECT_EQ(fileWrite(&file, "abcd", 4), -1);
    EXPECT_EQ(fileWrite(&file, "abcd", 4), 4);
    EXPECT_EQ(faultCalls(FaultKind::Read), 3u);
    faultReset();
    EXPECT_EQ(fileClose(&file), 0);
}

}  // namespace
}  // namespace mergedb
