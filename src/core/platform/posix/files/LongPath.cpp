#include "LongPath.h"

#include "platform/posix/base/DescriptorNumber.h"

#include <cerrno>
#include <unistd.h>

namespace orvi::platform {

LongPath::LongPath(const char* path)
    : _rest(path)
{
    while (std::strlen(_rest) >= PATH_MAX) {
        if (!advance())
            return;
    }
    if (*_rest == 0) // there were only slashes left
        _rest = ".";
    _reached = true;
}

LongPath::~LongPath()
{
    if (_directory != AT_FDCWD)
        ::close(_directory);
}

/** Goes on by the longest piece that the system takes. */
bool LongPath::advance()
{
    const auto* slash = static_cast<const char*>(memrchr(_rest, '/', PATH_MAX - 1));
    if (slash == nullptr || slash == _rest) {
        errno = ENAMETOOLONG;
        return false;
    }
    char piece[PATH_MAX];
    const auto size = static_cast<std::size_t>(slash - _rest);
    std::memcpy(piece, _rest, size);
    piece[size] = 0;
    // O_PATH asks for the right to pass, not to read.
    const int next = aboveStandardStreams(::openat(_directory, piece, O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (next < 0)
        return false;
    if (_directory != AT_FDCWD)
        ::close(_directory);
    _directory = next;
    for (_rest = slash; *_rest == '/';)
        ++_rest;
    return true;
}

} // namespace orvi::platform
