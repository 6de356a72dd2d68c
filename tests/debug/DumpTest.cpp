#include "../../src/debug/DebugApi.h"
#include "../../src/debug/dump/Minidump.h"
#include "TempDirectory.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <link.h>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace orvi::debug::minidump;

struct Run {
    int status; // as wait() gives it
    std::string output;
};

Run run(const std::string& command)
{
    Run result{};
    FILE* output = popen(("exec " + command + " 2>&1").c_str(), "r");
    REQUIRE(output != nullptr);
    char part[4096];
    while (const std::size_t count = fread(part, 1, sizeof part, output))
        result.output.append(part, count);
    result.status = pclose(output);
    return result;
}

Run crash(const fs::path& dump, const std::string& trouble, int threads = 2)
{
    return run("timeout --foreground 60 '" ORVI_DUMP_CRASH "' '" ORVI_DEBUG_MODULE "' " + dump.string() +
               " " + trouble + " " + std::to_string(threads));
}

bool contains(std::string_view text, std::string_view part)
{
    return text.find(part) != std::string_view::npos;
}

class Dump {
public:
    explicit Dump(const fs::path& path)
    {
        std::ifstream file(path, std::ios::binary);
        _bytes.assign(std::istreambuf_iterator<char>(file), {});
        const auto header = at<Header>(0);
        REQUIRE(header.signature == Header::expectedSignature);
        REQUIRE((header.version & 0xFFFF) == Header::expectedVersion);
        for (std::uint32_t i = 0; i < header.streamCount; ++i)
            _directory.push_back(at<DirectoryEntry>(header.directoryOffset + i * sizeof(DirectoryEntry)));
    }

    template <class Record>
    Record at(std::size_t offset) const
    {
        Record record;
        REQUIRE(offset + sizeof record <= _bytes.size());
        std::memcpy(&record, _bytes.data() + offset, sizeof record);
        return record;
    }
    Location stream(StreamType type) const
    {
        std::vector<Location> found;
        for (const DirectoryEntry& entry : _directory) {
            if (entry.type == type)
                found.push_back(entry.location);
        }
        REQUIRE(found.size() <= 1); // readers refuse a second one
        return found.empty() ? Location{} : found.front();
    }
    template <class Record>
    std::vector<Record> list(StreamType type) const
    {
        const Location place = stream(type);
        const auto count = at<std::uint32_t>(place.offset);
        REQUIRE(place.size == sizeof count + count * sizeof(Record));
        std::vector<Record> records;
        for (std::uint32_t i = 0; i < count; ++i)
            records.push_back(at<Record>(place.offset + sizeof count + i * sizeof(Record)));
        return records;
    }
    std::string text(std::size_t offset) const // ASCII
    {
        std::string result;
        for (std::uint32_t i = 0; i < at<std::uint32_t>(offset); i += 2)
            result += static_cast<char>(at<char16_t>(offset + sizeof(std::uint32_t) + i));
        return result;
    }
    bool holdsMemory(std::uint64_t address) const
    {
        const auto ranges = list<MemoryRange>(StreamType::MemoryList);
        return std::ranges::any_of(ranges, [&](const MemoryRange& range) {
            return address >= range.start && address - range.start < range.location.size;
        });
    }
    std::string_view bytes() const { return {_bytes.data(), _bytes.size()}; }

private:
    std::vector<char> _bytes;
    std::vector<DirectoryEntry> _directory;
};

std::uint64_t endOfMainStack(const Dump& dump)
{
    const Location place = dump.stream(StreamType::LinuxMaps);
    std::istringstream maps(std::string(dump.bytes().substr(place.offset, place.size)));
    for (std::string line; std::getline(maps, line);) {
        if (line.ends_with("[stack]"))
            return std::strtoull(line.c_str() + line.find('-') + 1, nullptr, 16);
    }
    return 0;
}

void checkThreads(const Dump& dump)
{
    for (const Thread& thread : dump.list<Thread>(StreamType::ThreadList)) {
        REQUIRE(thread.context.size == sizeof(Context));
        const auto context = dump.at<Context>(thread.context.offset);
        CHECK(context.flags == Context::allRegisters);
        CHECK(context.rsp != 0);
        CHECK(context.mxcsr != 0);
        CHECK(thread.stack.location.size != 0);
        CHECK(dump.holdsMemory(thread.stack.start));
    }
}

void checkModules(const Dump& dump)
{
    std::set<std::string> names;
    for (const Module& module : dump.list<Module>(StreamType::ModuleList)) {
        const std::string name = dump.text(module.nameOffset);
        CAPTURE(name);
        CHECK(names.insert(name).second); // readers keep one of two, maybe that of the debug module
        CHECK(module.size != 0);
        REQUIRE(module.buildId.size > sizeof(std::uint32_t));
        CHECK(dump.at<std::uint32_t>(module.buildId.offset) == BuildId::expectedSignature);
    }
    CHECK(names.contains(ORVI_DUMP_CRASH));
    CHECK(names.contains("[vdso]"));
}

bool haveProgram(const char* name) { return run(std::string("which ") + name + " >/dev/null").status == 0; }

struct LoadedModule {
    std::string path;
    std::uintptr_t base;
    std::size_t size;
    std::vector<unsigned int> version;
};

std::vector<LoadedModule> visitedModules()
{
    void* library = dlmopen(LM_ID_NEWLM, ORVI_DEBUG_MODULE, RTLD_NOW | RTLD_LOCAL);
    REQUIRE(library != nullptr);
    const auto visit =
        reinterpret_cast<decltype(&orvi_debug_visit_modules)>(dlsym(library, "orvi_debug_visit_modules"));
    REQUIRE((visit != nullptr));
    std::vector<LoadedModule> modules;
    visit(
        [](void* target, const OrviDebugModule* module) {
            static_cast<std::vector<LoadedModule>*>(target)->push_back(
                {module->path, module->base, module->size, {module->version, module->version + 4}});
        },
        &modules);
    return modules;
}

} // namespace

TEST_CASE("a dump tells of the fault, every thread and every module")
{
    const TempDirectory directory;
    setenv("ORVI_TEST_PASSWORD", "open-sesame-4711", 1);
    const Run result = crash(directory / "x.dmp", "write", 3);
    CAPTURE(result.output);
    CHECK(WTERMSIG(result.status) == SIGSEGV);
    CHECK(contains(result.output, "result 1"));
    CHECK(contains(result.output, "files +0, no child, same mask, dumpable 1"));

    const Dump dump(directory / "x.dmp");
    const auto exception = dump.at<Exception>(dump.stream(StreamType::Exception).offset);
    CHECK(exception.code == SIGSEGV);
    CHECK(exception.flags == SEGV_MAPERR);
    CHECK(exception.address == 0x10);
    const auto threads = dump.list<Thread>(StreamType::ThreadList);
    REQUIRE(threads.size() == 4);
    CHECK(threads[0].id == exception.threadId); // readers select the first one
    CHECK(threads[0].context.offset == exception.context.offset);
    CHECK(contains(result.output, "thread " + std::to_string(exception.threadId)));
    checkThreads(dump);
    const auto context = dump.at<Context>(exception.context.offset);
    CHECK(dump.holdsMemory(context.rsp));
    CHECK(dump.holdsMemory(context.rip));
    const auto names = dump.list<ThreadName>(StreamType::ThreadNames);
    CHECK(std::ranges::count_if(names, [&](const ThreadName& name) {
              return dump.text(name.nameOffset) == "a waiting one";
          }) == 3);
    checkModules(dump);

    const auto system = dump.at<SystemInfo>(dump.stream(StreamType::SystemInfo).offset);
    CHECK(system.architecture == SystemInfo::amd64);
    CHECK(system.platform == SystemInfo::linuxPlatform);
    CHECK(dump.text(system.versionTextOffset).starts_with("Linux "));
    for (const StreamType type : {StreamType::MiscInfo, StreamType::LinuxMaps, StreamType::LinuxProcStatus,
                                  StreamType::LinuxAuxv, StreamType::LinuxCommandLine})
        CHECK(dump.stream(type).size != 0);
    CHECK(contains(dump.bytes(), "x.dmp")); // the command line
    CHECK(!contains(dump.bytes(), "open-sesame"));
}

TEST_CASE("a dump is written in every trouble")
{
    const struct {
        std::string trouble;
        int signal;
        std::size_t threads;
        const char* output;
    } rows[] = {
        {"thread", SIGSEGV, 4, "result 1"},
        {"overflow", SIGSEGV, 3, "result 1"},
        {"overflow-thread", SIGSEGV, 4, "result 1"},
        {"call", SIGSEGV, 3, "result 1"},
        {"abort", SIGABRT, 3, "result 1"},
        {"heap", SIGABRT, 3, "result 1"}, // whose lock is held
        {"undumpable", SIGSEGV, 3, "dumpable 0"},
        {"files", SIGSEGV, 3, "result 1"}, // none is left to open
        {"leader", SIGSEGV, 3, "result 1"},
        {"no-clone", SIGSEGV, 1, "result 1"},
        {"no-ptrace", SIGSEGV, 1, "result 1"},
        {"deadly-ptrace", SIGSEGV, 1, "result 1"}, // ends the child
    };
    const TempDirectory directory;
    for (const auto& row : rows) {
        CAPTURE(row.trouble);
        const Run result = crash(directory / row.trouble.c_str(), row.trouble);
        CAPTURE(result.output);
        CHECK(WTERMSIG(result.status) == row.signal);
        REQUIRE(contains(result.output, "result 1"));
        CHECK(contains(result.output, row.output));
        CHECK(contains(result.output, "files +0, no child, same mask"));
        const Dump dump(directory / row.trouble.c_str());
        CHECK(dump.at<Exception>(dump.stream(StreamType::Exception).offset).code ==
              static_cast<std::uint32_t>(row.signal));
        CHECK(dump.list<Thread>(StreamType::ThreadList).size() == row.threads);
        checkThreads(dump);
        checkModules(dump);
        if (row.trouble == "overflow") { // up to where the stack begins
            CHECK(dump.holdsMemory(endOfMainStack(dump) - 1));
            CHECK(dump.bytes().size() < (20 << 20));
        }
    }
}

TEST_CASE("a dump without a fault has no exception")
{
    const TempDirectory directory;
    const Run result = crash(directory / "x.dmp", "none");
    CHECK(result.status == 0);
    CHECK(contains(result.output, "result 1"));
    const Dump dump(directory / "x.dmp");
    CHECK(dump.stream(StreamType::Exception).size == 0);
    CHECK(dump.list<Thread>(StreamType::ThreadList).size() == 3);
    checkThreads(dump);
}

TEST_CASE("a dump has room for many threads")
{
    const TempDirectory directory;
    const Run result = crash(directory / "x.dmp", "write", 300);
    CHECK(contains(result.output, "result 1"));
    const Dump dump(directory / "x.dmp");
    CHECK(dump.list<Thread>(StreamType::ThreadList).size() == 301);
    checkThreads(dump);
}

TEST_CASE("a file that cannot hold the dump stays empty")
{
    const TempDirectory directory;
    Run result = crash(directory / "x.dmp", "size");
    CHECK(contains(result.output, "result 0"));
    CHECK(contains(result.output, "files +0, no child, same mask"));
    CHECK(fs::file_size(directory / "x.dmp") == 0);
    CHECK(WTERMSIG(result.status) == SIGSEGV); // not of the file's size

    result = crash("/dev/full", "write");
    CHECK(contains(result.output, "result 0"));
    CHECK(WTERMSIG(result.status) == SIGSEGV);
}

TEST_CASE("debuggers read the dump")
{
    const TempDirectory directory;
    const std::string path = (directory / "x.dmp").string();
    REQUIRE(contains(crash(path, "thread").output, "result 1"));
    if (haveProgram("obj2yaml-14")) {
        const Run yaml = run("timeout 60 obj2yaml-14 " + path);
        CHECK(yaml.status == 0);
        CHECK(contains(yaml.output, "Platform ID:     Linux"));
        CHECK(contains(yaml.output, "Exception Code:  0xB"));
    }
    if (haveProgram("lldb")) {
        const Run session = run("timeout 60 lldb -l none -x -b -c " + path +
                                " '" ORVI_DUMP_CRASH "' -o 'thread list' -o bt -o 'frame variable'");
        CAPTURE(session.output);
        CHECK(contains(session.output, "stop reason = signal SIGSEGV"));
        CHECK(contains(session.output, "thread #4"));
        CHECK(!contains(session.output, "thread #5"));
        CHECK(contains(session.output, "writeToNowhere(target=0x0000000000000010) at Crash.cpp:"));
        CHECK(contains(session.output, "crashOnAThread"));
        CHECK(contains(session.output, "answer = 4711"));
        CHECK(contains(session.output, "start_thread")); // in the program's C library, not in the module's
    }
}

TEST_CASE("all loaded modules are listed")
{
    const std::vector<LoadedModule> modules = visitedModules();
    std::uintptr_t end = 0;
    for (const LoadedModule& module : modules) {
        CAPTURE(module.path);
        CHECK(module.base >= end);
        CHECK(module.size != 0);
        end = module.base + module.size;
        if (contains(module.path, "libstdc++.so."))
            CHECK(module.version[0] == 6);
        if (contains(module.path, "/libc.so."))
            CHECK(module.version == std::vector<unsigned int>{6, 0, 0, 0});
        if (contains(module.path, "liborvi_debug.so"))
            CHECK(module.version == std::vector<unsigned int>(4));
    }
    const auto have = [&](std::string_view path) {
        return std::ranges::count(modules, path, &LoadedModule::path);
    };
    CHECK(have(fs::canonical("/proc/self/exe").string()) == 1);
    CHECK(have("[vdso]") == 1);
    CHECK(have(fs::canonical(ORVI_DEBUG_MODULE).string()) == 1);

    const auto isListed = [](dl_phdr_info* info, std::size_t, void* context) {
        const auto& list = *static_cast<const std::vector<LoadedModule>*>(context);
        CAPTURE(info->dlpi_name);
        CHECK(std::ranges::any_of(list, [&](const LoadedModule& module) {
            const std::uintptr_t headers = reinterpret_cast<std::uintptr_t>(info->dlpi_phdr);
            return headers >= module.base && headers - module.base < module.size;
        }));
        return 0;
    };
    dl_iterate_phdr(isListed, const_cast<std::vector<LoadedModule>*>(&modules));
}
