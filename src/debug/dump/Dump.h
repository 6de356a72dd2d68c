#pragma once
#include "DebugApi.h"
#include <sys/types.h>

namespace orvi::debug {

struct DumpRequest {
    int file;
    pid_t process;
    pid_t thread; // the one of the fault
    OrviDebugFault fault;
};

enum class DumpThreads { All, OfFaultOnly };

/** Writes the dump. For all threads, the caller must be a copy of the process, which may trace it, and must end
    afterwards. False when the dump is not whole. Signal-safe; one call at a time. */
bool writeDump(const DumpRequest& request, DumpThreads which);

} // namespace orvi::debug
