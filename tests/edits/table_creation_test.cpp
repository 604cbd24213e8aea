// Table creation through the exports: the bytes of each kind, the limits of
// the field list, and what every failure leaves behind.
#include <gtest/gtest.h>

#include "frame/blocks.h"
#include "support/fault_env.h"
#include "support/table_test.h"

namespace mergedb {
namespace {

using Names = std::vector<std::string>;

// The head of a created file, behind the header and the prefix block, where
// the document offset at byte 4 points. Gives the lead in front of it.
test::Bytes leadBeforeHead(const test::Bytes &file, const std::string &head) {
    const size_t docOffset = file.size() < 16 ? file.size() : file[4] | file[5] << 8;
    if (docOffset > file.size()) return {};
    EXPECT_EQ(test::Bytes(file.begin() + docOffset, file.end()), test::hex(head));
    return test::Bytes(file.begin(), file.begin() + docOffset);
}

uint32_t buildList(const Names &names) {
    uint32_t list = 0;
    for (const std::string &name : names) EXPECT_EQ(dbBuildMerge(&list, name.c_str()), 0u);
    return list;
}

// Tables are made in a database of tagged documents, and in the delimited
// one of the fixture.
class CreateTest : public test::TableTest {
protected:
    void TearDown() override {
        faultReset();
        dbCloseDBMerge(&tagged);
        TableTest::TearDown();
    }

    // The field names of a new tagged table, which has no records.
    Names namesOf(const std::string &name) {
        open(name);
        EXPECT_EQ(dbFirstMerge(table), DB_RESULT_END_OF_DATA);
        return fieldNames();
    }

    uint32_t tagged = test::openDatabase(dir, DB_SUBTYPE_TAGGED);
};

TEST_F(CreateTest, TaggedKindsHaveExactBytesAndOpenWithTheirFields) {
    dir.write("t1.doc", "an old file of the name, longer than the new one, is replaced by it");
    uint32_t liveBefore = test::liveBlocks();
    ASSERT_EQ(dbCreateMerge(tagged, "t0.doc", buildList({"Name", "City"}), DB_KIND_TAGGED_0), 0u);
    ASSERT_EQ(dbCreateMerge(tagged, "t1.doc", buildList({"Name", "City"}), DB_KIND_TAGGED_1), 0u);
    EXPECT_EQ(test::liveBlocks(), liveBefore);
    test::Bytes lead = leadBeforeHead(dir.read("t0.doc"), "0E 0A C3 0C C3 4E 61 6D 65 C4 0C C4 0A C3 0C C3 43 69 74 79 "
                                                          "C4 0C C4 0A 12 0A 05 0A");
    // The kinds differ in the minor version at byte 11 alone.
    ASSERT_GT(lead.size(), 11u);
    EXPECT_EQ(lead[11], 0);
    lead[11] = 1;
    EXPECT_EQ(leadBeforeHead(dir.read("t1.doc"), "DE 62 04 00 04 00 62 DE 0A 4E 61 6D 65 7E 43 69 74 79 7E 7E "
                                                 "DE 34 06 00 00 00 06 00 34 DE 0C"),
              lead);
    EXPECT_EQ(namesOf("t0.doc"), (Names{"Name", "City"}));
    EXPECT_EQ(namesOf("t1.doc"), (Names{"Name", "City"}));

    // An extended character goes in by its number alone: 0x41 is "A", 0x17
    // is 0xFE, which then counts as a variable token over three zeros. Tab
    // and single bytes drop out.
    uint32_t list = buildList({"x\xC0\x41\x01\xC0\t\x85y", "Stra\xC0\x17\x01\xC0"});
    ASSERT_EQ(dbCreateMerge(tagged, "ext.doc", list, DB_KIND_TAGGED_1), 0u);
    EXPECT_EQ(leadBeforeHead(dir.read("ext.doc"), "DE 62 04 00 04 00 62 DE 0A 78 41 79 7E 53 74 72 61 FE 00 00 00 "
                                                  "7E 7E DE 34 06 00 00 00 06 00 34 DE 0C"),
              lead);
    EXPECT_EQ(namesOf("ext.doc"), (Names{"xAy", "Stra"}));
}

TEST_F(CreateTest, FieldListLimits) {
    uint32_t list = 0;
    EXPECT_EQ(dbBuildMerge(&list, nullptr), DB_RESULT_ERROR(ERR_MEMORY));
    EXPECT_EQ(dbBuildMerge(&list, std::string(40, 'n').c_str()), DB_RESULT_ERROR(ERR_UNSUPPORTED));
    EXPECT_EQ(list, 0u);
    for (int i = 0; i < 1001; ++i) ASSERT_EQ(dbBuildMerge(&list, std::string(39, 'n').c_str()), 0u);
    EXPECT_EQ(dbBuildMerge(&list, "one too many"), DB_RESULT_ERROR(ERR_TOO_MANY_FIELDS));
    uint32_t liveBefore = test::liveBlocks();
    EXPECT_EQ(dbCreateMerge(tagged, "big.doc", list, DB_KIND_TAGGED_0), DB_RESULT_ERROR(ERR_TOO_MANY_FIELDS));
    EXPECT_EQ(test::liveBlocks(), liveBefore - 1);
    EXPECT_FALSE(dir.exists("big.doc"));

    Names names;
    for (int i = 0; i < 1000; ++i) names.push_back("F" + std::to_string(i));
    list = buildList(names);
    ASSERT_EQ(dbCreateMerge(tagged, "full.doc", list, DB_KIND_TAGGED_0), 0u);
    EXPECT_EQ(namesOf("full.doc"), names);
}

TEST_F(CreateTest, FailuresLeaveNoFile) {
    dir.write("kept.doc", "old");
    uint32_t liveBefore = test::liveBlocks();
    auto create = [this](const char *name, uint16_t kind) {
        return dbCreateMerge(tagged, name, buildList({"N"}), kind);
    };
    EXPECT_EQ(create("kept.doc", DB_KIND_DELIMITED), DB_RESULT_ERROR(ERR_FORMAT));
    EXPECT_EQ(create("missing/t.doc", DB_KIND_TAGGED_0), DB_RESULT_ERROR(ERR_CREATE));
    EXPECT_EQ(create(nullptr, DB_KIND_TAGGED_0), DB_RESULT_ERROR(ERR_MEMORY));
    EXPECT_EQ(create(std::string(300, 'n').c_str(), DB_KIND_TAGGED_0), DB_RESULT_ERROR(ERR_CREATE));
    faultArm(FaultKind::ShortWrite, 3);
    EXPECT_EQ(create("short.doc", DB_KIND_TAGGED_0), DB_RESULT_ERROR(ERR_WRITE));
    EXPECT_EQ(test::liveBlocks(), liveBefore);  // the lists of tagged databases are freed
    EXPECT_EQ(dir.read("kept.doc"), test::bytesOf("old"));
    EXPECT_FALSE(dir.exists("short.doc"));
}

TEST_F(CreateTest, DelimitedTableIsAnEmptyFileAndKeepsTheList) {
    uint32_t list = buildList({"Name"});
    ASSERT_EQ(dbCreateMerge(database, "t.txt", list, 99), 0u);
    EXPECT_EQ(dir.read("t.txt"), test::Bytes{});
    EXPECT_EQ(dbBuildMerge(&list, "City"), 0u);
    blockFree(&list);
}

}  // namespace
}  // namespace mergedb
