#pragma once
#include <cerrno>

namespace orvi::platform {

/** Lets the calling thread's last error survive what happens in a scope: a line in the log, a clean-up, a look-up. */
class KeepLastError {
public:
    KeepLastError() noexcept
        : _error(errno)
    {}
    ~KeepLastError() { errno = _error; }
    KeepLastError(const KeepLastError&) = delete;
    KeepLastError& operator=(const KeepLastError&) = delete;

private:
    const int _error;
};

} // namespace orvi::platform
