#include <orvi/core/Log.h>

#include <orvi/core/String.h>

#include "Immortal.h"
#include "WideText.h"
#include "platform/base/Format.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cxxabi.h>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

namespace orvi {

namespace {

using Slot = void (LogListener::*)(const wchar_t*);

struct LogState {
    std::recursive_mutex mutex; // recursive for the listener that logs
    std::vector<LogListener*> listeners;
    bool busy = false;
    bool closed = false;
    std::atomic<bool> hasListeners = false; // a quick look for those who have nobody to talk to
};

void tearDown();

LogState& state()
{
    // Never destroyed: a thread may log until the very end of the process.
    static Immortal<LogState> state;
    static const bool registered = std::atexit(tearDown) == 0;
    static_cast<void>(registered);
    return *state;
}

void tearDown()
{
    LogState& log = state();
    const std::lock_guard guard(log.mutex);
    log.closed = true;
    log.hasListeners = false;
    log.listeners = {};
}

const bool g_initialised = (state(), true);

/** Calls every listener; what one throws does not reach the others, nor the caller. */
template <class Call>
void deliver(LogState& log, Call call)
{
    struct Busy {
        explicit Busy(bool& flag)
            : _flag(flag)
        {
            _flag = true;
        }
        ~Busy() { _flag = false; }
        bool& _flag;
    } busy(log.busy);
    // By index: a listener that registers or removes one in spite of the rule leaves no dangling iterator.
    for (std::size_t i = 0; i < log.listeners.size(); ++i) {
        try {
            call(*log.listeners[i]);
        } catch (abi::__forced_unwind&) { // a thread being cancelled has to unwind
            throw;
        } catch (...) {
        }
    }
}

/** A function of its own, so that without a listener nobody pays for the large buffer, whose frame would
    reach into untouched pages of the stack. */
[[gnu::noinline]] void formatAndDeliver(LogState& log, Slot slot, const wchar_t* format,
                                        std::va_list arguments)
{
    constexpr std::size_t stackCapacity = 32768;
    wchar_t stackText[stackCapacity];
    const wchar_t* text = stackText;
    std::unique_ptr<wchar_t[]> heapText;
    const std::size_t length = platform::formatText(stackText, stackCapacity - 1, format, arguments);
    if (length < stackCapacity) {
        stackText[length] = 0;
    } else {
        heapText.reset(new (std::nothrow) wchar_t[length + 1]);
        if (heapText == nullptr)
            return;
        platform::formatText(heapText.get(), length, format, arguments);
        heapText[length] = 0;
        text = heapText.get();
    }
    deliver(log, [&](LogListener& listener) { (listener.*slot)(text); });
}

void deliverText(Slot slot, const wchar_t* format, std::va_list arguments)
{
    LogState& log = state();
    if (!log.hasListeners.load(std::memory_order_acquire))
        return;
    const std::lock_guard guard(log.mutex);
    if (!log.busy && !log.listeners.empty())
        formatAndDeliver(log, slot, format, arguments);
}

} // namespace

void Log::error(const wchar_t* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    deliverText(&LogListener::error, format, arguments);
    va_end(arguments);
}

void Log::warning(const wchar_t* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    deliverText(&LogListener::warning, format, arguments);
    va_end(arguments);
}

void Log::message(const wchar_t* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    deliverText(&LogListener::message, format, arguments);
    va_end(arguments);
}

void Log::debug(const wchar_t* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    deliverText(&LogListener::debug, format, arguments);
    va_end(arguments);
}

void Log::whistle(bool success)
{
    LogState& log = state();
    const std::lock_guard guard(log.mutex);
    if (!log.busy)
        deliver(log, [&](LogListener& listener) { listener.whistle(success); });
}

void Log::addListener(LogListener* listener)
{
    LogState& log = state();
    const std::lock_guard guard(log.mutex);
    auto& listeners = log.listeners;
    if (listener == nullptr || log.closed ||
        std::find(listeners.begin(), listeners.end(), listener) != listeners.end())
        return;
    listeners.push_back(listener);
    log.hasListeners = true;
}

void Log::removeListener(LogListener* listener)
{
    LogState& log = state();
    const std::lock_guard guard(log.mutex);
    const auto found = std::find(log.listeners.begin(), log.listeners.end(), listener);
    if (found != log.listeners.end())
        log.listeners.erase(found);
    log.hasListeners = !log.listeners.empty();
}

LogListener* Log::getLogListener(const wchar_t* name)
{
    if (name == nullptr)
        return nullptr;
    LogState& log = state();
    const std::lock_guard guard(log.mutex);
    for (LogListener* listener : log.listeners) {
        if (text::compare(listener->getName(), name) == 0)
            return listener;
    }
    return nullptr;
}

bool Log::setparam(const wchar_t* text)
{
    const String whole(text);
    const int at = whole.find(L'@');
    if (at < 0)
        return false;
    const String name = whole.getSubString(0, at);
    LogState& log = state();
    const std::lock_guard guard(log.mutex); // nobody removes the listener between the look and the call
    LogListener* listener = getLogListener(name);
    return listener != nullptr && listener->setparam(whole.getBuffer() + at + 1);
}

} // namespace orvi
