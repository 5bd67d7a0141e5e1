#include "kx/text/numbers.h"

#include "kx/base/CError.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

struct CNumberRow {
    const char* name;
    kx::String text;
    long long number;
};

class ParseInt64Test : public testing::TestWithParam<CNumberRow> {};

TEST_P(ParseInt64Test, readsTheNumber)
{
    EXPECT_EQ(kx::parseInt64(GetParam().text, false), GetParam().number);
    EXPECT_EQ(kx::parseInt64(GetParam().text, true), GetParam().number);
}

INSTANTIATE_TEST_SUITE_P(All, ParseInt64Test,
    testing::ValuesIn(std::vector<CNumberRow>{
        {"zero", "0", 0},
        {"positive", "42", 42},
        {"plus", "+42", 42},
        {"negative", "-42", -42},
        {"minusZero", "-0", 0},
        {"leadingZeros", "00042", 42},
        {"largest", "9223372036854775807", std::numeric_limits<long long>::max()},
        {"smallest", "-9223372036854775808", std::numeric_limits<long long>::min()},
    }),
    [](const testing::TestParamInfo<CNumberRow>& row) { return row.param.name; });

struct CBadNumberRow {
    const char* name;
    kx::String text;
    kx::String kind = "Invalid number";
};

class BadInt64Test : public testing::TestWithParam<CBadNumberRow> {};

TEST_P(BadInt64Test, isRefusedNamingTheText)
{
    try {
        kx::parseInt64(GetParam().text, false);
        FAIL() << "no error";
    } catch (const kx::CError& error) {
        EXPECT_EQ(error.getMessage(), GetParam().kind + ": '" + GetParam().text + "'.");
        EXPECT_EQ(error.getDomain(), "");
        EXPECT_EQ(error.getCode(), -1);
    }
}

INSTANTIATE_TEST_SUITE_P(All, BadInt64Test,
    testing::ValuesIn(std::vector<CBadNumberRow>{
        {"empty", ""},
        {"plusAlone", "+"},
        {"minusAlone", "-"},
        {"twoSigns", "+-1"},
        {"twoPluses", "++1"},
        {"letters", "abc"},
        {"lettersAfter", "1a"},
        {"blankBefore", " 1"},
        {"blankAfter", "1 "},
        {"point", "1.0"},
        {"hexadecimal", "0x10"},
        {"grouped", "1,000"},
        {"otherDigits", L"\u0661"},
        {"fullWidthDigits", L"\uFF11"},
        {"minusSignOfPrint", L"\u22121"},
        {"tooLarge", "9223372036854775808", "Number out of range"},
        {"tooSmall", "-9223372036854775809", "Number out of range"},
        {"farTooLarge", "99999999999999999999999999", "Number out of range"},
    }),
    [](const testing::TestParamInfo<CBadNumberRow>& row) { return row.param.name; });

TEST(ParseInt64Test, allowsWhiteSpaceAroundTheNumberWhenLax)
{
    EXPECT_EQ(kx::parseInt64(" \t42\r\n", true), 42);
}

TEST(ParseInt64Test, refusesWhiteSpaceWithinTheNumberEvenWhenLax)
{
    EXPECT_THROW(kx::parseInt64("4 2", true), kx::CError);
    EXPECT_THROW(kx::parseInt64("- 42", true), kx::CError);
    EXPECT_THROW(kx::parseInt64(" ", true), kx::CError);
}

TEST(ParseInt64Test, readsAWideLiteral)
{
    EXPECT_EQ(kx::parseInt64(L"12", false), 12);
}

TEST(ParseInt64Test, allowsWhiteSpaceAroundAWideLiteralWhenLax)
{
    EXPECT_EQ(kx::parseInt64(L" 12 ", true), 12);
    EXPECT_THROW(kx::parseInt64(L" 12 ", false), kx::CError);
}

TEST(ParseInt64Test, refusesANullPointerAsTheEmptyText)
{
    const wchar_t* const null = nullptr;
    EXPECT_THROW(kx::parseInt64(null, true), kx::CError);
}

kx::String zeros(size_t count)
{
    return kx::String(std::wstring(count, L'0'));
}

struct CDoubleRow {
    const char* name;
    kx::String text;
    double number;
};

class ParseSimpleDoubleTest : public testing::TestWithParam<CDoubleRow> {};

TEST_P(ParseSimpleDoubleTest, readsTheNumber)
{
    EXPECT_EQ(kx::parseSimpleDouble(GetParam().text), GetParam().number);
}

INSTANTIATE_TEST_SUITE_P(All, ParseSimpleDoubleTest,
    testing::ValuesIn(std::vector<CDoubleRow>{
        {"whole", "12", 12},
        {"fraction", "0.125", 0.125},
        {"pointFirst", ".5", 0.5},
        {"pointLast", "5.", 5},
        {"negative", "-0.5", -0.5},
        {"plus", "+1.5", 1.5},
        {"smallest", "0." + zeros(323) + "5", std::numeric_limits<double>::denorm_min()},
        {"tooSmall", "0." + zeros(400) + "1", 0},
        {"tooSmallAndNegative", "-." + zeros(400) + "1", 0},
        {"manyDigitsOfALittle", zeros(400) + "1", 1},
    }),
    [](const testing::TestParamInfo<CDoubleRow>& row) { return row.param.name; });

class BadSimpleDoubleTest : public testing::TestWithParam<CBadNumberRow> {};

TEST_P(BadSimpleDoubleTest, isRefusedNamingTheText)
{
    try {
        kx::parseSimpleDouble(GetParam().text);
        FAIL() << "no error";
    } catch (const kx::CError& error) {
        EXPECT_EQ(error.getMessage(), "Invalid decimal number: '" + GetParam().text + "'.");
    }
}

INSTANTIATE_TEST_SUITE_P(All, BadSimpleDoubleTest,
    testing::ValuesIn(std::vector<CBadNumberRow>{
        {"empty", ""},
        {"pointAlone", "."},
        {"signAlone", "-"},
        {"twoSigns", "+-1"},
        {"exponent", "1e5"},
        {"comma", "1,5"},
        {"infinity", "inf"},
        {"notANumber", "nan"},
        {"notANumberWithDigits", "nan(1)"},
        {"infinityWithDigits", "inf1"},
        {"lettersAfterWhatIsTooSmall", "0." + zeros(400) + "1x"},
        {"twoPoints", "1.2.3"},
        {"blank", " 1"},
        {"otherDigits", L"\u0661"},
    }),
    [](const testing::TestParamInfo<CBadNumberRow>& row) { return row.param.name; });

TEST(ParseSimpleDoubleTest, refusesWhatIsTooLarge)
{
    const kx::String text = "1" + zeros(400) + ".0";
    EXPECT_EQ(support::messageOf([&text] { kx::parseSimpleDouble(text); }), "Number out of range: '" + text + "'.");
}

TEST(ToStringTest, writesTheNumberInDecimal)
{
    EXPECT_EQ(kx::toString(0), "0");
    EXPECT_EQ(kx::toString(-1234567), "-1234567");
    EXPECT_EQ(kx::toString(std::numeric_limits<long long>::min()), "-9223372036854775808");
}

} // namespace
