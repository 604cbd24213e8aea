// The field array operations and the exports that tell a host about fields.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#ifndef _WIN32
#include <sys/mman.h>
#include <unistd.h>
#endif

#include "fields/field_array.h"
#include "support/table_test.h"

using namespace mergedb;
using namespace mergedb::test;

namespace {

using Words = std::vector<uint16_t>;
constexpr DbResult NO_FIELD = DB_RESULT_ERROR(ERR_NO_FIELD);
constexpr DbResult NO_MEMORY = DB_RESULT_ERROR(ERR_MEMORY);

// A delimited table opened on an empty file, given fields by hand.
class FieldTable : public TableTest {
protected:
    void SetUp() override {
        TableTest::SetUp();
        openWith("t.csv", "");
    }
    void add(const std::string &name, uint16_t firstInfo = 0) {
        MergeTable *record = tableLock(table);
        ASSERT_EQ(fieldsAdd(&record->fields, &record->fieldCount), 0);
        FieldEntry &entry = blockLockAs<FieldEntry>(record->fields)[record->fieldCount - 1];
        std::strcpy(entry.name, name.c_str());
        entry.info[0] = firstInfo;
    }
    // "name@index" from a step of the name walk, or "end".
    std::string step(uint16_t mode) {
        char name[FIELD_NAME_SIZE] = "";
        uint16_t index = 0;
        DbResult result = dbGetFieldNamesMerge(table, name, &index, mode);
        return result == DB_RESULT_END_OF_DATA ? "end" : name + ("@" + std::to_string(index));
    }
    // Slot 0 of item 3 (the index) for a name, -1 for ERR_NO_FIELD.
    int find(const char *name) {
        uint16_t index = 0;
        return dbGetFieldInfoMerge(table, name, &index, 3) == NO_FIELD ? -1 : index;
    }
};

TEST_F(FieldTable, WithoutFieldsOnlyTypeNameAndTableItemsAnswer) {
    Words words{9, 9};
    EXPECT_EQ(step(1), "end");
    for (uint16_t item = 1; item <= 4; ++item) {
        EXPECT_EQ(dbGetFieldInfoMerge(table, "a", words.data(), item), DB_RESULT_ERROR(ERR_NO_FIELDS));
        EXPECT_EQ(dbGetFieldInfoHMerge(table, 0, words.data(), item), DB_RESULT_ERROR(ERR_NO_FIELDS));
    }
    char type[32] = "";
    EXPECT_EQ(dbGetFieldInfoMerge(table, nullptr, type, 5), DB_RESULT_OK);
    EXPECT_STREQ(type, "Text");
    EXPECT_EQ(dbGetFieldInfoHMerge(table, 7, nullptr, 5), NO_MEMORY);
    EXPECT_EQ(dbGetTableInfoMerge(table, &words[0], 1) | dbGetTableInfoMerge(table, &words[1], 2), DB_RESULT_OK);
    EXPECT_EQ(words, (Words{DB_KIND_DELIMITED, 0}));
    EXPECT_EQ(dbGetTableInfoMerge(table, type, 3), DB_RESULT_ERROR(ERR_UNSUPPORTED));
}

TEST_F(FieldTable, NameWalkStartsOnlyWithModeOneAndItsCursorKeepsRising) {
    for (const char *name : {"a", "b", "c"}) add(name);
    std::string walk;
    for (uint16_t mode : {0, 1, 2, 0, 0, 0}) walk += step(mode) + " ";
    EXPECT_EQ(walk, "b@1 a@0 b@1 c@2 end end ");
    add("d");
    add("e");
    EXPECT_EQ(step(0), "end");
    uint16_t index = 0;
    EXPECT_EQ(dbGetFieldNamesMerge(table, nullptr, &index, 1), NO_MEMORY);
}

TEST_F(FieldTable, LookupFoldsAsciiCaseAndItemsWriteExactlyTheirSlots) {
    for (int i = 0; i < 300; ++i) add("f" + std::to_string(i));
    for (const char *name : {"Name", "NAME", "\xC9t", "_x"}) add(name, 7);
    EXPECT_EQ(find("nAMe"), 300);
    EXPECT_EQ(find("_X"), 303);
    EXPECT_EQ(find("\xE9t"), -1);
    EXPECT_EQ(find("Nam"), -1);
    char name[FIELD_NAME_SIZE] = "";
    EXPECT_EQ(dbGetFieldInfoHMerge(table, 301, name, 1), DB_RESULT_OK);
    EXPECT_STREQ(name, "NAME");
    Words words{9, 9, 9, 9, 9};
    EXPECT_EQ(dbGetFieldInfoMerge(table, "name", words.data(), 2), DB_RESULT_OK);
    EXPECT_EQ(words, (Words{1, 9, 9, 65535, 0}));
    EXPECT_EQ(dbGetFieldInfoMerge(table, "name", words.data(), 4), DB_RESULT_OK);
    EXPECT_EQ(words, (Words{7, 0, 0, 0, 0}));
    EXPECT_EQ(dbGetFieldInfoMerge(table, "f1", name, 6) | dbGetFieldInfoHMerge(table, 0, nullptr, 6), DB_RESULT_OK);
    EXPECT_STREQ(name, "NAME");
    EXPECT_EQ(dbGetFieldInfoMerge(table, "z", name, 6), NO_FIELD);
    EXPECT_EQ(dbGetFieldInfoHMerge(table, 304, name, 1), NO_FIELD);
    EXPECT_EQ(dbGetFieldInfoHMerge(table, 65535, name, 1), NO_FIELD);
    EXPECT_EQ(dbGetFieldInfoMerge(table, nullptr, name, 1), NO_MEMORY);
}

TEST_F(FieldTable, LookupsInOrderAndAgainFindTheFirstOfEqualNames) {
    for (const char *name : {"a", "Same", "SAME", "[x", "{x", "b"}) add(name);
    // In field order: each lookup guesses the field behind the last one.
    EXPECT_EQ(find("a"), 0);
    EXPECT_EQ(find("same"), 1);
    EXPECT_EQ(find("SAME"), 1);  // the guess 2 holds a later equal name
    EXPECT_EQ(find("Same"), 1);  // the field found last, asked again
    EXPECT_EQ(find("[X"), 3);
    EXPECT_EQ(find("{X"), 4);  // '[' and '{' differ by the case bit, but are no letters
    EXPECT_EQ(find("{x"), 4);
    EXPECT_EQ(find("B"), 5);
    EXPECT_EQ(find("a"), 0);
    EXPECT_EQ(find("c"), -1);
}

TEST_F(FieldTable, LongNamesMatchWholeWordsAndTheHostsNameMayEndAtAPageEnd) {
    for (const char *name : {"customer", "customer_name", "Customer_Number", "postal_code_of_the_addressee",
                             "Stra\xDF" "e_und_Ort_\xC9"}) {
        add(name);
    }
    EXPECT_EQ(find("customer_nam"), -1);
    EXPECT_EQ(find("customer_names"), -1);
    EXPECT_EQ(find("customer_NAME"), 1);
    EXPECT_EQ(find("customer_number"), 2);
    EXPECT_EQ(find("CUSTOMER"), 0);
    EXPECT_EQ(find("customer"), 0);
    EXPECT_EQ(find("postal_code_of_the_addressee"), 3);
    EXPECT_EQ(find("postal_code_of_the_addresse"), -1);
    // Past the first word, bytes of 128 and above match only themselves.
    EXPECT_EQ(find("STRA\xDF" "E_UND_ORT_\xC9"), 4);
    EXPECT_EQ(find("Stra\xDF" "e_und_Ort_\xE9"), -1);
    // Each name from a block of its own size, at every place in a word: the
    // same test under Valgrind (tests/CMakeLists.txt) fails on a read past it.
    for (size_t offset = 0; offset < 8; ++offset) {
        for (auto [name, field] : {std::pair{"customer_name", 1}, {"customer_names", -1}, {"c", -1}}) {
            size_t size = offset + std::strlen(name) + 1;
            std::unique_ptr<char[]> block(new char[size]);
            std::memcpy(block.get() + offset, name, size - offset);
            EXPECT_EQ(find(block.get() + offset), field) << name << " at " << offset;
        }
    }
#ifndef _WIN32
    // The name's NUL as the last byte before a page that can't be read.
    long page = sysconf(_SC_PAGESIZE);
    void *pages = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    ASSERT_EQ(mprotect(static_cast<char *>(pages) + page, page, PROT_NONE), 0);
    const std::pair<const char *, int> cases[] = {{"customer_name", 1}, {"customer", 0}, {"customer_x", -1}, {"c", -1}};
    for (auto [name, field] : cases) {
        char *end = static_cast<char *>(pages) + page - std::strlen(name) - 1;
        std::strcpy(end, name);
        EXPECT_EQ(find(end), field) << name;
    }
    munmap(pages, 2 * page);
#endif
}

}  // namespace
