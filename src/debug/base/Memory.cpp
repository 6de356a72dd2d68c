#include "Memory.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <sys/uio.h>
#include <unistd.h>

namespace orvi::debug {
namespace {

// The kernel copies, and answers a bad address with EFAULT. Needs no permission, but two descriptors.
bool readThroughPipe(std::uintptr_t address, void* target, std::size_t size)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return false;
    const auto wanted = static_cast<ssize_t>(size);
    const bool read = ::write(ends[1], reinterpret_cast<const void*>(address), size) == wanted &&
                      ::read(ends[0], target, size) == wanted;
    close(ends[0]);
    close(ends[1]);
    return read;
}

} // namespace

bool readMemoryNow(std::uintptr_t address, void* target, std::size_t size)
{
    const iovec to{target, size};
    const iovec from{reinterpret_cast<void*>(address), size};
    // The main thread may have ended: the process's id then stands for no memory.
    const ssize_t count = process_vm_readv(gettid(), &to, 1, &from, 1, 0);
    // A container's system call filter may refuse the call itself.
    if (count < 0 && (errno == ENOSYS || errno == EPERM))
        return readThroughPipe(address, target, size);
    return count == static_cast<ssize_t>(size); // it stops short at a page that is not there
}

namespace {

struct Page {
    std::uintptr_t address;
    std::byte bytes[4096];
};

// Not on the stack: a signal handler's may be small.
constinit Page pages[8]{};
constinit std::size_t pageCount = 0; // read so far, the last of them are there
[[gnu::tls_model("initial-exec")]] thread_local constinit bool isRemembering = false;

const Page* findPage(std::uintptr_t address)
{
    for (std::size_t i = 0; i < std::min(pageCount, std::size(pages)); ++i)
        if (pages[i].address == address)
            return &pages[i];
    Page& page = pages[pageCount % std::size(pages)];
    page.address = 1; // of no page, should the read fail
    if (!readMemoryNow(address, page.bytes, sizeof page.bytes))
        return nullptr;
    page.address = address;
    ++pageCount;
    return &page;
}

bool readRemembered(std::uintptr_t address, void* target, std::size_t size)
{
    auto* to = static_cast<std::byte*>(target);
    while (size > 0) {
        const std::size_t offset = address % sizeof Page::bytes;
        const std::size_t part = std::min(size, sizeof Page::bytes - offset);
        const Page* page = findPage(address - offset);
        if (page == nullptr)
            return false;
        std::memcpy(to, page->bytes + offset, part);
        address += part;
        to += part;
        size -= part;
    }
    return true;
}

} // namespace

bool readMemory(std::uintptr_t address, void* target, std::size_t size)
{
    if (size > maxReadBytes)
        return false;
    return isRemembering ? readRemembered(address, target, size) : readMemoryNow(address, target, size);
}

MemoryCache::MemoryCache()
{
    pageCount = 0;
    isRemembering = true;
}

MemoryCache::~MemoryCache() { isRemembering = false; }

} // namespace orvi::debug
