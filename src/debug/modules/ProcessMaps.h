#pragma once
#include "base/ProcFile.h"
#include <climits>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace orvi::debug {

struct Mapping {
    std::uintptr_t start = 0;
    std::uintptr_t end = 0;
    std::uint64_t offset = 0;
    bool readable = false;
    bool writable = false;
    bool executable = false;
    std::string_view path; // empty for anonymous memory
};

/** Reads /proc/<task>/maps, in the order of the addresses. Signal-safe. */
class ProcessMaps {
public:
    explicit ProcessMaps(pid_t task)
        : _file(task, "maps")
    {}

    /** False at the end, and when the file cannot be read. The path lives until the next call. */
    bool next(Mapping& mapping);

private:
    bool nextLine(std::string_view& line);

    ProcFile _file;
    char _buffer[4 * PATH_MAX]; // holds the longest line
    std::size_t _taken = 0;
    std::size_t _filled = 0;
};

} // namespace orvi::debug
