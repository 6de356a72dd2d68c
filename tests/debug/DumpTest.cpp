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

/** With room for stacks that are longer than a dump takes. */
Run run(const std::string& command)
{
    Run result{};
    FILE* output = popen(("ulimit -s 40960; exec " + command + " 2>&1").c_str(), "r");
    REQUIRE(output != nullptr);
    char part[4096];
    while (const std::size_t count = fread(part, 1, sizeof part, output))
        result.output.append(part, count);
    result.status = pclose(output);
    return result;
}

bool contains(std::string_view text, std::string_view part)
{
    return text.find(part) != std::string_view::npos;
}

Run crash(const fs::path& dump, const std::string& trouble, int threads = 2)
{
    const Run result = run("timeout --foreground 60 '" ORVI_DUMP_CRASH "' '" ORVI_DEBUG_MODULE "' " +
                           dump.string() + " " + trouble + " " + std::to_string(threads));
    CHECK(contains(result.output, "files +0, no child, same mask"));
    return result;
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

} // namespace

TEST_CASE("a dump tells of the fault, every thread and every module")
{
    const TempDirectory directory;
    setenv("ORVI_TEST_PASSWORD", "open-sesame-4711", 1);
    const Run result = crash(directory / "x.dmp", "write", 3);
    CAPTURE(result.output);
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
    const auto context = dump.at<Context>(exception.context.offset);
    CHECK(dump.holdsMemory(context.rsp));
    CHECK(dump.holdsMemory(context.rip));
    const auto names = dump.list<ThreadName>(StreamType::ThreadNames);
    CHECK(std::ranges::count_if(names, [&](const ThreadName& name) {
              return dump.text(name.nameOffset) == "a waiting one";
          }) == 3);

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

TEST_CASE("a dump is written in every trouble, and without one")
{
    const struct {
        std::string trouble;
        int startedThreads;
        std::size_t threads;
        const char* output;
    } rows[] = {
        {"none", 2, 3, "result 1"},
        {"thread", 2, 4, "result 1"},
        {"write", 300, 301, "result 1"},
        {"overflow", 2, 3, "result 1"},
        {"overflow-thread", 2, 4, "result 1"},
        {"undumpable", 2, 3, "dumpable 0"},
        {"files", 2, 3, "result 1"}, // none is left to open
        {"leader", 2, 3, "result 1"},
        {"no-ptrace", 2, 1, "result 1"},
        {"deadly-ptrace", 2, 1, "result 1"}, // ends the child
    };
    const TempDirectory directory;
    for (const auto& row : rows) {
        CAPTURE(row.trouble);
        const fs::path path = directory / row.trouble.c_str();
        const Run result = crash(path, row.trouble, row.startedThreads);
        CAPTURE(result.output);
        CHECK(WTERMSIG(result.status) == (row.trouble == "none" ? 0 : SIGSEGV));
        REQUIRE(contains(result.output, "result 1"));
        CHECK(contains(result.output, row.output));
        const Dump dump(path);
        CHECK((dump.stream(StreamType::Exception).size == 0) == (row.trouble == "none"));
        CHECK(dump.list<Thread>(StreamType::ThreadList).size() == row.threads);
        checkThreads(dump);
        checkModules(dump);
        if (row.trouble == "overflow") { // up to where the stack begins
            CHECK(dump.holdsMemory(endOfMainStack(dump) - 1));
            CHECK(dump.bytes().size() < (20 << 20));
        }
    }
}

TEST_CASE("a dump that cannot be written fails, and the program ends as before")
{
    const Run result = crash("/dev/full", "write");
    CHECK(contains(result.output, "result 0"));
    CHECK(WTERMSIG(result.status) == SIGSEGV);
}

TEST_CASE("debuggers read the dump")
{
    const TempDirectory directory;
    const std::string path = (directory / "x.dmp").string();
    crash(path, "thread");
    const struct {
        std::string command;
        std::vector<const char*> parts;
    } rows[] = {
        {"obj2yaml-14 " + path, {"Platform ID:     Linux", "Exception Code:  0xB"}},
        {"lldb -l none -x -b -c " + path +
             " '" ORVI_DUMP_CRASH "' -o 'thread list' -o bt -o 'frame variable'",
         {"stop reason = signal SIGSEGV", "thread #4", "answer = 4711",
          "writeToNowhere(target=0x0000000000000010) at Crash.cpp:",
          "start_thread"}}, // in the program's C library, not in the module's
    };
    for (const auto& row : rows) {
        const std::string program = row.command.substr(0, row.command.find(' '));
        if (run("which " + program).status != 0)
            continue;
        const Run session = run("timeout 60 " + row.command);
        CAPTURE(session.output);
        for (const char* part : row.parts)
            CHECK(contains(session.output, part));
    }
}

TEST_CASE("all loaded modules are listed, in the order of their addresses")
{
    void* library = dlmopen(LM_ID_NEWLM, ORVI_DEBUG_MODULE, RTLD_NOW | RTLD_LOCAL);
    REQUIRE(library != nullptr);
    const auto visit =
        reinterpret_cast<decltype(&orvi_debug_visit_modules)>(dlsym(library, "orvi_debug_visit_modules"));
    REQUIRE((visit != nullptr));
    struct Seen {
        std::uintptr_t end = 0;
        std::vector<std::string> paths;
    } seen;
    visit(
        [](void* target, const OrviDebugModule* module) {
            Seen& to = *static_cast<Seen*>(target);
            CHECK(module->base >= to.end);
            CHECK(module->size != 0);
            to.end = module->base + module->size;
            to.paths.emplace_back(module->path);
            if (contains(module->path, "libstdc++.so."))
                CHECK(module->version[0] == 6);
            if (contains(module->path, "/libc.so."))
                CHECK(module->version[1] == 0);
        },
        &seen);
    const auto have = [&](const std::string& path) { return std::ranges::count(seen.paths, path); };
    CHECK(have(fs::canonical("/proc/self/exe").string()) == 1);
    CHECK(have("[vdso]") == 1);
    CHECK(have(fs::canonical(ORVI_DEBUG_MODULE).string()) == 1);
}
