#pragma once
#include "DumpFile.h"
#include <sys/types.h>

namespace orvi::debug {

/** Signal-safe; one call at a time. */
void addModules(DumpFile& dump, pid_t task);

} // namespace orvi::debug
