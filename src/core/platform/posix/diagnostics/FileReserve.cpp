#include "platform/diagnostics/FileReserve.h"
#include "platform/posix/base/DescriptorNumber.h"

#include <atomic>
#include <fcntl.h>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

namespace orvi::platform {
namespace {

constexpr int noReserve = -1;
// The text and the dump are open together; without a child, the dump's writer reads two files more. The rest is for what
// other threads snatch away.
constexpr int reservedFiles = 6;

std::atomic<int> g_reserve[reservedFiles] = {noReserve, noReserve, noReserve,
                                             noReserve, noReserve, noReserve};
struct stat g_pipe {}; // which all of them are ends of

/** A program may have closed what it did not open, and the number may be that of a file of its own now. */
bool isStillOurs(int file)
{
    struct stat present {};
    return fstat(file, &present) == 0 && present.st_dev == g_pipe.st_dev && present.st_ino == g_pipe.st_ino;
}

void fill()
{
    int ends[2]; // a pipe needs no file system, and tells apart what is its own
    if (pipe2(ends, O_CLOEXEC) != 0)
        return;
    if (fstat(ends[0], &g_pipe) == 0) {
        for (auto& place : g_reserve)
            place = fcntl(ends[0], F_DUPFD_CLOEXEC, firstOwnDescriptor);
    }
    close(ends[0]);
    close(ends[1]);
}

/** The library goes. */
[[gnu::destructor]] void releaseAll()
{
    while (releaseReservedFile()) {
    }
}

} // namespace

void reserveFiles() noexcept
{
    static constinit std::once_flag once;
    std::call_once(once, fill);
}

bool releaseReservedFile() noexcept
{
    for (auto& place : g_reserve) {
        const int file = place.exchange(noReserve);
        if (file != noReserve && isStillOurs(file) && close(file) == 0)
            return true;
    }
    return false;
}

} // namespace orvi::platform
