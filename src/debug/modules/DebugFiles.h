#pragma once
#include <elfutils/libdwfl.h>

namespace orvi::debug {

/** How libdwfl finds the file of a module and its separate debug file. */
extern const Dwfl_Callbacks debugFileCallbacks;

/** The name under which the kernel's own code is reported. */
inline constexpr char kernelPageName[] = "[vdso]";

} // namespace orvi::debug
