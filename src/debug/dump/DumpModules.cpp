#include "DumpModules.h"

#include "modules/MappedModules.h"
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <link.h>
#include <span>
#include <string_view>

namespace orvi::debug {
namespace {

using minidump::Module;

minidump::VersionInfo versionInfo(const MappedModules& module)
{
    unsigned int numbers[4];
    module.version(numbers);
    minidump::VersionInfo info{};
    info.signature = minidump::VersionInfo::expectedSignature;
    info.version = minidump::VersionInfo::expectedVersion;
    for (std::size_t half = 0; half < 2; ++half)
        info.fileVersion[half] = numbers[2 * half] << 16 | (numbers[2 * half + 1] & 0xFFFF);
    std::ranges::copy(info.fileVersion, info.productVersion);
    return info;
}

minidump::Location addBuildId(DumpFile& dump, const LoadedImage& image)
{
    minidump::BuildId id;
    id.signature = minidump::BuildId::expectedSignature;
    const std::size_t size = image.readBuildId(id.bytes);
    return size == 0 ? minidump::Location{} : dump.addBytes(&id, offsetof(minidump::BuildId, bytes) + size);
}

Module makeRecord(DumpFile& dump, const MappedModules& module)
{
    const LoadedImage& image = module.image();
    Module record{};
    record.base = image.start();
    record.size = static_cast<std::uint32_t>(image.end() - image.start());
    record.nameOffset = dump.addText(module.path());
    record.version = versionInfo(module);
    record.buildId = addBuildId(dump, image);
    return record;
}

/** What was loaded for this module. In a namespace of its own it has a second C library: of two entries for one file
    debuggers keep one, and often the wrong one. So those that the program has, too, are left out. */
class OwnModules {
public:
    // When the module is loaded: to ask the loader takes its lock.
    OwnModules()
    {
        dl_iterate_phdr(
            [](dl_phdr_info* info, std::size_t, void* self) {
                auto& own = *static_cast<OwnModules*>(self);
                if (own._count < std::size(own._bases))
                    own._bases[own._count++] = info->dlpi_addr;
                return 0;
            },
            this);
    }

    bool have(std::uintptr_t base) const
    {
        return std::find(_bases, _bases + _count, base) != _bases + _count;
    }

private:
    std::uintptr_t _bases[64]{};
    std::size_t _count = 0;
};
const OwnModules ownModules;

// Not for a signal handler's small stack.
class ModuleRecords {
public:
    constexpr ModuleRecords() = default;

    void clear() { _count = 0; }
    void add(DumpFile& dump, const MappedModules& module)
    {
        if (_count == std::size(_records))
            return;
        _paths[_count] = hash(module);
        _records[_count++] = makeRecord(dump, module);
    }
    bool haveFileOf(const MappedModules& module) const
    {
        return std::find(_paths, _paths + _count, hash(module)) != _paths + _count;
    }
    std::span<const Module> all() const { return {_records, _count}; }

private:
    static std::size_t hash(const MappedModules& module)
    {
        return std::hash<std::string_view>()(module.path());
    }

    static constexpr std::size_t maxModules = 2048;
    Module _records[maxModules]{};
    std::size_t _paths[maxModules]{};
    std::size_t _count = 0;
};
constinit ModuleRecords records;

} // namespace

void addModules(DumpFile& dump, pid_t task)
{
    records.clear();
    for (MappedModules modules(task); modules.next();) {
        if (!ownModules.have(modules.image().start()))
            records.add(dump, modules);
    }
    for (MappedModules modules(task); modules.next();) {
        if (ownModules.have(modules.image().start()) && !records.haveFileOf(modules))
            records.add(dump, modules);
    }
    dump.addList(minidump::StreamType::ModuleList, records.all());
}

} // namespace orvi::debug
