#pragma once
#include <cstddef>
#include <cstdint>
#include <span>
#include <sys/types.h>

namespace orvi::debug {

/** A file under /proc/<task>, open for reading. Any thread stands for its process, and is the better choice: the
    main thread may have ended, and the kernel shows no memory then. Signal-safe. */
class ProcFile {
public:
    ProcFile(pid_t task, const char* name, int flags = 0);
    ~ProcFile();
    ProcFile(const ProcFile&) = delete;
    ProcFile& operator=(const ProcFile&) = delete;

    bool isOpen() const { return _file >= 0; }
    int descriptor() const { return _file; }

    /** Gives the number of bytes read: 0 at the end, on an error, and when the file is not open. */
    std::size_t read(std::span<char> target);
    std::size_t readAt(std::uint64_t offset, std::span<char> target) const;

private:
    int _file;
};

} // namespace orvi::debug
