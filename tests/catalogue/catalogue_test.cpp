// The database's questions as a host sees them: the walk over its tables,
// its information items and subtypes, and the files it answers for.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <set>
#include <string>

#include "catalogue/database.h"
#include "support/test_platform.h"
#include "support/test_support.h"

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

TEST(CatalogueWalk, ListsPlainFilesAndSkipsTheRest) {
    TempDir dir;
    for (const char *name : {"a.csv", "noext", "dot.", "k.dox", "p.EXE", "l.dll", "x.Exe", "t.do", "m.ML", "ro"}) {
        dir.write(name, "x");
    }
    test::setReadOnly(dir.file("ro"), true);  // read-only and archive
    std::filesystem::create_directory(dir.file("sub"));
    Names tables{"a.csv", "noext", "dot.", "k.dox", "ro"};
#if !defined(_WIN32)
    // Names on disk are UTF-8 here: a byte that starts no valid character,
    // an overlong form of NUL too, reads as '?'.
    dir.write("o\xC0\x80.csv", "x");
    tables.insert("o??.csv");
#endif
    uint32_t database = test::openDatabase(dir);
    // A path that ends in the separator names nothing for dbOpenDBMerge;
    // put into the record, it walks the same, with no doubled separator.
    uint32_t slashed = 0;
    EXPECT_EQ(dbOpenDBMerge(DB_SUBTYPE_DELIMITED, 0, 0, dir.file("").c_str(), &slashed),
              DB_RESULT_ERROR(ERR_BAD_PATH));
    ASSERT_EQ(dbOpenDBMerge(DB_SUBTYPE_DELIMITED, 0, 0, dir.path().c_str(), &slashed), DB_RESULT_OK);
    std::strcpy(databaseLock(slashed)->path, dir.file("").c_str());
    EXPECT_EQ(walk(database), tables);
    EXPECT_EQ(walk(database), tables);
    EXPECT_EQ(databaseLock(database)->find.walk, nullptr);
    EXPECT_EQ(walk(slashed), tables);
    EXPECT_EQ(dbGetTableNamesMerge(database, nullptr, 1), DB_RESULT_ERROR(ERR_MEMORY));
    for (uint32_t *slot : {&database, &slashed}) dbCloseDBMerge(slot);
}

TEST(CatalogueWalk, AnEntryThatIsReadOnlyAloneIsSkipped) {
    TempDir dir;
    dir.write("a.csv", "x");
    test::makeReadOnlyEntry(dir.file("ro"));
    uint32_t database = test::openDatabase(dir);
    EXPECT_EQ(walk(database), Names{"a.csv"});
    dbCloseDBMerge(&database);
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
    // A directory that is not there opens no database, and the host's slot
    // keeps what it held.
    uint32_t untouched = 77;
    EXPECT_EQ(dbOpenDBMerge(DB_SUBTYPE_DELIMITED, 0, 0, dir.file("gone").c_str(), &untouched),
              DB_RESULT_ERROR(ERR_BAD_PATH));
    EXPECT_EQ(untouched, 77u);
    // The root of the file system, or of the drive, that holds the directory
    // is one.
    std::string root = std::filesystem::path(dir.path()).root_path().string();
    ASSERT_EQ(dbOpenDBMerge(DB_SUBTYPE_DELIMITED, 0, 0, root.c_str(), &untouched), DB_RESULT_OK);
    dbCloseDBMerge(&untouched);
    EXPECT_EQ(walk(database), Names{});
    EXPECT_EQ(databaseLock(database)->find.walk, nullptr);
    EXPECT_EQ(walk(removed), Names{});
    for (uint32_t *slot : {&database, &removed}) dbCloseDBMerge(slot);
}

constexpr DbResult NO_MEMORY = DB_RESULT_ERROR(ERR_MEMORY);

std::string outcome(DbResult result) {
    if (result == DB_RESULT_END_OF_DATA) return "end";
    return "error " + std::to_string(DB_RESULT_CODE(result));
}

// An item of dbGetDBInfoMerge as text, or as its first bytes in an area
// prefilled with 170.
std::string info(uint32_t database, uint16_t item, size_t bytes = 0) {
    char area[256];
    std::memset(area, 170, sizeof area);
    DbResult result = dbGetDBInfoMerge(database, area, item);
    if (result != DB_RESULT_OK) return outcome(result);
    if (bytes == 0) return area;
    std::string shown;
    for (size_t i = 0; i < bytes; ++i) shown += std::to_string(static_cast<uint8_t>(area[i])) + " ";
    return shown;
}

std::string subtypeStep(uint32_t database, uint16_t firstOrNext) {
    char name[256] = "";
    uint16_t kind = 0;
    DbResult result = dbGetDBSubTypesMerge(database, name, &kind, firstOrNext);
    return result == DB_RESULT_OK ? std::to_string(kind) + " " + name : outcome(result);
}

TEST(CatalogueAnswers, DatabaseItemsAndSubtypeWalk) {
    TempDir dir;
    uint32_t tagged = test::openDatabase(dir, DB_SUBTYPE_TAGGED);
    uint32_t delimited = test::openDatabase(dir, DB_SUBTYPE_DELIMITED);
    EXPECT_EQ(info(tagged, 1), dir.path());
    EXPECT_EQ(info(tagged, 2) + "|" + info(delimited, 2), "Tagged documents|Delimited text");
    EXPECT_EQ(info(tagged, 12), "No error.");
    // Words are little-endian; byte items leave the rest of the area alone.
    EXPECT_EQ(info(tagged, 3, 3) + info(tagged, 4, 2) + info(tagged, 5, 2) + info(tagged, 6, 2),
              "0 1 170 40 0 0 0 0 125 ");
    for (uint16_t item : {7, 13, 16}) EXPECT_EQ(info(tagged, item, 2), "0 170 ");
    for (uint16_t item : {8, 9}) EXPECT_EQ(info(tagged, item, 10), "0 0 0 0 0 0 0 0 0 170 ");
    EXPECT_EQ(info(tagged, 15, 4) + info(delimited, 15, 4), "0 0 0 0 1 0 0 0 ");
    for (uint16_t item : {0, 10, 11, 14, 17}) EXPECT_EQ(info(tagged, item), "error 11");
    EXPECT_EQ(dbGetDBInfoMerge(tagged, nullptr, 3), NO_MEMORY);

    std::string walk;
    for (uint16_t firstOrNext : {1, 0, 2, 1}) walk += subtypeStep(tagged, firstOrNext) + "|";
    EXPECT_EQ(walk, "43 Tagged document, dialect 0|44 Tagged document, dialect 1|end|43 Tagged document, dialect 0|");
    EXPECT_EQ(subtypeStep(delimited, 1), "end");

    uint32_t unnamed = 0;
    ASSERT_EQ(dbOpenDBMerge(7, 0, 0, nullptr, &unnamed), DB_RESULT_OK);
    EXPECT_EQ(info(unnamed, 1) + "|" + info(unnamed, 2), "|error 11");
    for (uint32_t *slot : {&tagged, &delimited, &unnamed}) dbCloseDBMerge(slot);
}

TEST(CatalogueFiles, ExistsAndErase) {
    TempDir dir;
    dir.write("a.csv", "a,b\r\n");
    std::filesystem::create_directory(dir.file("sub"));
    dir.write("sub/in.txt", "x");
        uint32_t database = test::openDatabase(dir);
    const std::string tooLong(300, 'n');
    std::string found;
    for (const char *name : {"a.csv", "sub", "sub/in.txt", "missing", tooLong.c_str()}) {
        uint32_t exists = 9;
        EXPECT_EQ(dbExistsMerge(0, database, name, &exists), DB_RESULT_OK);
        found += std::to_string(exists);
    }
    EXPECT_EQ(found, "11100");
    EXPECT_EQ(dbExistsMerge(0, database, "a.csv", nullptr), NO_MEMORY);
    EXPECT_EQ(dbEraseMerge(0, database, "sub/in.txt"), DB_RESULT_OK);
    EXPECT_FALSE(dir.exists("sub/in.txt"));
    EXPECT_EQ(dbEraseMerge(0, database, "sub/in.txt"), DB_RESULT_ERROR(ERR_DELETE));
    EXPECT_EQ(dbEraseMerge(0, database, tooLong.c_str()), DB_RESULT_ERROR(ERR_DELETE));
    dbCloseDBMerge(&database);
}

}  // namespace
}  // namespace mergedb
