#include "ChildProcess.h"
#include "RefusedCall.h"
#include "ServiceProcess.h"
#include "TextPrinting.h"

#include <orvi/core/CrashReporter.h>

#include <cstdlib>
#include <ctime>
#include <functional>
#include <thread>

#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>

namespace fs = std::filesystem;

namespace {

/** A copy of the program in a directory of its own, where its reports come to lie. */
class Scene {
public:
    Scene() { fs::copy_file(ORVI_CRASH, program()); }

    /** Runs it to its end, behind a preparation in its process. */
    void run(
        const std::vector<std::string>& options, const std::function<void()>& prepare = [] {})
    {
        ServiceProcess process("", [&] {
            prepare();
            const int file = open((place / "output").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            return dup2(file, 1) == 1 && dup2(file, 2) == 2 ? execute(program().c_str(), options) : 127;
        });
        status = process.wait();
        said = place.read("output");
    }

    fs::path program() const { return place / "crash"; }
    /** The one file of a crash with this extension; empty when there is none. */
    fs::path file(const char* extension) const
    {
        fs::path found;
        for (const auto& entry : fs::directory_iterator(place.path())) {
            const fs::path& path = entry.path();
            if (path.filename().string().starts_with("crash@") && path.extension() == extension) {
                REQUIRE(found.empty());
                found = path;
            }
        }
        return found;
    }
    std::string report() const { return place.read(file(".log")); }
    bool hasDump() const { return place.read(file(".dmp")).starts_with("MDMP"); }

    TempDirectory place;
    int status = 0; // negative, the signal that ended it
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

/** The first part that does not stand in the text behind those before it; empty when all do. */
std::string missing(const std::string& text, const std::vector<std::string>& parts)
{
    std::size_t place = 0;
    for (const std::string& part : parts) {
        place = text.find(part, place);
        if (place == std::string::npos)
            return part;
        place += part.size();
    }
    return {};
}

/** A report up to the innermost frame. */
std::string firstFrame(const std::string& report) { return report.substr(0, report.find("\n#2  0x")); }

} // namespace

TEST_CASE("each way to crash ends the program by its signal, and leaves a report that shows where")
{
    const struct {
        std::vector<std::string> options;
        int signal;
        const char* exception;
        std::string first, other; // in the innermost frame, and behind that
    } rows[] = {
        {{"null"}, SIGSEGV, "ACCESS_VIOLATION", "writeNowhere (depth=1) at ", "main ("},
        {{"files"}, SIGSEGV, "ACCESS_VIOLATION", "writeNowhere (depth=1) at ", "main ("}, // none is left
        {{"ended"}, SIGSEGV, "ACCESS_VIOLATION", "useAfterEnd (", ""},
        {{"overflow"}, SIGSEGV, "STACK_OVERFLOW", "sink (depth=", ""},
        {{"--thread", "overflow"}, SIGSEGV, "STACK_OVERFLOW", "sink (depth=", ""},
        {{"division"}, SIGFPE, "INT_DIVIDE_BY_ZERO", "divide (depth=1)", ""},
        {{"abort"}, SIGABRT, "UNKNOWN_ERROR", "", "abortProgram ("},
        {{"throw"}, SIGABRT, "UNKNOWN_ERROR", "throwObject (depth=1)", ""},
        {{"thread"}, SIGABRT, "UNKNOWN_ERROR", "throwObject (depth=1)", ""},
        {{"allocator"}, SIGABRT, "UNKNOWN_ERROR", "", "breakHeap ("},
        {{"function"}, SIGSEGV, "ACCESS_VIOLATION", "00000000 in (unknown function)", "#2  0x"},
        {{"illegal"}, SIGILL, "ILLEGAL_INSTRUCTION", "runIllegalInstruction (", ""},
        {{"noexcept"}, SIGABRT, "UNKNOWN_ERROR", "", "throwFromNoexcept ("},
        {{"many"}, SIGSEGV, "ACCESS_VIOLATION", "writeNowhere (depth=", " distance = 1.25"},
        {{"values"}, SIGSEGV, "ACCESS_VIOLATION", "carryCargo (hasSail=1, deck=64, ", " label = \"wine \\"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.options.back());
        Scene scene;
        scene.run(row.options);
        CAPTURE(scene.said);
        CHECK(scene.status == -row.signal);
        CHECK(scene.hasDump());
        const std::string report = scene.report();
        CAPTURE(report);
        CHECK(missing(firstFrame(report), {"\nStacktrace:\n#1  0x", row.first}) == "");
        CHECK(missing(report, {"\nProcess info:\nCmd line: ", "/crash " + row.options.front(),
                               "\nPlatform: Windows OS version ", " Linux ",
                               "\n\nException: ", std::string(row.exception) + "\n\nRegisters:\neax=",
                               "\neip=", "\ncd=", row.first, row.other, "\n\nLoaded modules:\n0x",
                               "/crash (0.0.0.0, ", "liborvi_core.so", " bytes)\n"}) == "");
        CHECK(missing(scene.said,
                      {"This application has halted due to an unexpected error.\nA crash report and minidump "
                       "file were saved to disk, you can find them here:\n",
                       "crash@", ".log\n", "crash@", ".dmp\nPlease send the log file to the captain to "}) ==
              "");
    }
}

TEST_CASE("a loop goes on after what happens in a tick, and only the first leaves a report")
{
    const struct {
        const char *where, *way, *code, *frame;
    } rows[] = {
        {"--loop", "null", "exception 0xC0000005\n", "writeNowhere ("},
        {"--loop", "overflow", "exception 0xC00000FD\n", "sink ("},
        {"--loop", "division", "exception 0xC0000094\n", "divide ("},
        {"--loop", "throw", "exception 0xE06D7363\n", "throwObject ("},
        {"--loop-thread", "function", "exception 0xC0000005\n", "(unknown function)"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.way);
        Scene scene;
        scene.run({row.where, row.way});
        CAPTURE(scene.said);
        CHECK(scene.status == 0);
        CHECK(missing(scene.said, {row.code, row.code, row.code, "the loop has gone on\n"}) == "");
        CHECK(missing(firstFrame(scene.report()), {"\nStacktrace:\n#1  0x", row.frame}) == "");
        CHECK(scene.hasDump());
    }
}

TEST_CASE("without a process left, a report is as complete as may be")
{
    Scene scene; // as at the limit of processes, from which the superuser is exempt
    scene.run({"null"}, [] { refuse(SYS_clone, SECCOMP_RET_ERRNO | EAGAIN); });
    CHECK(scene.status == -SIGSEGV);
    CHECK(missing(scene.report(),
                  {"Cmd line: /", "Exception: ACCESS_VIOLATION\n\nRegisters:\neax=", "\nStacktrace:\n#1  0x",
                   "in (unknown function)\n", "\n\nLoaded modules:\n0x"}) == "");
    CHECK(scene.hasDump());
}

TEST_CASE("a thread that finds no memory goes on, and knows that it is not ready")
{
    CHECK(succeedsInChild([] {
        orvi::handled_exception_filter();
        std::thread([] {
            const rlimit limit{1, 1}; // no more than there is
            setrlimit(RLIMIT_AS, &limit);
            for (std::size_t size = 1 << 20; size >= 8; size = size > 1024 ? size / 2 : size - 8) {
                for (void* volatile taken = &size; taken != nullptr;)
                    taken = std::malloc(size);
            }
            const orvi::CrashReportScope reports;
            _exit(reports.isReady() ? 1 : 0);
        }).join();
    }));
}

TEST_CASE("a report can be asked for, once, and is called by the local time")
{
    Scene scene;
    const std::string earliest = dumpName(std::time(nullptr) + 3 * 3600);
    scene.run({"asked"}, [] { setenv("TZ", "EAST-3", 1); });
    const std::string latest = dumpName(std::time(nullptr) + 3 * 3600);
    const std::string name = scene.file(".dmp").filename().string();
    CHECK(earliest <= name);
    CHECK(name <= latest);
    CHECK(scene.status == 0);
    CHECK(missing(scene.said, {"asked in depth 1, and got 1\n"}) == "");
    CHECK(missing(scene.report(),
                  {"Exception: NONE\n", "#1  0x", "askForReport (depth=1)", "modules:\n0x"}) == "");
    CHECK(scene.hasDump());
}

TEST_CASE("without the debug module beside the library two empty files stay, and nothing is said")
{
    Scene scene;
    const fs::path elsewhere = scene.place / "elsewhere"; // where it is not to be looked for
    fs::create_directory(elsewhere);
    for (const auto& entry : fs::directory_iterator(fs::path(ORVI_CORE).parent_path())) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with("liborvi_core.so"))
            fs::copy_file(entry.path(), scene.place.path() / name);
        else if (name == "liborvi_debug.so")
            fs::copy_file(entry.path(), elsewhere / name);
    }
    const std::string libraries = scene.place.path().string() + ':' + elsewhere.string();
    scene.run({"null"}, [&] { setenv("LD_LIBRARY_PATH", libraries.c_str(), 1); });
    CHECK(scene.status == -SIGSEGV);
    CHECK(fs::is_empty(scene.file(".log")));
    CHECK(fs::is_empty(scene.file(".dmp")));
    CHECK(scene.said.empty());
}

TEST_CASE("a fault is left to a debugger that is at hand")
{
    Scene scene;
    scene.run({"null"}, [] {
        int status = 0;
        const pid_t program = fork();
        if (program == 0) {
            ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            return;
        }
        while (waitpid(program, &status, 0) == program && WIFSTOPPED(status))
            ptrace(PTRACE_CONT, program, nullptr, WSTOPSIG(status) == SIGTRAP ? 0L : WSTOPSIG(status));
        _exit(WTERMSIG(status));
    });
    CHECK(scene.status == SIGSEGV);
    CHECK(scene.file(".log").empty());
    CHECK(scene.file(".dmp").empty());
}

TEST_CASE("files that may not grow leave the end as it is")
{
    Scene scene;
    scene.run({"division"}, [] {
        const rlimit limit{200, 200};
        setrlimit(RLIMIT_FSIZE, &limit);
    });
    CHECK(scene.status == -SIGFPE);
    CHECK(scene.report().starts_with("\nProcess info:\n"));
    CHECK(fs::is_empty(scene.file(".dmp")));
}

TEST_CASE("where no file can be made there is no report, and the end is the same")
{
    Scene scene;
    const std::time_t now = std::time(nullptr);
    for (std::time_t second = now; second < now + 60; ++second)
        scene.place.write(dumpName(second));
    scene.run({"division"}, [] { setenv("TZ", "UTC0", 1); });
    CHECK(scene.status == -SIGFPE);
    CHECK(scene.file(".log").empty());
    CHECK(scene.said.empty());
}
