#include "TempDirectory.h"
#include "TextPrinting.h"

#include <orvi/core/CrashReporter.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

std::string contentOf(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/** As the system does at the limit of processes, from which the superuser is exempt. */
void refuseProcesses()
{
    sock_filter steps[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EAGAIN),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{std::size(steps), steps};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
        _exit(127);
}

void takeAllMemory()
{
    const rlimit limit{1, 1}; // no more than there is
    setrlimit(RLIMIT_AS, &limit);
    for (std::size_t size = 1 << 20; size >= 8; size = size > 1024 ? size / 2 : size - 8) {
        for (void* volatile taken = &size; taken != nullptr;)
            taken = std::malloc(size);
    }
}

/** A copy of the program in a directory of its own, where its reports come to lie. */
class Scene {
public:
    Scene() { fs::copy_file(ORVI_CRASH, program()); }

    /** Runs it to its end; `traced`: with the test as its debugger. */
    void run(std::vector<std::string> options, bool traced = false)
    {
        const std::string output = (place.path() / "output").string();
        const pid_t child = fork();
        REQUIRE(child >= 0);
        if (child == 0) {
            std::vector<std::string> words = std::move(options);
            words.insert(words.begin(), program().string());
            std::vector<char*> argv;
            for (std::string& word : words)
                argv.push_back(word.data());
            argv.push_back(nullptr);
            setenv("TZ", zone, 1);
            if (!libraries.empty())
                setenv("LD_LIBRARY_PATH", libraries.c_str(), 1);
            if (mostFileBytes != 0) {
                const rlimit limit{mostFileBytes, mostFileBytes};
                setrlimit(RLIMIT_FSIZE, &limit);
            }
            if (!mayFork)
                refuseProcesses();
            const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            if (dup2(file, 1) != 1 || dup2(file, 2) != 2)
                _exit(127);
            if (traced)
                ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            execv(argv[0], argv.data());
            _exit(127);
        }
        for (;;) {
            while (waitpid(child, &status, 0) < 0)
                REQUIRE(errno == EINTR);
            if (!WIFSTOPPED(status))
                break;
            const int signal = WSTOPSIG(status);
            ptrace(PTRACE_CONT, child, nullptr, static_cast<long>(signal == SIGTRAP ? 0 : signal));
        }
        said = contentOf(output);
    }

    fs::path program() const { return place.path() / "crash"; }
    /** The reports with this extension. */
    std::vector<fs::path> files(const char* extension) const
    {
        std::vector<fs::path> found;
        for (const auto& entry : fs::directory_iterator(place.path())) {
            const std::string name = entry.path().filename().string();
            if (name.starts_with("crash@") && entry.path().extension() == extension)
                found.push_back(entry.path());
        }
        return found;
    }
    /** The one report. */
    std::string report() const
    {
        const std::vector<fs::path> found = files(".log");
        REQUIRE(found.size() == 1);
        return contentOf(found[0]);
    }
    int signal() const { return WIFSIGNALED(status) ? WTERMSIG(status) : 0; }

    TempDirectory place;
    std::string libraries;    // where to look first
    rlim_t mostFileBytes = 0; // 0: any
    bool mayFork = true;
    const char* zone = "UTC0";
    int status = 0;
    std::string said;
};

/** Of a dump that is made at that time, in seconds since 1970 of a clock in UTC. */
std::string dumpName(std::time_t second)
{
    char name[64];
    std::tm fields{};
    gmtime_r(&second, &fields);
    std::strftime(name, sizeof name, "crash@%Y-%m-%d %H.%M.%S.dmp", &fields);
    return name;
}

bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

/** Whether the parts stand in the text one behind the other. */
bool isInOrder(const std::string& text, const std::vector<std::string>& parts)
{
    std::size_t place = 0;
    for (const std::string& part : parts) {
        place = text.find(part, place);
        if (place == std::string::npos) {
            MESSAGE("missing: ", part);
            return false;
        }
        place += part.size();
    }
    return true;
}

} // namespace

TEST_CASE("each way to crash ends the program by its signal, and leaves a report that shows where")
{
    const struct {
        const char* way;
        int signal;
        const char* exception;
        std::vector<std::string> frames;
    } rows[] = {
        {"null", SIGSEGV, "ACCESS_VIOLATION", {"#1  0x", "writeNowhere (depth=1) at ", "#2  0x", "main ("}},
        {"ended", SIGSEGV, "ACCESS_VIOLATION", {"#1  0x", "useAfterEnd ("}},
        {"overflow", SIGSEGV, "STACK_OVERFLOW", {"#1  0x", "sink (depth="}},
        {"division", SIGFPE, "INT_DIVIDE_BY_ZERO", {"#1  0x", "divide (depth=1)"}},
        {"abort", SIGABRT, "UNKNOWN_ERROR", {"#1  0x", "abortProgram ("}},
        {"throw", SIGABRT, "UNKNOWN_ERROR", {"#1  0x", "throwObject (depth=1)"}},
        {"thread", SIGABRT, "UNKNOWN_ERROR", {"#1  0x", "throwObject (depth=1)"}},
        {"allocator", SIGABRT, "UNKNOWN_ERROR", {"#1  0x", "breakHeap ("}},
        {"function",
         SIGSEGV,
         "ACCESS_VIOLATION",
         {"#1  0x00000000 in (unknown function)\n#2  0x", "callNoFunction (depth=1)"}},
        {"illegal", SIGILL, "ILLEGAL_INSTRUCTION", {"#1  0x", "runIllegalInstruction ("}},
        {"noexcept", SIGABRT, "UNKNOWN_ERROR", {"#1  0x", "throwFromNoexcept ("}},
        {"many", SIGSEGV, "ACCESS_VIOLATION", {"#1  0x", "writeNowhere (depth=", " distance = 1.25"}},
    };
    for (const auto& row : rows) {
        CAPTURE(row.way);
        Scene scene;
        scene.run({row.way});
        CAPTURE(scene.said);
        CHECK(scene.signal() == row.signal);
        CHECK(scene.files(".dmp").size() == 1);
        const std::string report = scene.report();
        CAPTURE(report);
        std::vector<std::string> parts = {"\nProcess info:\nCmd line: ",
                                          std::string("/crash ") + row.way + "\n",
                                          "Platform: Windows OS version ",
                                          " Linux ",
                                          "\n\nException: ",
                                          std::string(row.exception) + "\n\nRegisters:\neax=",
                                          "\neip=",
                                          "\ncd=",
                                          "\nStacktrace:\n"};
        parts.insert(parts.end(), row.frames.begin(), row.frames.end());
        for (const char* last :
             {"\n\nLoaded modules:\n0x", "/crash (0.0.0.0, ", "liborvi_core.so", " bytes)\n"})
            parts.emplace_back(last);
        CHECK(isInOrder(report, parts));
        CHECK(isInOrder(scene.said,
                        {"This application has halted due to an unexpected error.\nA crash report and "
                         "minidump file were saved to disk, you can find them here:\n",
                         "crash@", ".log\n", "crash@", ".dmp\nPlease send the log file to the captain to "}));
    }
}

TEST_CASE("a report shows values of every kind, whatever thread has the fault")
{
    for (const char* where : {"--here", "--thread", "--loop", "--loop-thread"}) {
        CAPTURE(where);
        Scene scene;
        scene.run({where, "values"});
        const std::string report = scene.report();
        CAPTURE(report);
        CHECK(isInOrder(
            report, {"\nStacktrace:\n#1  0x",
                     "carryCargo (hasSail=1, deck=64, below=fe, barrels=c8, oars=fffd, ropes=ea60, depth=1, "
                     "coins=ee6b2800, miles=FFFFFFFFFFFFFFFB, stars=ABCDEF0123456789, draught=1.500000, "
                     "speed=-2.250000, bearing=359.500000, mark=4d, sign=53, wind=-8, ship=(",
                     "::Ship *) 0x", ", name=0x", " \"Argo\", wideName=0x", ", nothing=0x00000000, next=0x",
                     ", fleet=(", "::Ship **) 0x", ") at ", "\n        label = \"wine \\\"red\\\"\"\n",
                     "        weights = (int[3]) 0x", "        lengths = (double[2]) 0x",
                     "        measure = (", "\n#2  0x", "showValues (depth=1) at "}));
        CHECK(contains(contentOf(scene.files(".dmp")[0]).substr(0, 4), "MDMP"));
    }
}

TEST_CASE("a full stack is reported on threads that are ready for it")
{
    Scene scene;
    scene.run({"--thread", "overflow"});
    CHECK(scene.signal() == SIGSEGV);
    CHECK(isInOrder(scene.report(), {"Exception: STACK_OVERFLOW\n", "#1  0x", "sink (depth="}));
}

TEST_CASE("a loop goes on after what happens in a tick, and only the first leaves a report")
{
    const struct {
        const char* way;
        const char* code;
    } rows[] = {
        {"null", "exception 0xC0000005\n"},     {"ended", "exception 0xC0000005\n"},
        {"overflow", "exception 0xC00000FD\n"}, {"division", "exception 0xC0000094\n"},
        {"throw", "exception 0xE06D7363\n"},    {"function", "exception 0xC0000005\n"},
        {"illegal", "exception 0xC000001D\n"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.way);
        Scene scene;
        scene.run({"--loop", row.way});
        CAPTURE(scene.said);
        CHECK(WIFEXITED(scene.status));
        CHECK(WEXITSTATUS(scene.status) == 0);
        CHECK(isInOrder(scene.said, {row.code, row.code, row.code, "the loop has gone on\n"}));
        CHECK(contains(scene.report(), "\nStacktrace:\n#1  0x"));
        CHECK(scene.files(".dmp").size() == 1);
    }
}

TEST_CASE("without a descriptor or a process left, reports are as complete as may be")
{
    Scene files;
    files.run({"files"});
    CHECK(files.signal() == SIGSEGV);
    CHECK(isInOrder(files.report(), {"Cmd line: /", "writeNowhere (depth=1) at ", "\nLoaded modules:\n0x"}));
    CHECK(contentOf(files.files(".dmp").at(0)).starts_with("MDMP"));

    Scene processes;
    processes.mayFork = false;
    processes.run({"null"});
    CHECK(processes.signal() == SIGSEGV);
    CHECK(isInOrder(processes.report(),
                    {"Cmd line: /", "Exception: ACCESS_VIOLATION\n\nRegisters:\neax=",
                     "\nStacktrace:\n#1  0x", "in (unknown function)\n", "\n\nLoaded modules:\n0x"}));
    CHECK(contentOf(processes.files(".dmp").at(0)).starts_with("MDMP"));
}

TEST_CASE("a thread that finds no memory goes on, and knows that it is not ready")
{
    const pid_t child = fork();
    REQUIRE(child >= 0);
    if (child == 0) {
        orvi::handled_exception_filter();
        std::thread([] {
            takeAllMemory();
            const orvi::CrashReportScope reports;
            _exit(reports.isReady() ? 1 : 0);
        }).join();
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
        REQUIRE(errno == EINTR);
    CHECK(WIFEXITED(status));
    CHECK(WEXITSTATUS(status) == 0);
}

TEST_CASE("reports are called by the local time")
{
    constexpr int threeHours = 3 * 3600;
    Scene scene;
    scene.zone = "EAST-3";
    const std::string earliest = dumpName(std::time(nullptr) + threeHours);
    scene.run({"asked"});
    const std::string latest = dumpName(std::time(nullptr) + threeHours);
    const std::string name = scene.files(".dmp")[0].filename().string();
    CHECK(earliest <= name);
    CHECK(name <= latest);
}

TEST_CASE("a report can be asked for, once")
{
    Scene scene;
    scene.run({"asked"});
    CHECK(WIFEXITED(scene.status));
    CHECK(contains(scene.said, "asked in depth 1, and got 1\n"));
    CHECK(isInOrder(scene.report(),
                    {"Exception: NONE\n", "#1  0x", "askForReport (depth=1)", "\nLoaded modules:\n0x"}));
    CHECK(contentOf(scene.files(".dmp")[0]).starts_with("MDMP"));
}

TEST_CASE("without the debug module beside the library two empty files stay, and nothing is said")
{
    Scene scene;
    const fs::path elsewhere = scene.place.path() / "elsewhere"; // where it is not to be looked for
    fs::create_directory(elsewhere);
    scene.libraries = scene.place.path().string() + ':' + elsewhere.string();
    for (const auto& entry : fs::directory_iterator(fs::path(ORVI_CORE).parent_path())) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with("liborvi_core.so"))
            fs::copy_file(entry.path(), scene.place.path() / name);
        else if (name == "liborvi_debug.so")
            fs::copy_file(entry.path(), elsewhere / name);
    }
    scene.run({"null"});
    CHECK(scene.signal() == SIGSEGV);
    CHECK(scene.report().empty());
    CHECK(scene.files(".dmp").size() == 1);
    CHECK(scene.said.empty());
}

TEST_CASE("a fault is left to a debugger that is at hand")
{
    Scene scene;
    scene.run({"null"}, true);
    CHECK(scene.signal() == SIGSEGV);
    CHECK(scene.files(".log").empty());
    CHECK(scene.files(".dmp").empty());
}

TEST_CASE("files that may not grow leave the end as it is")
{
    Scene scene;
    scene.mostFileBytes = 200;
    scene.run({"division"});
    CHECK(scene.signal() == SIGFPE);
    CHECK(scene.report().starts_with("\nProcess info:\n"));
    CHECK(contentOf(scene.files(".dmp")[0]).empty());
}

TEST_CASE("where no file can be made there is no report, and the end is the same")
{
    Scene scene;
    const std::time_t now = std::time(nullptr);
    for (std::time_t second = now; second < now + 60; ++second)
        std::ofstream(scene.place.path() / dumpName(second)) << "taken";
    scene.run({"division"});
    CHECK(scene.signal() == SIGFPE);
    CHECK(scene.files(".log").empty());
    CHECK(scene.said.empty());
}
