#include "platform/base/TimeZone.h"

#include <time.h>

namespace orvi::platform {

// The zone is the program's to set up: tzset here would change it under the feet of other threads.
int secondsWestOfUtc() { return static_cast<int>(::timezone); }

} // namespace orvi::platform
