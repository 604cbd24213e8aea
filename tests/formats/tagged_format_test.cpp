// Token steps of tagged documents, and the variable token writer.
#include <gtest/gtest.h>

#include "formats/tagged_format.h"
#include "mergedb/mergedb.h"
#include "support/test_support.h"

namespace mergedb {
namespace {

using test::Bytes;
using test::hex;

TEST(TaggedFormat, StepsOverTokensWithinTheLimit) {
    const uint8_t borders[] = {0, 1, 31, 32, 126, 127, 128, 191, 192, 207, 208, 255};
    for (size_t i = 0; i < std::size(borders); ++i) EXPECT_EQ(tokenClass(&borders[i]), "011335224455"[i] - '0');
    struct Case {
        const char *bytes;
        TokenStepKind kind;
        uint32_t length;
    } cases[] = {
        {"0A", TOKEN_STEP_OK, 1},
        {"C1 00 00 00 00 00 00 00 C1", TOKEN_STEP_OK, 9},
        {"C7 00 00 00 00 00 C7 41", TOKEN_STEP_OK, 7},
        {"7F 05 06 00 05 00 06 00 05 7F", TOKEN_STEP_OK, 10},  // 127 opens a variable token
        {"00 41", TOKEN_STEP_NONE, 0},
        {"C8 41 41 41", TOKEN_STEP_NONE, 0},
        {"C0 41 01", TOKEN_STEP_PAST_LIMIT, 4},
        {"DE 34 06 00 00 00 06 00 34", TOKEN_STEP_PAST_LIMIT, 10},
        {"DE 34 FC FF", TOKEN_STEP_PAST_LIMIT, 65536},  // the length word 65532 does not wrap to 0
        {"DE 34 06", TOKEN_STEP_PAST_LIMIT, 0},
    };
    for (const Case &c : cases) {
        Bytes bytes = hex(c.bytes);  // exactly these bytes: a read past them is caught by the sanitizer
        TokenStep step = tokenStepAt(bytes.data(), bytes.data() + bytes.size());
        EXPECT_EQ(step.kind, c.kind) << c.bytes;
        EXPECT_EQ(step.length, c.length) << c.bytes;
    }
}

// The bytes that marks and heads make reach the files of the edits and
// creation tests; here the writer refuses what does not fit.
TEST(TaggedFormat, AVariableTokenIsWrittenWholeOrNotAtAll) {
    uint8_t token[10] = {};
    const uint8_t twoZeros[2] = {0, 0};
    ASSERT_EQ(writeVariableToken(token, FUNCTION_TOKEN, FUNCTION_RECORD_END, twoZeros), 10u);
    EXPECT_EQ(Bytes(token, token + 10), hex("DE 34 06 00 00 00 06 00 34 DE"));
    EXPECT_EQ(writeVariableToken(std::span(token, 9), 0x55, FUNCTION_RECORD_END, twoZeros), 0u);
    EXPECT_EQ(token[0], 0xDE);
    Bytes body(65532), huge(65600);
    EXPECT_EQ(writeVariableToken(huge, FUNCTION_TOKEN, 0, body), 0u);  // L would not fit 16 bits
}

}  // namespace
}  // namespace mergedb
