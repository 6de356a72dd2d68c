#pragma once
#include <fcntl.h>
#include <unistd.h>

namespace orvi::debug {

/** A descriptor of the program's standard streams, where it has closed them, is not for files of ours: it gives the file
    another one. */
inline int aboveStandardStreams(int file)
{
    constexpr int firstNumber = 3;
    if (file < 0 || file >= firstNumber)
        return file;
    const int moved = fcntl(file, F_DUPFD_CLOEXEC, firstNumber);
    close(file);
    return moved;
}

inline int openToRead(const char* path, int flags = 0)
{
    return aboveStandardStreams(open(path, O_RDONLY | O_CLOEXEC | flags));
}

} // namespace orvi::debug
