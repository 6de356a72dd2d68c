#pragma once
#include <atomic>
#include <chrono>

namespace orvi::platform {

/** Where one thread waits until another has made something due.

    The waiter arms it, then looks at all that could be due, then waits; a wake-up in between ends the wait before it
    begins. Who makes something due publishes it first, under a lock or by a sequentially consistent store, and then wakes.
    So none is lost: if the producer's look at the state comes behind arm(), it sees it and wakes; if it comes before, what
    was published came before the waiter's look, which finds it. To wake a thread that does not wait costs one
    load.

    After a wake the waiter has to arm it anew. One waiter at a time; any thread may wake. */
class LoopWait {
public:
    using Time = std::chrono::steady_clock::time_point;
    static constexpr Time never = Time::max();

    LoopWait() = default;
    LoopWait(const LoopWait&) = delete;
    LoopWait& operator=(const LoopWait&) = delete;

    void arm() noexcept { _state.store(armed); }
    /** Blocks until wake() or the deadline; not at all when it has been woken since arm(). May end early. */
    void wait(Time deadline) noexcept;
    void wake() noexcept
    {
        if (_state.load() != awake)
            wakeUp();
    }

private:
    enum State : unsigned int { awake, armed, waiting };

    void wakeUp() noexcept;

    std::atomic<unsigned int> _state = awake;
};

} // namespace orvi::platform
