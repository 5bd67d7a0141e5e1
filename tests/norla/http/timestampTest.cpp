#include "norla/http/util.h"
#include "tests/support/rows.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <optional>

namespace {

/// Empty when the text is no date.
std::optional<long long> microsecondsOf(const kx::String& text)
{
    try {
        return norla::parseTimestamp(text).getMicroseconds();
    } catch (const kx::CError&) {
        return std::nullopt;
    }
}

struct CDateRow {
    const char* name;
    kx::String text;
    long long seconds;
};

class TimestampTest : public testing::TestWithParam<CDateRow> {};

TEST_P(TimestampTest, isRead)
{
    EXPECT_EQ(norla::parseTimestamp(GetParam().text).getMicroseconds(), GetParam().seconds * 1'000'000);
}

INSTANTIATE_TEST_SUITE_P(HTTP, TimestampTest,
    testing::ValuesIn(std::vector<CDateRow>{
        {"imfFixdate", "Sun, 06 Nov 1994 08:49:37 GMT", 784111777},
        {"rfc850", "Sunday, 06-Nov-94 08:49:37 GMT", 784111777},
        {"asctime", "Sun Nov  6 08:49:37 1994", 784111777},
        {"otherCase", "SUN, 06 nov 1994 08:49:37 gmt", 784111777},
        {"leapSecond", "Sat, 31 Dec 2016 23:59:60 GMT", 1483228800},
        {"leapDay", "Thu, 29 Feb 2024 00:00:00 GMT", 1709164800},
        {"blanksAround", "  Sun, 06 Nov 1994 08:49:37 GMT ", 784111777},
        {"epoch", "Thu, 01 Jan 1970 00:00:00 GMT", 0},
        {"beforeEpoch", "Wed, 31 Dec 1969 23:59:58 GMT", -2},
        {"beyond32Bits", "Tue, 19 Jan 2038 03:14:08 GMT", 2147483648},
        {"farAway", "Fri, 31 Dec 9999 23:59:59 GMT", 253402300799},
        {"longAgo", "Sat, 01 Jan 1583 00:00:00 GMT", -12212553600},
    }),
    [](const testing::TestParamInfo<CDateRow>& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(Mail, TimestampTest,
    testing::ValuesIn(std::vector<CDateRow>{
        {"zoneInEast", "Sun, 6 Nov 1994 10:49:37 +0200", 784111777},
        {"zoneInWest", "Sun, 6 Nov 1994 03:19:37 -0530", 784111777},
        {"namedZone", "06 Nov 1994 00:49:37 PST", 784111777},
        {"withoutSeconds", "6 Nov 1994 08:49 GMT", 784111740},
        {"withoutZone", "6 Nov 1994 08:49:37", 784111777},
        {"withoutTime", "6 Nov 1994", 784080000},
        {"lastShortYear", "1 Jan 70 00:00:00 GMT", 3155760000},
        {"firstShortYearOfTheLastCentury", "1 Jan 71 00:00:00 GMT", 31536000},
        {"digitsAlone", "19941106 08:49:37", 784111777},
    }),
    [](const testing::TestParamInfo<CDateRow>& row) { return row.param.name; });

// What libcurl makes of dates that there are not.
INSTANTIATE_TEST_SUITE_P(Odd, TimestampTest,
    testing::ValuesIn(std::vector<CDateRow>{
        {"wrongWeekday", "Mon, 06 Nov 1994 08:49:37 GMT", 784111777},
        {"dayThatTheMonthDoesNotHave", "31 Feb 1994 08:49:37 GMT", 762684577},
        {"secondBeforeTheEpoch", "Wed, 31 Dec 1969 23:59:59 GMT", 0},
        {"lastThatFits", "10 Jan 294247 04:00:54 GMT", 9223372036854},
    }),
    [](const testing::TestParamInfo<CDateRow>& row) { return row.param.name; });

struct CNoDateRow {
    const char* name;
    const wchar_t* text;
};

class NoTimestampTest : public testing::TestWithParam<CNoDateRow> {};

TEST_P(NoTimestampTest, isQuotedInTheError)
{
    try {
        norla::parseTimestamp(GetParam().text);
        FAIL() << "no error";
    } catch (const kx::CError& error) {
        EXPECT_EQ(error.getMessage(), L"Error parsing timestamp '" + kx::String(GetParam().text) + L"'.");
        EXPECT_EQ(error.getDomain(), "");
        EXPECT_EQ(error.getCode(), -1);
        EXPECT_TRUE(error.getProps().getMap().empty());
        EXPECT_EQ(error.getCause(), nullptr);
    }
}

INSTANTIATE_TEST_SUITE_P(All, NoTimestampTest,
    testing::ValuesIn(std::vector<CNoDateRow>{
        {"empty", L""},
        {"words", L"not a date"},
        {"otherLetters", L"6 No\u00E9 1994"},
        {"withoutUTF8", L"06 Nov 1994 08:49:37 GMT \xD800"},
        {"iso8601", L"1994-11-06T08:49:37Z"},
        {"secondsSince1970", L"784111777"},
        {"noSuchDay", L"Sun, 32 Nov 1994 08:49:37 GMT"},
        {"noSuchHour", L"Sun, 06 Nov 1994 24:00:00 GMT"},
        {"zoneWithColon", L"06 Nov 1994 08:49:37 +02:00"},
        {"beforeTheGregorianCalendar", L"31 Dec 1582 00:00:00 GMT"},
        {"firstThatDoesNotFit", L"10 Jan 294247 04:00:55 GMT"},
        {"yearThatDoesNotFit", L"1 Jan 2147483647 00:00:00 GMT"},
        {"yearWithoutEnd", L"1 Jan 292277026597 00:00:00 GMT"},
    }),
    [](const testing::TestParamInfo<CNoDateRow>& row) { return row.param.name; });

class TimeZoneTest : public testing::TestWithParam<const char*> {
protected:
    TimeZoneTest()
    {
        setenv("TZ", GetParam(), 1);
        tzset();
    }
    ~TimeZoneTest() override
    {
        unsetenv("TZ");
        tzset();
    }
};

TEST_P(TimeZoneTest, ofTheProcessDoesNotMatter)
{
    EXPECT_EQ(microsecondsOf("Sun Nov  6 08:49:37 1994"), 784111777'000'000);
    EXPECT_EQ(microsecondsOf("Sun, 06 Nov 1994 08:49:37 GMT"), 784111777'000'000);
}

INSTANTIATE_TEST_SUITE_P(All, TimeZoneTest, testing::Values("EST5EDT", "XXX-5:45"),
    [](const testing::TestParamInfo<const char*>& zone) { return std::string(zone.param).substr(0, 3); });

// Python's email.utils says what is right. It differs for two digits of a year: 69 and 70 are of the last century
// there.
TEST(EmailUtilsTest, readsTheSameTimes)
{
    constexpr int rowCount = 10'000;
    const auto all = rows::fromScript(NORLA_HTTP_TESTS_DIR "/email_utils_rows.py", {std::to_string(rowCount)});
    EXPECT_EQ(all.size(), static_cast<size_t>(rowCount));
    for (const auto& row : all) {
        EXPECT_EQ(microsecondsOf(kx::String::fromUTF8(row.at(1))), std::stoll(row.at(0)) * 1'000'000) << row.at(1);
    }
}

} // namespace
