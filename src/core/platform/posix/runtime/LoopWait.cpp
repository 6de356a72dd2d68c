#include "platform/runtime/LoopWait.h"

#include "DescriptorSet.h"

#include <climits>
#include <ctime>
#include <iterator>
#include <linux/futex.h>
#include <new>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace orvi::platform {

static_assert(sizeof(std::atomic<unsigned int>) == sizeof(unsigned int));

namespace {

thread_local WakeLater* t_later = nullptr;

void wakeOne(const void* place) noexcept
{
    syscall(SYS_futex, place, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

} // namespace

WakeLater::WakeLater() noexcept
    : _outer(std::exchange(t_later, this))
{}

WakeLater::~WakeLater()
{
    t_later = _outer;
    for (int i = 0; i < _count; ++i)
        wakeOne(_places[i]);
}

void WakeLater::forget() noexcept { t_later = nullptr; }

bool WakeLater::take(const void* place) noexcept
{
    if (t_later == nullptr || t_later->_count == static_cast<int>(std::size(t_later->_places)))
        return false;
    t_later->_places[t_later->_count++] = place;
    return true;
}

LoopWait::LoopWait() noexcept = default;

LoopWait::~LoopWait() = default;

void LoopWait::wait(Time deadline) noexcept
{
    unsigned int expected = armed;
    if (!_state.compare_exchange_strong(expected, _descriptors != nullptr ? polling : waiting))
        return;
    if (_descriptors != nullptr) {
        if (!_descriptors->hasReady())
            _descriptors->wait(deadline);
        _state.store(awake);
        return;
    }
    timespec until{};
    if (deadline != never) { // of the monotonic clock, which steady_clock reads
        const auto time =
            std::chrono::duration_cast<std::chrono::nanoseconds>(deadline.time_since_epoch()).count();
        until.tv_sec = time / 1'000'000'000;
        until.tv_nsec = time % 1'000'000'000;
    }
    // A signal ends it early: a look too many does no harm.
    syscall(SYS_futex, &_state, FUTEX_WAIT_BITSET_PRIVATE, waiting, deadline != never ? &until : nullptr,
            nullptr, FUTEX_BITSET_MATCH_ANY);
    _state.store(awake);
}

void LoopWait::wakeUp() noexcept
{
    switch (_state.exchange(awake)) {
    case waiting:
        if (!WakeLater::take(&_state))
            wakeOne(&_state);
        break;
    case polling:
        _descriptors->wake();
        break;
    default:
        break;
    }
}

bool LoopWait::prepareDescriptors()
{
    if (_descriptors == nullptr) {
        auto fresh = std::make_unique<DescriptorSet>();
        if (!fresh->open())
            return false;
        _descriptors = std::move(fresh);
    }
    return true;
}

bool LoopWait::watch(int descriptor, unsigned int readiness, void* owner)
{
    return prepareDescriptors() && _descriptors->watch(descriptor, readiness, owner);
}

void LoopWait::unwatch(int descriptor, const void* owner) noexcept
{
    if (_descriptors != nullptr)
        _descriptors->unwatch(descriptor, owner);
}

void LoopWait::tellReady(void (*tell)(void* owner, unsigned int readiness)) noexcept
{
    if (!_descriptors->hasReady() && (!_descriptors->isEmpty() || _isExposed))
        _descriptors->wait(Time::min());
    _isExposed = false;
    _descriptors->takeReady(tell);
}

int LoopWait::descriptor() noexcept
{
    try {
        return prepareDescriptors() ? _descriptors->descriptor() : -1;
    } catch (const std::bad_alloc&) {
        return -1;
    }
}

bool LoopWait::expose() noexcept
{
    unsigned int expected = armed;
    _isExposed = _state.compare_exchange_strong(expected, polling);
    return _isExposed;
}

} // namespace orvi::platform
