#include "Apps.h"
#include "CommandBox.h"

#include <orvi/core/Tick.h>

namespace apphost {

using orvi::AppBox;
using orvi::Handle_T;
using orvi::String;
using orvi::Tick;

namespace {

constexpr long long startPaceMs = 100;
constexpr long long longestPaceMs = 3'600'000; // an hour

bool isPace(long long ms) { return ms >= 1 && ms <= longestPaceMs; }

/** Counts by itself while it runs, and tells how far it has come. */
class CounterBox : public CommandBox {
public:
    CounterBox(const String& appName, const String& parameters, long long paceMs)
        : CommandBox(
              appName, parameters,
              {
                  {L"start", L"", L"count from now on", 0, 0, method(this, &CounterBox::startCounting)},
                  {L"stop", L"", L"keep the count as it is", 0, 0, method(this, &CounterBox::stopCounting)},
                  {L"reset", L"", L"back to 0", 0, 0, method(this, &CounterBox::reset)},
                  {L"count", L"", L"tell the count", 0, 0, method(this, &CounterBox::count)},
                  {L"pace", L"[MS]", L"tell or set the time between two counts", 0, 1,
                   method(this, &CounterBox::pace)},
                  {L"crash", L"",
                   L"have a fault: a report is left beside this program, and the counting goes on", 0, 0,
                   method(this, &CounterBox::crash)},
              })
        , _paceMs(paceMs)
        , _tick(Tick::createInstance())
    {
        _tick->setTickTime(static_cast<unsigned int>(paceMs));
        _tick->addTickHandler({this, &CounterBox::advance});
    }

private:
    void advance(unsigned int) { ++_count; }

    bool startCounting(const Call& call)
    {
        if (!_tick->start(this))
            return call.fail(L"it is counting already");
        return true;
    }

    bool stopCounting(const Call& call)
    {
        if (_tick->getTaskState() == orvi::TASK_STOPPED)
            return call.fail(L"it is not counting");
        _tick->stop();
        return true;
    }

    bool reset(const Call&)
    {
        _count = 0;
        return true;
    }

    bool count(const Call& call)
    {
        const bool stopped = _tick->getTaskState() == orvi::TASK_STOPPED;
        call.say(L"%I64d, %s", _count, stopped ? L"stopped" : L"counting");
        return true;
    }

    bool pace(const Call& call)
    {
        if (call.arguments() == 1) {
            const auto ms = parseNumber(call[1]);
            if (!ms || !isPace(*ms))
                return call.fail(L"'%s' is no number of milliseconds from 1 to %I64d", call[1],
                                 longestPaceMs);
            _paceMs = *ms;
            _tick->setTickTime(static_cast<unsigned int>(_paceMs));
        }
        call.say(L"one count every %I64d ms", _paceMs);
        return true;
    }

    bool crash(const Call&)
    {
        asm volatile("ud2"); // no instruction at all
        return true;
    }

    long long _count = 0;
    long long _paceMs;
    Handle_T<Tick> _tick;
};

} // namespace

Handle_T<AppBox> createCounterBox(const wchar_t* appName, const wchar_t* parameters)
{
    const auto paceMs = *parameters != 0 ? parseNumber(parameters) : startPaceMs;
    if (!paceMs || !isPace(*paceMs))
        return {};
    return new CounterBox(appName, parameters, *paceMs);
}

} // namespace apphost
