#pragma once

namespace orvi {

/** Runs one step of a loop and keeps what happens in it from ending the loop: a fault or a thrown object is reported as
    CrashReporter.h tells, what is thrown also in the log. Gives 0, or the code for System::onException. */
unsigned long runGuarded(void (*step)(void*), void* argument);

} // namespace orvi
