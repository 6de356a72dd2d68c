#include <orvi/core/Time.h>

#include "WideText.h"
#include "platform/base/TimeZone.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <limits>

namespace orvi {

namespace {

constexpr long long unixEpoch = 62167132800; // 1970-01-01 on our scale
constexpr long long secondsPerDay = 86400;
constexpr int maxInt = std::numeric_limits<int>::max();
constexpr int minInt = std::numeric_limits<int>::min();

constexpr int daysBefore[2][13] = {
    {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365},
    {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366},
};

/** The leap days of the years 1 to `year`. Divisions that cut towards 0 make the years before mirror those
    after. */
constexpr long long leapDays(long long year) { return year / 4 - year / 100 + year / 400; }

constexpr bool isLeapYear(long long year) { return leapDays(year) != leapDays(year - 1); }

constexpr long long firstDayOf(long long year) { return 365 * year + leapDays(year - 1); }

long long yearOf(long long day)
{
    long long year = day * 400 / 146097; // 400 years have that many days: off by a year at most
    while (firstDayOf(year) > day)
        --year;
    while (firstDayOf(year + 1) <= day)
        ++year;
    return year;
}

int saturate(long long value) { return static_cast<int>(std::clamp<long long>(value, minInt, maxInt)); }

/** One field of a date's text, with what may stand in front of it. */
struct DateField {
    const char* separators;
    int std::tm::*field;
    int lowest;
    int highest;
};

constexpr DateField dateFields[] = {
    {"", &std::tm::tm_year, 0, maxInt}, {"-/", &std::tm::tm_mon, 1, 12}, {"-/", &std::tm::tm_mday, 1, 31},
    {" ", &std::tm::tm_hour, 0, 23},    {":", &std::tm::tm_min, 0, 59},  {":", &std::tm::tm_sec, 0, 59},
};

bool takeSeparator(const wchar_t*& p, const char* separators)
{
    if (*separators == 0)
        return true;
    for (; *separators != 0; ++separators) {
        if (*p == static_cast<wchar_t>(*separators)) {
            ++p;
            return true;
        }
    }
    return false;
}

bool takeNumber(const wchar_t*& p, int lowest, int highest, int& number)
{
    const wchar_t* const begin = p;
    long long value = 0;
    for (; *p >= L'0' && *p <= L'9'; ++p) {
        value = value * 10 + (*p - L'0');
        if (value > highest)
            return false;
    }
    number = static_cast<int>(value);
    return p != begin && value >= lowest;
}

/** Reads as many fields as the text has and leaves the others alone; `p` ends up behind them. */
bool takeFields(const wchar_t*& p, std::tm& fields)
{
    for (const DateField& next : dateFields) {
        if (*p == 0)
            return true;
        if (!takeSeparator(p, next.separators) ||
            !takeNumber(p, next.lowest, next.highest, fields.*next.field))
            return false;
    }
    return true;
}

bool dayExists(const std::tm& fields)
{
    const int* const table = daysBefore[isLeapYear(fields.tm_year)];
    return fields.tm_mday <= table[fields.tm_mon] - table[fields.tm_mon - 1];
}

} // namespace

long long time(long long* out)
{
    using namespace std::chrono;
    const auto sinceUnix = floor<seconds>(system_clock::now()).time_since_epoch();
    const long long now = sinceUnix.count() + unixEpoch;
    if (out != nullptr)
        *out = now;
    return now;
}

long long mktime(const std::tm& fields)
{
    // All of it in 64 bits: years up to 2^31 make some 7 10^16 seconds.
    long long year = fields.tm_year;
    long long month = fields.tm_mon - 1LL;
    year += month / 12;
    month %= 12;
    if (month < 0) {
        --year;
        month += 12;
    }
    const long long lastLeapYear = month > 1 ? year : year - 1; // the leap day comes at the end of February
    const long long days = 365 * year + daysBefore[0][month] + leapDays(lastLeapYear) + fields.tm_mday - 1LL;
    return secondsPerDay * days + 3600LL * fields.tm_hour + 60LL * fields.tm_min + fields.tm_sec;
}

std::tm gmtime(const long long& seconds)
{
    long long days = seconds / secondsPerDay;
    int second = static_cast<int>(seconds % secondsPerDay);
    if (second < 0) {
        second += static_cast<int>(secondsPerDay);
        --days;
    }
    const long long year = yearOf(days);
    const int dayOfYear = static_cast<int>(days - firstDayOf(year));
    const int* const table = daysBefore[isLeapYear(year)];
    int month = 1;
    while (dayOfYear >= table[month])
        ++month;

    std::tm fields{};
    fields.tm_year = saturate(year);
    fields.tm_mon = month;
    fields.tm_mday = dayOfYear - table[month - 1] + 1;
    fields.tm_hour = second / 3600;
    fields.tm_min = second / 60 % 60;
    fields.tm_sec = second % 60;
    fields.tm_wday = static_cast<int>((days % 7 + 7) % 7); // day 0 is a Sunday
    fields.tm_yday = dayOfYear;
    return fields;
}

std::tm localtime(const long long& seconds)
{
    constexpr long long lowest = std::numeric_limits<long long>::min();
    constexpr long long highest = std::numeric_limits<long long>::max();
    const long long bias = getTimeBias();
    if (bias > 0 && seconds < lowest + bias)
        return gmtime(lowest);
    if (bias < 0 && seconds > highest + bias)
        return gmtime(highest);
    return gmtime(seconds - bias);
}

int getTimeBias() { return platform::secondsWestOfUtc(); }

int getZoneBias(const wchar_t* name)
{
    if (name == nullptr)
        return getTimeBias();
    for (const wchar_t expected : {L'E', L't', L'c', L'/', L'G', L'M', L'T'}) {
        if (*name++ != expected)
            return getTimeBias();
    }
    if (*name != L'+' && *name != L'-')
        return getTimeBias();
    const long long hours = text::parseInteger<int>(name + 1);
    return saturate(*name == L'-' ? hours * -3600 : hours * 3600);
}

static wchar_t zoneSign(int bias) { return bias < 0 ? L'-' : L'+'; }

static int zoneHours(int bias) { return std::abs(bias / 3600); }

String getZoneName(int bias)
{
    String name;
    name.format(L"Etc/GMT%c%d", zoneSign(bias), zoneHours(bias));
    return name;
}

unsigned int getTimeTick()
{
    using namespace std::chrono;
    const auto elapsed = duration_cast<milliseconds>(steady_clock::now().time_since_epoch());
    return static_cast<unsigned int>(elapsed.count());
}

const std::tm& Time::getLocalTime() const
{
    if (!_localValid) {
        _local = localtime(_value);
        _localValid = true;
    }
    return _local;
}

String Time::convertToString(bool withZone) const
{
    const std::tm& local = getLocalTime();
    const int bias = getTimeBias();
    String text; // in one step: whole or empty
    text.format(withZone ? L"%d-%d-%d %02d:%02d:%02d Etc/GMT%c%d" : L"%d-%d-%d %02d:%02d:%02d", local.tm_year,
                local.tm_mon, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, zoneSign(bias),
                zoneHours(bias));
    return text;
}

bool Time::convertFromString(const wchar_t* text)
{
    std::tm fields{};
    fields.tm_mon = 1;
    fields.tm_mday = 1;
    const wchar_t* p = text != nullptr ? text : L"";
    if (!takeFields(p, fields) || !dayExists(fields))
        return false;
    const int bias = *p == L' ' ? getZoneBias(p + 1) : getTimeBias();
    setValue(mktime(fields) + bias);
    return true;
}

} // namespace orvi
