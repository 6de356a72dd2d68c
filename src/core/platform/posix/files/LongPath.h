#pragma once
#include <climits>
#include <cstring>
#include <fcntl.h>

namespace orvi::platform {

/** The way along a path that is too long for the system: it takes no more than PATH_MAX bytes at once, the
    NUL included, but directories nest deeper. Opens the directories on the way, a piece at a time. */
class LongPath {
public:
    /** Borrows the path. */
    explicit LongPath(const char* path);
    ~LongPath();
    LongPath(const LongPath&) = delete;
    LongPath& operator=(const LongPath&) = delete;

    /** Whether the last piece is reached; otherwise errno tells why not. */
    bool isReached() const { return _reached; }
    /** The directory that the last piece starts from. */
    int directory() const { return _directory; }
    const char* rest() const { return _rest; }

private:
    bool advance();

    int _directory = AT_FDCWD;
    const char* _rest;
    bool _reached = false;
};

/** The result of `call(directory, path)`, which is one of the system's calls with "at" in the name; negative,
    with the reason in errno, on failure. */
template <class Call>
int callAt(const char* path, Call call)
{
    if (std::strlen(path) < PATH_MAX)
        return call(AT_FDCWD, path);
    const LongPath way(path);
    return way.isReached() ? call(way.directory(), way.rest()) : -1;
}

} // namespace orvi::platform
