// The capability answers and database questions, as a host sees them.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <string>

#include "support/test_support.h"

namespace mergedb {
namespace {

using test::TempDir;
using Words = std::array<uint16_t, 3>;
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

// The answers of a driver with one data type and no indexes or locks, and
// the results of their null outputs; robustness/hostile_host_test.cpp keeps
// every output within its area.
TEST(CatalogueAnswers, CapabilityAnswersFillEveryOutput) {
    uint32_t session = 0;
    ASSERT_EQ(dbInitMerge(1, 0, 0, 0, &session, test::messagesModule()), DB_RESULT_OK);
    char name[32] = "";
    EXPECT_EQ(dbGetTypeNamesMerge(0, 0, name, 1), DB_RESULT_OK);
    EXPECT_EQ(name + ("|" + outcome(dbGetTypeNamesMerge(0, 0, name, 2))), "Text|end");
    Words words{};
    std::array<uint32_t, 6> longs{9, 9, 9, 9, 9, 9};
    unsigned char flag = 9;
    // The type's information gives back the two numbers it was asked with.
    EXPECT_EQ(dbGetTypeInfoMerge(0, 0, 5, 6, 0, 0, &words[0], &words[1], &words[2], &longs[0]), DB_RESULT_OK);
    EXPECT_EQ(words, (Words{6, 0, 5}));
    EXPECT_EQ(dbGetNameInfoMerge(0, 0, 0, 0, &words[0], &words[1], &words[2], &longs[1]), DB_RESULT_OK);
    EXPECT_EQ(words, (Words{1, 0xFFFF, 0}));
    EXPECT_EQ(dbIsIndexedMerge(0, 0, 0, &words[2], &longs[2]) | dbIsValidMapMerge(0, 0, 0, 0, 0, 0, &longs[3]) |
                  dbRecLockMerge(123, &longs[4]) | dbRecUnlockMerge(0, &longs[5]) | dbGetSessionInfoMerge(0, &flag, 1),
              DB_RESULT_OK);
    EXPECT_EQ(words[2], 0xFFFF);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(longs, (std::array<uint32_t, 6>{0, 0, 0, 1, 1, 0}));
    EXPECT_EQ(dbGetSessionInfoMerge(0, &flag, 2), DB_RESULT_ERROR(ERR_UNSUPPORTED));
    EXPECT_EQ(dbGetTypeNamesMerge(0, 0, nullptr, 1) | dbIsIndexedMerge(0, 0, 0, nullptr, &longs[0]) |
                  dbGetTypeInfoMerge(0, 0, 1, 1, 0, 0, &words[0], &words[1], &words[2], nullptr) |
                  dbGetNameInfoMerge(0, 0, 0, 0, &words[0], &words[1], &words[2], nullptr) |
                  dbIsValidMapMerge(0, 0, 0, 0, 0, 0, nullptr) | dbRecLockMerge(0, nullptr) |
                  dbRecUnlockMerge(0, nullptr) | dbGetSessionInfoMerge(0, nullptr, 1),
              NO_MEMORY);
}

TEST(CatalogueFiles, ExistsEraseAndTheTableOption) {
    TempDir dir;
    dir.write("a.csv", "a,b\r\n");
    std::filesystem::create_directory(dir.file("sub"));
    dir.write("sub/in.txt", "x");
    dir.write("t.doc", test::taggedDocument(1, test::taggedHead(1, {"N"})));
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

    // The conversion option, whose effect the values tests show, is taken
    // by a tagged table too (and ignored by its text).
    uint32_t tagged = 0;
    ASSERT_EQ(test::openTagged(database, "t.doc", &tagged), 0u);
    EXPECT_EQ(dbSetTableOptionMerge(tagged, 2), DB_RESULT_ERROR(ERR_UNSUPPORTED));
    EXPECT_EQ(dbSetTableOptionMerge(tagged, DB_OPTION_ANSI_TEXT), DB_RESULT_OK);
    dbCloseTableMerge(&tagged);
    dbCloseDBMerge(&database);
}

}  // namespace
}  // namespace mergedb
