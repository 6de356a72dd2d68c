#pragma once
#include <cstdint>

namespace orvi::platform {

/** The system's id of the calling thread; never 0. */
unsigned long currentThreadId();

/** The calling thread's stack: [lowest, highest), found once for each thread. */
struct StackBounds {
    std::uintptr_t lowest;
    std::uintptr_t highest;
};
StackBounds currentStackBounds();

} // namespace orvi::platform
