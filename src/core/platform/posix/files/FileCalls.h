#pragma once
#include "platform/posix/diagnostics/SignalShield.h"

#include <cstddef>
#include <sys/resource.h>

namespace orvi::platform {

/** Repeats a system call that signals interrupt. */
template <class Call>
auto retryInterrupted(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

/** Whether the process has a limit for the sizes of its files, which any write may meet. */
inline bool hasSizeLimit()
{
    rlimit limit;
    return getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur != RLIM_INFINITY;
}

/** Writes to a file by `call`. The shield costs more than a look at the limit, which hardly anybody sets. */
template <class Call>
std::ptrdiff_t writeShielded(Call call)
{
    if (!hasSizeLimit())
        return retryInterrupted(call);
    const SignalShield shield(SIGXFSZ);
    return retryInterrupted(call);
}

} // namespace orvi::platform
