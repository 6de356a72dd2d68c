#pragma once
#include "platform/diagnostics/FaultGuard.h"

#include <csignal>

namespace orvi::platform {

/** The faults of the hardware, and abort. */
inline constexpr int handledSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT};

/** A guard that is under way, on its thread's chain of them. */
struct GuardRecord {
    std::uintptr_t place[2]; // where the trampoline stands: its stack and frame pointer
    GuardRecord* outer;
    unsigned long code; // of what has been handled
    bool isFiltering;
    bool declined;
};

// Read by the signal handler: the model makes that a plain load, without a function that might take memory.
[[gnu::tls_model("initial-exec")]] extern thread_local constinit GuardRecord* t_guard;

/** Calls the filter; true without one. */
bool filterFault(const Fault& fault);

} // namespace orvi::platform
