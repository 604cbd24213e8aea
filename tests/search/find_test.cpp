// Find by example through the exports: exact and prefix criteria, blank
// fields, continued searches, and the table as the walk shows it.
#include "support/table_test.h"

namespace mergedb {
namespace {

using test::bytesOf;

class FindTest : public test::TableTest {
protected:
    // Clears the example, puts the given fields, and searches.
    DbResult find(const std::vector<std::pair<uint16_t, std::string>> &example, uint32_t blankRule = 0) {
        EXPECT_EQ(dbClearRecordMerge(table), 0u);
        for (const auto &[number, text] : example) put(number, text);
        return dbFindRecordMerge(table, 0, 0, 0, 1, blankRule);
    }
    DbResult findNext() { return dbFindRecordMerge(table, 0, 0, 0, 0, 0); }

    // The first fields of the records that a search walks through.
    std::vector<std::string> allFound(const std::vector<std::pair<uint16_t, std::string>> &example,
                                      uint32_t blankRule = 0) {
        std::vector<std::string> found;
        for (DbResult r = find(example, blankRule); r == 0; r = findNext()) found.push_back(value(0));
        return found;
    }
};

using Names = std::vector<std::string>;

TEST_F(FindTest, ExactAndPrefixCriteriaIgnoreCase) {
    openWith("f.txt", "ab,1\nAB,2\nabc,3\na,4\nable,5\n,6\n");
    EXPECT_EQ(allFound({{0, "ab*"}}), (Names{"ab", "AB", "abc", "able"}));
    EXPECT_EQ(allFound({{0, "ab"}}), (Names{"ab", "AB"}));
    EXPECT_EQ(allFound({{0, "*"}}), (Names{"ab", "AB", "abc", "a", "able", ""}));
    EXPECT_EQ(allFound({{0, "a*z"}}), (Names{"ab", "AB", "abc", "a", "able"}));
    EXPECT_EQ(allFound({{0, "A*"}, {1, "5"}}), (Names{"able"}));
    EXPECT_EQ(allFound({}), (Names{"ab", "AB", "abc", "a", "able", ""}));

    // A miss is the end of the data, and the last record stays current.
    EXPECT_EQ(find({{0, "zz"}}), DB_RESULT_END_OF_DATA);
    EXPECT_EQ(value(1), "6");
    EXPECT_EQ(findNext(), DB_RESULT_END_OF_DATA);
}

TEST_F(FindTest, BlankFieldsCountOnlyWithTheBlankRule) {
    openWith("b.txt", "a,x,1\nb,,2\nc,y,3\nd,,4\n");
    ASSERT_EQ(dbFirstMerge(table), 0u);
    ASSERT_EQ(dbClearRecordMerge(table), 0u);
    ASSERT_EQ(dbPutFieldValueHMerge(table, 1, "", DB_TYPE_TEXT, 0), 0u);
    ASSERT_EQ(dbFindRecordMerge(table, 0, 0, 0, 1, 1), 0u);
    EXPECT_EQ(value(0), "b");
    ASSERT_EQ(dbFindRecordMerge(table, 0, 0, 0, 0, 1), 0u);
    EXPECT_EQ(value(0), "d");
    // Without the rule, or cleared but not put, a blank field fits any value.
    EXPECT_EQ(allFound({{1, ""}}, 0).size(), 4u);
    EXPECT_EQ(allFound({}, 1).size(), 4u);
}

TEST_F(FindTest, SearchesSeeTheTableAsTheWalkShowsIt) {
    openWith("e.txt", "a,1\nb,2\nc,3\nb,4\n");
    // An update is found in its new form, a deleted record not at all.
    moveTo(2);
    putAll({"b", "33"});
    ASSERT_EQ(dbUpdateMerge(table, 0, nullptr), 0u);
    moveTo(3);
    ASSERT_EQ(dbDeleteMerge(table), 0u);
    ASSERT_EQ(find({{0, "B"}}), 0u);
    EXPECT_EQ(value(1), "2");
    // Deleting the record found, the search goes on to its neighbour.
    ASSERT_EQ(dbDeleteMerge(table), 0u);
    ASSERT_EQ(findNext(), 0u);
    EXPECT_EQ(value(1), "33");
    EXPECT_EQ(findNext(), DB_RESULT_END_OF_DATA);

    // A tagged table compares the same way, on the stored text.
    dir.write("t.doc", test::taggedDocument(0, test::join({test::taggedHead(0, {"A"}),
                                                            test::taggedRecord(0, {"K\xC3\x05\xC3" "ey"}),
                                                            test::taggedRecord(0, {"ki"})})));
    open("t.doc");
    EXPECT_EQ(allFound({{0, "key"}}), (Names{"Key"}));
    EXPECT_EQ(allFound({{0, "k*"}}), (Names{"Key", "ki"}));
    // A search that never began finds the next record.
    open("t.doc");
    ASSERT_EQ(dbFirstMerge(table), 0u);
    ASSERT_EQ(findNext(), 0u);
    EXPECT_EQ(value(0), "ki");
}

}  // namespace
}  // namespace mergedb
