#include "DumpSystem.h"

#include <charconv>
#include <cpuid.h>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <sched.h>
#include <string_view>
#include <sys/utsname.h>

namespace orvi::debug {
namespace {

using minidump::StreamType;
using minidump::SystemInfo;

void describeProcessor(SystemInfo& info)
{
    info.architecture = SystemInfo::amd64;
    std::uint32_t ignored = 0;
    __get_cpuid(0, &ignored, &info.vendor[0], &info.vendor[2], &info.vendor[1]);

    std::uint32_t signature = 0, features = 0;
    __get_cpuid(1, &signature, &ignored, &ignored, &features);
    const std::uint32_t stepping = signature & 0xF;
    const std::uint32_t model = (signature >> 4 & 0xF) | (signature >> 12 & 0xF0);
    const std::uint32_t family = (signature >> 8 & 0xF) + (signature >> 20 & 0xFF);
    info.versionInformation = signature;
    info.featureInformation = features;
    info.processorLevel = static_cast<std::uint16_t>(family);
    info.processorRevision = static_cast<std::uint16_t>(model << 8 | stepping);

    cpu_set_t processors;
    if (sched_getaffinity(0, sizeof processors, &processors) == 0)
        info.processorCount = static_cast<std::uint8_t>(CPU_COUNT(&processors));
}

void describeKernel(DumpFile& dump, SystemInfo& info)
{
    info.platform = SystemInfo::linuxPlatform;
    utsname names{};
    if (uname(&names) != 0)
        return;
    const char* const end = names.release + std::strlen(names.release);
    const char* digits = names.release; // as in 6.1.0-13-amd64
    for (std::uint32_t* number : {&info.majorVersion, &info.minorVersion, &info.buildNumber}) {
        const auto [behind, error] = std::from_chars(digits, end, *number);
        if (error != std::errc() || behind == end || *behind != '.')
            break;
        digits = behind + 1;
    }
    char text[sizeof names];
    std::snprintf(text, sizeof text, "%s %s %s %s", names.sysname, names.release, names.version,
                  names.machine);
    info.versionTextOffset = dump.addText(text);
}

} // namespace

void addSystem(DumpFile& dump, pid_t process, pid_t task)
{
    SystemInfo info{};
    describeProcessor(info);
    describeKernel(dump, info);
    dump.addStream(StreamType::SystemInfo, dump.add(info));

    minidump::MiscInfo misc{};
    misc.size = sizeof misc;
    misc.flags = minidump::MiscInfo::hasProcessId;
    misc.processId = static_cast<std::uint32_t>(process);
    dump.addStream(StreamType::MiscInfo, dump.add(misc));

    const struct {
        StreamType type;
        pid_t task;
        const char* name;
    } files[] = {
        {StreamType::LinuxMaps, task, "maps"},
        {StreamType::LinuxProcStatus, process, "status"}, // a thread's tells another id
        {StreamType::LinuxAuxv, task, "auxv"},
        {StreamType::LinuxCommandLine, task, "cmdline"},
    };
    for (const auto& file : files) {
        ProcFile source(file.task, file.name);
        dump.addFile(file.type, source);
    }
}

} // namespace orvi::debug
