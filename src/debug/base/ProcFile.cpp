#include "ProcFile.h"

#include "OwnFile.h"
#include <cerrno>
#include <cstdio>
#include <unistd.h>

namespace orvi::debug {
namespace {

template <class Read>
std::size_t untilUninterrupted(const Read& read)
{
    ssize_t count;
    do
        count = read();
    while (count < 0 && errno == EINTR);
    return count > 0 ? static_cast<std::size_t>(count) : 0;
}

} // namespace

ProcFile::ProcFile(pid_t task, const char* name, int flags)
{
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/%s", task, name);
    _file = openToRead(path, flags);
}

ProcFile::~ProcFile()
{
    if (isOpen())
        close(_file);
}

std::size_t ProcFile::read(std::span<char> target)
{
    return untilUninterrupted([&] { return ::read(_file, target.data(), target.size()); });
}

std::size_t ProcFile::readAt(std::uint64_t offset, std::span<char> target) const
{
    return untilUninterrupted(
        [&] { return pread(_file, target.data(), target.size(), static_cast<off_t>(offset)); });
}

} // namespace orvi::debug
