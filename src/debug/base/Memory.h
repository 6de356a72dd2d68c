#pragma once
#include <cstddef>
#include <cstdint>

namespace orvi::debug {

inline constexpr std::size_t maxReadBytes = 4096;

/** Copies memory of this process that may not be there: false instead of a fault when some of it cannot be
    read. At most `maxReadBytes`. */
bool readMemory(std::uintptr_t address, void* target, std::size_t size);

/** The same without a MemoryCache, and signal-safe on threads that were not prepared: it has no data of theirs. */
bool readMemoryNow(std::uintptr_t address, void* target, std::size_t size);

/** While one lives, `readMemory` remembers the pages that this thread has read: following a stack costs a system
    call a page instead of one a word. One at a time in the process. */
class MemoryCache {
public:
    MemoryCache();
    ~MemoryCache();
    MemoryCache(const MemoryCache&) = delete;
    MemoryCache& operator=(const MemoryCache&) = delete;
};

} // namespace orvi::debug
