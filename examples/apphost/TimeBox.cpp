#include "Apps.h"
#include "CommandBox.h"

#include <orvi/core/Time.h>

namespace apphost {

using orvi::AppBox;
using orvi::Handle_T;
using orvi::String;

namespace {

constexpr int secondsPerHour = 3600;
constexpr int westernmostHours = 12; // Etc/GMT+12; a bias counts to the west
constexpr int easternmostHours = -14;
constexpr long long farthestSeconds = 1'000'000'000'000'000; // some 30 million years: far from any overflow

bool isZone(const String& name)
{
    for (int hours = easternmostHours; hours <= westernmostHours; ++hours) {
        if (name == orvi::getZoneName(hours * secondsPerHour))
            return true;
    }
    return false;
}

String timeInZone(long long seconds, int bias)
{
    const std::tm fields = orvi::gmtime(seconds - bias);
    String text;
    text.format(L"%d-%d-%d %02d:%02d:%02d %s", fields.tm_year, fields.tm_mon, fields.tm_mday, fields.tm_hour,
                fields.tm_min, fields.tm_sec, orvi::getZoneName(bias).getBuffer());
    return text;
}

/** Tells times, reads and writes them. Seconds are those of the library: since 0000-01-01 UTC. */
class TimeBox : public CommandBox {
public:
    TimeBox(const String& appName, const String& zone)
        : CommandBox(
              appName, zone,
              {
                  {L"now", L"[ZONE]", L"the time, here or in a zone", 0, 1, method(this, &TimeBox::now)},
                  {L"parse", L"DATE [TIME [ZONE]]", L"a time as seconds", 1, 3,
                   method(this, &TimeBox::parse)},
                  {L"format", L"SECONDS [ZONE]", L"seconds as a time", 1, 2, method(this, &TimeBox::format)},
                  {L"zones", L"", L"the zones, and what time it is there", 0, 0,
                   method(this, &TimeBox::zones)},
              })
        , _bias(orvi::getZoneBias(zone))
    {}

private:
    /** The zone named by the argument `index`, if there is one, else that of the application. */
    bool takeZone(const Call& call, int index, int& bias) const
    {
        bias = _bias;
        if (call.arguments() < index)
            return true;
        if (!isZone(call[index]))
            return call.fail(L"'%s' is no zone: the command zones lists them", call[index]);
        bias = orvi::getZoneBias(call[index]);
        return true;
    }

    bool now(const Call& call)
    {
        int bias = 0;
        if (!takeZone(call, 1, bias))
            return false;
        call.say(L"%s", timeInZone(orvi::time(nullptr), bias).getBuffer());
        return true;
    }

    bool parse(const Call& call)
    {
        int bias = 0;
        orvi::Time time;
        if (!takeZone(call, 3, bias))
            return false;
        if (!time.convertFromString(call.rest(1)))
            return call.fail(L"'%s' is no time: write it as 2022-6-27 09:58:45", call.rest(1).getBuffer());
        call.say(L"%I64d, %s", time.getValue(), timeInZone(time.getValue(), bias).getBuffer());
        return true;
    }

    bool format(const Call& call)
    {
        int bias = 0;
        const auto seconds = parseNumber(call[1]);
        if (!seconds || *seconds < -farthestSeconds || *seconds > farthestSeconds)
            return call.fail(L"'%s' is no number of seconds, or one too far away", call[1]);
        if (!takeZone(call, 2, bias))
            return false;
        call.say(L"%s", timeInZone(*seconds, bias).getBuffer());
        return true;
    }

    bool zones(const Call& call)
    {
        const long long seconds = orvi::time(nullptr);
        for (int hours = easternmostHours; hours <= westernmostHours; ++hours)
            call.say(L"%s", timeInZone(seconds, hours * secondsPerHour).getBuffer());
        return true;
    }

    int _bias; // of the zone in which times are shown
};

} // namespace

Handle_T<AppBox> createTimeBox(const wchar_t* appName, const wchar_t* parameters)
{
    if (*parameters != 0 && !isZone(parameters))
        return {};
    return new TimeBox(appName, parameters);
}

} // namespace apphost
