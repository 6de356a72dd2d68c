#pragma once
#include <cstddef>

namespace orvi::platform {

/** Writes the system's text for the error `code` as UTF-8 to `target`, terminated, cut to `capacity` bytes.
    The empty text for a code that the system does not know. Does not change errno. Any number of threads. */
void errorText(int code, char* target, std::size_t capacity);

/** The calling thread's last error code (errno). */
int lastError();

} // namespace orvi::platform
