#include "norla/core/retryAfter.h"

#include "norla/http/util.h"

#include <gtest/gtest.h>

namespace {

using HeaderMap = norla::CNetRequest::HeaderMap;

const kx::String noon = "Sun, 06 Nov 1994 12:00:00 GMT";

/// In seconds; -1 when there is none.
long long secondsOf(const HeaderMap& headers, const kx::String& now = noon)
{
    const auto span = norla::getRetryAfter(headers, norla::parseTimestamp(now));
    return span ? span->getMicroseconds() / 1'000'000 : -1;
}

long long secondsOf(const kx::String& text)
{
    return secondsOf(HeaderMap{{"retry-after", text}});
}

TEST(RetryAfterTest, readsSeconds)
{
    EXPECT_EQ(secondsOf("120"), 120);
    EXPECT_EQ(secondsOf(" 7 "), 7);
    EXPECT_EQ(secondsOf("0"), 0);
    EXPECT_EQ(secondsOf("0000000120"), 120);
}

TEST(RetryAfterTest, manySecondsAreManyAndNotFew)
{
    constexpr long long century = 100LL * 365 * 24 * 3600;
    EXPECT_EQ(secondsOf("3153600000"), century);
    EXPECT_EQ(secondsOf("9999999999"), century);
    EXPECT_EQ(secondsOf("18446744073709551617"), century);
}

TEST(RetryAfterTest, readsTheThreeFormsOfADate)
{
    EXPECT_EQ(secondsOf("Sun, 06 Nov 1994 12:01:30 GMT"), 90);
    EXPECT_EQ(secondsOf("Sunday, 06-Nov-94 12:01:30 GMT"), 90);
    EXPECT_EQ(secondsOf("Sun Nov  6 12:01:30 1994"), 90);
}

TEST(RetryAfterTest, dateIsCountedFromTheServersClockAndNotFromOurs)
{
    const HeaderMap headers{{"retry-after", "Sun, 06 Nov 1994 12:01:30 GMT"}, {"date", noon}};
    EXPECT_EQ(secondsOf(headers, "Mon, 01 Jan 2001 00:00:00 GMT"), 90);
    EXPECT_EQ(secondsOf(headers, "Mon, 01 Jan 1990 00:00:00 GMT"), 90);
}

TEST(RetryAfterTest, dateIsCountedFromOurClockWhereTheServersIsUnreadable)
{
    EXPECT_EQ(secondsOf(HeaderMap{{"retry-after", "Sun, 06 Nov 1994 12:01:30 GMT"}, {"date", "now: or never"}}), 90);
}

TEST(RetryAfterTest, aFarFutureSeenFromALongPastIsFarAway)
{
    const HeaderMap headers{
        {"retry-after", "Mon, 01 Jan 294246 00:00:00 GMT"}, {"date", "Mon, 01 Jan 1583 00:00:00 GMT"}};
    EXPECT_GT(secondsOf(headers), 60);
}

TEST(RetryAfterTest, dateInThePastIsNow)
{
    EXPECT_EQ(secondsOf("Sun, 06 Nov 1994 11:00:00 GMT"), 0);
}

TEST(RetryAfterTest, whatNobodyUnderstandsIsNotThere)
{
    EXPECT_EQ(secondsOf(HeaderMap{}), -1);
    for (const char* text : {"", " ", "-5", "1.5", "5,10", "120s", "soon", "soon: or never", "06 Nov 2094"})
        EXPECT_EQ(secondsOf(kx::String::fromLatin1(text)), -1) << text;
}

} // namespace
