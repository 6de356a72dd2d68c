#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/String.h>

#include <compare>
#include <ctime>

namespace orvi {

/** Calendar and clock of the library, with an epoch of its own: points in time are signed seconds of UTC
    since 0000-01-01 00:00:00 in the Gregorian calendar carried backwards; there are no leap seconds.
    1970-01-01 is second 62167132800.

    Leap years are those of the Gregorian rule, but year 0 is none. Before it the rule is mirrored: year `y`
    is as long as year `1 - y`, so -3 and -7 are leap years.

    A std::tm has the meanings of the C library, except that here `tm_mon` counts from 1, `tm_year` is the
    year itself, and `tm_isdst` is always 0. */

/** The current time; also stored in `*out` unless that is null. */
ORVI_API long long time(long long* out);

/** The time of calendar fields, which need not be in range: month 13 is the next January, day 0 the last day
    of the month before. Any values are fine. `tm_wday`, `tm_yday` and `tm_isdst` are not read. */
ORVI_API long long mktime(const std::tm& fields);

/** The calendar fields of a time: the exact inverse of mktime. A year that an int cannot hold becomes the
    nearest one; the other fields stay right. */
ORVI_API std::tm gmtime(const long long& seconds);

/** The fields of `seconds - getTimeBias()`. */
ORVI_API std::tm localtime(const long long& seconds);

/** The process's time zone as the C library knows it: seconds *west* of UTC, without summer time. It is 0
    until somebody has called tzset (or the C library's localtime or mktime); the library itself never
    does. */
ORVI_API int getTimeBias();

/** The bias of a zone called "Etc/GMT+5" (18000) or "Etc/GMT-8" (-28800); that of the process for any other
    name. */
ORVI_API int getZoneBias(const wchar_t* name);

/** The name of a bias in that form; the part of an hour is dropped. */
ORVI_API String getZoneName(int bias);

/** Milliseconds of a clock that never steps; wraps after some 49.7 days. Take differences as unsigned
    numbers. */
ORVI_API unsigned int getTimeTick();

/** A point in time, in seconds as above, with a text form in local time.

    The local fields are kept once they have been asked for: a change of the zone afterwards goes unnoticed,
    and even reading is for one thread at a time. */
class ORVI_API Time {
public:
    Time() noexcept = default;
    Time(long long value) noexcept
        : _value(value)
    {}

    long long getValue() const noexcept { return _value; }
    void setValue(long long value) noexcept
    {
        _value = value;
        _localValid = false;
    }

    const std::tm& getLocalTime() const;
    int getYear() const { return getLocalTime().tm_year; }
    int getMonth() const { return getLocalTime().tm_mon; }
    int getDay() const { return getLocalTime().tm_mday; }
    int getHour() const { return getLocalTime().tm_hour; }
    int getMinute() const { return getLocalTime().tm_min; }
    int getSecond() const { return getLocalTime().tm_sec; }

    /** "2022-6-27 09:58:45", in local time; with the zone "2022-6-27 09:58:45 Etc/GMT-8". */
    String convertToString(bool withZone) const;

    /** Reads "2022-6-27 09:58:45", or less of it from the left: what is missing is the first month or day, or
        0. The empty text is year 0. "/" separates dates too. The time is local, unless a blank and a zone
        name for getZoneBias follow the seconds; any other rest is ignored. False, with the object unchanged,
        for other texts, dates that do not exist and years beyond an int. */
    bool convertFromString(const wchar_t* text);

    friend bool operator==(const Time& a, const Time& b) noexcept { return a._value == b._value; }
    friend std::strong_ordering operator<=>(const Time& a, const Time& b) noexcept
    {
        return a._value <=> b._value;
    }

private:
    long long _value = 0;
    mutable bool _localValid = false;
    mutable std::tm _local{}; // of _value, once _localValid is set
};

/** A duration. The library carries it around and gives its number no unit. */
class TimeSpan {
public:
    TimeSpan() noexcept = default;
    TimeSpan(long long value) noexcept
        : _value(value)
    {}

    long long getValue() const noexcept { return _value; }
    void setValue(long long value) noexcept { _value = value; }

    friend bool operator==(const TimeSpan&, const TimeSpan&) noexcept = default;
    friend std::strong_ordering operator<=>(const TimeSpan&, const TimeSpan&) noexcept = default;

private:
    long long _value = 0;
};

} // namespace orvi
