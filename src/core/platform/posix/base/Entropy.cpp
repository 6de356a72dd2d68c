#include "platform/base/Entropy.h"

#include <chrono>

#include <sys/random.h>
#include <unistd.h>

namespace orvi::platform {

namespace {

template <class Clock>
long long nanosOf()
{
    return std::chrono::nanoseconds(Clock::now().time_since_epoch()).count();
}

} // namespace

EntropyRecord collectEntropy()
{
    EntropyRecord record{};
    // Without waiting for a machine that has just started (EAGAIN); a sandbox may forbid the call (ENOSYS, EPERM).
    if (getrandom(record.random, sizeof record.random, GRND_NONBLOCK) < 0) {
        for (unsigned char& byte : record.random)
            byte = 0;
    }
    record.wallNanos = nanosOf<std::chrono::system_clock>();
    record.steadyNanos = nanosOf<std::chrono::steady_clock>();
    record.process = currentProcessId();
    (void)gethostname(record.host, sizeof record.host); // a name that is cut will do
    return record;
}

unsigned long currentProcessId() { return static_cast<unsigned long>(getpid()); }

} // namespace orvi::platform
