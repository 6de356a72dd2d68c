#include "DescriptorSet.h"

#include "platform/base/ForkWatch.h"
#include "platform/posix/base/DescriptorNumber.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <ctime>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

namespace orvi::platform {

namespace {

std::atomic<unsigned int> g_forks = 0; // between this process and the one that looked first

unsigned int countForks() noexcept
{
    [[maybe_unused]] static const bool isWatching = watchForks(nullptr, nullptr, [] { ++g_forks; });
    return g_forks;
}

unsigned int eventsOf(unsigned int readiness)
{
    return (readiness & LoopWait::readable ? EPOLLIN | EPOLLRDHUP : 0U) |
           (readiness & LoopWait::writable ? EPOLLOUT : 0U);
}

unsigned int readinessOf(unsigned int events)
{
    return (events & (EPOLLIN | EPOLLRDHUP) ? LoopWait::readable : 0U) |
           (events & EPOLLOUT ? LoopWait::writable : 0U) |
           (events & (EPOLLERR | EPOLLHUP) ? LoopWait::broken : 0U);
}

/** The same number, but another file behind it; `fresh` is used up. */
bool replace(int& descriptor, int fresh)
{
    if (descriptor < 0) {
        descriptor = aboveStandardStreams(fresh);
        return descriptor >= 0;
    }
    const bool isDone = fresh >= 0 && ::dup3(fresh, descriptor, O_CLOEXEC) == descriptor;
    if (fresh >= 0)
        ::close(fresh);
    return isDone;
}

int waitIn(int set, epoll_event* events, int most, LoopWait::Time deadline)
{
    using namespace std::chrono;
    if (deadline == LoopWait::Time::min())
        return ::epoll_wait(set, events, most, 0);
    if (deadline == LoopWait::never)
        return ::epoll_wait(set, events, most, -1);
    const auto left = std::max<nanoseconds>(deadline - steady_clock::now(), nanoseconds::zero());
    const auto wholeSeconds = floor<seconds>(left);
    const timespec time{wholeSeconds.count(), (left - wholeSeconds).count()};
    const int count = ::epoll_pwait2(set, events, most, &time, nullptr);
    if (count >= 0 || errno != ENOSYS)
        return count;
    const long long millis = ceil<milliseconds>(left).count();
    return ::epoll_wait(set, events, most, static_cast<int>(std::min<long long>(millis, INT_MAX)));
}

} // namespace

DescriptorSet::~DescriptorSet()
{
    for (const int descriptor : {_set, _event}) {
        if (descriptor >= 0)
            ::close(descriptor);
    }
}

bool DescriptorSet::open() noexcept { return make(); }

/** The two descriptors, where there are some with the same numbers. */
bool DescriptorSet::make() noexcept
{
    const unsigned int forks = countForks();
    if (!replace(_set, ::epoll_create1(EPOLL_CLOEXEC)) ||
        !replace(_event, ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)))
        return false;
    epoll_event event{EPOLLIN | EPOLLET, {.u64 = 0}}; // by edge, so that nobody has to read it
    if (::epoll_ctl(_set, EPOLL_CTL_ADD, _event, &event) != 0)
        return false;
    _forks = forks;
    _isStale = false;
    return true;
}

/** False while the set must not be used, for want of descriptors. */
bool DescriptorSet::refresh() noexcept
{
    if (!_isStale && _forks == countForks())
        return true;
    _isStale = true;
    if (!make())
        return false;
    for (const auto& [descriptor, entry] : _entries)
        control(EPOLL_CTL_ADD, descriptor, entry); // fails where it has been closed
    return true;
}

bool DescriptorSet::control(int operation, int descriptor, const Entry& entry) const noexcept
{
    epoll_event event{eventsOf(entry.readiness),
                      {.u64 = std::uint64_t{entry.serial} << 32 | static_cast<unsigned int>(descriptor)}};
    return ::epoll_ctl(_set, operation, descriptor, &event) == 0;
}

bool DescriptorSet::watch(int descriptor, unsigned int readiness, void* owner)
{
    if (descriptor < 0 || !refresh())
        return false;
    const auto [place, isNew] = _entries.try_emplace(descriptor);
    const bool isOwn = !isNew && place->second.owner == owner;
    if (isOwn && place->second.readiness == readiness)
        return true;
    const Entry wanted{owner, isOwn ? place->second.serial : ++_lastSerial, readiness};
    if (!control(isOwn ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, descriptor, wanted)) {
        if (isNew)
            _entries.erase(place);
        return false;
    }
    place->second = wanted; // where it was another's, that one's file has been closed
    return true;
}

void DescriptorSet::unwatch(int descriptor, const void* owner) noexcept
{
    for (Ready& ready : _ready) {
        if (ready.owner == owner)
            ready.owner = nullptr;
    }
    const auto place = _entries.find(descriptor);
    if (place == _entries.end() || place->second.owner != owner)
        return;
    if (refresh())
        control(EPOLL_CTL_DEL, descriptor, place->second);
    _entries.erase(place);
}

void DescriptorSet::wake() const noexcept { ::eventfd_write(_event, 1); }

void DescriptorSet::wait(LoopWait::Time deadline) noexcept
{
    _readyCount = 0;
    if (!refresh()) {
        const timespec moment{0, 1'000'000};
        ::nanosleep(&moment, nullptr);
        return;
    }
    epoll_event events[mostReady];
    const int count = waitIn(_set, events, mostReady, deadline);
    for (int i = 0; i < count; ++i) {
        const std::uint64_t key = events[i].data.u64;
        if (key == 0)
            continue; // somebody woke
        const auto place = _entries.find(static_cast<int>(key & UINT_MAX));
        if (place == _entries.end() || place->second.serial != key >> 32)
            _isStale = true;
        else
            _ready[_readyCount++] = {place->second.owner, readinessOf(events[i].events)};
    }
}

void DescriptorSet::takeReady(void (*tell)(void* owner, unsigned int readiness)) noexcept
{
    const int count = std::exchange(_readyCount, 0);
    for (int i = 0; i < count; ++i) {
        if (_ready[i].owner != nullptr)
            tell(_ready[i].owner, _ready[i].readiness);
    }
}

} // namespace orvi::platform
