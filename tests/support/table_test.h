// A fixture for tests that open one table at a time in a database of their
// own, use it through the exports, and look at what it shows and at the
// files it leaves.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "edits/change_list.h"
#include "support/test_support.h"
#include "tablefile/table.h"

namespace mergedb::test {

class TableTest : public ::testing::Test {
protected:
    void SetUp() override { database = openDatabase(dir); }
    void TearDown() override {
        if (table != 0) {
            EXPECT_EQ(dbCloseTableMerge(&table), 0u);
        }
        dbCloseDBMerge(&database);
    }

    // Opens name, closing the table open before: a tagged document by its
    // ending ".doc", otherwise a delimited table with a comma between fields.
    void open(const std::string &name, const char *record = "\n", const char *quote = "\"") {
        if (table != 0) {
            ASSERT_EQ(dbCloseTableMerge(&table), 0u);
        }
        bool tagged = name.size() > 4 && name.substr(name.size() - 4) == ".doc";
        DbResult result =
            tagged ? openTagged(database, name, &table) : openDelimited(database, name, &table, ",", record, quote);
        ASSERT_EQ(result, 0u) << name;
    }

    // Writes the file and opens it; the table open before is closed first,
    // since Windows lets no one write over a file that a table holds.
    void openWith(const std::string &name, const Bytes &bytes, const char *record = "\n") {
        if (table != 0) close();
        dir.write(name, bytes);
        open(name, record);
    }
    void openWith(const std::string &name, const std::string &text) { openWith(name, bytesOf(text)); }

    void close() {
        ASSERT_EQ(dbCloseTableMerge(&table), 0u);
        table = 0;
    }

    MergeTable &record() { return *tableLock(table); }

    void put(uint16_t number, const std::string &text) {
        ASSERT_EQ(dbPutFieldValueHMerge(table, number, text.c_str(), DB_TYPE_TEXT,
                                        static_cast<uint16_t>(text.size())),
                  0u);
    }

    // Puts the values into fields 0, 1, ...
    void putAll(const std::vector<std::string> &values) {
        for (size_t i = 0; i < values.size(); ++i) put(static_cast<uint16_t>(i), values[i]);
    }

    // The text of a field of the current record, read as the host reads it.
    std::string value(uint16_t number) {
        char text[256] = {};
        uint16_t length = 0;
        EXPECT_EQ(dbGetFieldValueHMerge(table, number, text, DB_TYPE_TEXT, &length), 0u);
        return std::string(text, length);
    }

    // The names of the table's fields, by the host's name walk.
    std::vector<std::string> fieldNames() {
        std::vector<std::string> names;
        char name[40];
        uint16_t index = 0;
        for (uint16_t mode = 1; dbGetFieldNamesMerge(table, name, &index, mode) == 0; mode = 0) names.push_back(name);
        return names;
    }

    // The current record's image.
    Bytes current() {
        const auto *node = blockLockAs<EditNode>(record().current);
        const auto *bytes = blockLockAs<uint8_t>(node->data);
        return Bytes(bytes, bytes + node->dataLength);
    }

    // The records of a forward walk, as record images.
    std::vector<Bytes> walk() {
        std::vector<Bytes> records;
        for (DbResult r = dbFirstMerge(table); r != DB_RESULT_END_OF_DATA; r = dbNextMerge(table, 0, nullptr)) {
            EXPECT_EQ(r, 0u);
            records.push_back(current());
        }
        return records;
    }

    // Moves to the record at index of a forward walk.
    void moveTo(int index) {
        ASSERT_EQ(dbFirstMerge(table), 0u);
        for (int i = 0; i < index; ++i) ASSERT_EQ(dbNextMerge(table, 0, nullptr), 0u);
    }

    TempDir dir;
    uint32_t database = 0;
    uint32_t table = 0;
};

}  // namespace mergedb::test
