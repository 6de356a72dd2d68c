#pragma once
#include "base/Deadline.h"
#include <cstddef>
#include <span>
#include <sys/types.h>
#include <sys/user.h>

namespace orvi::debug {

/** Stops the threads of another process. They go on by themselves when this process ends, in whatever way.
    For static storage. Signal-safe. */
class StoppedThreads {
public:
    constexpr StoppedThreads() = default;
    StoppedThreads(const StoppedThreads&) = delete;
    StoppedThreads& operator=(const StoppedThreads&) = delete;

    /** Leaves `task` alone, a thread of the process, and those that cannot be stopped in time: a thread may be deep in
        the kernel, or have a debugger already. */
    void stopOthers(pid_t task);

    struct Thread {
        pid_t id = 0;
        enum class State { Running, Stopped, Gone } state = State::Running;

        bool readRegisters(user_regs_struct& general, user_fpregs_struct& floatingPoint) const;
    };
    std::span<const Thread> threads() const { return {_threads, _count}; }

private:
    bool seizeNew(pid_t task);
    void seize(pid_t id);
    void awaitStops(const Deadline& deadline);

    static constexpr std::size_t maxThreads = 4096;
    Thread _threads[maxThreads]{};
    std::size_t _count = 0;
};

} // namespace orvi::debug
