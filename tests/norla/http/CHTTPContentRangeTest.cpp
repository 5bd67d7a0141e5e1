#include "norla/http/CHTTPContentRange.h"

#include "kx/base/CError.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

struct CRangeRow {
    const char* name;
    kx::String header;
    kx::String unit;
    long long first;
    long long last;
    long long total;
};

class ContentRangeTest : public testing::TestWithParam<CRangeRow> {};

TEST_P(ContentRangeTest, isParsed)
{
    const auto range = norla::CHTTPContentRange::parse(GetParam().header);
    EXPECT_EQ(range->getUnit(), GetParam().unit);
    EXPECT_EQ(range->getFirst(), GetParam().first);
    EXPECT_EQ(range->getLast(), GetParam().last);
    EXPECT_EQ(range->getTotal(), GetParam().total);
}

constexpr long long largest = std::numeric_limits<long long>::max();

INSTANTIATE_TEST_SUITE_P(All, ContentRangeTest,
    testing::ValuesIn(std::vector<CRangeRow>{
        {"usual", "bytes 0-499/1234", "bytes", 0, 499, 1234},
        {"unknownTotal", "Bytes 500-999/*", "bytes", 500, 999, -1},
        {"unsatisfied", "bytes */1234", "bytes", -1, -1, 1234},
        {"nothingKnown", "bytes */*", "bytes", -1, -1, -1},
        {"whiteSpaceAround", " \t bytes 1-2/3\r\n", "bytes", 1, 2, 3},
        {"otherUnit", "SECONDS 1-2/3", "seconds", 1, 2, 3},
        {"unitWithDash", "x-bytes 1-2/3", "x-bytes", 1, 2, 3},
        {"unitThatEndsInADash", "x- 1-2/3", "x-", 1, 2, 3},
        {"unitWithSlash", "a/b 1-2/3", "a/b", 1, 2, 3},
        {"firstBehindLast", "bytes 9-3/5", "bytes", 9, 3, 5},
        {"lastBehindTotal", "bytes 0-9/5", "bytes", 0, 9, 5},
        {"largest", "bytes 0-9223372036854775806/9223372036854775807", "bytes", 0, largest - 1, largest},
        {"signs", "bytes +1-+2/-3", "bytes", 1, 2, -3},
        {"negativeLast", "bytes 1--2/3", "bytes", 1, -2, 3},
    }),
    [](const testing::TestParamInfo<CRangeRow>& row) { return row.param.name; });

struct CBadRangeRow {
    const char* name;
    kx::String header;
    kx::String message;
};

class BadContentRangeTest : public testing::TestWithParam<CBadRangeRow> {};

TEST_P(BadContentRangeTest, isNamedInTheError)
{
    try {
        norla::CHTTPContentRange::parse(GetParam().header);
        FAIL() << "no error";
    } catch (const kx::CError& error) {
        EXPECT_EQ(error.getMessage(), GetParam().message);
        EXPECT_EQ(error.getDomain(), "");
        EXPECT_EQ(error.getCode(), -1);
        EXPECT_TRUE(error.getProps().getMap().empty());
        EXPECT_EQ(error.getCause(), nullptr);
    }
}

INSTANTIATE_TEST_SUITE_P(Shape, BadContentRangeTest,
    testing::ValuesIn(std::vector<CBadRangeRow>{
        {"empty", "", "Invalid HTTP Content-Range header: "},
        {"noSlash", "bytes 0-499", "Invalid HTTP Content-Range header: bytes 0-499"},
        {"noBlank", "bytes0-499/10", "Invalid HTTP Content-Range header: bytes0-499/10"},
        {"noUnit", " 0-499/10 ", "Invalid HTTP Content-Range header: 0-499/10"},
        {"tabForBlank", "bytes\t0-499/10", "Invalid HTTP Content-Range header: bytes\t0-499/10"},
        {"slashInUnitOnly", "a/b 0-499", "Invalid HTTP Content-Range header: a/b 0-499"},
        {"dashInUnitOnly", "x-bytes 5/10", "Invalid HTTP Content-Range header: x-bytes 5/10"},
        {"noRange", "bytes /10", "Invalid HTTP Content-Range header: bytes /10"},
        {"twoStars", "bytes **/10", "Invalid HTTP Content-Range header: bytes **/10"},
        {"blankBeforeStar", "bytes  */10", "Invalid HTTP Content-Range header: bytes  */10"},
        {"trimmed", "\t bytes 5 \n", "Invalid HTTP Content-Range header: bytes 5"},
        {"trimmedWithATotal", "\t bytes 5/10 \n", "Invalid HTTP Content-Range header: bytes 5/10"},
    }),
    [](const testing::TestParamInfo<CBadRangeRow>& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(Numbers, BadContentRangeTest,
    testing::ValuesIn(std::vector<CBadRangeRow>{
        {"letters", "bytes a-b/10", "Invalid number: 'a'."},
        {"lettersLast", "bytes 1-b/10", "Invalid number: 'b'."},
        {"lettersInTotal", "bytes 1-2/x", "Invalid number: 'x'."},
        {"noTotal", "bytes 1-2/", "Invalid number: ''."},
        {"noFirst", "bytes -2/10", "Invalid number: ''."},
        {"noLast", "bytes 1-/10", "Invalid number: ''."},
        {"starAndDash", "bytes *-2/10", "Invalid number: '*'."},
        {"dashBehindSlash", "bytes */12-34", "Invalid number: '*/12'."},
        {"negativeTotalOfStar", "bytes */-5", "Invalid number: '*/'."},
        {"twoBlanks", "bytes  1-2/3", "Invalid number: ' 1'."},
        {"blankBeforeSlash", "bytes 1-2 /3", "Invalid number: '2 '."},
        {"blankBeforeTotal", "bytes 1-2/ 3", "Invalid number: ' 3'."},
        {"tabBeforeTotalOfStar", "bytes */\t3", "Invalid number: '\t3'."},
        {"blankBeforeUnknownTotal", "bytes 1-2/ *", "Invalid number: ' *'."},
        {"twoSlashes", "bytes 1-2/3/4", "Invalid number: '3/4'."},
        {"twoStarsInTotal", "bytes 1-2/**", "Invalid number: '**'."},
        {"tooLarge", "bytes 0-9223372036854775808/*", "Number out of range: '9223372036854775808'."},
    }),
    [](const testing::TestParamInfo<CBadRangeRow>& row) { return row.param.name; });

TEST(CHTTPContentRangeTest, keepsWhatItIsMadeOf)
{
    const norla::CHTTPContentRange range("Bytes ", -5, 7, 0);
    EXPECT_EQ(range.getUnit(), "Bytes ");
    EXPECT_EQ(range.getFirst(), -5);
    EXPECT_EQ(range.getLast(), 7);
    EXPECT_EQ(range.getTotal(), 0);
}

} // namespace
