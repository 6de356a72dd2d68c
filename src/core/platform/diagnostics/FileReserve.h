#pragma once

namespace orvi::platform {

// Descriptors for the moment when the program has none left: a report on a fault needs some.

/** Takes them, once for the process. Fewer, or none, where the program has no more to give. */
void reserveFiles() noexcept;

/** Gives one back, so that the next file can be opened; false when none is left. Signal-safe. */
bool releaseReservedFile() noexcept;

} // namespace orvi::platform
