#pragma once
#include <cstdint>

namespace orvi::platform {

/** What reaches a guard, or ends a thread without one. */
struct Fault {
    unsigned long code;     // thrownObject or abnormalEnd below, or that of the signal's cause
    int signal;             // 0 for a thrown object
    int signalCode;         // its cause as the system numbers it
    std::uintptr_t address; // that was used wrongly, where the cause tells one
    const void* registers;  // of the thread at that moment, a ucontext_t
};

inline constexpr unsigned long thrownObject = 0xE06D7363;
inline constexpr unsigned long abnormalEnd = 0x40000015; // std::terminate and abort

/** The code by a signal and its cause: 0xC0000005 for most of SIGSEGV, and so on. */
unsigned long faultCode(int signal, int signalCode);

/** Runs on the thread of the fault: in a signal handler, or below the throw before anything unwinds. True: the guard
    goes on. False: the fault or the object goes its way. */
using FaultFilter = bool (*)(const Fault& fault);

/** Runs one step. A fault of the hardware in it, or an object that leaves it, goes to the filter of guardFaults. If
    that handles it, gives the code, otherwise 0. After a fault nothing of the step is unwound: its destructors do not
    run, its locks stay locked.

    A thrown object is passed to `report`, inside the handler, before it goes; it leaves when the filter declines.
    The innermost guard counts. A signal that somebody sent is no fault. */
unsigned long runInGuard(void (*step)(void*), void* argument, void (*report)());

/** Makes faults reach the guards of the process, from the first call on. `filter` is called once a fault, any thread;
    a fault in it ends it, as if it had said true. */
void guardFaults(FaultFilter filter);

/** Makes the filter hear of what meets no guard too: faults, abort, std::terminate with or without an exception. The
    process then ends as it would have. */
void filterUnguarded();

/** Memory on which the calling thread handles its faults while this lives, so that an overflow of the stack is one. The
    thread keeps a stack for signals that it has already. */
class FaultStack {
public:
    FaultStack() noexcept
        : _memory(provide())
    {}
    ~FaultStack() { remove(_memory); }
    FaultStack(const FaultStack&) = delete;
    FaultStack& operator=(const FaultStack&) = delete;

    /** Null where the thread has one, and where there is no memory. */
    static void* provide() noexcept;
    /** Takes what `provide` gave to the same thread. */
    static void remove(void* memory) noexcept;
    /** Whether the calling thread has one. */
    static bool isThere() noexcept;

private:
    void* _memory;
};

} // namespace orvi::platform
