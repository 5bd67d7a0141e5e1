#include "kx/time/CTimeFields.h"

#include "kx/base/CError.h"
#include "kx/base/CInvalidArgError.h"
#include "kx/text/numbers.h"
#include "kx/time/CTimeSpan.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>

namespace {

kx::CTimeFields fieldsOf(long long year, long long month, long long day, long long hour = 0, long long minute = 0,
    long long second = 0, double fraction = 0)
{
    kx::CTimeFields fields;
    fields.setDate(year, month, day);
    fields.setTime(hour, minute, second);
    fields.setFractSecond(fraction);
    return fields;
}

struct CTimeRow {
    const char* name;
    kx::CTimeFields fields;
    long long microseconds;
    int weekDay;
};

class CTimeRowTest : public testing::TestWithParam<CTimeRow> {};

TEST_P(CTimeRowTest, isConvertedToATime)
{
    EXPECT_EQ(GetParam().fields.toTime().getMicroseconds(), GetParam().microseconds);
}

TEST_P(CTimeRowTest, isConvertedBack)
{
    const kx::CTimeFields back{kx::CTime(GetParam().microseconds)};
    EXPECT_EQ(back.getYear(), GetParam().fields.getYear());
    EXPECT_EQ(back.getMonth(), GetParam().fields.getMonth());
    EXPECT_EQ(back.getDay(), GetParam().fields.getDay());
    EXPECT_EQ(back.getHour(), GetParam().fields.getHour());
    EXPECT_EQ(back.getMinute(), GetParam().fields.getMinute());
    EXPECT_EQ(back.getSecond(), GetParam().fields.getSecond());
    EXPECT_DOUBLE_EQ(back.getFractSecond(), GetParam().fields.getFractSecond());
    EXPECT_EQ(back.getZone(), 0);
}

TEST_P(CTimeRowTest, hasItsWeekDay)
{
    EXPECT_EQ(GetParam().fields.getWeekDay(), GetParam().weekDay);
    EXPECT_EQ(kx::CTimeFields(kx::CTime(GetParam().microseconds)).getWeekDay(), GetParam().weekDay);
}

constexpr long long second = 1'000'000;

INSTANTIATE_TEST_SUITE_P(All, CTimeRowTest,
    testing::ValuesIn(std::vector<CTimeRow>{
        {"epoch", fieldsOf(1970, 1, 1), 0, 4},
        {"lastMicrosecondOf1969", fieldsOf(1969, 12, 31, 23, 59, 59, 0.999999), -1, 3},
        {"leapDayOf2000", fieldsOf(2000, 2, 29, 12), 951825600 * second, 2},
        {"leapDayOf2024", fieldsOf(2024, 2, 29, 23, 59, 59), 1709251199 * second, 4},
        {"dayAfterTheLeapDay", fieldsOf(2024, 3, 1), 1709251200 * second, 5},
        {"endOfFebruary1900", fieldsOf(1900, 2, 28, 23, 59, 59), -2203891201 * second, 3},
        {"beginOfMarch1900", fieldsOf(1900, 3, 1), -2203891200 * second, 4},
        {"example", fieldsOf(1994, 11, 6, 8, 49, 37), 784111777 * second, 0},
        {"beyond32Bits", fieldsOf(2038, 1, 19, 3, 14, 8), 2147483648 * second, 2},
        {"fraction", fieldsOf(2020, 1, 31, 23, 59, 59, 0.123), 1580515199'123000, 5},
        {"firstYear", fieldsOf(0, 1, 1), -62167219200 * second, 6},
        {"lastSecond", fieldsOf(9999, 12, 31, 23, 59, 59), 253402300799 * second, 5},
    }),
    [](const testing::TestParamInfo<CTimeRow>& row) { return row.param.name; });

struct CBadFieldsRow {
    const char* name;
    kx::CTimeFields fields;
    kx::String message;
};

class CBadFieldsTest : public testing::TestWithParam<CBadFieldsRow> {};

TEST_P(CBadFieldsTest, areRefusedByTheConversion)
{
    try {
        GetParam().fields.toTime();
        FAIL() << "no error";
    } catch (const kx::CError& error) {
        EXPECT_EQ(error.getMessage(), "Invalid date or time: " + GetParam().message + ".");
    }
}

INSTANTIATE_TEST_SUITE_P(All, CBadFieldsTest,
    testing::ValuesIn(std::vector<CBadFieldsRow>{
        {"month13", fieldsOf(2020, 13, 1), "2020-13-01 00:00:00"},
        {"month0", fieldsOf(2020, 0, 1), "2020-00-01 00:00:00"},
        {"day0", fieldsOf(2020, 1, 0), "2020-01-00 00:00:00"},
        {"day32", fieldsOf(2020, 1, 32), "2020-01-32 00:00:00"},
        {"february30", fieldsOf(2020, 2, 30), "2020-02-30 00:00:00"},
        {"leapDayOf1900", fieldsOf(1900, 2, 29), "1900-02-29 00:00:00"},
        {"leapDayOf2023", fieldsOf(2023, 2, 29), "2023-02-29 00:00:00"},
        {"hour24", fieldsOf(2020, 1, 1, 24), "2020-01-01 24:00:00"},
        {"minute60", fieldsOf(2020, 1, 1, 0, 60), "2020-01-01 00:60:00"},
        {"second61", fieldsOf(2020, 1, 1, 0, 0, 61), "2020-01-01 00:00:61"},
        {"negativeHour", fieldsOf(2020, 1, 1, -1), "2020-01-01 -1:00:00"},
        {"negativeFraction", fieldsOf(2020, 1, 1, 0, 0, 0, -0.1), "2020-01-01 00:00:00"},
        {"wholeFraction", fieldsOf(2020, 1, 1, 0, 0, 0, 1), "2020-01-01 00:00:00"},
        {"year10000", fieldsOf(10000, 1, 1), "10000-01-01 00:00:00"},
        {"negativeYear", fieldsOf(-1, 1, 1), "-001-01-01 00:00:00"},
    }),
    [](const testing::TestParamInfo<CBadFieldsRow>& row) { return row.param.name; });

TEST(CTimeFieldsTest, startsAtTheEpochInUTC)
{
    EXPECT_EQ(kx::CTimeFields().toTime(), kx::CTime(0));
    EXPECT_EQ(kx::CTimeFields().getZone(), 0);
}

TEST(CTimeFieldsTest, takesALeapSecondForTheNextMinute)
{
    EXPECT_EQ(fieldsOf(2016, 12, 31, 23, 59, 60).toTime(), fieldsOf(2017, 1, 1).toTime());
}

TEST(CTimeFieldsTest, roundsAFractionToTheMicrosecond)
{
    EXPECT_EQ(fieldsOf(1970, 1, 1, 0, 0, 0, 0.0000014).toTime(), kx::CTime(1));
}

TEST(CTimeFieldsTest, refusesTimesOutsideTheYears0To9999)
{
    EXPECT_THROW(kx::CTimeFields(kx::CTime(-62167219201 * second)), kx::CError);
    EXPECT_THROW(kx::CTimeFields(kx::CTime(253402300800 * second)), kx::CError);
}

TEST(CTimeFieldsTest, refusesEveryTimeOfAFarYear)
{
    for (const long long far : {2'068'935'904'000 * second, // the year 67536, 0 in 16 bits and more
             -2'130'000'000'000 * second, std::numeric_limits<long long>::max(),
             std::numeric_limits<long long>::min() + 1}) {
        for (const int type : {kx::CTimeFields::TypeUTC, kx::CTimeFields::TypeLocal})
            EXPECT_THROW(kx::CTimeFields(kx::CTime(far), type), kx::CError) << far;
    }
}

TEST(CTimeFieldsTest, refusesAnUnsetTime)
{
    EXPECT_THROW(kx::CTimeFields{kx::CTime()}, kx::CError);
}

TEST(CTimeFieldsTest, prefersTheWeekDayItIsGiven)
{
    kx::CTimeFields fields;
    fields.setDate(2024, 1, 1, 6);
    EXPECT_EQ(fields.getWeekDay(), 6);
}

TEST(CTimeFieldsTest, hasNoWeekDayForADateThatIsNone)
{
    EXPECT_THROW(fieldsOf(2020, 0, 1).getWeekDay(), kx::CError);
    EXPECT_THROW(fieldsOf(2020, 13, 1).getWeekDay(), kx::CError);
    EXPECT_THROW(fieldsOf(2020, 1, 0).getWeekDay(), kx::CError);
    EXPECT_THROW(fieldsOf(2020, 1, 32).getWeekDay(), kx::CError);
    EXPECT_THROW(fieldsOf(2023, 2, 29).getWeekDay(), kx::CError);
    EXPECT_THROW(fieldsOf(2024, 2, 30).getWeekDay(), kx::CError);
    EXPECT_THROW(fieldsOf(-1, 1, 1).getWeekDay(), kx::CError);
    EXPECT_THROW(fieldsOf(10000, 1, 1).getWeekDay(), kx::CError);
}

TEST(CTimeFieldsTest, countsItsZone)
{
    kx::CTimeFields fields = fieldsOf(1970, 1, 1, 1, 30);
    fields.setZone(90);
    EXPECT_EQ(fields.toTime(), kx::CTime(0));
}

TEST(CTimeFieldsTest, writesAnInternetTimestampInGMT)
{
    kx::CTimeFields fields = fieldsOf(1994, 11, 6, 10, 19, 37);
    fields.setZone(90);
    EXPECT_EQ(fields.toInternetTimestamp(), "Sun, 06 Nov 1994 08:49:37 GMT");
}

class CLocalTimeTest : public testing::Test {
protected:
    CLocalTimeTest() { setZone("IST-5:30"); }
    ~CLocalTimeTest() override
    {
        unsetenv("TZ");
        tzset();
    }

    static void setZone(const char* zone)
    {
        setenv("TZ", zone, 1);
        tzset();
    }
};

TEST_F(CLocalTimeTest, isInTheZoneOfTheProcess)
{
    const kx::CTimeFields fields(kx::CTime(0), kx::CTimeFields::TypeLocal);
    EXPECT_EQ(fields.getHour(), 5);
    EXPECT_EQ(fields.getMinute(), 30);
    EXPECT_EQ(fields.getZone(), 330);
    EXPECT_EQ(fields.toTime(), kx::CTime(0));
}

TEST_F(CLocalTimeTest, hasTheZoneOfItsTime)
{
    setZone("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(kx::CTimeFields(fieldsOf(2024, 7, 1).toTime(), kx::CTimeFields::TypeLocal).getZone(), 120);
    EXPECT_EQ(kx::CTimeFields(fieldsOf(2024, 1, 1).toTime(), kx::CTimeFields::TypeLocal).getZone(), 60);
}

TEST_F(CLocalTimeTest, hasTheZoneOfTheDateThatIsSet)
{
    setZone("CET-1CEST,M3.5.0,M10.5.0/3");
    kx::CTimeFields fields(kx::CTimeFields::TypeLocal);
    fields.setDate(2024, 7, 1);
    EXPECT_EQ(fields.getZone(), 120);
    fields.setTime(12, 0, 0);
    EXPECT_EQ(fields.toTime(), fieldsOf(2024, 7, 1, 10).toTime());
    fields.setDate(2024, 1, 1);
    EXPECT_EQ(fields.toTime(), fieldsOf(2024, 1, 1, 11).toTime());
}

TEST_F(CLocalTimeTest, hasTheZoneOfTheTimeOfDayThatIsSet)
{
    setZone("CET-1CEST,M3.5.0,M10.5.0/3");
    kx::CTimeFields fields(kx::CTimeFields::TypeLocal);
    fields.setDate(2024, 3, 31);
    EXPECT_EQ(fields.getZone(), 60);
    fields.setTime(3, 0, 0);
    EXPECT_EQ(fields.getZone(), 120);
}

// Neither an hour that is there twice nor one that is not there lies between: the clock is put forward by 20 seconds.
TEST_F(CLocalTimeTest, hasTheZoneOfTheSecondThatIsSet)
{
    setZone("LMT-0:00:50NEW-0:01:10,M3.5.0/2:00:10,M10.5.0/3");
    kx::CTimeFields fields(kx::CTimeFields::TypeLocal);
    fields.setDate(2024, 3, 31);
    fields.setTime(2, 0, 9);
    EXPECT_EQ(fields.getZone(), 0);
    fields.setTime(2, 0, 30);
    EXPECT_EQ(fields.getZone(), 1);
}

TEST_F(CLocalTimeTest, isFollowedFromATimeOn)
{
    setZone("CET-1CEST,M3.5.0,M10.5.0/3");
    kx::CTimeFields fields(fieldsOf(2024, 7, 1).toTime(), kx::CTimeFields::TypeLocal);
    fields.setDate(2024, 1, 1);
    EXPECT_EQ(fields.getZone(), 60);
}

TEST_F(CLocalTimeTest, isLeftByAZoneOfItsOwn)
{
    setZone("CET-1CEST,M3.5.0,M10.5.0/3");
    kx::CTimeFields fields(kx::CTimeFields::TypeLocal);
    fields.setZone(-300);
    fields.setDate(2024, 7, 1);
    EXPECT_EQ(fields.getZone(), -300);
}

// The first and the second time that it is half past two in the night of the change.
TEST_F(CLocalTimeTest, keepsTheZoneOfAnHourThatIsThereTwice)
{
    setZone("CET-1CEST,M3.5.0,M10.5.0/3");
    for (const long long hour : {0, 1}) {
        const kx::CTime time = fieldsOf(2024, 10, 27, hour, 30).toTime();
        EXPECT_EQ(kx::CTimeFields(time, kx::CTimeFields::TypeLocal).toTime(), time) << hour;
    }
}

TEST_F(CLocalTimeTest, staysAsItIsForADateThatIsNone)
{
    kx::CTimeFields fields(kx::CTimeFields::TypeLocal);
    setZone("EST5");
    fields.setDate(2024, 13, 1);
    EXPECT_EQ(fields.getZone(), 330);
    EXPECT_THROW(fields.toTime(), kx::CError);
}

TEST_F(CLocalTimeTest, beginsWithTheLocalYear0)
{
    const kx::CTime first((-62167219200 - 5 * 3600 - 1800) * second);
    EXPECT_EQ(kx::CTimeFields(first, kx::CTimeFields::TypeLocal).getYear(), 0);
    EXPECT_THROW(kx::CTimeFields(kx::CTime(first.getMicroseconds() - 1), kx::CTimeFields::TypeLocal), kx::CError);
}

TEST_F(CLocalTimeTest, endsWithTheLocalYear9999)
{
    const kx::CTime last((253402300799 - 5 * 3600 - 1800) * second);
    EXPECT_EQ(kx::CTimeFields(last, kx::CTimeFields::TypeLocal).getYear(), 9999);
    EXPECT_THROW(kx::CTimeFields(kx::CTime(last.getMicroseconds() + second), kx::CTimeFields::TypeLocal), kx::CError);
}

TEST_F(CLocalTimeTest, isNotUsedByDefault)
{
    EXPECT_EQ(kx::CTimeFields(kx::CTime(0)).getHour(), 0);
    EXPECT_EQ(kx::CTimeFields(kx::CTimeFields::TypeLocal).getZone(), 330);
}

TEST(CTimeFieldsTest, knowsTheEnglishAbbreviations)
{
    std::string days;
    for (int day = 0; day <= 6; ++day)
        days += kx::CTimeFields::getEnglishWeekDayAbbrev(day).toUTF8() + " ";
    EXPECT_EQ(days, "Sun Mon Tue Wed Thu Fri Sat ");
    std::string months;
    for (int month = 1; month <= 12; ++month)
        months += kx::CTimeFields::getEnglishMonthAbbrev(month).toUTF8() + " ";
    EXPECT_EQ(months, "Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec ");
}

TEST(CTimeFieldsTest, knowsNoFurtherDaysAndMonths)
{
    EXPECT_THROW(kx::CTimeFields::getEnglishWeekDayAbbrev(-1), kx::CInvalidArgError);
    EXPECT_THROW(kx::CTimeFields::getEnglishWeekDayAbbrev(7), kx::CInvalidArgError);
    EXPECT_THROW(kx::CTimeFields::getEnglishMonthAbbrev(0), kx::CInvalidArgError);
    EXPECT_THROW(kx::CTimeFields::getEnglishMonthAbbrev(13), kx::CInvalidArgError);
}

TEST(CTimeFieldsTest, writesZones)
{
    EXPECT_EQ(kx::CTimeFields::getInternetTimeZoneString(0, "+0000"), "+0000");
    EXPECT_EQ(kx::CTimeFields::getInternetTimeZoneString(90, "+0000"), "+0130");
    EXPECT_EQ(kx::CTimeFields::getInternetTimeZoneString(-210, "+0000"), "-0330");
    EXPECT_EQ(kx::CTimeFields::getInternetTimeZoneString(5999, "+0000"), "+9959");
    EXPECT_EQ(kx::CTimeFields::getInternetTimeZoneString(-5999, "+0000"), "-9959");
}

TEST(CTimeFieldsTest, writesUTCAsItIsTold)
{
    EXPECT_EQ(kx::CTimeFields::getInternetTimeZoneString(0, "GMT"), "GMT");
}

TEST(CTimeFieldsTest, writesNoZoneThatFourDigitsCannotSay)
{
    for (const int zone : {6000, -6000, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        EXPECT_EQ(support::messageOf([zone] { kx::CTimeFields::getInternetTimeZoneString(zone, "+0000"); }),
            "Invalid argument passed to 'CTimeFields::getInternetTimeZoneString': no zone: " + kx::toString(zone)
                + ".");
    }
}

TEST(CTimeTest, isUnsetByDefault)
{
    EXPECT_FALSE(kx::CTime().isSet());
    EXPECT_TRUE(kx::CTime(0).isSet());
    EXPECT_LT(kx::CTime(), kx::CTime(0));
}

TEST(CTimeTest, nowIsTheSystemsClock)
{
    const auto microseconds = [] {
        timespec time{};
        clock_gettime(CLOCK_REALTIME, &time);
        return time.tv_sec * second + time.tv_nsec / 1000;
    };
    const long long before = microseconds();
    const long long now = kx::CTime::now().getMicroseconds();
    EXPECT_GE(now, before);
    EXPECT_LE(now, microseconds());
}

TEST(CTimeSpanTest, isMadeFromItsUnits)
{
    EXPECT_EQ(kx::CTimeSpan().getMicroseconds(), 0);
    EXPECT_EQ(kx::CTimeSpan::fromMicroseconds(-5).getMicroseconds(), -5);
    EXPECT_EQ(kx::CTimeSpan::fromMilliseconds(5), kx::CTimeSpan::fromMicroseconds(5000));
    EXPECT_EQ(kx::CTimeSpan::fromSeconds(5), kx::CTimeSpan::fromMilliseconds(5000));
}

TEST(CTimeSpanTest, isInfiniteAtTheSmallestValue)
{
    EXPECT_TRUE(kx::CTimeSpan::infinite().isInfinite());
    EXPECT_EQ(kx::CTimeSpan::infinite().getMicroseconds(), std::numeric_limits<long long>::min());
    EXPECT_FALSE(kx::CTimeSpan().isInfinite());
}

} // namespace
