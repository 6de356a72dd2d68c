#pragma once
#include <cstddef>
#include <cstdint>

namespace orvi::platform {

/** Where an address of this process comes from, each text cut where its room ends. Empty or 0: not known. */
struct SourcePlace {
    char function[2048]; // demangled
    char file[4096];
    int line;
};

/** One function on a stack; of those that were inlined into one another, each is one. */
struct StackFrame {
    std::uintptr_t address;
    const char* function; // without its parameters; null when it is not known, as the file is
    const char* file;
    int line;
};

/** Receives a stack: innermost frame first, behind each its parameters, their end, and its local variables. Values are
    texts. */
class StackVisitor {
public:
    virtual void frame(const StackFrame&) {}
    virtual void parameter(const char* /*name*/, const char* /*value*/) {}
    virtual void parametersEnd() {}
    virtual void variable(const char* /*name*/, const char* /*value*/) {}

protected:
    ~StackVisitor() = default;
};

struct LoadedModule {
    const char* path;
    std::uintptr_t base;
    std::size_t size;
    unsigned int version[4];
};

struct Fault;

/** liborvi_debug.so, which lies beside the library and is bound at run time by name: the library works
    without it.

    Loaded on first use and never unloaded. Any number of threads. */
class DebugModule {
public:
    /** The names of the entry points, in the order in which they are bound. */
    static constexpr const char* entryPointNames[] = {"orvi_debug_walk",        "orvi_debug_place",
                                                      "orvi_debug_visit_stack", "orvi_debug_visit_modules",
                                                      "orvi_debug_write_dump",  "orvi_debug_prepare_thread"};

    /** False when the module could not be loaded at all. */
    static bool isLoaded();
    /** False when the module lacks this entry point, by its index in `entryPointNames`. */
    static bool hasEntryPoint(std::size_t index);

    /** Stores the return addresses of the calling thread's stack, innermost first, beginning with this
        function's own; gives their number, at most `capacity`. 0 without the module or memory.

        A signal handler's list goes on into the code that it interrupted, which is given by its next
        instruction plus 1: `findPlace` is right for it, too. */
    static std::size_t walk(std::uintptr_t* addresses, std::size_t capacity);

    /** Tells where the call that returns to `address` stands. */
    static void findPlace(std::uintptr_t address, SourcePlace& place);

    // For reports on a fault, also where the program's heap is damaged or locked, if the module was loaded and the thread
    // got ready before.

    /** Loads the module, and gets the calling thread ready to be one with a fault. False without the module, and where
        memory is short; a report on this thread may then lack its names. */
    static bool prepareThread();
    /** Whether the module has all that a report needs. */
    static bool canReport();
    /** Walks the calling thread's stack from the registers on, a ucontext_t. */
    static void visitStack(const void* registers, std::size_t maxFrames, StackVisitor& visitor);
    static void visitModules(void (*visit)(void* context, const LoadedModule& module), void* context);
    /** Writes a minidump to an empty file that may be read too; `fault` may be null. False when it is not whole. */
    static bool writeDump(int file, const Fault* fault);
};

} // namespace orvi::platform
