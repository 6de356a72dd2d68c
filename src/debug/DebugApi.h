#pragma once
#include <stddef.h>
#include <stdint.h>
#include <ucontext.h>

/* What crosses the border between liborvi_core.so and liborvi_debug.so. The two may have separate C libraries
   and heaps: so plain C, no exception, no memory that changes hands. Every function works on any thread, and
   gives nothing at all when it is called by a signal handler that interrupted one of them. */

#ifdef __cplusplus
extern "C" {
#endif

/** Room for texts, which are cut where it ends. Empty or 0: not known. */
struct OrviDebugPlace {
    char* function; /* demangled */
    size_t functionSize;
    char* file; /* as the compiler recorded it */
    size_t fileSize;
    int line;
};

/** Gets ready what the calling thread needs in here, so that later calls take no memory from the program's heap, which
    `allocate` and `free` stand for. Gives 1, or 0 when that has none left: nothing in here may be called on this thread
    then, but in a child of the process. */
__attribute__((visibility("default"))) int orvi_debug_prepare_thread(void* (*allocate)(size_t size),
                                                                     void (*free)(void* block));

/** Stores the return addresses of the calling thread's stack, innermost first, beginning with that of the
    function whose frame address is `frame`; gives their number, at most `capacity`. */
__attribute__((visibility("default"))) size_t orvi_debug_walk(const void* frame, uintptr_t* addresses,
                                                              size_t capacity);

/** Looks up the call that returns to `address`. */
__attribute__((visibility("default"))) void orvi_debug_place(uintptr_t address, struct OrviDebugPlace* place);

struct OrviDebugFrame {
    uintptr_t address;    /* of the next instruction */
    const char* function; /* demangled; null when it is not known, as the file is */
    const char* file;
    int line;
};

/** Receives a stack, innermost frame first: each frame, its parameters, their end, its local variables. Values are
    texts, "<optimized out>" where the compiler kept none. Functions are named without their parameters; those that
    were inlined have frames of their own. The texts live until the callback returns. */
struct OrviDebugStackVisitor {
    void* context;
    void (*frame)(void* context, const struct OrviDebugFrame* frame);
    void (*parameter)(void* context, const char* name, const char* value);
    void (*parametersEnd)(void* context);
    void (*variable)(void* context, const char* name, const char* value);
};

/** Walks at most `maxFrames` of the calling thread's stack from `registers` on. It may be damaged in any way. */
__attribute__((visibility("default"))) void
orvi_debug_visit_stack(const ucontext_t* registers, size_t maxFrames,
                       const struct OrviDebugStackVisitor* visitor);

struct OrviDebugModule {
    const char* path;
    uintptr_t base;
    size_t size;
    unsigned int version[4]; /* of a file that is called libname.so.1.2.3 */
};

/** Lists the program, the libraries and the kernel's page that are loaded, in the order of their addresses. */
__attribute__((visibility("default"))) void
orvi_debug_visit_modules(void (*visit)(void* context, const struct OrviDebugModule* module), void* context);

/** What stopped a thread. */
struct OrviDebugFault {
    int signal; /* 0 for none */
    int code;   /* si_code */
    uintptr_t address;
    const ucontext_t* registers; /* null: those of the caller */
};

/** Writes a minidump of the process to an open, empty file: all threads, with the calling one as that of the fault.
    `fault` may be null. Gives 1, or 0 when the dump is not whole. */
__attribute__((visibility("default"))) int orvi_debug_write_dump(int file,
                                                                 const struct OrviDebugFault* fault);

#ifdef __cplusplus
}
#endif
