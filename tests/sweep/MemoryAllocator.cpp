#include "MemorySweep.h"

#include <cerrno>
#include <cstdlib>
#include <new>

#include <elf.h>
#include <sys/auxv.h>

#if defined SWEEP_SANITIZED
#define WAY_THROUGH(name) __interceptor_##name
#else
#define WAY_THROUGH(name) __libc_##name
#endif

extern "C" {
void* WAY_THROUGH(malloc)(std::size_t);
void* WAY_THROUGH(calloc)(std::size_t, std::size_t);
void* WAY_THROUGH(realloc)(void*, std::size_t);
void WAY_THROUGH(free)(void*);
}

namespace sweep {

namespace {

std::atomic<bool> armed = false;
std::atomic<bool> failed = false;
std::atomic<long> counted = 0;
std::atomic<long> live = 0;
std::atomic<long> first = 0;
bool allLater = false;

bool isLoader(const void* code) noexcept
{
    const auto base = getauxval(AT_BASE);
    const auto* const file = reinterpret_cast<const Elf64_Ehdr*>(base);
    const auto* const segments = reinterpret_cast<const Elf64_Phdr*>(base + file->e_phoff);
    for (int i = 0; i < file->e_phnum; ++i) {
        const auto offset = reinterpret_cast<std::uintptr_t>(code) - base - segments[i].p_vaddr;
        if (segments[i].p_type == PT_LOAD && offset < segments[i].p_memsz)
            return true;
    }
    return false;
}

/** The blocks that a thread has been given last, and which of them it has given back.

    Where the loader has no memory for a thread's data of a module it ends the process. Nobody can answer that, so that
    whoever is about to touch such data asks for as much beforehand, and gives it back. The heap keeps that for the
    thread: it is not refused to the loader then. */
class Recent {
public:
    void add(const void* block, std::size_t size) noexcept
    {
        _rows[_next++ % rowCount] = {block, size, false};
    }
    void giveBack(const void* block) noexcept
    {
        for (Row& row : _rows) {
            if (row.block == block && block != nullptr)
                row.isFree = true;
        }
    }
    /** Whether it has given back a block of this size; it counts once. */
    bool take(std::size_t size) noexcept
    {
        for (Row& row : _rows) {
            if (row.isFree && row.size == size) {
                row.isFree = false;
                return true;
            }
        }
        return false;
    }

private:
    struct Row {
        const void* block;
        std::size_t size;
        bool isFree;
    };
    static constexpr unsigned int rowCount = 32;

    Row _rows[rowCount] = {};
    unsigned int _next = 0;
};
constinit thread_local Recent recent;

bool refuses(std::size_t size = 0, const void* caller = nullptr) noexcept
{
    if (!armed.load(std::memory_order_acquire))
        return false;
    const long number = counted.fetch_add(1) + 1;
    const long failing = first;
    if (number != failing && !(allLater && failing != 0 && number > failing))
        return false;
    if (caller != nullptr && isLoader(caller) && recent.take(size)) {
        if (number == failing)
            first = number + 1;
        return false;
    }
    failed = true;
    errno = ENOMEM;
    return true;
}

void* count(void* block) noexcept
{
    live.fetch_add(block != nullptr ? 1 : 0, std::memory_order_relaxed);
    return block;
}

void* get(std::size_t size, const void* caller = nullptr) noexcept
{
    if (refuses(size, caller))
        return nullptr;
    void* const block = count(WAY_THROUGH(malloc)(size));
    recent.add(block, size);
    return block;
}

void giveBack(void* block) noexcept
{
    live.fetch_sub(block != nullptr ? 1 : 0, std::memory_order_relaxed);
    recent.giveBack(block);
    WAY_THROUGH(free)(block);
}

} // namespace

void Allocator::arm(long failAt, bool andAllLater) noexcept
{
    first = failAt;
    allLater = andAllLater;
    counted = 0;
    failed = false;
    armed.store(true, std::memory_order_release);
}

long Allocator::disarm() noexcept
{
    armed = false;
    return counted;
}

bool Allocator::hasFailed() noexcept { return failed; }
long Allocator::liveBlocks() noexcept { return live; }

} // namespace sweep

using namespace sweep;

#pragma GCC visibility push(default)

extern "C" {
void* malloc(std::size_t size) noexcept { return get(size, __builtin_return_address(0)); }
void free(void* block) noexcept { giveBack(block); }
void* calloc(std::size_t count, std::size_t size) noexcept
{
    return refuses() ? nullptr : sweep::count(WAY_THROUGH(calloc)(count, size));
}
void* realloc(void* block, std::size_t size) noexcept
{
    if (block == nullptr)
        return get(size);
    if (size != 0)
        return refuses() ? nullptr : WAY_THROUGH(realloc)(block, size);
    giveBack(block);
    return nullptr;
}
} // extern "C"

// The system's operators come by malloc, a sanitizer's do not.
#if defined SWEEP_SANITIZED
void* operator new(std::size_t size)
{
    void* const block = get(size);
    return block != nullptr ? block : throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return get(size); }
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return get(size); }
void operator delete(void* block) noexcept { giveBack(block); }
void operator delete[](void* block) noexcept { giveBack(block); }
void operator delete(void* block, std::size_t) noexcept { giveBack(block); }
void operator delete[](void* block, std::size_t) noexcept { giveBack(block); }
#endif
