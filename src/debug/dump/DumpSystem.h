#pragma once
#include "DumpFile.h"
#include <sys/types.h>

namespace orvi::debug {

/** Adds what the dump tells of the processor, the system and the process as a whole; not its environment, which
    often holds passwords. Signal-safe. */
void addSystem(DumpFile& dump, pid_t process, pid_t task);

} // namespace orvi::debug
