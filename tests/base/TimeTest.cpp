#include "TextPrinting.h"

#include <orvi/core/Time.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>

using orvi::String;
using orvi::Time;

namespace {

std::tm fieldsOf(int year, int month, int day, int hour = 0, int minute = 0, int second = 0)
{
    std::tm fields{};
    fields.tm_year = year;
    fields.tm_mon = month;
    fields.tm_mday = day;
    fields.tm_hour = hour;
    fields.tm_min = minute;
    fields.tm_sec = second;
    return fields;
}

bool isSame(const std::tm& a, const std::tm& b)
{
    return a.tm_year == b.tm_year && a.tm_mon == b.tm_mon && a.tm_mday == b.tm_mday &&
           a.tm_hour == b.tm_hour && a.tm_min == b.tm_min && a.tm_sec == b.tm_sec;
}

/** A calendar that knows only how to go to the next day. */
struct SlowCalendar {
    int year = 0;
    int month = 1;
    int day = 1;
    int dayOfYear = 0;
    int weekDay = 0;
    long long days = 0;

    bool isLeap() const
    {
        if (year == 0)
            return false;
        const int y = year > 0 ? year : 1 - year;
        return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
    }
    int monthLength() const
    {
        if (month == 2)
            return isLeap() ? 29 : 28;
        return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
    }
    void next()
    {
        ++days;
        ++dayOfYear;
        weekDay = (weekDay + 1) % 7;
        if (++day <= monthLength())
            return;
        day = 1;
        if (++month <= 12)
            return;
        month = 1;
        dayOfYear = 0;
        ++year;
    }
};

/** The weekday of calendar fields by Zeller's rule. */
int weekDayOf(int year, int month, int day)
{
    if (month < 3) {
        --year;
        month += 12;
    }
    const int c = year / 100;
    const int k = year % 100;
    return ((day - 1 + c / 4 + 26 * (month + 1) / 10 + k / 4 - 2 * c + k) % 7 + 7) % 7;
}

/** The day that a calendar of this kind shows, at one second of it; the first difference found, or null. */
const char* findFault(const SlowCalendar& date, int second)
{
    const long long value = date.days * 86400 + second;
    const std::tm expected =
        fieldsOf(date.year, date.month, date.day, second / 3600, second / 60 % 60, second % 60);
    const std::tm fields = orvi::gmtime(value);
    if (!isSame(fields, expected))
        return "gmtime";
    if (fields.tm_wday != date.weekDay || fields.tm_yday != date.dayOfYear || fields.tm_isdst != 0)
        return "week day, day of the year or summer time";
    return orvi::mktime(expected) == value ? nullptr : "mktime";
}

/** Walks over every day between two years. */
void checkDays(SlowCalendar date, int lastYear)
{
    int second = 0;
    for (; date.year <= lastYear; date.next()) {
        second = (second + 32749) % 86400; // some other second each day
        for (const int at : {0, second, 86399}) {
            if (const char* fault = findFault(date, at)) {
                CAPTURE(date.year);
                CAPTURE(date.month);
                CAPTURE(date.day);
                FAIL(fault);
            }
        }
    }
}

/** Sets the process's zone for a scope. */
class Zone {
public:
    explicit Zone(const char* zone)
    {
        setenv("TZ", zone, 1);
        tzset();
    }
    ~Zone()
    {
        setenv("TZ", "UTC0", 1);
        tzset();
    }
};

Time parsed(const wchar_t* text)
{
    Time time;
    CHECK(time.convertFromString(text));
    return time;
}

} // namespace

TEST_CASE("the calendar agrees with counting days from the epoch on") { checkDays(SlowCalendar{}, 2500); }

TEST_CASE("the calendar agrees with counting days before the epoch")
{
    SlowCalendar date;
    date.year = -1200;
    date.days = -(1200 * 365 + 1200 / 4 - 1200 / 100 + 1200 / 400);
    date.weekDay = static_cast<int>((date.days % 7 + 7) % 7);
    checkDays(date, 0);
}

TEST_CASE("week days follow the rule for calendar fields")
{
    for (int year = 0; year < 4000; ++year) {
        for (const int month : {1, 2, 3, 7, 12}) {
            const std::tm fields = orvi::gmtime(orvi::mktime(fieldsOf(year, month, 28)));
            REQUIRE(fields.tm_wday == weekDayOf(year, month, 28));
        }
    }
}

TEST_CASE("1970 is where it should be")
{
    const long long epoch = 62167132800;
    CHECK(orvi::mktime(fieldsOf(1970, 1, 1)) == epoch);
    const std::tm fields = orvi::gmtime(epoch);
    CHECK(isSame(fields, fieldsOf(1970, 1, 1)));
    CHECK(fields.tm_wday == 4);
    CHECK(fields.tm_yday == 0);

    const long long before = std::time(nullptr) + epoch;
    long long now = 0;
    CHECK(orvi::time(&now) == now);
    CHECK(now >= before);
    CHECK(orvi::time(nullptr) <= std::time(nullptr) + epoch);
}

TEST_CASE("fields out of range are carried over")
{
    const struct {
        const char* what;
        std::tm fields;
        std::tm expected;
    } rows[] = {
        {"month 13", fieldsOf(2021, 13, 5), fieldsOf(2022, 1, 5)},
        {"month 0", fieldsOf(2021, 0, 5), fieldsOf(2020, 12, 5)},
        {"month -11", fieldsOf(2021, -11, 5), fieldsOf(2020, 1, 5)},
        {"month -12", fieldsOf(2021, -12, 5), fieldsOf(2019, 12, 5)},
        {"day 0", fieldsOf(2000, 3, 0), fieldsOf(2000, 2, 29)},
        {"day 366", fieldsOf(2021, 1, 366), fieldsOf(2022, 1, 1)},
        {"negative time", fieldsOf(2022, 1, 1, 0, 0, -1), fieldsOf(2021, 12, 31, 23, 59, 59)},
        {"large time", fieldsOf(2022, 1, 1, 23, 59, 60), fieldsOf(2022, 1, 2)},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        CHECK(isSame(orvi::gmtime(orvi::mktime(row.fields)), row.expected));
    }
}

TEST_CASE("the ends of the number ranges are exact")
{
    const long long base = orvi::mktime(fieldsOf(2000, 1, 1));
    const long long max = INT_MAX;
    const long long min = INT_MIN;
    CHECK(orvi::mktime(fieldsOf(2000, 1, INT_MAX, INT_MAX, INT_MAX, INT_MAX)) ==
          base + (max - 1) * 86400 + max * 3661);
    CHECK(orvi::mktime(fieldsOf(2000, 1, INT_MIN, INT_MIN, INT_MIN, INT_MIN)) ==
          base + (min - 1) * 86400 + min * 3661);
    CHECK(isSame(orvi::gmtime(orvi::mktime(fieldsOf(INT_MAX, 12, 31))), fieldsOf(INT_MAX, 12, 31)));
    CHECK(isSame(orvi::gmtime(orvi::mktime(fieldsOf(INT_MIN, 1, 1))), fieldsOf(INT_MIN, 1, 1)));
    CHECK(orvi::mktime(fieldsOf(INT_MAX, INT_MAX, 1)) > orvi::mktime(fieldsOf(INT_MAX, 12, 31)));
    CHECK(orvi::mktime(fieldsOf(INT_MIN, INT_MIN, 1)) < orvi::mktime(fieldsOf(INT_MIN, 1, 1)));

    CHECK(orvi::gmtime(LLONG_MAX).tm_year == INT_MAX);
    CHECK(orvi::gmtime(LLONG_MIN).tm_year == INT_MIN);
    for (const char* zone : {"EAST-14", "WEST12"}) {
        const Zone scope(zone);
        CHECK(orvi::localtime(LLONG_MAX).tm_year == INT_MAX);
        CHECK(orvi::localtime(LLONG_MIN).tm_year == INT_MIN);
    }
}

TEST_CASE("zones have names and biases")
{
    const Zone zone("PARIS-1");
    CHECK(orvi::getTimeBias() == -3600);
    const struct {
        int bias;
        String name;
    } names[] = {
        {-28800, L"Etc/GMT-8"}, {18000, L"Etc/GMT+5"}, {0, L"Etc/GMT+0"},
        {-19800, L"Etc/GMT-5"}, {-1800, L"Etc/GMT-0"}, {INT_MIN, L"Etc/GMT-596523"},
    };
    for (const auto& row : names)
        CHECK(orvi::getZoneName(row.bias) == row.name);

    const struct {
        const wchar_t* name;
        int bias;
    } biases[] = {
        {L"Etc/GMT+5", 18000},
        {L"Etc/GMT-8", -28800},
        {L"Etc/GMT+", 0},
        {L"Etc/GMT-12x", -43200},
        {L"Etc/GMT", -3600},
        {L"Etc/GM", -3600},
        {L"Europe/Paris", -3600},
        {L"etc/gmt+5", -3600},
        {L"", -3600},
        {nullptr, -3600},
        {L"Etc/GMT+999999", INT_MAX},
        {L"Etc/GMT-99999999999", INT_MIN},
        {L"Etc/GMT--2147483648", INT_MAX},
    };
    for (const auto& row : biases) {
        CAPTURE(String(row.name));
        CHECK(orvi::getZoneBias(row.name) == row.bias);
    }
}

TEST_CASE("a Time goes to its text and back")
{
    const Zone zone("CHINA-8");
    const Time time = parsed(L"2022-6-27 09:58:45");
    CHECK(time.convertToString(false) == L"2022-6-27 09:58:45");
    CHECK(time.convertToString(true) == L"2022-6-27 09:58:45 Etc/GMT-8");
    CHECK(parsed(L"2022-6-27 01:58:45 Etc/GMT+0") == time);
    CHECK(time.getValue() == orvi::mktime(fieldsOf(2022, 6, 27, 1, 58, 45)));
    CHECK(time.getYear() == 2022);
    CHECK(time.getMonth() == 6);
    CHECK(time.getDay() == 27);
    CHECK(time.getHour() == 9);
    CHECK(time.getMinute() == 58);
    CHECK(time.getSecond() == 45);

    // With a zone in the text the zone of the machine does not matter.
    const Zone other("NEWYORK5");
    CHECK(parsed(L"2022-6-27 09:58:45 Etc/GMT-8").getValue() == time.getValue());
    CHECK(Time(time.getValue()).convertToString(true) == L"2022-6-26 20:58:45 Etc/GMT+5");
}

TEST_CASE("a new value drops the local fields of the old one")
{
    const Zone zone("UTC0");
    Time time = parsed(L"2022-6-27");
    CHECK(time.getYear() == 2022);
    time.setValue(orvi::mktime(fieldsOf(1999, 1, 1)));
    CHECK(time.getYear() == 1999);
    CHECK(time.convertFromString(L"1850"));
    CHECK(time.getYear() == 1850);
    CHECK(Time(1) < Time(2));
    CHECK(Time() == 0);
}

TEST_CASE("texts of a Time may leave out their end")
{
    const Zone zone("UTC0");
    const struct {
        const wchar_t* text;
        std::tm expected;
    } rows[] = {
        {nullptr, fieldsOf(0, 1, 1)},
        {L"", fieldsOf(0, 1, 1)},
        {L"2022", fieldsOf(2022, 1, 1)},
        {L"2022/6", fieldsOf(2022, 6, 1)},
        {L"2022/06-0000007", fieldsOf(2022, 6, 7)},
        {L"2022-6-7 8", fieldsOf(2022, 6, 7, 8)},
        {L"2022-6-7 8:9", fieldsOf(2022, 6, 7, 8, 9)},
        {L"2022-6-7 8:9:10Z and more", fieldsOf(2022, 6, 7, 8, 9, 10)},
        {L"2022-6-7 8:9:10 ", fieldsOf(2022, 6, 7, 8, 9, 10)},
        {L"2022-6-7 8:9:10 Etc/GMT+2", fieldsOf(2022, 6, 7, 10, 9, 10)},
        {L"2000-2-29", fieldsOf(2000, 2, 29)},
        {L"2021-7-31", fieldsOf(2021, 7, 31)},
        {L"2021-8-31", fieldsOf(2021, 8, 31)},
        {L"2147483647-12-31 23:59:59", fieldsOf(INT_MAX, 12, 31, 23, 59, 59)},
    };
    for (const auto& row : rows) {
        CAPTURE(String(row.text));
        CHECK(parsed(row.text).getValue() == orvi::mktime(row.expected));
    }
}

TEST_CASE("texts that are no time are refused and change nothing")
{
    for (const wchar_t* text : {L" 2022",
                                L"-1",
                                L"x",
                                L"2022-",
                                L"2022-0",
                                L"2022-13",
                                L"2022.6",
                                L"2022-6-",
                                L"2022-6-0",
                                L"2022-6-32",
                                L"2022-6-7T8",
                                L"2022-6-7 ",
                                L"2022-6-7  8",
                                L"2022-6-7 24",
                                L"2022-6-7 8:",
                                L"2022-6-7 8:60",
                                L"2022-6-7 8:9 Etc/GMT+2",
                                L"2022-6-7 8:9:60",
                                L"1900-2-29",
                                L"0-2-29",
                                L"2021-2-29",
                                L"2021-4-31",
                                L"2021-9-31",
                                L"2147483648",
                                L"18446744073709551617",
                                L"2022-4294967297"}) {
        CAPTURE(String(text));
        Time time(12345);
        CHECK_FALSE(time.convertFromString(text));
        CHECK(time.getValue() == 12345);
    }
}

TEST_CASE("the tick counts milliseconds")
{
    const unsigned int start = orvi::getTimeTick();
    const std::timespec pause{0, 20'000'000};
    nanosleep(&pause, nullptr);
    CHECK(orvi::getTimeTick() - start >= 19);
}
