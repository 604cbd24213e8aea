// The driver as a host meets it: the shared library loaded by its path, its
// functions found by their exported names, its session and its messages.
#include <gtest/gtest.h>

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
    char text[81] = "";
    message(DB_RESULT_ERROR(ERR_OPEN), text);
    EXPECT_STREQ(text, "The table file could not be opened.");
    EXPECT_EQ(exit(&session), DB_RESULT_OK);
    EXPECT_EQ(session, 0u);
    EXPECT_EQ(commit(), DB_RESULT_OK);
    EXPECT_EQ(indexInfo(), DB_RESULT_ERROR(ERR_UNSUPPORTED));
}

}  // namespace
}  // namespace mergedb
