#include "DebugApi.h"
#include "base/TextBuffer.h"
#include "modules/LoadedModules.h"
#include "stack/StackVisit.h"
#include "stack/StackWalk.h"
#include "symbols/SourcePlace.h"
#include <clocale>
#include <ctime>
#include <ctype.h>
#include <link.h>
#include <mutex>
#include <span>

namespace {

using namespace orvi::debug;

constinit std::mutex libraryLock; // libdw and all that is built on it is for one thread at a time
constinit LoadedModules modules;  // under libraryLock

// In the block of every thread from its start on: the model sees to that. So it takes no memory on first use.
[[gnu::tls_model("initial-exec")]] thread_local constinit bool isInside = false;

/** Threads that the module's own C library has not made lack its tables of character classes, which printf reads for a
    floating-point number. Only the calls that choose a locale set them. Where the C library is the program's, the
    tables are there, and the thread's locale stays. */
void setUpCharacterClasses()
{
    if (*__ctype_b_loc() == nullptr)
        uselocale(LC_GLOBAL_LOCALE);
}

/** The first touch of the thread's data of libelf and libdw takes memory from the program's heap, which may be damaged
    later, or locked for good. */
void touchThreadData()
{
    setUpCharacterClasses();
    elf_errno();
    dwarf_errno();
    dwfl_errno();
}

struct Heap {
    void* (*allocate)(std::size_t size);
    void (*free)(void* block);
};

/** What the loader will take from the heap for the calling thread, a block for each library. */
class MissingThreadData {
public:
    MissingThreadData()
    {
        dl_iterate_phdr(
            [](dl_phdr_info* library, std::size_t, void* self) {
                const bool isMissing = library->dlpi_tls_modid != 0 && library->dlpi_tls_data == nullptr;
                for (const auto& header :
                     std::span(library->dlpi_phdr, isMissing ? library->dlpi_phnum : 0)) {
                    if (header.p_type == PT_TLS)
                        static_cast<MissingThreadData*>(self)->add(header.p_memsz);
                }
                return 0;
            },
            this);
    }

    /** Whether the heap has it all. Small as the blocks are, the heap keeps for the thread what is given back here. */
    bool fitsInto(const Heap& heap) const
    {
        void* blocks[mostBlocks];
        std::size_t count = 0;
        while (count < _count && (blocks[count] = heap.allocate(_sizes[count])) != nullptr)
            ++count;
        for (void* block : std::span(blocks, count))
            heap.free(block);
        return count == _count;
    }

private:
    void add(std::size_t size)
    {
        if (_count < mostBlocks)
            _sizes[_count++] = size;
    }

    static constexpr std::size_t mostBlocks = 16;

    std::size_t _sizes[mostBlocks];
    std::size_t _count = 0;
};

/** The right to use libdw. Refused to a signal handler that interrupted its own thread in here: it would wait
    for itself. */
class Entry {
public:
    enum class Patience {
        Endless,
        Bounded // for the child of a fork, where nobody may be left to unlock: it goes on without the lock then
    };

    explicit Entry(Patience patience = Patience::Endless)
        : _isEntered(!isInside)
    {
        if (!_isEntered)
            return;
        isInside = true;
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
            isInside = false;
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

int orvi_debug_prepare_thread(void* (*allocate)(size_t size), void (*free)(void* block))
{
    if (!MissingThreadData().fitsInto({allocate, free}))
        return 0; // the loader would end the process
    touchThreadData();
    return 1;
}

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
    static constinit SourcePlace found{}; // not on the stack, which may be small
    TextBuffer function({place->function, place->functionSize});
    TextBuffer file({place->file, place->fileSize});
    place->line = 0;
    const Entry entry;
    Dwfl* dwfl = entry.modulesNow();
    if (dwfl == nullptr)
        return;
    // A return address may be the first of the next line or function.
    findSourcePlace(dwfl, address - 1, found);
    function.append(found.function);
    file.append(found.file);
    place->line = found.line;
}
