#pragma once

namespace orvi {

/** The code by which System::onException hears of a thrown object. */
inline constexpr unsigned long thrownObjectCode = 0xE06D7363;

/** Runs one step of a loop and keeps what it throws from ending the loop: it is reported in the log. Gives 0,
    or the code for System::onException. */
unsigned long runGuarded(void (*step)(void*), void* argument);

} // namespace orvi
