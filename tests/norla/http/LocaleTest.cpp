// What HTTP says is read and written the same under every locale that an application may choose.
#include "kx/base/CError.h"
#include "norla/http/CHTTPContentRange.h"
#include "norla/http/util.h"
#include "tests/support/CForeignLocale.h"

#include <gtest/gtest.h>

namespace {

class HTTPLocaleTest : public testing::TestWithParam<const char*> {
    const support::CForeignLocale m_locale{GetParam()};
};

TEST_P(HTTPLocaleTest, escapesTheSameBytes)
{
    EXPECT_EQ(norla::urlEscape(L"Ii\u0130\u0131 1,5", true), "Ii%c4%b0%c4%b1+1%2c5");
    EXPECT_EQ(norla::formURLEncode(L"Ii\u0130\u0131 1,5", true), "Ii%C4%B0%C4%B1%201%2C5");
}

TEST_P(HTTPLocaleTest, unescapesTheSameBytes)
{
    EXPECT_EQ(norla::urlUnescape("I%69%c4%b0%C4%B1", false), L"Ii\u0130\u0131");
}

TEST_P(HTTPLocaleTest, readsEnglishDates)
{
    EXPECT_EQ(norla::parseTimestamp("FRI, 06 JUN 1997 08:49:37 GMT").getMicroseconds(), 865586977'000'000);
    EXPECT_THROW(norla::parseTimestamp("So, 06 Okt 1994 08:49:37 GMT"), kx::CError);
}

TEST_P(HTTPLocaleTest, lowersTheSameLettersOfAUnit)
{
    EXPECT_EQ(norla::CHTTPContentRange::parse("BITS 0-1/1000")->getUnit(), "bits");
}

TEST_P(HTTPLocaleTest, readsNumbersWithoutGrouping)
{
    EXPECT_EQ(norla::CHTTPContentRange::parse("bytes 0-1/1000")->getTotal(), 1000);
    EXPECT_THROW(norla::CHTTPContentRange::parse("bytes 0-1/1.000"), kx::CError);
}

INSTANTIATE_TEST_SUITE_P(All, HTTPLocaleTest, testing::Values("tr_TR.UTF-8", "de_DE.UTF-8"),
    [](const testing::TestParamInfo<const char*>& name) { return std::string(name.param).substr(0, 5); });

} // namespace
