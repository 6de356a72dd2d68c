#pragma once
#include <atomic>
#include <chrono>
#include <memory>

namespace orvi::platform {

class DescriptorSet;

/** Where one thread waits until another has made something due.

    The waiter arms it, then looks at all that could be due, then waits; a wake-up in between ends the wait before it
    begins. Who makes something due publishes it first, under a lock or by a sequentially consistent store, and then wakes.
    So none is lost: if the producer's look at the state comes behind arm(), it sees it and wakes; if it comes before, what
    was published came before the waiter's look, which finds it. To wake a thread that does not wait costs one
    load.

    After a wake the waiter has to arm it anew. One waiter at a time; all but wake() is for the waiter.

    A waiter waits by a futex until it watches a descriptor, or is asked for the one to wait for elsewhere. */
class LoopWait {
public:
    using Time = std::chrono::steady_clock::time_point;
    static constexpr Time never = Time::max();

    LoopWait() noexcept;
    ~LoopWait();
    LoopWait(const LoopWait&) = delete;
    LoopWait& operator=(const LoopWait&) = delete;

    void arm() noexcept { _state.store(armed); }
    /** Blocks until wake(), the deadline, or a watched descriptor is ready; not at all when it has been woken since
        arm(). May end early. */
    void wait(Time deadline) noexcept;
    void wake() noexcept
    {
        if (_state.load() != awake)
            wakeUp();
    }

    // What a descriptor is watched for, and what it is ready for.
    static constexpr unsigned int readable = 1;
    static constexpr unsigned int writable = 2;
    static constexpr unsigned int broken = 4; // an error, or the other side has gone; watched for in any case

    /** Watches a descriptor, or watches it for something else from now on. False when another owner watches the same
        file, and when the system cannot (a file on disc; no descriptors left). Throws std::bad_alloc with nothing changed. */
    bool watch(int descriptor, unsigned int readiness, void* owner);
    /** Also for one that was closed meanwhile, whoever has the number now. */
    void unwatch(int descriptor, const void* owner) noexcept;
    /** Tells which are ready now. */
    void takeReady(void (*tell)(void* owner, unsigned int readiness)) noexcept
    {
        if (_descriptors != nullptr)
            tellReady(tell);
    }

    /** For a waiter that waits elsewhere: a descriptor that becomes readable when wait() would end, behind expose() and
        until takeReady(). -1 when the system has none left. */
    int descriptor() noexcept;
    /** In the place of wait(); false when it has been woken since arm(). There must be a descriptor. */
    bool expose() noexcept;
    /** The waiter itself has made something due since. */
    void recall() noexcept
    {
        if (_isExposed)
            wake();
    }

private:
    enum State : unsigned int { awake, armed, waiting, polling };

    bool prepareDescriptors();
    void tellReady(void (*tell)(void* owner, unsigned int readiness)) noexcept;
    void wakeUp() noexcept;

    std::atomic<unsigned int> _state = awake;
    std::unique_ptr<DescriptorSet> _descriptors; // from the first use on
    bool _isExposed = false;                     // since the last look
};

/** While it lives, the calling thread wakes others only at its end: make it before the lock under which they are woken, which
    they would run into otherwise. Nothing may block in between. */
class WakeLater {
public:
    WakeLater() noexcept;
    ~WakeLater();
    WakeLater(const WakeLater&) = delete;
    WakeLater& operator=(const WakeLater&) = delete;

    /** Behind a fault, which leaves places on the stack without their ends. */
    static void forget() noexcept;

private:
    friend class LoopWait;

    static bool take(const void* place) noexcept;

    WakeLater* const _outer;
    const void* _places[4] = {}; // that wait; they may be gone by then, which the system does not mind
    int _count = 0;
};

} // namespace orvi::platform
