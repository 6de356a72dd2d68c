#include "DumpMemory.h"

#include "base/Memory.h"
#include "modules/ProcessMaps.h"
#include <algorithm>
#include <charconv>
#include <iterator>
#include <string_view>

namespace orvi::debug {

using minidump::MemoryRange;

bool DumpMemory::begin(pid_t task, const ProcFile& memory)
{
    _areaCount = 0;
    _rangeCount = 0;
    _memory = &memory;
    readMaps(task);
    readEnvironmentPlace(task);
    return _areaCount != 0;
}

void DumpMemory::readMaps(pid_t task)
{
    ProcessMaps maps(task);
    for (Mapping mapping; _areaCount < maxAreas && maps.next(mapping);)
        _areas[_areaCount++] = {mapping.start, mapping.end, mapping.readable, mapping.writable};
}

// The environment lies where the main thread's stack begins, and often holds passwords.
void DumpMemory::readEnvironmentPlace(pid_t task)
{
    constexpr int startField = 50; // of /proc/PID/stat, where the second one may hold anything in parentheses
    _environmentStart = 0;
    _environmentEnd = 0;
    ProcFile file(task, "stat");
    std::string_view rest(_buffer, file.read(_buffer));
    std::size_t skip = rest.rfind(')');
    for (int field = 2; field < startField && skip != std::string_view::npos; ++field) {
        rest.remove_prefix(skip + 1);
        skip = rest.find(' ');
    }
    if (skip == std::string_view::npos)
        return;
    rest.remove_prefix(skip + 1);
    const char* const end = rest.data() + rest.size();
    const auto [behind, error] = std::from_chars(rest.data(), end, _environmentStart);
    if (error == std::errc() && behind != end)
        std::from_chars(behind + 1, end, _environmentEnd);
}

const DumpMemory::Area* DumpMemory::firstEndingAbove(std::uintptr_t address) const
{
    return std::upper_bound(_areas, _areas + _areaCount, address,
                            [](std::uintptr_t at, const Area& area) { return at < area.end; });
}

const DumpMemory::Area* DumpMemory::find(std::uintptr_t address) const
{
    const Area* area = firstEndingAbove(address);
    return area != _areas + _areaCount && area->start <= address && area->readable ? area : nullptr;
}

// After an overflow the stack pointer lies below the stack, in a guard page or in nothing.
const DumpMemory::Area* DumpMemory::findStack(std::uintptr_t top) const
{
    constexpr std::size_t mostBelow = 1 << 20;
    if (const Area* area = find(top))
        return area;
    const Area* const end = _areas + _areaCount;
    const Area* stack = std::find_if(firstEndingAbove(top), end,
                                     [](const Area& area) { return area.readable && area.writable; });
    return stack != end && stack->start - top <= mostBelow ? stack : nullptr;
}

MemoryRange DumpMemory::addStack(DumpFile& dump, std::uintptr_t top, std::size_t limit)
{
    constexpr std::size_t redZone = 128; // in use below the stack pointer
    constexpr std::size_t lastPiece = 64 << 10;
    const Area* stack = findStack(top);
    if (stack == nullptr)
        return {top, {}};
    const std::uintptr_t start = std::max(stack->start, (top - redZone) & ~std::uintptr_t{15});
    if (stack->end - start <= limit)
        return add(dump, start, stack->end);
    const MemoryRange range = add(dump, start, start + limit);
    add(dump, std::max(start + limit, stack->end - lastPiece), stack->end);
    return range;
}

void DumpMemory::addAround(DumpFile& dump, std::uintptr_t address)
{
    constexpr std::size_t before = 256, behind = 768;
    const Area* area = find(address);
    if (area == nullptr)
        return;
    const std::uintptr_t start = address - std::min<std::size_t>(before, address - area->start);
    add(dump, start & ~std::uintptr_t{7}, address + std::min<std::size_t>(behind, area->end - address));
}

// Everything but the environment.
MemoryRange DumpMemory::add(DumpFile& dump, std::uintptr_t start, std::uintptr_t end)
{
    if (end <= _environmentStart || start >= _environmentEnd)
        return addNew(dump, start, end);
    const MemoryRange range = addNew(dump, start, _environmentStart);
    addNew(dump, _environmentEnd, end);
    return range;
}

MemoryRange DumpMemory::addNew(DumpFile& dump, std::uintptr_t start, std::uintptr_t end)
{
    // What lies behind a range that was copied before, in the middle of this one, is left out.
    for (const MemoryRange& other : std::span(_ranges, _rangeCount)) {
        const std::uintptr_t otherEnd = other.start + other.location.size;
        if (start >= other.start && end <= otherEnd) {
            const auto skipped = static_cast<std::uint32_t>(start - other.start);
            return {start, {static_cast<std::uint32_t>(end - start), other.location.offset + skipped}};
        }
        if (start >= other.start && start < otherEnd)
            start = otherEnd;
        else if (start < other.start && end > other.start)
            end = other.start;
    }
    MemoryRange range{start, {}};
    if (start >= end || _rangeCount == std::size(_ranges))
        return range;

    const std::uint32_t offset = dump.beginBlock();
    while (start < end) {
        const std::size_t count =
            read(start, std::span(_buffer).first(std::min(end - start, sizeof _buffer)));
        if (count == 0)
            break;
        dump.extendBlock(_buffer, count);
        start += count;
    }
    range.location = dump.endBlock(offset);
    if (range.location.size != 0)
        _ranges[_rangeCount++] = range;
    return range;
}

std::size_t DumpMemory::read(std::uintptr_t address, std::span<char> target) const
{
    if (_memory->isOpen())
        return _memory->readAt(address, target);
    // This process, or one that it is a copy of.
    const std::span<char> part = target.first(std::min(target.size(), maxReadBytes));
    return readMemoryNow(address, part.data(), part.size()) ? part.size() : 0;
}

} // namespace orvi::debug
