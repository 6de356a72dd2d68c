#pragma once
#include <orvi/core/Export.h>

#include <mutex>

namespace orvi {

/** A lock inside one process. The thread that holds it may lock it again and unlocks it as often. It waits
    without a limit. */
class Mutex {
public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() { _mutex.lock(); }
    void unlock() { _mutex.unlock(); }

private:
    std::recursive_mutex _mutex;
};

/** Holds a Mutex for a scope, also when an exception passes through. */
class [[nodiscard]] MutexGuard {
public:
    explicit MutexGuard(Mutex& mutex)
        : _mutex(mutex)
    {
        _mutex.lock();
    }
    ~MutexGuard() { _mutex.unlock(); }
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;

private:
    Mutex& _mutex;
};

} // namespace orvi
