#include "../../src/debug/dump/Minidump.h"
#include "Program.h"

#include <algorithm>
#include <cstring>
#include <set>

namespace {

namespace fs = std::filesystem;
using namespace orvi::debug::minidump;

/** With room for stacks that are longer than a dump takes. */
Outcome crash(const fs::path& dump, const std::string& trouble, int threads = 2)
{
    const Outcome outcome = Program("/bin/sh", {"-c", "ulimit -s 40960; exec \"$0\" \"$@\"", ORVI_DUMP_CRASH,
                                                ORVI_DEBUG_MODULE, dump, trouble, std::to_string(threads)})
                                .finish();
    CHECK(outcome.has("files +0, no child, same mask"));
    return outcome;
}

class Dump {
public:
    Dump(const TempDirectory& place, const std::string& name)
        : _bytes(place.read(name))
    {
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
        Location found{};
        for (const DirectoryEntry& entry : _directory) {
            if (entry.type == type) {
                REQUIRE(found.size == 0); // readers refuse a second one
                found = entry.location;
            }
        }
        return found;
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
    const std::string& bytes() const { return _bytes; }

private:
    const std::string _bytes;
    std::vector<DirectoryEntry> _directory;
};

std::uint64_t endOfMainStack(const Dump& dump)
{
    const std::string maps = dump.bytes().substr(dump.stream(StreamType::LinuxMaps).offset);
    const std::size_t line = maps.rfind('\n', maps.find("[stack]"));
    return std::strtoull(maps.c_str() + maps.find('-', line) + 1, nullptr, 16);
}

} // namespace

TEST_CASE("a dump tells of the fault, every thread and every module")
{
    const TempDirectory directory;
    setenv("ORVI_TEST_PASSWORD", "open-sesame-4711", 1);
    const Outcome outcome = crash(directory / "x.dmp", "write", 3);
    CAPTURE(outcome.text);
    const Dump dump(directory, "x.dmp");
    const auto exception = dump.at<Exception>(dump.stream(StreamType::Exception).offset);
    CHECK(exception.code == SIGSEGV);
    CHECK(exception.flags == SEGV_MAPERR);
    CHECK(exception.address == 0x10);
    const auto threads = dump.list<Thread>(StreamType::ThreadList);
    REQUIRE(threads.size() == 4);
    CHECK(threads[0].id == exception.threadId); // readers select the first one
    CHECK(threads[0].context.offset == exception.context.offset);
    CHECK(outcome.has("thread " + std::to_string(exception.threadId)));
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
    CHECK(dump.bytes().find("x.dmp") != std::string::npos); // the command line
    CHECK(dump.bytes().find("open-sesame") == std::string::npos);
}

TEST_CASE("a dump is written in every trouble, and without one")
{
    const struct {
        std::string trouble;
        int startedThreads;
        std::size_t threads;
    } rows[] = {
        {"none", 2, 3},          {"thread", 2, 4},          {"write", 300, 301},
        {"overflow", 2, 3},      {"overflow-thread", 2, 4}, {"undumpable", 2, 3},
        {"files", 2, 3},         {"leader", 2, 4},          {"no-ptrace", 2, 1},
        {"deadly-ptrace", 2, 1},
    };
    const TempDirectory directory;
    for (const auto& row : rows) {
        CAPTURE(row.trouble);
        const Outcome outcome = crash(directory / row.trouble.c_str(), row.trouble, row.startedThreads);
        CAPTURE(outcome.text);
        CHECK(outcome.status == (row.trouble == "none" ? 0 : -SIGSEGV));
        REQUIRE(outcome.has("result 1"));
        CHECK(outcome.has("dumpable 0") == (row.trouble == "undumpable"));
        const Dump dump(directory, row.trouble);
        CHECK((dump.stream(StreamType::Exception).size == 0) == (row.trouble == "none"));
        CHECK(dump.list<Thread>(StreamType::ThreadList).size() == row.threads);
        for (const Thread& thread : dump.list<Thread>(StreamType::ThreadList)) {
            REQUIRE(thread.context.size == sizeof(Context));
            const auto context = dump.at<Context>(thread.context.offset);
            CHECK(context.flags == Context::allRegisters);
            CHECK(context.rsp != 0);
            CHECK(context.mxcsr != 0);
            CHECK(thread.stack.location.size != 0);
            CHECK(dump.holdsMemory(thread.stack.start));
        }
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
        if (row.trouble == "overflow") { // up to where the stack begins
            CHECK(dump.holdsMemory(endOfMainStack(dump) - 1));
            CHECK(dump.bytes().size() < (20 << 20));
        }
    }
}

TEST_CASE("a dump that cannot be written fails, and the program ends as before")
{
    const Outcome outcome = crash("/dev/full", "write");
    CHECK(outcome.has("result 0"));
    CHECK(outcome.status == -SIGSEGV);
}

TEST_CASE("debuggers read the dump")
{
    const TempDirectory directory;
    const std::string path = (directory / "x.dmp").string();
    crash(path, "thread");
    const std::pair<std::string, std::vector<const char*>> rows[] = {
        {"obj2yaml-14 " + path, {"Platform ID:     Linux", "Exception Code:  0xB"}},
        {"lldb -l none -x -b -c " + path +
             " '" ORVI_DUMP_CRASH "' -o 'thread list' -o bt -o 'frame variable'",
         {"stop reason = signal SIGSEGV", "thread #4", "answer = 4711",
          "writeToNowhere(target=0x0000000000000010) at Crash.cpp:",
          "start_thread"}}, // in the program's C library, not in the module's
    };
    for (const auto& row : rows) {
        const Outcome session = Program("/bin/sh", {"-c", row.first}).finish();
        CAPTURE(session.text);
        for (const char* part : row.second)
            CHECK((session.has(part) || session.status == 127)); // the debugger is not there
    }
}
