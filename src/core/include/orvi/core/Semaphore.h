#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/Unknown.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace orvi {

/** Counts signals given and not yet taken: a run loop sleeps on one, threads hand over to each other with it.
    Any number of threads may signal and wait; which waiter gets a signal is open. */
class ORVI_API Semaphore : public virtual Unknown {
public:
    static constexpr unsigned int endless = 0xFFFFFFFF;

    static Unknown::Handle_T<Semaphore> createInstance();

    /** Adds one signal. */
    void signal();
    /** Takes one signal, or all of them with `clearAll`. False when `timeoutMs` milliseconds ran out; 0 does
        not block, 0xFFFFFFFF waits without a limit. A waiter that another one beat to a signal waits anew. */
    bool wait(unsigned int timeoutMs, bool clearAll);
    /** Blocks until at most `level` signals are left; without a time limit. */
    void sync(int level);

protected:
    Semaphore() = default;
    ~Semaphore() override = default;

private:
    std::mutex _mutex; // held for a few instructions, never across a wait
    std::condition_variable _signalled;
    std::condition_variable _consumed;
    int _count = 0;
    std::uint64_t _signals = 0; // given so far
};

} // namespace orvi
