#pragma once
#include "platform/diagnostics/FaultGuard.h"

namespace orvi {

/** Writes the report of the process, unless one has been tried before. 1: the fault is handled; 0: it is for a debugger.
    A null fault asks for a report on the caller. */
long crash_exception_filter(const platform::Fault* fault);

/** Lets the faults of guarded steps come to the filter, and gets ready what cannot be got when the heap is broken: for the
    process on the first call, for the calling thread on each. False where that lacks memory, or the debug module: a
    report may then lack its names. */
bool prepareCrashReports() noexcept;

} // namespace orvi
