// The walk over a database's tables, and the double-byte aware path functions
// beneath it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <sys/stat.h>

#include "catalogue/directory.h"
#include "support/test_support.h"
#include "tablefile/file_service.h"

namespace mergedb {
namespace {

using test::TempDir;
using Names = std::set<std::string>;

// Every name of one walk, which has to end with end of data, and stay there.
Names walk(uint32_t database) {
    Names names;
    char name[PATH_BUFFER_SIZE];
    DbResult result = 0;
    for (uint16_t step = 1; (result = dbGetTableNamesMerge(database, name, step)) == DB_RESULT_OK; step = 0) {
        names.insert(name);
    }
    EXPECT_EQ(result, DB_RESULT_END_OF_DATA);
    EXPECT_EQ(dbGetTableNamesMerge(database, name, 0), DB_RESULT_END_OF_DATA);
    return names;
}

// Sets LC_ALL, which decides the language class, for the object's life.
class Locale {
public:
    explicit Locale(const char *name) {
        if (const char *old = std::getenv("LC_ALL")) saved_ = old;
        setenv("LC_ALL", name, 1);
    }
    ~Locale() { saved_ ? setenv("LC_ALL", saved_->c_str(), 1) : unsetenv("LC_ALL"); }

private:
    std::optional<std::string> saved_;
};

TEST(CatalogueWalk, ListsPlainFilesAndSkipsTheRest) {
    TempDir dir;
    for (const char *name : {"a.csv", "noext", "dot.", "k.dox", "p.EXE", "l.dll", "x.Exe", "t.do", "m.ML", "ro"}) {
        dir.write(name, "x");
    }
    chmod(dir.file("ro").c_str(), 0444);       // read-only and archive
    mkfifo(dir.file("pipe").c_str(), 0444);    // read-only alone
    std::filesystem::create_directory(dir.file("sub"));
    const Names tables{"a.csv", "noext", "dot.", "k.dox", "ro"};
    uint32_t database = test::openDatabase(dir);
    uint32_t slashed = 0;
    ASSERT_EQ(dbOpenDBMerge(DB_SUBTYPE_DELIMITED, 0, 0, (dir.path() + "/").c_str(), &slashed), DB_RESULT_OK);
    EXPECT_EQ(walk(database), tables);
    EXPECT_EQ(walk(database), tables);
    EXPECT_EQ(databaseLock(database)->find.findHandle, INVALID_HANDLE_VALUE);
    EXPECT_EQ(walk(slashed), tables);

    char name[PATH_BUFFER_SIZE];
    EXPECT_EQ(dbGetTableNamesMerge(0, name, 1) | dbGetTableNamesMerge(database, nullptr, 1), DB_RESULT_ERROR(ERR_MEMORY));
    for (uint32_t *slot : {&database, &slashed}) dbCloseDBMerge(slot);
}

TEST(CatalogueWalk, NothingToListReadsAsTheEnd) {
    TempDir dir;
    dir.write("a.exe", "x");
    dir.write("b.DLL", "x");
    std::filesystem::create_directory(dir.file("gone"));
    uint32_t database = test::openDatabase(dir);
    uint32_t removed = 0;
    ASSERT_EQ(dbOpenDBMerge(DB_SUBTYPE_DELIMITED, 0, 0, dir.file("gone").c_str(), &removed), DB_RESULT_OK);
    char name[PATH_BUFFER_SIZE];
    EXPECT_EQ(dbGetTableNamesMerge(removed, name, 0), DB_RESULT_END_OF_DATA);
    std::filesystem::remove(dir.file("gone"));
    EXPECT_EQ(walk(database), Names{});
    EXPECT_EQ(databaseLock(database)->find.findHandle, INVALID_HANDLE_VALUE);
    EXPECT_EQ(walk(removed), Names{});
    for (uint32_t *slot : {&database, &removed}) dbCloseDBMerge(slot);
}

TEST(CataloguePaths, AppendAddsOneSeparatorWithinTheBuffer) {
    auto append = [](const std::string &text, const char *name) {
        char buffer[PATH_BUFFER_SIZE];
        std::strcpy(buffer, text.c_str());
        char *end = buffer + text.size();
        uint16_t code = pathAppend(buffer, name, &end);
        return code != 0 ? "error " + std::to_string(code) : buffer + ("|" + std::to_string(end - buffer));
    };
    const std::string full = "error " + std::to_string(PORT_NAME_TOO_LONG);
    Locale english("C");
    EXPECT_EQ(append("dir", "x") + append("dir/", "x") + append("", "x"), "dir/x|5dir/x|5x|1");
    EXPECT_EQ(append(std::string(250, 'd'), "1234"), std::string(250, 'd') + "/1234|255");
    EXPECT_EQ(append(std::string(250, 'd'), "12345") + append(std::string(255, 'd'), ""), full + full);
    // Behind a double-byte character whose trail byte is the separator.
    EXPECT_EQ(append("d\x81/", "x"), "d\x81/x|4");
    Locale japanese("ja_JP.SJIS");
    EXPECT_EQ(append("d\x81/", "x"), "d\x81//x|5");
}

TEST(CataloguePaths, LeadBytesBindTheirTrailBytes) {
    const char path[] = "a/b\x81/c\xE0/";
    EXPECT_STREQ(nameStart(path, true, LANGUAGE_JAPANESE), "b\x81/c\xE0/");
    EXPECT_STREQ(nameStart(path, true, LANGUAGE_KOREAN), "c\xE0/");
    EXPECT_STREQ(nameStart(path, true, LANGUAGE_OTHER), "");
    EXPECT_STREQ(nameStart("a:b", true, LANGUAGE_OTHER), "a:b");
    EXPECT_STREQ(lastChar(path, path + 8, LANGUAGE_JAPANESE), "\xE0/");
    EXPECT_STREQ(lastChar(path, path + 8, LANGUAGE_OTHER), "/");
    EXPECT_STREQ(lastChar(path, path + 5, LANGUAGE_SIMPLIFIED_CHINESE), "\x81/c\xE0/");
    EXPECT_EQ(lastChar(path, path, LANGUAGE_JAPANESE), path);
    const char cut[] = "\x81";
    EXPECT_EQ(nextChar(cut, LANGUAGE_TRADITIONAL_CHINESE), cut + 1);
    EXPECT_TRUE(isLeadByte(0x9F, LANGUAGE_JAPANESE) && isLeadByte(0xFC, LANGUAGE_JAPANESE));
    EXPECT_FALSE(isLeadByte(0xA0, LANGUAGE_JAPANESE) || isLeadByte(0xFD, LANGUAGE_JAPANESE));

    std::string classes;
    for (const char *locale : {"ja_JP.UTF-8", "ko_KR", "zh_CN.GBK", "zh_SG", "zh_TW", "de_DE"}) {
        Locale set(locale);
        classes += std::to_string(languageClass()) + " ";
    }
    EXPECT_EQ(classes, "26 27 6 6 7 14 ");
}

}  // namespace
}  // namespace mergedb
