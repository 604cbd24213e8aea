// The driver as a host meets it: the shared library loaded by its path, its
// functions found by their exported names, its session and its messages.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/test_platform.h"
#include "support/test_support.h"

namespace mergedb {
namespace {

template <typename Function>
Function *exported(void *library, const char *name, Function *) {
    return reinterpret_cast<Function *>(test::moduleFunction(library, name));
}

TEST(SharedLibrary, AnswersThroughItsExportedNames) {
    void *library = test::loadModule(MERGEDB_LIBRARY);
    auto init = exported(library, "dbInitMerge", dbInitMerge);
    auto exit = exported(library, "dbExitMerge", dbExitMerge);
    auto message = exported(library, "dbErrMsgMerge", dbErrMsgMerge);
    auto commit = exported(library, "dbCommitMerge", dbCommitMerge);
    auto indexInfo = exported(library, "dbGetIndexInfoMerge", dbGetIndexInfoMerge);
    ASSERT_TRUE(init && exit && message && commit && indexInfo);

    uint32_t session = 0;
    EXPECT_EQ(init(7, 0, 0, 0, &session, test::messagesModule()), DB_RESULT_OK);
    EXPECT_EQ(session, 7u);
    // A later module does not replace the first one.
    EXPECT_EQ(init(9, 0, 0, 0, &session, reinterpret_cast<void *>(0x1234)), DB_RESULT_OK);
    EXPECT_EQ(session, 9u);
    EXPECT_EQ(exit(&session), DB_RESULT_OK);
    EXPECT_EQ(session, 0u);
    auto text = [&](uint32_t code) {
        char buffer[81];
        std::memset(buffer, 'Z', sizeof buffer);
        buffer[80] = '\0';
        message(code, buffer);
        return std::string(buffer);
    };
    EXPECT_EQ(text(DB_RESULT_ERROR(ERR_OPEN)), "The table file could not be opened.");
    EXPECT_EQ(text(0x03FE0006), "Not enough memory, or an invalid handle.");
    EXPECT_EQ(text(0x03FF0000), "No error.");
    EXPECT_EQ(text(DB_RESULT_ERROR(ERR_RECORD_TOO_LONG)), "The record is too long.");
    for (uint32_t code : {24u, 50u, 100u, 0xFFFFu, 0x03FE8000u}) {
        EXPECT_EQ(text(code), "An error occurred in the database driver.") << code;
    }
    EXPECT_EQ(commit(), DB_RESULT_OK);
    EXPECT_EQ(indexInfo(), DB_RESULT_ERROR(ERR_UNSUPPORTED));
}

}  // namespace
}  // namespace mergedb
