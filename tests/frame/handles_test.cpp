// Every export that takes a database or table handle answers 0, a closed
// handle, or a handle of the other kind with ERR_MEMORY, and nothing
// crashes.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "support/test_support.h"

namespace mergedb {
namespace {

constexpr DbResult NO_HANDLE = DB_RESULT_ERROR(ERR_MEMORY);

std::vector<std::function<DbResult(uint32_t)>> tableExports() {
    static char name[64];
    static uint8_t buffer[512];
    static uint16_t index = 0;
    static uint32_t mark = 0;
    return {
        [](uint32_t t) { return dbGetFieldNamesMerge(t, name, &index, 1); },
        [](uint32_t t) { return dbGetFieldInfoMerge(t, "1", buffer, 1); },
        [](uint32_t t) { return dbGetFieldInfoHMerge(t, 0, buffer, 1); },
        [](uint32_t t) { return dbGetTableInfoMerge(t, buffer, 1); },
        [](uint32_t t) { return dbFirstMerge(t); },
        [](uint32_t t) { return dbLastMerge(t, 1, &mark); },
        [](uint32_t t) { return dbNextMerge(t, 1, &mark); },
        [](uint32_t t) { return dbPrevMerge(t, 1, &mark); },
        [](uint32_t t) { return dbGetRecordMerge(t, 1, &mark, 0); },
        [](uint32_t t) { return dbGetFieldValueMerge(t, "1", buffer, 1, &index); },
        [](uint32_t t) { return dbGetFieldValueHMerge(t, 0, buffer, 1, &index); },
        [](uint32_t t) { return dbPutFieldValueMerge(t, "1", "x", 1, 1); },
        [](uint32_t t) { return dbPutFieldValueHMerge(t, 0, "x", 1, 1); },
        [](uint32_t t) { return dbClearRecordMerge(t); },
        [](uint32_t t) { return dbInsertMerge(t, 1, &mark); },
        [](uint32_t t) { return dbUpdateMerge(t, 1, &mark); },
        [](uint32_t t) { return dbDeleteMerge(t); },
        [](uint32_t t) { return dbFindRecordMerge(t, 0, 0, 0, 1, 0); },
        [](uint32_t t) { return dbSetTableOptionMerge(t, 1); },
        [](uint32_t t) { return dbCloseTableMerge(&t); },
    };
}

std::vector<std::function<DbResult(uint32_t)>> databaseExports() {
    static char name[256];
    static uint8_t buffer[512];
    static uint16_t kind = 0;
    static uint32_t out = 0;
    return {
        [](uint32_t d) {
            return dbOpenTableMerge(4, d, "t.txt", 0, 0, &out, ",", "\n", "", "", 0);
        },
        [](uint32_t d) { return dbCreateMerge(d, "new.txt", 0, 41); },
        [](uint32_t d) { return dbGetDBInfoMerge(d, buffer, 1); },
        [](uint32_t d) { return dbGetDBSubTypesMerge(d, name, &kind, 1); },
        [](uint32_t d) { return dbExistsMerge(0, d, "t.txt", &out); },
        [](uint32_t d) { return dbEraseMerge(0, d, "t.txt"); },
        [](uint32_t d) { return dbGetTableNamesMerge(d, name, 1); },
    };
}

TEST(FrameHandles, ZeroClosedAndForeignHandlesGiveErrMemory) {
    test::TempDir dir;
    dir.write("t.txt", "");
    uint32_t database = test::openDatabase(dir);
    uint32_t table = 0;
    ASSERT_EQ(test::openDelimited(database, "t.txt", &table), 0u);
    uint32_t closedTable = 0;
    ASSERT_EQ(test::openDelimited(database, "t.txt", &closedTable, ",", "\n", "", "", 1), 0u);
    uint32_t staleTable = closedTable;
    ASSERT_EQ(dbCloseTableMerge(&closedTable), 0u);
    uint32_t other = 0;
    ASSERT_EQ(dbOpenDBMerge(4, 0, 0, nullptr, &other), 0u);
    uint32_t staleDatabase = other;
    ASSERT_EQ(dbCloseDBMerge(&other), 0u);

    int i = 0;
    for (const auto &call : tableExports()) {
        EXPECT_EQ(call(0), NO_HANDLE) << "table export " << i;
        EXPECT_EQ(call(staleTable), NO_HANDLE) << "table export " << i;
        EXPECT_EQ(call(database), NO_HANDLE) << "table export " << i;
        ++i;
    }
    i = 0;
    for (const auto &call : databaseExports()) {
        EXPECT_EQ(call(0), NO_HANDLE) << "database export " << i;
        EXPECT_EQ(call(staleDatabase), NO_HANDLE) << "database export " << i;
        EXPECT_EQ(call(table), NO_HANDLE) << "database export " << i;
        ++i;
    }
    // A table handle in the slot of dbCloseDBMerge is not freed as a database.
    uint32_t slot = table;
    EXPECT_EQ(dbCloseDBMerge(&slot), NO_HANDLE);
    EXPECT_EQ(dbCloseTableMerge(&table), 0u);
    EXPECT_EQ(dbCloseDBMerge(&database), 0u);
}

}  // namespace
}  // namespace mergedb
