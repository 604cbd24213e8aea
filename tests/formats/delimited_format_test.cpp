// Whole-string matches of delimited text within a record's bounds.
#include <gtest/gtest.h>

#include "formats/delimited_format.h"

namespace mergedb {
namespace {

TEST(DelimitedFormat, QuoteClosesBeforeAWholeStringWithinTheLimit) {
    DelimitedStrings strings{"\xFE\xFF", "\r\n", "'", "---"};
    auto closes = [&](std::string_view bytes) {
        auto *p = reinterpret_cast<const uint8_t *>(bytes.data());
        return quoteClosesAt(p, p + bytes.size(), strings);
    };
    EXPECT_TRUE(closes("'\xFE\xFF"));
    EXPECT_FALSE(closes("'\xFE\xFE"));
    EXPECT_FALSE(closes("'\r"));  // the record delimiter would run past the limit
    strings.ignore = "";
    EXPECT_TRUE(closes(std::string_view("'\0", 2)));  // an empty ignore string matches a byte 0
    EXPECT_FALSE(closes("'"));
}

}  // namespace
}  // namespace mergedb
