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

/** Gets a thread of the program's own ready for reports, from here to the end of the scope. Without it most of its faults
    are reported all the same, but none where its stack is full, and those in the heap may have no names: what a report needs
    of the thread must be taken before. The thread that called handled_exception_filter is ready, and so is one that runs a
    System, while it runs.

        std::thread([] {
            const orvi::CrashReportScope reports;
            work();
        });

    Made and destroyed on the same thread, best first thing and last. Scopes may be nested. A stack for signals that
    the thread has already stays in use. */
class ORVI_API CrashReportScope {
public:
    CrashReportScope() noexcept;
    ~CrashReportScope();
    CrashReportScope(const CrashReportScope&) = delete;
    CrashReportScope& operator=(const CrashReportScope&) = delete;

    /** False where memory or the debug module is missing: a report may then lack what is promised above. */
    bool isReady() const noexcept { return _isReady; }

private:
    void* _faultStack; // null where the thread has had one
    bool _isReady;
};

} // namespace orvi
