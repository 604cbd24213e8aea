// Every export called as a careless or hostile host might call it: null
// pointers, names and delimiters past their limits, item, type and field
// numbers out of range, handles that name nothing. Each call gives a result
// of one of the three shapes, and writes nothing outside the area the host
// stated, which guard bytes surround.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <iterator>
#include <memory>
#include <tuple>

#include "robustness/host_areas.h"
#include "support/table_test.h"

namespace mergedb {
namespace {

using test::fieldItemAreaSize;
using test::valueAreaSize;

constexpr uint8_t GUARD_BYTE = 0xA5;
constexpr size_t GUARD_SIZE = 64;

// An output area of the stated size between guard bytes; it starts out
// filled with the guard byte too, so that untouched parts can be told.
class Area {
public:
    explicit Area(size_t size) : bytes_(size + 2 * GUARD_SIZE, GUARD_BYTE), size_(size) {}
    void *data() { return bytes_.data() + GUARD_SIZE; }
    char *text() { return reinterpret_cast<char *>(data()); }
    uint8_t at(size_t i) const { return bytes_[GUARD_SIZE + i]; }
    bool guarded() const {
        for (size_t i = 0; i < GUARD_SIZE; ++i) {
            if (bytes_[i] != GUARD_BYTE || bytes_[GUARD_SIZE + size_ + i] != GUARD_BYTE) return false;
        }
        return true;
    }

private:
    std::vector<uint8_t> bytes_;
    size_t size_;
};

class HostileHost : public test::TableTest {};

bool defined(DbResult result) {
    return result == DB_RESULT_OK || result == DB_RESULT_END_OF_DATA || DB_RESULT_IS_ERROR(result);
}

const std::string LONG_NAME(70000, 'n');
const uint16_t NUMBERS[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 40, 1000, 65535};

// Calls with one output area of each stated size, then with a null one.
void expectGuarded(size_t size, const std::function<DbResult(void *)> &call, const char *what, uint16_t number) {
    Area area(size);
    EXPECT_TRUE(defined(call(area.data()))) << what << " " << number;
    EXPECT_TRUE(area.guarded()) << what << " " << number;
    EXPECT_TRUE(defined(call(nullptr))) << what << " " << number;
}

TEST_F(HostileHost, SessionDatabaseAndCatalogueCallsKeepToTheirAreas) {
    dir.write(std::string(200, 't') + ".txt", "x\n");
    EXPECT_EQ(dbInitMerge(1, 0, 0, 0, nullptr, test::messagesModule()), 0u);
    EXPECT_EQ(dbExitMerge(nullptr), 0u);
    // The low half of a code, taken as signed, picks the text; all but 0 to
    // 23 share the general one.
    const std::string general = "An error occurred in the database driver.";
    const std::pair<uint32_t, std::string> messages[] = {
        {0, "No error."}, {DB_RESULT_END_OF_DATA, "No error."}, {23, "The record is too long."},
        {DB_RESULT_ERROR(6), "Not enough memory, or an invalid handle."}, {24, general}, {50, general},
        {100, general}, {0xFFFF, general}, {0x03FE8000u, general}};
    for (const auto &[code, text] : messages) {
        Area message(81);
        dbErrMsgMerge(code, message.text());
        EXPECT_EQ(std::string(message.text()), text);
        EXPECT_TRUE(message.guarded()) << code;
        dbErrMsgMerge(code, nullptr);
    }
    Area unopened(4);
    EXPECT_EQ(dbOpenDBMerge(4, 0, 0, LONG_NAME.c_str(), static_cast<uint32_t *>(unopened.data())),
              DB_RESULT_ERROR(ERR_BAD_PATH));
    EXPECT_EQ(unopened.at(0), GUARD_BYTE);
    EXPECT_EQ(dbOpenDBMerge(4, 0, 0, dir.path().c_str(), nullptr), DB_RESULT_ERROR(ERR_MEMORY));
    EXPECT_EQ(dbCloseDBMerge(nullptr), 0u);
    uint32_t tagged = test::openDatabase(dir, DB_SUBTYPE_TAGGED);

    const size_t INFO_SIZE[] = {0, 256, 30, 2, 2, 2, 2, 1, 9, 9, 0, 0, 80, 1, 0, 4, 1};
    for (uint16_t item : NUMBERS) {
        size_t size = item < std::size(INFO_SIZE) ? INFO_SIZE[item] : 0;
        expectGuarded(size, [&](void *out) { return dbGetDBInfoMerge(tagged, out, item); }, "db info", item);
    }
    for (uint16_t first : {1, 0, 2, 65535}) {
        Area name(256), kind(2);
        EXPECT_TRUE(defined(dbGetDBSubTypesMerge(tagged, name.text(), static_cast<uint16_t *>(kind.data()), first)));
        EXPECT_TRUE(name.guarded() && kind.guarded());
        EXPECT_TRUE(DB_RESULT_IS_ERROR(dbGetDBSubTypesMerge(tagged, nullptr, nullptr, first)));
        expectGuarded(31, [&](void *out) { return dbGetTypeNamesMerge(0, 0, static_cast<char *>(out), first); },
                      "type names", first);
        char type[31] = "";
        EXPECT_EQ(dbGetTypeNamesMerge(0, 0, type, first) == 0 ? std::string(type) : "end", first == 1 ? "Text" : "end");
        Area table(256);
        EXPECT_TRUE(defined(dbGetTableNamesMerge(tagged, table.text(), first)));
        EXPECT_TRUE(table.guarded());
        EXPECT_TRUE(DB_RESULT_IS_ERROR(dbGetTableNamesMerge(tagged, nullptr, first)));
    }
    for (uint16_t item : NUMBERS) {
        expectGuarded(1, [&](void *out) { return dbGetSessionInfoMerge(0, static_cast<uint8_t *>(out), item); },
                      "session info", item);
    }
    // The answers of a driver with one data type and no indexes or locks;
    // the type's information gives back the two numbers it was asked with.
    Area a(2), b(2), c(2), d(4), flag(1);
    auto *a16 = static_cast<uint16_t *>(a.data());
    auto *b16 = static_cast<uint16_t *>(b.data());
    auto *c16 = static_cast<uint16_t *>(c.data());
    auto *d32 = static_cast<uint32_t *>(d.data());
    EXPECT_EQ(dbGetTypeInfoMerge(0, 0, 7, 9, 0, 0, a16, b16, c16, d32), 0u);
    EXPECT_EQ(std::tuple(*a16, *b16, *c16, *d32), std::tuple(9, 0, 7, 0u));
    EXPECT_EQ(dbGetNameInfoMerge(0, 0, 0, 0, a16, b16, c16, d32), 0u);
    EXPECT_EQ(std::tuple(*a16, *b16, *c16, *d32), std::tuple(1, 0xFFFF, 0, 0u));
    EXPECT_EQ(dbIsIndexedMerge(0, 0, 0, a16, d32), 0u);
    EXPECT_EQ(std::tuple(*a16, *d32), std::tuple(0xFFFF, 0u));
    EXPECT_EQ(dbIsValidMapMerge(0, 0, 0, 0, 0, 0, d32), 0u);
    EXPECT_EQ(*d32, 1u);
    EXPECT_EQ(dbRecLockMerge(0, d32), 0u);
    EXPECT_EQ(*d32, 1u);
    EXPECT_EQ(dbRecUnlockMerge(0, d32), 0u);
    EXPECT_EQ(*d32, 0u);
    EXPECT_EQ(dbGetSessionInfoMerge(0, static_cast<uint8_t *>(flag.data()), 1), 0u);
    EXPECT_EQ(flag.at(0), 0);
    EXPECT_EQ(dbGetSessionInfoMerge(0, static_cast<uint8_t *>(flag.data()), 2), DB_RESULT_ERROR(ERR_UNSUPPORTED));
    EXPECT_EQ(dbGetTypeNamesMerge(0, 0, flag.text(), 2), DB_RESULT_END_OF_DATA);
    EXPECT_TRUE(a.guarded() && b.guarded() && c.guarded() && d.guarded() && flag.guarded());
    for (DbResult result : {dbGetTypeNamesMerge(0, 0, nullptr, 1), dbIsIndexedMerge(0, 0, 0, nullptr, d32),
                            dbGetTypeInfoMerge(0, 0, 1, 1, 0, 0, a16, b16, c16, nullptr),
                            dbGetNameInfoMerge(0, 0, 0, 0, a16, b16, c16, nullptr),
                            dbIsValidMapMerge(0, 0, 0, 0, 0, 0, nullptr), dbRecLockMerge(0, nullptr),
                            dbRecUnlockMerge(0, nullptr), dbGetSessionInfoMerge(0, nullptr, 1)}) {
        EXPECT_EQ(result, DB_RESULT_ERROR(ERR_MEMORY));
    }
    for (DbResult result : {dbExistsMerge(0, tagged, nullptr, d32), dbEraseMerge(0, tagged, nullptr),
                            dbEraseMerge(0, tagged, LONG_NAME.c_str()), dbBuildMerge(nullptr, "name"),
                            dbCreateMerge(tagged, nullptr, 0, 43),
                            dbCreateMerge(tagged, LONG_NAME.c_str(), 0, 43), dbCreateMerge(tagged, "t", 0, 43)}) {
        EXPECT_TRUE(DB_RESULT_IS_ERROR(result)) << std::hex << result;
    }
    EXPECT_EQ(dbExistsMerge(0, tagged, LONG_NAME.c_str(), d32), 0u);
    EXPECT_EQ(*d32, 0u);

    // A name far past a list's slot is refused, and no list is made.
    uint32_t list = 0;
    EXPECT_TRUE(DB_RESULT_IS_ERROR(dbBuildMerge(&list, LONG_NAME.c_str())));
    EXPECT_EQ(list, 0u);
    dbCloseDBMerge(&tagged);
}

TEST_F(HostileHost, OpeningRefusesNullsAndStringsPastTheirLimits) {
    dir.write("t.txt", "a,b\n");
    const std::string longDelimiter(21, ';');
    struct Open {
        const char *name;
        const char *field, *record, *quote, *ignore;
    };
    const Open opens[] = {{nullptr, ",", "\n", "", ""},          {LONG_NAME.c_str(), ",", "\n", "", ""},
                          {"t.txt", nullptr, "\n", "", ""},      {"t.txt", ",", nullptr, "", ""},
                          {"t.txt", ",", "\n", nullptr, ""},     {"t.txt", ",", "\n", "", nullptr},
                          {"t.txt", longDelimiter.c_str(), "\n", "", ""}, {"t.txt", ",", LONG_NAME.c_str(), "", ""},
                          {"t.txt", ",", "\n", "12345", ""},     {"t.txt", ",", "\n", "", LONG_NAME.c_str()}};
    for (const Open &open : opens) {
        Area out(4);
        EXPECT_TRUE(DB_RESULT_IS_ERROR(dbOpenTableMerge(4, database, open.name, 0, 0, static_cast<uint32_t *>(out.data()),
                                                        open.field, open.record, open.quote, open.ignore, 0)));
        EXPECT_EQ(out.at(0), GUARD_BYTE);
        EXPECT_TRUE(out.guarded());
    }
    EXPECT_TRUE(DB_RESULT_IS_ERROR(dbOpenTableMerge(4, database, "t.txt", 0, 0, nullptr, ",", "\n", "", "", 0)));
    for (uint16_t subtype : {0, 3, 65535}) {
        uint32_t table = 0;
        EXPECT_EQ(dbOpenTableMerge(subtype, database, "t.txt", 0, 0, &table, nullptr, nullptr, nullptr, nullptr, 0),
                  DB_RESULT_ERROR(ERR_END_OF_FILE));
    }
    EXPECT_TRUE(DB_RESULT_IS_ERROR(dbCloseTableMerge(nullptr)));
}

// The exports that take a handle of each kind, with areas for their outputs.
using HandleCall = std::function<DbResult(uint32_t)>;
char nameArea[256];
uint8_t outputArea[512];
uint16_t wordArea = 0;
uint32_t longArea = 0;

const HandleCall TABLE_CALLS[] = {
    [](uint32_t t) { return dbGetFieldNamesMerge(t, nameArea, &wordArea, 1); },
    [](uint32_t t) { return dbGetFieldInfoMerge(t, "1", outputArea, 1); },
    [](uint32_t t) { return dbGetFieldInfoHMerge(t, 0, outputArea, 1); },
    [](uint32_t t) { return dbGetTableInfoMerge(t, outputArea, 1); },
    [](uint32_t t) { return dbFirstMerge(t); },
    [](uint32_t t) { return dbLastMerge(t, 1, &longArea); },
    [](uint32_t t) { return dbNextMerge(t, 1, &longArea); },
    [](uint32_t t) { return dbPrevMerge(t, 1, &longArea); },
    [](uint32_t t) { return dbGetRecordMerge(t, 1, &longArea, 0); },
    [](uint32_t t) { return dbGetFieldValueMerge(t, "1", outputArea, 1, &wordArea); },
    [](uint32_t t) { return dbGetFieldValueHMerge(t, 0, outputArea, 1, &wordArea); },
    [](uint32_t t) { return dbPutFieldValueMerge(t, "1", "x", 1, 1); },
    [](uint32_t t) { return dbPutFieldValueHMerge(t, 0, "x", 1, 1); },
    [](uint32_t t) { return dbClearRecordMerge(t); },
    [](uint32_t t) { return dbInsertMerge(t, 1, &longArea); },
    [](uint32_t t) { return dbUpdateMerge(t, 1, &longArea); },
    [](uint32_t t) { return dbDeleteMerge(t); },
    [](uint32_t t) { return dbFindRecordMerge(t, 0, 0, 0, 1, 0); },
    [](uint32_t t) { return dbSetTableOptionMerge(t, 1); },
    [](uint32_t t) { return dbCloseTableMerge(&t); },
};

const HandleCall DATABASE_CALLS[] = {
    [](uint32_t d) { return dbOpenTableMerge(4, d, "t.txt", 0, 0, &longArea, ",", "\n", "", "", 0); },
    [](uint32_t d) { return dbCreateMerge(d, "new.txt", 0, 41); },
    [](uint32_t d) { return dbGetDBInfoMerge(d, outputArea, 1); },
    [](uint32_t d) { return dbGetDBSubTypesMerge(d, nameArea, &wordArea, 1); },
    [](uint32_t d) { return dbExistsMerge(0, d, "t.txt", &longArea); },
    [](uint32_t d) { return dbEraseMerge(0, d, "t.txt"); },
    [](uint32_t d) { return dbGetTableNamesMerge(d, nameArea, 1); },
};

// Handle 0, a handle closed before, and a handle of another kind all give
// ERR_MEMORY, and free nothing.
TEST_F(HostileHost, ZeroClosedAndForeignHandlesGiveErrMemory) {
    constexpr DbResult NO_HANDLE = DB_RESULT_ERROR(ERR_MEMORY);
    dir.write("t.txt", "");
    uint32_t tagged = test::openDatabase(dir, DB_SUBTYPE_TAGGED);
    uint32_t staleTable = 0, staleDatabase = 0, staleList = 0;
    ASSERT_EQ(test::openDelimited(database, "t.txt", &table), 0u);
    ASSERT_EQ(test::openDelimited(database, "t.txt", &staleTable, ",", "\n", "", "", 1), 0u);
    ASSERT_EQ(dbOpenDBMerge(4, 0, 0, nullptr, &staleDatabase), 0u);
    ASSERT_EQ(dbBuildMerge(&staleList, "a"), 0u);
    uint32_t closing = staleTable;
    ASSERT_EQ(dbCloseTableMerge(&closing), 0u);
    closing = staleDatabase;
    ASSERT_EQ(dbCloseDBMerge(&closing), 0u);
    ASSERT_EQ(dbCreateMerge(tagged, "t.doc", staleList, 65535), DB_RESULT_ERROR(ERR_FORMAT));  // frees the list
    for (uint32_t handle : {0u, staleTable, database}) {
        for (const HandleCall &call : TABLE_CALLS) EXPECT_EQ(call(handle), NO_HANDLE) << &call - TABLE_CALLS;
    }
    for (uint32_t handle : {0u, staleDatabase, table}) {
        for (const HandleCall &call : DATABASE_CALLS) EXPECT_EQ(call(handle), NO_HANDLE) << &call - DATABASE_CALLS;
    }
    for (uint32_t handle : {staleDatabase, table}) EXPECT_EQ(dbCloseDBMerge(&handle), NO_HANDLE);
    for (uint32_t list : {staleList, database}) {
        EXPECT_EQ(dbBuildMerge(&list, "b"), NO_HANDLE);
        EXPECT_EQ(dbCreateMerge(tagged, "t.doc", list, DB_KIND_TAGGED_0), NO_HANDLE);
    }
    EXPECT_FALSE(dir.exists("t.doc"));
    EXPECT_EQ(dbCloseTableMerge(&table), 0u);
    for (uint32_t *slot : {&database, &tagged}) EXPECT_EQ(dbCloseDBMerge(slot), 0u);
    // A slot that holds 0 closes as nothing to do.
    EXPECT_EQ(dbCloseDBMerge(&database), 0u);
}

// Out of the calling order: the database is closed before its table, so
// the compaction of the 200th delete commits but cannot reopen the table.
// The handle then names nothing the close had let go of, and closes.
TEST_F(HostileHost, ACompactionAfterTheDatabaseWasClosedLeavesAHandleThatCloses) {
    std::string text;
    for (int i = 0; i < 250; ++i) text += std::to_string(i) + "\n";
    openWith("t.txt", text);
    ASSERT_EQ(dbCloseDBMerge(&database), 0u);
    ASSERT_EQ(dbFirstMerge(table), 0u);
    for (int i = 1; i < 200; ++i) {
        ASSERT_EQ(dbDeleteMerge(table), 0u);
        ASSERT_EQ(dbNextMerge(table, 0, nullptr), 0u);
    }
    EXPECT_EQ(dbDeleteMerge(table), DB_RESULT_ERROR(ERR_MEMORY));
    EXPECT_EQ(dir.read("t.txt"), test::bytesOf(text.substr(text.find("200\n"))));
    EXPECT_EQ(dbNextMerge(table, 0, nullptr), DB_RESULT_END_OF_DATA);
    close();
}

// A delimited table with a value longer than a short text, and a tagged
// one; each is asked for every item, field and type there is and is not.
class HostileTable : public test::TableTest, public ::testing::WithParamInterface<bool> {
protected:
    void SetUp() override {
        TableTest::SetUp();
        std::string longValue(300, 'v');
        if (GetParam()) {
            openWith("t.doc", test::taggedDocument(0, test::join({test::taggedHead(0, {"A", "B"}),
                                                                   test::taggedRecord(0, {longValue, "b"})})));
        } else {
            openWith("t.txt", "1,2\n" + longValue + ",b\n");
        }
        ASSERT_EQ(dbFirstMerge(table), 0u);
        if (!GetParam()) {
            ASSERT_EQ(dbNextMerge(table, 0, nullptr), 0u);
        }
        // The long value is current, cut to a short text's length.
        ASSERT_EQ(value(0), std::string(254, 'v'));
    }
};

TEST_P(HostileTable, InformationAndValuesKeepToTheirAreas) {
    for (uint16_t item : NUMBERS) {
        size_t size = fieldItemAreaSize(item);
        for (uint16_t index : {0, 1, 2, 65535}) {
            expectGuarded(size, [&](void *out) { return dbGetFieldInfoHMerge(table, index, out, item); }, "info", item);
        }
        for (const char *name : {"1", "b", "", LONG_NAME.c_str()}) {
            expectGuarded(size, [&](void *out) { return dbGetFieldInfoMerge(table, name, out, item); }, "info", item);
        }
        EXPECT_TRUE(DB_RESULT_IS_ERROR(dbGetFieldInfoMerge(table, nullptr, nullptr, item)));
        size_t tableSize = item == 4 ? 256 : item == 1 || item == 2 ? 2 : 0;
        expectGuarded(tableSize, [&](void *out) { return dbGetTableInfoMerge(table, out, item); }, "table", item);
    }
    // Item 2 leaves the host's slots 1 and 2 alone.
    Area type(10);
    ASSERT_EQ(dbGetFieldInfoHMerge(table, 0, type.data(), 2), 0u);
    for (size_t i = 2; i < 6; ++i) EXPECT_EQ(type.at(i), GUARD_BYTE);
    for (uint16_t mode : {1, 0, 0, 0, 2, 65535}) {
        Area name(40), index(2);
        EXPECT_TRUE(defined(dbGetFieldNamesMerge(table, name.text(), static_cast<uint16_t *>(index.data()), mode)));
        EXPECT_TRUE(name.guarded() && index.guarded());
        EXPECT_TRUE(DB_RESULT_IS_ERROR(dbGetFieldNamesMerge(table, nullptr, nullptr, mode)));
    }
    for (uint16_t type : NUMBERS) {
        for (uint16_t index : {0, 1, 2, 65535}) {
            Area length(2);
            auto *lengthOut = static_cast<uint16_t *>(length.data());
            expectGuarded(valueAreaSize(type),
                          [&](void *out) { return dbGetFieldValueHMerge(table, index, out, type, lengthOut); }, "get",
                          type);
            EXPECT_TRUE(DB_RESULT_IS_ERROR(dbGetFieldValueHMerge(table, index, length.data(), type, nullptr)));
            EXPECT_TRUE(length.guarded());
        }
        for (const char *name : {"1", "A", LONG_NAME.c_str()}) {
            uint16_t length = 0;
            expectGuarded(valueAreaSize(type),
                          [&](void *out) { return dbGetFieldValueMerge(table, name, out, type, &length); }, "get",
                          type);
        }
        EXPECT_TRUE(DB_RESULT_IS_ERROR(dbGetFieldValueMerge(table, nullptr, nullptr, type, nullptr)));
    }
}

TEST_P(HostileTable, MovesPutsEditsAndSearchesTakeAnyArgument) {
    Area mark(4);
    auto *markOut = static_cast<uint32_t *>(mark.data());
    for (uint32_t position : {0u, 1u, 3u, 100u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        EXPECT_TRUE(defined(dbGetRecordMerge(table, 1, markOut, position)));
        EXPECT_TRUE(defined(dbGetRecordMerge(table, 1, nullptr, position)));
    }
    EXPECT_TRUE(defined(dbLastMerge(table, 1, nullptr)));
    EXPECT_TRUE(defined(dbPrevMerge(table, 1, nullptr)));
    EXPECT_TRUE(defined(dbNextMerge(table, 1, markOut)));
    EXPECT_TRUE(mark.guarded());
    // A tagged put reads the host's text to its end and no further, even
    // behind the lead byte of a token.
    for (const char *text : {"ab\xde", "\xc0", "x\x7f", ""}) {
        std::unique_ptr<char[]> exact(new char[strlen(text) + 1]);
        std::strcpy(exact.get(), text);
        EXPECT_TRUE(defined(dbPutFieldValueHMerge(table, 0, exact.get(), DB_TYPE_TEXT, 65535)));
    }
    const uint8_t number[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    for (uint16_t type : NUMBERS) {
        const void *value = test::isTextType(type) ? static_cast<const void *>("text") : number;
        for (uint16_t index : {0, 1, 65535}) {
            EXPECT_TRUE(defined(dbPutFieldValueHMerge(table, index, value, type, 8)));
            EXPECT_TRUE(defined(dbPutFieldValueHMerge(table, index, nullptr, type, 8)));
        }
        EXPECT_TRUE(defined(dbPutFieldValueMerge(table, LONG_NAME.c_str(), "x", type, 1)));
        EXPECT_TRUE(DB_RESULT_IS_ERROR(dbPutFieldValueMerge(table, nullptr, "x", type, 1)));
    }
    EXPECT_EQ(dbInsertMerge(table, 1, nullptr), 0u);
    EXPECT_EQ(dbUpdateMerge(table, 1, markOut), 0u);
    EXPECT_TRUE(mark.guarded());
    EXPECT_EQ(dbClearRecordMerge(table), 0u);
    for (uint16_t first : {1, 0, 2, 65535}) {
        EXPECT_TRUE(defined(dbFindRecordMerge(table, 0xFFFFFFFF, 0, 0, first, 0xFFFFFFFF)));
    }
    for (uint16_t option : NUMBERS) EXPECT_TRUE(defined(dbSetTableOptionMerge(table, option)));
    EXPECT_EQ(dbDeleteMerge(table), 0u);
}

INSTANTIATE_TEST_SUITE_P(Kinds, HostileTable, ::testing::Values(false, true),
                         [](const auto &info) { return info.param ? "Tagged" : "Delimited"; });

}  // namespace
}  // namespace mergedb
