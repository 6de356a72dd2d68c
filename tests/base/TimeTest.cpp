#include "TextPrinting.h"

#include <orvi/core/Time.h>

#include <chrono>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <sstream>
#include <string>
#include <utility>

using namespace orvi;

namespace {

std::tm fieldsOf(int year, int month, int day, int hour = 0, int minute = 0, int second = 0)
{
    return {second, minute, hour, day, month, year, 0, 0, 0, 0, nullptr};
}

bool isSame(const std::tm& a, const std::tm& b)
{
    return a.tm_year == b.tm_year && a.tm_mon == b.tm_mon && a.tm_mday == b.tm_mday &&
           a.tm_hour == b.tm_hour && a.tm_min == b.tm_min && a.tm_sec == b.tm_sec;
}

/** For the whole process. */
void setZone(const char* zone)
{
    setenv("TZ", zone, 1);
    tzset();
}

Time parsed(const wchar_t* text)
{
    Time time;
    CHECK(time.convertFromString(text));
    return time;
}

} // namespace

TEST_CASE("every day is where counting from day to day finds it, before the epoch too")
{
    long long days = -(799 * 365 + 194); // of -799-1-1
    int second = 0;
    for (int year = -799; year <= 2101; ++year) {
        const std::chrono::year calendarYear(year > 0 ? year : 1 - year); // mirrored
        int dayOfYear = 0;
        for (int month = 1; month <= 12; ++month) {
            const auto lastDay = calendarYear / month / std::chrono::last;
            const int length = static_cast<int>(unsigned{lastDay.day()});
            for (int day = 1; day <= length; ++day, ++days, ++dayOfYear) {
                second = (second + 32749) % 86400; // some other second each day
                for (const int at : {0, second, 86399}) {
                    const long long value = days * 86400 + at;
                    const std::tm expected = fieldsOf(year, month, day, at / 3600, at / 60 % 60, at % 60);
                    const std::tm fields = orvi::gmtime(value);
                    if (!isSame(fields, expected) || fields.tm_wday != (days % 7 + 7) % 7 ||
                        fields.tm_yday != dayOfYear || fields.tm_isdst != 0 ||
                        orvi::mktime(expected) != value)
                        FAIL("second " << at << " of " << year << '-' << month << '-' << day);
                }
            }
        }
    }
}

TEST_CASE("the present is some seconds from 1970, and the tick counts milliseconds")
{
    constexpr long long epoch = 62167132800;
    CHECK(orvi::mktime(fieldsOf(1970, 1, 1)) == epoch);
    CHECK(orvi::gmtime(epoch).tm_wday == 4);
    using Clock = std::chrono::system_clock; // std::time may be a tick behind
    const long long before = Clock::to_time_t(Clock::now()) + epoch;
    long long now = 0;
    CHECK(orvi::time(&now) == now);
    CHECK(now >= before);
    CHECK(orvi::time(nullptr) <= Clock::to_time_t(Clock::now()) + epoch);

    const unsigned int start = orvi::getTimeTick();
    const std::timespec pause{0, 20'000'000};
    nanosleep(&pause, nullptr);
    CHECK(orvi::getTimeTick() - start >= 19);
}

TEST_CASE("fields out of range are carried over")
{
    const std::pair<std::tm, std::tm> rows[] = {
        {fieldsOf(2021, -12, 5), fieldsOf(2019, 12, 5)},
        {fieldsOf(2000, 3, 0), fieldsOf(2000, 2, 29)},
        {fieldsOf(2021, 1, 366), fieldsOf(2022, 1, 1)},
        {fieldsOf(2022, 1, 1, 0, 0, -1), fieldsOf(2021, 12, 31, 23, 59, 59)},
    };
    for (const auto& row : rows)
        CHECK(isSame(orvi::gmtime(orvi::mktime(row.first)), row.second));
}

TEST_CASE("the ends of the number ranges are exact")
{
    const long long base = orvi::mktime(fieldsOf(2000, 1, 1));
    for (const int end : {INT_MAX, INT_MIN}) {
        CHECK(orvi::mktime(fieldsOf(2000, 1, end, end, end, end)) ==
              base + (end - 1LL) * 86400 + end * 3661LL);
        CHECK(isSame(orvi::gmtime(orvi::mktime(fieldsOf(end, 7, 4))), fieldsOf(end, 7, 4)));
    }
    CHECK(orvi::mktime(fieldsOf(INT_MAX, INT_MAX, 1)) > orvi::mktime(fieldsOf(INT_MAX, 12, 31)));
    CHECK(orvi::mktime(fieldsOf(INT_MIN, INT_MIN, 1)) < orvi::mktime(fieldsOf(INT_MIN, 1, 1)));

    for (const char* zone : {"UTC0", "EAST-14", "WEST12"}) {
        setZone(zone);
        CHECK(orvi::localtime(LLONG_MAX).tm_year == INT_MAX);
        CHECK(orvi::localtime(LLONG_MIN).tm_year == INT_MIN);
    }
}

TEST_CASE("zones have names and biases")
{
    setZone("PARIS-1");
    CHECK(orvi::getTimeBias() == -3600);
    CHECK(orvi::getZoneName(-28800) == L"Etc/GMT-8");
    CHECK(orvi::getZoneName(18000) == L"Etc/GMT+5");
    CHECK(orvi::getZoneName(0) == L"Etc/GMT+0");
    CHECK(orvi::getZoneName(-1800) == L"Etc/GMT-0");
    CHECK(orvi::getZoneName(INT_MIN) == L"Etc/GMT-596523");

    const std::pair<const wchar_t*, int> biases[] = {
        {L"Etc/GMT+5", 18000}, {L"Etc/GMT-12x", -43200},     {L"Etc/GMT+", 0},
        {L"Etc/GMT", -3600},   {L"etc/gmt+5", -3600},        {L"", -3600},
        {nullptr, -3600},      {L"Etc/GMT+999999", INT_MAX}, {L"Etc/GMT-99999999999", INT_MIN},
    };
    for (const auto& row : biases) {
        CAPTURE(String(row.first));
        CHECK(orvi::getZoneBias(row.first) == row.second);
    }
}

TEST_CASE("a Time goes to its text and back")
{
    setZone("CHINA-8");
    const Time time = parsed(L"2022-6-27 09:58:45");
    CHECK(time.convertToString(false) == L"2022-6-27 09:58:45");
    CHECK(time.getValue() == orvi::mktime(fieldsOf(2022, 6, 27, 1, 58, 45)));
    CHECK(isSame(fieldsOf(2022, 6, 27, 9, 58, 45),
                 fieldsOf(time.getYear(), time.getMonth(), time.getDay(), time.getHour(), time.getMinute(),
                          time.getSecond())));
    // With a zone in the text the zone of the machine does not matter.
    setZone("NEWYORK5");
    CHECK(parsed(L"2022-6-27 09:58:45 Etc/GMT-8").getValue() == time.getValue());
    CHECK(Time(time.getValue()).convertToString(true) == L"2022-6-26 20:58:45 Etc/GMT+5");

    Time changed = time;
    changed.setValue(orvi::mktime(fieldsOf(1999, 1, 1)));
    CHECK(changed.getYear() == 1998); // the local fields of the old value are dropped
}

TEST_CASE("texts of a Time may leave out their end")
{
    setZone("UTC0");
    const std::pair<const wchar_t*, std::tm> rows[] = {
        {nullptr, fieldsOf(0, 1, 1)},
        {L"2022", fieldsOf(2022, 1, 1)},
        {L"2022/06-0000007", fieldsOf(2022, 6, 7)},
        {L"2022-6-7 8:9", fieldsOf(2022, 6, 7, 8, 9)},
        {L"2022-6-7 8:9:10Z and more", fieldsOf(2022, 6, 7, 8, 9, 10)},
        {L"2022-6-7 8:9:10 Etc/GMT+2", fieldsOf(2022, 6, 7, 10, 9, 10)},
        {L"2147483647-12-31 23:59:59", fieldsOf(INT_MAX, 12, 31, 23, 59, 59)},
    };
    for (const auto& row : rows) {
        CAPTURE(String(row.first));
        CHECK(parsed(row.first).getValue() == orvi::mktime(row.second));
    }
}

TEST_CASE("texts that are no time are refused and change nothing")
{
    std::istringstream texts(
        " 2022|-1|x|2022-|2022-0|2022-13|2022.6|2022-6-|2022-6-0|2022-6-32|2022-6-7T8|2022-6-7 "
        "|2022-6-7  8|2022-6-7 24|2022-6-7 8:|2022-6-7 8:60|2022-6-7 8:9 Etc/GMT+2"
        "|2022-6-7 8:9:60|1900-2-29|0-2-29|2021-4-31|2021-9-31"
        "|2147483648|18446744073709551617|2022-4294967297");
    for (std::string text; std::getline(texts, text, '|');) {
        CAPTURE(text);
        Time time(12345);
        CHECK_FALSE(time.convertFromString(orvi::StringHelper::utf8ToWide(text.c_str())));
        CHECK(time.getValue() == 12345);
    }
}
