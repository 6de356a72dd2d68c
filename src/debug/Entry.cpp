#include "DebugApi.h"
#include "LoadedModules.h"
#include "SourcePlace.h"
#include "StackVisit.h"
#include "StackWalk.h"
#include <clocale>
#include <ctime>
#include <ctype.h>
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

/** Threads that the module's own C library has not made lack its tables of character classes, which printf reads for a
    floating-point number. Only the calls that choose a locale set them. Where the C library is the program's, the
    tables are there, and the thread's locale stays. */
void setUpCharacterClasses()
{
    if (*__ctype_b_loc() == nullptr)
        uselocale(LC_GLOBAL_LOCALE);
}

/** The first touch of a thread's data takes memory from the program's heap, which may be damaged later, or locked for
    good. */
void touchThreadData()
{
    setUpCharacterClasses();
    const volatile bool isInside = threadData.isInside;
    static_cast<void>(isInside);
    elf_errno();
    dwarf_errno();
    dwfl_errno();
}

/** The right to use libdw. Refused to a signal handler that interrupted its own thread in here: it would wait
    for itself. */
class Entry {
public:
    enum class Patience {
        Endless,
        Bounded // for the child of a fork, where nobody may be left to unlock: it goes on without the lock then
    };

    explicit Entry(Patience patience = Patience::Endless)
        : _isEntered(!threadData.isInside)
    {
        if (!_isEntered)
            return;
        threadData.isInside = true;
        touchThreadData(); // nobody shall wait for that under the lock
        if (patience == Patience::Bounded) {
            _isLocked = tryToLock();
        } else {
            libraryLock.lock();
            _isLocked = true;
        }
    }
    ~Entry()
    {
        if (_isLocked)
            libraryLock.unlock();
        if (_isEntered)
            threadData.isInside = false;
    }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

    /** Null without the right, and when the modules cannot be listed. */
    Dwfl* modulesNow() const { return _isEntered ? modules.current() : nullptr; }

private:
    static bool tryToLock()
    {
        constexpr int mostMillis = 500;
        for (int waited = 0; waited < mostMillis; ++waited) {
            if (libraryLock.try_lock())
                return true;
            const timespec millisecond{0, 1000000};
            nanosleep(&millisecond, nullptr);
        }
        return false;
    }

    bool _isEntered;
    bool _isLocked = false;
};

} // namespace

void orvi_debug_prepare_thread() { touchThreadData(); }

size_t orvi_debug_walk(const void* frame, uintptr_t* addresses, size_t capacity)
{
    const Entry entry;
    Dwfl* dwfl = entry.modulesNow();
    ucontext_t here;
    if (dwfl == nullptr || getcontext(&here) != 0)
        return 0;
    return walkStack(dwfl, here, reinterpret_cast<uintptr_t>(frame), addresses, capacity);
}

void orvi_debug_visit_stack(const ucontext_t* registers, size_t maxFrames,
                            const OrviDebugStackVisitor* visitor)
{
    const Entry entry(Entry::Patience::Bounded);
    if (Dwfl* dwfl = entry.modulesNow())
        visitStack(dwfl, *registers, maxFrames, *visitor);
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
