#pragma once

namespace orvi {

/** When this library was configured to be built, as "Mon Jun 27 09:58:45 2022", in UTC. */
const wchar_t* buildTimestamp();

} // namespace orvi
