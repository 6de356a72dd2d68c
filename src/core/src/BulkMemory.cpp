#include <orvi/core/String.h>

#include <atomic>
#include <cstring>

namespace orvi {

namespace {

// The C library chooses its routines by the features of the processor when it is loaded, wider ones than we
// would write: choosing the same way here means handing over to it.
void* copy(void* target, const void* source, unsigned int size) { return std::memcpy(target, source, size); }

void* fill(void* target, int value, unsigned int size) { return std::memset(target, value, size); }

void* resolveCopy(void* target, const void* source, unsigned int size)
{
    std::atomic_ref(__memcpy__).store(copy, std::memory_order_relaxed);
    return copy(target, source, size);
}

void* resolveFill(void* target, int value, unsigned int size)
{
    std::atomic_ref(__memset__).store(fill, std::memory_order_relaxed);
    return fill(target, value, size);
}

} // namespace

void* (*__memcpy__)(void*, const void*, unsigned int) = resolveCopy;
void* (*__memset__)(void*, int, unsigned int) = resolveFill;

} // namespace orvi
