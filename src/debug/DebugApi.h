#pragma once
#include <stddef.h>
#include <stdint.h>

/* What crosses the border between liborvi_core.so and liborvi_debug.so. The two may have separate C libraries
   and heaps: so plain C, no exception, no memory that changes hands. Every function works on any thread, and
   gives nothing at all when it is called by a signal handler that interrupted one of them. */

#ifdef __cplusplus
extern "C" {
#endif

/** The texts belong to the module and live until the calling thread's next question. Null or 0: not known. */
struct OrviDebugPlace {
    const char* function; /* demangled */
    const char* file;     /* as the compiler recorded it */
    int line;
};

/** Stores the return addresses of the calling thread's stack, innermost first, beginning with that of the
    function whose frame address is `frame`; gives their number, at most `capacity`. */
__attribute__((visibility("default"))) size_t orvi_debug_walk(const void* frame, uintptr_t* addresses,
                                                              size_t capacity);

/** Looks up the call that returns to `address`. */
__attribute__((visibility("default"))) void orvi_debug_place(uintptr_t address, struct OrviDebugPlace* place);

#ifdef __cplusplus
}
#endif
