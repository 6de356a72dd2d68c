#pragma once
#include "DumpFile.h"
#include "base/ProcFile.h"
#include <cstddef>
#include <cstdint>
#include <span>

namespace orvi::debug {

/** Copies memory of a process into a dump, each byte once. Large: for static storage. Signal-safe. */
class DumpMemory {
public:
    constexpr DumpMemory() = default;
    DumpMemory(const DumpMemory&) = delete;
    DumpMemory& operator=(const DumpMemory&) = delete;

    /** Begins anew, with the process that `task` is of and its memory, which must stay open. False when its maps
        cannot be read. */
    bool begin(pid_t task, const ProcFile& memory);

    /** Copies the stack from `top`, the stack pointer, on; when it is larger than `limit`, that much of it and a
        last piece, where it begins. Gives the first piece. */
    minidump::MemoryRange addStack(DumpFile& dump, std::uintptr_t top, std::size_t limit);

    /** Copies a little of what `address` points to, if anything. */
    void addAround(DumpFile& dump, std::uintptr_t address);

    void addList(DumpFile& dump) const
    {
        dump.addList(minidump::StreamType::MemoryList, std::span(_ranges, _rangeCount));
    }

private:
    struct Area {
        std::uintptr_t start;
        std::uintptr_t end;
        bool readable;
        bool writable;
    };

    void readMaps(pid_t task);
    void readEnvironmentPlace(pid_t task);
    const Area* firstEndingAbove(std::uintptr_t address) const;
    const Area* find(std::uintptr_t address) const; // null when it cannot be read
    const Area* findStack(std::uintptr_t top) const;
    minidump::MemoryRange add(DumpFile& dump, std::uintptr_t start, std::uintptr_t end);
    minidump::MemoryRange addNew(DumpFile& dump, std::uintptr_t start, std::uintptr_t end);
    std::size_t read(std::uintptr_t address, std::span<char> target) const;

    static constexpr std::size_t maxAreas = 1 << 16; // the kernel's own limit is a little lower
    static constexpr std::size_t maxRanges = 1 << 13;

    const ProcFile* _memory = nullptr;
    Area _areas[maxAreas]{};
    std::size_t _areaCount = 0;
    minidump::MemoryRange _ranges[maxRanges]{};
    std::size_t _rangeCount = 0;
    std::uintptr_t _environmentStart = 0;
    std::uintptr_t _environmentEnd = 0;
    char _buffer[1 << 16]{};
};

} // namespace orvi::debug
