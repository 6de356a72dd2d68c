#include "platform/base/ForkWatch.h"

#include <pthread.h>

namespace orvi::platform {

bool watchForks(void (*before)(), void (*inParent)(), void (*inChild)())
{
    // Forgotten when the library is unloaded: the C library knows by whom it was asked.
    return ::pthread_atfork(before, inParent, inChild) == 0;
}

} // namespace orvi::platform
