#pragma once

#include "kx/text/String.h"
#include "kx/time/CTime.h"

namespace kx {

/// A point in time as a person writes it: year, month, day, week day, hour, minute, second with fraction, in a zone.
/// Proleptic Gregorian calendar, years 0 to 9999. A value type; setters store what they are given, and toTime() tests
/// it.
class KX_EXPORT CTimeFields {
public:
    enum Type : int {
        TypeLocal = 0, ///< the zone of the process (TZ), at the time in question: it follows setDate() and setTime()
        TypeUTC = 1
    };

    /// Midnight, 1970-01-01.
    explicit CTimeFields(Type type = TypeUTC);

    /// @throws CError when the time is unset or its year is not within 0 to 9999
    explicit CTimeFields(const CTime& time, int type = TypeUTC);

    /// @param month 1 to 12
    /// @param day 1 to 31
    /// @param weekDay 0 (Sunday) to 6; -1 when unknown: it is then worked out from the date
    void setDate(long long year, long long month, long long day, int weekDay = -1);

    /// @param second 0 to 60; 60 (a leap second) is the first second of the next minute
    void setTime(long long hour, long long minute, long long second);

    /// The part of the second after its start: 0 or more and less than 1. Kept to the microsecond.
    void setFractSecond(double fraction) { m_fraction = fraction; }

    /// Minutes east of UTC. Fields of the type TypeLocal are in this zone from now on.
    void setZone(int minutes)
    {
        m_zone = minutes;
        m_isLocal = false;
    }

    long long getYear() const noexcept { return m_year; }
    long long getMonth() const noexcept { return m_month; }
    long long getDay() const noexcept { return m_day; }
    long long getHour() const noexcept { return m_hour; }
    long long getMinute() const noexcept { return m_minute; }
    long long getSecond() const noexcept { return m_second; }
    double getFractSecond() const noexcept { return m_fraction; }
    int getZone() const noexcept { return m_zone; }

    /// 0 (Sunday) to 6.
    /// @throws CError when it is unknown and the date is none of the calendar
    int getWeekDay() const;

    /// @throws CError naming the fields when they are no date and time of the calendar
    CTime toTime() const;

    /// The date form of HTTP and mail in GMT, RFC 9110 section 5.6.7: "Sun, 06 Nov 1994 08:49:37 GMT".
    /// @throws CError as toTime()
    String toInternetTimestamp() const;

    /// "Sun" for 0 to "Sat" for 6. @throws CInvalidArgError for anything else
    static String getEnglishWeekDayAbbrev(long long weekDay);

    /// "Jan" for 1 to "Dec" for 12. @throws CInvalidArgError for anything else
    static String getEnglishMonthAbbrev(long long month);

    /// A zone as in RFC 5322 section 3.3: "+0130" for 90 minutes east of UTC; `utcText` for UTC itself.
    /// @param zone -5999 to 5999 minutes, which are "-9959" and "+9959"
    /// @throws CInvalidArgError for anything else
    static String getInternetTimeZoneString(int zone, const String& utcText);

private:
    [[noreturn]] void throwInvalid() const;
    bool isDate() const;
    bool isDateAndTime() const;
    void followLocalZone();

    long long m_year = 1970;
    long long m_month = 1;
    long long m_day = 1;
    int m_weekDay = -1;
    long long m_hour = 0;
    long long m_minute = 0;
    long long m_second = 0;
    double m_fraction = 0;
    int m_zone = 0;
    bool m_isLocal = false;
};

} // namespace kx
