#pragma once

namespace orvi::platform {

/** Has the three called at every fork() of the process from now on, by the thread that forks: `before` it, and
    behind it in both processes. False when that cannot be. A process that is copied by other means, such
    as _Fork(), calls none of them: there currentProcessId() shows it. */
bool watchForks(void (*before)(), void (*inParent)(), void (*inChild)());

} // namespace orvi::platform
