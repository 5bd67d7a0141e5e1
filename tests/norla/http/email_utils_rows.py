#!/usr/bin/env python3
"""Writes made dates with the time that Python's email.utils reads in them: the seconds since 1970 and the date, separated by a
tab. The three forms of HTTP (RFC 9110 section 5.6.7) are written by hand, the ones of mail by email.utils.

email_utils_rows.py COUNT
"""
import datetime
import email.utils
import os
import random
import sys
import time

random.seed(1)

# email.utils takes two digits from 69 on for the 20th century, libcurl from 71 on.
FIRST = int(datetime.datetime(1971, 1, 1, tzinfo=datetime.timezone.utc).timestamp())
LAST_WITH_TWO_DIGITS = int(datetime.datetime(2068, 12, 30, tzinfo=datetime.timezone.utc).timestamp())
EARLIEST = int(datetime.datetime(1584, 1, 1, tzinfo=datetime.timezone.utc).timestamp())
LATEST = int(datetime.datetime(9999, 12, 30, tzinfo=datetime.timezone.utc).timestamp())
DAYS = ["Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday", "Sunday"]
MONTHS = ["Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"]
ZONES = ["GMT", "UT", "UTC", "EST", "EDT", "CST", "CDT", "MST", "MDT", "PST", "PDT"]


def made_zone():
    """Within 14 hours, which is as far as libcurl goes."""
    return datetime.timezone(datetime.timedelta(minutes=random.randint(-14 * 60, 14 * 60)))


def made_time(first=EARLIEST, last=LATEST, zone=datetime.timezone.utc):
    return datetime.datetime(1970, 1, 1, tzinfo=zone) + datetime.timedelta(seconds=random.randint(first, last))


def clock(moment):
    return f"{moment.hour:02}:{moment.minute:02}:{moment.second:02}"


def imf_fixdate():
    moment = made_time()
    return f"{DAYS[moment.weekday()][:3]}, {moment.day:02} {MONTHS[moment.month - 1]} {moment.year:04} {clock(moment)} GMT"


def rfc_850():
    moment = made_time(FIRST, LAST_WITH_TWO_DIGITS)
    return f"{DAYS[moment.weekday()]}, {moment.day:02}-{MONTHS[moment.month - 1]}-{moment.year % 100:02} {clock(moment)} GMT"


def asctime():
    return time.asctime(made_time().timetuple())


def mail():
    return email.utils.format_datetime(made_time(zone=made_zone()))


def mail_in_local_time_unknown():
    return email.utils.format_datetime(made_time().replace(tzinfo=None))


def mail_of_the_library():
    return email.utils.formatdate(random.randint(FIRST, LAST_WITH_TWO_DIGITS), usegmt=True)


def mail_with_named_zone():
    moment = made_time()
    return f"{moment.day} {MONTHS[moment.month - 1]} {moment.year:04} {clock(moment)} {random.choice(ZONES)}"


def mail_with_two_digits():
    moment = made_time(FIRST, LAST_WITH_TWO_DIGITS)
    return f"{DAYS[moment.weekday()][:3]}, {moment.day} {MONTHS[moment.month - 1]} {moment.year % 100:02} {clock(moment)} +0000"


def mail_with_comment():
    return mail() + " (CET)"


def mail_without_seconds():
    moment = made_time()
    return f"{moment.day} {MONTHS[moment.month - 1]} {moment.year:04} {clock(moment)[:5]} GMT"


FORMS = [imf_fixdate, rfc_850, asctime, mail, mail_in_local_time_unknown, mail_of_the_library, mail_with_named_zone,
         mail_with_two_digits, mail_with_comment, mail_without_seconds]


def main():
    os.environ["TZ"] = "UTC"  # what email.utils takes a date without zone for
    time.tzset()
    for _ in range(int(sys.argv[1])):
        date = random.choice(FORMS)()
        print(email.utils.mktime_tz(email.utils.parsedate_tz(date)), date, sep="\t")


main()
