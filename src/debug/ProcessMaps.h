#pragma once
#include <elfutils/libdwfl.h>

namespace orvi::debug {

/** Reports every module in /proc/self/maps, without opening its file. False when the maps cannot be read.

    Stands in for dwfl_linux_proc_report, which takes two loads of the same file that lie side by side for
    one: that happens to the C library of a second namespace. */
bool reportMappedModules(Dwfl* dwfl);

} // namespace orvi::debug
