// Text is the same under every locale that an application may choose.
#include "kx/base/CError.h"
#include "kx/base/systemErrorText.h"
#include "kx/text/CStringFormat.h"
#include "kx/text/CURI.h"
#include "kx/text/String.h"
#include "kx/text/numbers.h"
#include "kx/time/CTimeFields.h"
#include "tests/support/CForeignLocale.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace {

class LocaleTest : public testing::TestWithParam<const char*> {
    const support::CForeignLocale m_locale{GetParam()};
};

TEST_P(LocaleTest, lowersTheSameLetters)
{
    EXPECT_EQ(kx::String("TITLE I").toLower(), "title i");
}

TEST_P(LocaleTest, readsAPointAsTheDecimalPoint)
{
    EXPECT_EQ(kx::parseSimpleDouble("1.5"), 1.5);
    EXPECT_THROW(kx::parseSimpleDouble("1,5"), kx::CError);
}

TEST_P(LocaleTest, readsAndWritesIntegersWithoutGrouping)
{
    EXPECT_EQ(kx::parseInt64("1234567", false), 1234567);
    EXPECT_EQ(kx::toString(1234567), "1234567");
    EXPECT_EQ(kx::CStringFormat("%lld", 1234567LL).toString(), "1234567");
}

TEST_P(LocaleTest, convertsTextWithoutLookingAtTheLocale)
{
    EXPECT_EQ(kx::String::fromUTF8("\xC4\xB0").toUTF8(), "\xC4\xB0");
    EXPECT_EQ(kx::String("\xDD"), L"\u00DD");
    EXPECT_EQ(kx::CURI::escape(L"\u0130", false, ""), "%C4%B0");
}

TEST_P(LocaleTest, writesEnglishDates)
{
    EXPECT_EQ(kx::CTimeFields(kx::CTime(784111777'000000)).toInternetTimestamp(), "Sun, 06 Nov 1994 08:49:37 GMT");
}

TEST_P(LocaleTest, tellsErrorsOfTheSystemInEnglish)
{
    EXPECT_EQ(kx::systemErrorText(EINVAL), "Invalid argument");
}

INSTANTIATE_TEST_SUITE_P(All, LocaleTest, testing::Values("tr_TR.UTF-8", "de_DE.UTF-8"),
    [](const testing::TestParamInfo<const char*>& name) { return std::string(name.param).substr(0, 5); });

} // namespace
