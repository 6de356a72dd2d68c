#pragma once
#include <cstddef>
#include <cstdint>

namespace orvi::platform {

/** Where an address of this process comes from. The texts belong to the debug module and live until the
    calling thread's next question. Null or 0: not known. */
struct SourcePlace {
    const char* function; // demangled
    const char* file;
    int line;
};

/** liborvi_debug.so, which lies beside the library and is bound at run time by name: the library works
    without it.

    Loaded on first use and never unloaded. Any number of threads. */
class DebugModule {
public:
    /** The names of the entry points, in the order in which they are bound. */
    static constexpr const char* entryPointNames[] = {"orvi_debug_walk", "orvi_debug_place"};

    /** False when the module could not be loaded at all. */
    static bool isLoaded();
    /** False when the module lacks this entry point, by its index in `entryPointNames`. */
    static bool hasEntryPoint(std::size_t index);

    /** Stores the return addresses of the calling thread's stack, innermost first, beginning with this
        function's own; gives their number, at most `capacity`. 0 without the module.

        A signal handler's list goes on into the code that it interrupted, which is given by its next
        instruction plus 1: `place` is right for it, too. */
    static std::size_t walk(std::uintptr_t* addresses, std::size_t capacity);

    /** Where the call that returns to `address` stands. */
    static SourcePlace place(std::uintptr_t address);
};

} // namespace orvi::platform
