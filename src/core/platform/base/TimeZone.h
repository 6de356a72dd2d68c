#pragma once

namespace orvi::platform {

/** The standard time of the process's zone, in seconds west of UTC; 0 until the program has set a zone up. */
int secondsWestOfUtc();

} // namespace orvi::platform
