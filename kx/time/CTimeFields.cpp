#include "kx/time/CTimeFields.h"

#include "kx/base/CError.h"
#include "kx/base/CInvalidArgError.h"
#include "kx/text/CStringFormat.h"
#include "kx/text/numbers.h"

#include <array>
#include <chrono>
#include <cmath>
#include <ctime>

namespace kx {

namespace {

using namespace std::chrono;

constexpr long long microsecondsPerSecond = 1'000'000;
constexpr long long firstMicrosecond = microseconds(sys_days(year(0) / January / 1).time_since_epoch()).count();
constexpr long long lastMicrosecond = microseconds(sys_days(year(10'000) / January / 1).time_since_epoch()).count() - 1;
constexpr int largestZone = 99 * 60 + 59; // that four digits can say
constexpr std::array weekDays = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::array months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

constexpr bool isWithin(long long value, long long first, long long last) noexcept
{
    return value >= first && value <= last;
}

// Minutes east of UTC that the process's zone has at that time.
int localZoneAt(const CTime& time)
{
    const std::time_t seconds = floor<std::chrono::seconds>(microseconds(time.getMicroseconds())).count();
    std::tm fields{};
    if (!localtime_r(&seconds, &fields))
        throw CError("The local time of " + toString(seconds) + " seconds since 1970 is not known.");
    return static_cast<int>(fields.tm_gmtoff / 60);
}

year_month_day dateOf(long long y, long long m, long long d)
{
    return year_month_day(year(static_cast<int>(y)), month(static_cast<unsigned>(m)), day(static_cast<unsigned>(d)));
}

long long lastDayOf(long long y, long long m)
{
    const year_month_day_last date(year(static_cast<int>(y)), month_day_last(month(static_cast<unsigned>(m))));
    return static_cast<unsigned>(date.day());
}

} // namespace

CTimeFields::CTimeFields(Type type)
{
    m_isLocal = type == TypeLocal;
    followLocalZone();
}

CTimeFields::CTimeFields(const CTime& time, int type)
{
    if (!time.isSet())
        throw CError("An unset time has no calendar fields.");
    m_zone = type == TypeLocal ? localZoneAt(time) : 0;
    const long long east = 60 * microsecondsPerSecond * m_zone;
    // Before the conversion, whose years are too small for far times.
    if (!isWithin(time.getMicroseconds(), firstMicrosecond - east, lastMicrosecond - east))
        throw CError("The time of " + toString(time.getMicroseconds())
            + " microseconds since 1970 is not within the years 0 to 9999.");
    const sys_time<microseconds> point{microseconds(time.getMicroseconds() + east)};
    const auto midnight = floor<days>(point);
    const year_month_day date(midnight);
    const hh_mm_ss clock(point - midnight);
    setDate(static_cast<int>(date.year()), static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
        static_cast<int>(weekday(midnight).c_encoding()));
    setTime(clock.hours().count(), clock.minutes().count(), clock.seconds().count());
    m_fraction = static_cast<double>(clock.subseconds().count()) / microsecondsPerSecond;
    m_isLocal = type == TypeLocal; // not before: an hour that the zone has twice has kept its own offset
}

void CTimeFields::setDate(long long year, long long month, long long day, int weekDay)
{
    m_year = year;
    m_month = month;
    m_day = day;
    m_weekDay = weekDay;
    followLocalZone();
}

void CTimeFields::setTime(long long hour, long long minute, long long second)
{
    m_hour = hour;
    m_minute = minute;
    m_second = second;
    followLocalZone();
}

// Of a time that the zone has twice, or not at all, the C library takes one.
void CTimeFields::followLocalZone()
{
    if (!m_isLocal || !isDateAndTime())
        return;
    std::tm fields{};
    fields.tm_year = static_cast<int>(m_year) - 1900;
    fields.tm_mon = static_cast<int>(m_month) - 1;
    fields.tm_mday = static_cast<int>(m_day);
    fields.tm_hour = static_cast<int>(m_hour);
    fields.tm_min = static_cast<int>(m_minute);
    fields.tm_sec = static_cast<int>(m_second);
    fields.tm_isdst = -1;
    std::mktime(&fields);
    m_zone = static_cast<int>(fields.tm_gmtoff / 60);
}

bool CTimeFields::isDate() const
{
    return isWithin(m_year, 0, 9999) && isWithin(m_month, 1, 12) && isWithin(m_day, 1, lastDayOf(m_year, m_month));
}

bool CTimeFields::isDateAndTime() const
{
    return isDate() && isWithin(m_hour, 0, 23) && isWithin(m_minute, 0, 59) && isWithin(m_second, 0, 60);
}

int CTimeFields::getWeekDay() const
{
    if (m_weekDay >= 0)
        return m_weekDay;
    if (!isDate())
        throwInvalid();
    return static_cast<int>(weekday(sys_days(dateOf(m_year, m_month, m_day))).c_encoding());
}

CTime CTimeFields::toTime() const
{
    if (!isDateAndTime() || m_fraction < 0 || m_fraction >= 1 || std::isnan(m_fraction))
        throwInvalid();
    const sys_days midnight(dateOf(m_year, m_month, m_day));
    const auto time = midnight + hours(m_hour) + minutes(m_minute - m_zone) + seconds(m_second);
    return CTime(duration_cast<microseconds>(time.time_since_epoch()).count()
        + std::llround(m_fraction * microsecondsPerSecond));
}

String CTimeFields::toInternetTimestamp() const
{
    const CTimeFields utc(toTime());
    return CStringFormat("%s, %02lld %s %04lld %02lld:%02lld:%02lld GMT",
        getEnglishWeekDayAbbrev(utc.getWeekDay()).toUTF8().c_str(), utc.m_day,
        getEnglishMonthAbbrev(utc.m_month).toUTF8().c_str(), utc.m_year, utc.m_hour, utc.m_minute, utc.m_second);
}

String CTimeFields::getEnglishWeekDayAbbrev(long long weekDay)
{
    if (!isWithin(weekDay, 0, 6))
        throw CInvalidArgError("no week day: " + toString(weekDay), "CTimeFields::getEnglishWeekDayAbbrev");
    return String::fromLatin1(weekDays[static_cast<size_t>(weekDay)]);
}

String CTimeFields::getEnglishMonthAbbrev(long long month)
{
    if (!isWithin(month, 1, 12))
        throw CInvalidArgError("no month: " + toString(month), "CTimeFields::getEnglishMonthAbbrev");
    return String::fromLatin1(months[static_cast<size_t>(month - 1)]);
}

String CTimeFields::getInternetTimeZoneString(int zone, const String& utcText)
{
    if (zone == 0)
        return utcText;
    if (!isWithin(zone, -largestZone, largestZone))
        throw CInvalidArgError("no zone: " + toString(zone), "CTimeFields::getInternetTimeZoneString");
    const int size = std::abs(zone);
    return CStringFormat("%c%02d%02d", zone < 0 ? '-' : '+', size / 60, size % 60);
}

void CTimeFields::throwInvalid() const
{
    throw CError(CStringFormat("Invalid date or time: %04lld-%02lld-%02lld %02lld:%02lld:%02lld.", m_year, m_month,
        m_day, m_hour, m_minute, m_second));
}

} // namespace kx
