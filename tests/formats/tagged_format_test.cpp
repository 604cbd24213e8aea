// Token steps, marks and header bytes of tagged documents.
#include <gtest/gtest.h>

#include <sstream>

#include "formats/tagged_format.h"
#include "mergedb/mergedb.h"
#include "support/test_support.h"

namespace mergedb {
namespace {

using test::Bytes;

Bytes hex(const std::string &text) {
    std::istringstream in(text);
    Bytes bytes;
    for (unsigned byte; in >> std::hex >> byte;) bytes.push_back(static_cast<uint8_t>(byte));
    return bytes;
}

Bytes join(std::initializer_list<std::span<const uint8_t>> parts) {
    Bytes bytes;
    for (auto part : parts) bytes.insert(bytes.end(), part.begin(), part.end());
    return bytes;
}

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

TEST(TaggedFormat, MarksMakeTheRecordsAndHeadsOfBothDialects) {
    uint8_t token[10] = {};
    const uint8_t twoZeros[2] = {0, 0};
    ASSERT_EQ(writeVariableToken(token, FUNCTION_TOKEN, FUNCTION_RECORD_END, twoZeros), 10u);
    EXPECT_EQ(Bytes(token, token + 10), hex("DE 34 06 00 00 00 06 00 34 DE"));
    EXPECT_EQ(writeVariableToken(std::span(token, 9), 0x55, FUNCTION_RECORD_END, twoZeros), 0u);
    EXPECT_EQ(token[0], 0xDE);
    Bytes body(65532), huge(65600);
    EXPECT_EQ(writeVariableToken(huge, FUNCTION_TOKEN, 0, body), 0u);  // L would not fit 16 bits

    auto record = [](uint16_t kind) {
        Bytes a = test::bytesOf("ab"), c = test::bytesOf("c");
        return join({a, taggedFieldEnd(kind), c, taggedFieldEnd(kind), taggedRecordEnd(kind)});
    };
    EXPECT_EQ(record(DB_KIND_TAGGED_0), hex("61 62 12 0A 63 12 0A 05 0A"));
    EXPECT_EQ(record(DB_KIND_TAGGED_1), hex("61 62 DE 31 04 00 04 00 31 DE 0A 63 DE 31 04 00 04 00 31 DE 0A "
                                            "DE 34 06 00 00 00 06 00 34 DE 0C"));
    Bytes name = test::bytesOf("Name"), city = test::bytesOf("City");
    const uint8_t tilde[1] = {NAME_LIST_SEPARATOR};
    EXPECT_EQ(join({HEAD_START_0, NAME_ON, name, NAME_OFF, NAME_ON, city, NAME_OFF, taggedFieldEnd(DB_KIND_TAGGED_0),
                    taggedRecordEnd(DB_KIND_TAGGED_0)}),
              hex("0E 0A C3 0C C3 4E 61 6D 65 C4 0C C4 0A C3 0C C3 43 69 74 79 C4 0C C4 0A 12 0A 05 0A"));
    EXPECT_EQ(join({HEAD_START_1, name, tilde, city, tilde, tilde, taggedRecordEnd(DB_KIND_TAGGED_1)}),
              hex("DE 62 04 00 04 00 62 DE 0A 4E 61 6D 65 7E 43 69 74 79 7E 7E DE 34 06 00 00 00 06 00 34 DE 0C"));
}

TEST(TaggedFormat, CreatedHeaderAndPrefixAreAccepted) {
    auto header = createdHeader(DB_KIND_TAGGED_0);
    EXPECT_EQ(Bytes(header.begin(), header.end()), hex("FF 5A 52 4E 4C 00 00 00 01 0A 00 00 00 00 00 00"));
    EXPECT_EQ(Bytes(CREATED_PREFIX_BLOCK.begin(), CREATED_PREFIX_BLOCK.end()),
              hex("FB FF 05 00 32 00 00 00 00 00 06 00 08 00 00 00 42 00 00 00 08 00 02 00 00 00 4A 00 00 00 00 00 "
                  "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 08 00 7C 00 78 00 00 00 00 00"));
    EXPECT_TRUE(isTaggedMagic(header.data()) && isAcceptedProductType(header[8]) && isAcceptedFileType(header[9]));
    EXPECT_EQ(taggedKindOfMinorVersion(createdHeader(DB_KIND_TAGGED_1)[11]), DB_KIND_TAGGED_1);
    EXPECT_EQ(taggedKindOfMinorVersion(2), 0);
    EXPECT_TRUE(isAcceptedFileType(58) && !isAcceptedFileType(11) && !isAcceptedProductType(2));
}

}  // namespace
}  // namespace mergedb
