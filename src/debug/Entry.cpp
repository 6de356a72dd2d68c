#include "DebugApi.h"
#include "LoadedModules.h"
#include "SourcePlace.h"
#include "StackWalk.h"
#include <mutex>

namespace {

using namespace orvi::debug;

constinit std::mutex libraryLock; // libdw and all that is built on it is for one thread at a time
constinit LoadedModules modules;  // under libraryLock

// No destructor: in a namespace of its own, the module's C library never hears that a thread has ended.
struct ThreadData {
    bool isInside;
    SourcePlace place;
};
thread_local constinit ThreadData threadData{};

/** The right to use libdw. Refused to a signal handler that interrupted its own thread in here: it would wait
    for itself. */
class Entry {
public:
    Entry()
        : _isEntered(!threadData.isInside)
    {
        if (!_isEntered)
            return;
        threadData.isInside = true;
        // The first touch of a thread's data takes memory from the program's heap. Nobody shall wait for that
        // under the lock: the heap may be damaged, or locked for good.
        elf_errno();
        dwarf_errno();
        dwfl_errno();
        libraryLock.lock();
    }
    ~Entry()
    {
        if (!_isEntered)
            return;
        libraryLock.unlock();
        threadData.isInside = false;
    }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

    /** Null without the right, and when the modules cannot be listed. */
    Dwfl* modulesNow() const { return _isEntered ? modules.current() : nullptr; }

private:
    bool _isEntered;
};

const char* nullIfEmpty(const char* text) { return *text == '\0' ? nullptr : text; }

} // namespace

size_t orvi_debug_walk(const void* frame, uintptr_t* addresses, size_t capacity)
{
    const Entry entry;
    Dwfl* dwfl = entry.modulesNow();
    ucontext_t here;
    if (dwfl == nullptr || getcontext(&here) != 0)
        return 0;
    return walkStack(dwfl, here, reinterpret_cast<uintptr_t>(frame), addresses, capacity);
}

void orvi_debug_place(uintptr_t address, OrviDebugPlace* place)
{
    *place = {};
    const Entry entry;
    Dwfl* dwfl = entry.modulesNow();
    if (dwfl == nullptr)
        return;
    SourcePlace& found = threadData.place;
    findSourcePlace(dwfl, address - 1,
                    found); // a return address may be the first of the next line or function
    *place = {nullIfEmpty(found.function), nullIfEmpty(found.file), found.line};
}
