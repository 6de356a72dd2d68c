#include "platform/runtime/LoopWait.h"

#include <climits>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace orvi::platform {

static_assert(sizeof(std::atomic<unsigned int>) == sizeof(unsigned int));

void LoopWait::wait(Time deadline) noexcept
{
    unsigned int expected = armed;
    if (!_state.compare_exchange_strong(expected, waiting))
        return;
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
    if (_state.exchange(awake) == waiting)
        syscall(SYS_futex, &_state, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

} // namespace orvi::platform
