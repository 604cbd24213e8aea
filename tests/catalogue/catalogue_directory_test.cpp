// The walk over a database's tables, as a host sees it through
// dbGetTableNamesMerge.
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
    EXPECT_EQ(walk(database), Names{});
    EXPECT_EQ(databaseLock(database)->find.walk, nullptr);
    EXPECT_EQ(walk(removed), Names{});
    for (uint32_t *slot : {&database, &removed}) dbCloseDBMerge(slot);
}

}  // namespace
}  // namespace mergedb
