#pragma once
#include <orvi/core/Export.h>

#include <functional>

namespace orvi {

/** Hands `closure` to the thread with this id, where a System turns its loop (System::getRunThreadId). There
    it runs once, in the order of posting, one closure a tick and before any task gets its turn; what it
    throws is handled like what a task throws. Closures still waiting when the thread's last loop ends run
    then.

    False, without keeping the closure, when the thread has no loop. Any thread, the run thread itself
    included. A resting loop wakes; one asleep in System::sleep goes on
    sleeping: wake it with System::waken. */
ORVI_API bool postToThread(unsigned long threadId, std::function<void()> closure);

} // namespace orvi
