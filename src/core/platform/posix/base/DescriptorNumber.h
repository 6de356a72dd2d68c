#pragma once
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace orvi::platform {

/** Those below belong to the standard streams, also when they are closed. */
constexpr int firstOwnDescriptor = STDERR_FILENO + 1;

/** Every descriptor that the library gets goes through here: it takes `descriptor` over and gives one of 3 and
    more for the same thing; negative, with the reason in errno, when that cannot be or there was none.

    Where a program has closed a standard stream, the system gives its number to what is opened next, and what
    anybody prints would go into that file. */
inline int aboveStandardStreams(int descriptor)
{
    if (descriptor < 0 || descriptor >= firstOwnDescriptor)
        return descriptor;
    const int lifted = ::fcntl(descriptor, F_DUPFD_CLOEXEC, firstOwnDescriptor);
    const int error = errno;
    ::close(descriptor);
    errno = error;
    return lifted;
}

} // namespace orvi::platform
