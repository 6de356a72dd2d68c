#pragma once

namespace orvi {

/** Runs one step of a loop and keeps what happens in it from ending the loop: a fault or an exception leaves a crash
    report, an exception a line in the log too. Gives 0, or the code for System::onException. */
unsigned long runGuarded(void (*step)(void*), void* argument);

} // namespace orvi
