#include <orvi/core/String.h>

#include <cstring>

namespace orvi {

namespace {

// The C library chooses its routines by the features of the processor when it is loaded, wider ones than we
// would write: choosing the same way here means handing over to it.
void* copy(void* target, const void* source, unsigned int size) { return std::memcpy(target, source, size); }

void* fill(void* target, int value, unsigned int size) { return std::memset(target, value, size); }

void* resolveCopy(void* target, const void* source, unsigned int size)
{
    __memcpy__ = copy;
    return copy(target, source, size);
}

void* resolveFill(void* target, int value, unsigned int size)
{
    __memset__ = fill;
    return fill(target, value, size);
}

} // namespace

void* (*__memcpy__)(void*, const void*, unsigned int) = resolveCopy;
void* (*__memset__)(void*, int, unsigned int) = resolveFill;

namespace {

/** Makes the first calls, so that threads never do and only read the pointers. */
bool resolve()
{
    char byte = 0;
    const char source = 0;
    __memcpy__(&byte, &source, 1);
    __memset__(&byte, 0, 1);
    return true;
}

const bool g_resolved = resolve();

} // namespace

} // namespace orvi
