#pragma once
#include <orvi/core/Export.h>

namespace orvi {

/** Makes faults leave a report, in any thread, also what no loop catches: an access to memory that is not there, a division
    by zero, an overflow of the stack, abort, an exception that nobody catches, std::terminate... The process ends as it
    would without. A program calls it once, first thing in main; without it only what happens in the loop of a System is
    reported.

    The first fault of a process writes two files beside the program, "crash@", the local time and ".log" or ".dmp": a
    text for people, with the stack, its variables and the loaded modules, and a minidump for debuggers. It tells so on
    standard error, and asks to send the text to `contact`, or to the program's maker. Where a debugger is at hand, the
    fault is left to it. What is written needs liborvi_debug.so beside the library: without it the files stay empty.

    The files are for their owner's eyes: they hold what was in memory. */
ORVI_API void handled_exception_filter(const char* contact = nullptr);

} // namespace orvi
