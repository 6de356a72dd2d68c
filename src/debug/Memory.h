#pragma once
#include <cstddef>
#include <cstdint>

namespace orvi::debug {

inline constexpr std::size_t maxReadBytes = 4096;

/** Copies memory of this process that may not be there: false instead of a fault when some of it cannot be
    read. At most `maxReadBytes`. */
bool readMemory(std::uintptr_t address, void* target, std::size_t size);

} // namespace orvi::debug
