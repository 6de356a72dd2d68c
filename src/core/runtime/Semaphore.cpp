#include <orvi/core/Semaphore.h>

#include <chrono>
#include <limits>

namespace orvi {

Unknown::Handle_T<Semaphore> Semaphore::createInstance() { return new Semaphore; }

// Every change notifies with the lock held: the thread that it wakes may drop the last handle as soon as it
// gets on.

void Semaphore::signal()
{
    const std::lock_guard guard(_mutex);
    if (_count < std::numeric_limits<int>::max())
        ++_count;
    ++_signals;
    // One is enough: each signal wakes one more sleeper, and whoever is awake looks at the count before it
    // sleeps.
    _signalled.notify_one();
}

bool Semaphore::wait(unsigned int timeoutMs, bool clearAll)
{
    std::unique_lock guard(_mutex);
    while (_count < 1) {
        if (timeoutMs == 0)
            return false;
        // A signal ends this pass, also one that another thread takes; a wake-up for no reason does not.
        const auto signalled = [this, before = _signals] { return _signals != before; };
        if (timeoutMs == endless)
            _signalled.wait(guard, signalled);
        else if (!_signalled.wait_for(guard, std::chrono::milliseconds(timeoutMs), signalled))
            return false;
    }
    if (clearAll)
        _count = 0;
    else
        --_count;
    _consumed.notify_all(); // those in sync wait for different levels
    return true;
}

void Semaphore::sync(int level)
{
    std::unique_lock guard(_mutex);
    _consumed.wait(guard, [this, level] { return _count <= level; });
}

} // namespace orvi
