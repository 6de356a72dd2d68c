#pragma once
#include <cstddef>

namespace orvi::platform {

inline constexpr std::size_t largeBlockBytes = 2u << 20;

/** Tells the system that a block of at least `largeBlockBytes` is about to be filled, so that it may give
    memory in large pages. Only speed depends on it. Any number of threads. */
void prepareLargeBlock(void* block, std::size_t size);

} // namespace orvi::platform
