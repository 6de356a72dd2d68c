#include "MemorySweep.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace sweep;

namespace sweep {

std::atomic<int> Seen::errors = 0;

void Seen::add(const char* begin, std::size_t size) noexcept
{
    size = std::min(size, sizeof _text - 1 - _size);
    std::memcpy(_text + _size, begin, size);
    _size += size;
}

/** The beginning, and a number that stands for all of it. */
template <class T>
Seen& Seen::addText(const T* text)
{
    unsigned int hash = 0;
    std::size_t length = 0;
    for (; text[length] != 0; ++length) {
        hash = hash * 31 + static_cast<std::make_unsigned_t<T>>(text[length]);
        const char unit = text[length] >= ' ' && text[length] < 127 ? static_cast<char>(text[length]) : '~';
        if (length < 60)
            add(&unit, 1);
    }
    char rest[40];
    add(rest, static_cast<std::size_t>(std::snprintf(rest, sizeof rest, "#%x|", hash)));
    return *this;
}

Seen& Seen::operator<<(const wchar_t* text) { return addText(text); }
Seen& Seen::operator<<(const char* text) { return addText(text); }

Seen& Seen::operator<<(double number)
{
    char digits[40];
    add(digits, static_cast<std::size_t>(std::snprintf(digits, sizeof digits, "%.15g|", number)));
    return *this;
}

bool Seen::operator==(const Seen& other) const noexcept { return _size == other._size && isPrefixOf(other); }

bool Seen::isPrefixOf(const Seen& other) const noexcept
{
    return _size <= other._size && std::memcmp(_text, other._text, _size) == 0;
}

} // namespace sweep

namespace {

constexpr int patienceSeconds = 60; // the machine may be busy
constexpr int maxFindings = 300;

struct Options {
    bool isShort = false;
    int only = 0; // this one allocation, for a debugger
    bool andAllLater = false;
    bool isCold = false;
    int seconds = 0;                 // for all; 0: as long as it takes
    std::vector<std::string> names;  // parts of "family: scenario"; none: all
    std::vector<std::string> others; // these are left out
} options;

using Clock = std::chrono::steady_clock;

/** The end of the part of a scenario that is under way, which leaves the others their share of the time. */
Clock::time_point partEnd = Clock::time_point::max();
bool isTimeOver() { return Clock::now() >= partEnd; }

/** The first of `parts` equal parts of the time from now on. */
Clock::time_point shareOf(Clock::time_point end, int parts)
{
    const auto now = Clock::now();
    return end == Clock::time_point::max() ? end : now + std::max(end - now, Clock::duration::zero()) / parts;
}

enum class End { Refused, Complete, Foreign };

/** Lies in memory that the processes share. */
struct Report {
    Seen expected;
    long allocations; // of a run without failure
    long at;          // the one that fails in the run under way
    bool isDone;      // no more allocations to fail
    int cases, refused, complete;
    int unreached; // allocations that there was no time for
    int findingCount;
    char findings[maxFindings][500];
} * report;

class ErrorCounter : public orvi::LogListener {
public:
    const wchar_t* getName() override { return L"sweep"; }
    bool setparam(const wchar_t*) override { return false; }
    void error(const wchar_t*) override { ++Seen::errors; }
    void warning(const wchar_t*) override {}
    void message(const wchar_t*) override {}
    void debug(const wchar_t*) override {}
    void whistle(bool) override {}
} errorCounter;

struct Mode {
    bool andAllLater;
    bool isCold;
    const char* text() const
    {
        return isCold        ? (andAllLater ? "cold, and all later" : "cold")
               : andAllLater ? "and all later"
                             : "one";
    }
};

__attribute__((format(printf, 2, 3))) void find(const Mode& mode, const char* format, ...)
{
    const int index = report->findingCount++;
    if (index >= maxFindings)
        return;
    char* line = report->findings[index];
    const std::size_t room = sizeof report->findings[0];
    const int used = std::snprintf(line, room, "%ld (%s): ", report->at, mode.text());
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line + used, room - static_cast<std::size_t>(used), format, arguments);
    va_end(arguments);
}

End runOnce(const Scenario& scenario, Seen& seen, long failAt, bool andAllLater)
{
    Seen::errors = 0;
    alarm(patienceSeconds);
    Allocator::arm(failAt, andAllLater);
    End end = End::Complete;
    try {
        scenario.run(seen);
    } catch (const Refusal&) {
        end = End::Refused;
    } catch (const std::bad_alloc&) {
        end = End::Refused;
    } catch (const orvi::Exception&) {
        end = End::Refused;
    } catch (...) {
        end = End::Foreign;
    }
    const long count = Allocator::disarm();
    alarm(0);
    if (failAt == 0)
        report->allocations = count;
    return end;
}

/** What a process holds besides memory. */
int countHandles()
{
    int count = 0;
    for (int fd = 0; fd < 100; ++fd)
        count += fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
    for ([[maybe_unused]] const auto& file : std::filesystem::directory_iterator("."))
        ++count;
    return count;
}

/** Where two texts part, with a little in front of it. */
const char* difference(const Seen& seen, const Seen& expected)
{
    const char* at = seen.text();
    while (*at != 0 && *at == expected.text()[at - seen.text()])
        ++at;
    return at - std::min<std::ptrdiff_t>(at - seen.text(), 20);
}

void judge(const Mode& mode, End end, const Seen& seen)
{
    const Seen& expected = report->expected;
    ++report->cases;
    if (end == End::Foreign)
        find(mode, "throws what is neither bad_alloc nor Exception");
    else if (end == End::Refused && !seen.isPrefixOf(expected))
        find(mode, "wrong in front of the refusal: ...%.150s", difference(seen, expected));
    else if (end == End::Complete && seen != expected)
        find(mode, "wrong without a word: ...%.150s (expected ...%.150s)", difference(seen, expected),
             difference(expected, seen));
    else
        ++(end == End::Refused ? report->refused : report->complete);
}

void runPlain(const Scenario& scenario, const Mode& mode, const char* when)
{
    Seen seen;
    const End end = runOnce(scenario, seen, 0, false);
    if (end != End::Complete || seen != report->expected)
        find(mode, "%s: ...%.150s", when, difference(seen, report->expected));
}

/** What a failure makes once and keeps, as the file that streams spill into, is not lost: it must grow again. */
void judgeGrowth(const Scenario& scenario, const Mode& mode)
{
    const long blocks = Allocator::liveBlocks();
    const int handles = countHandles();
    Seen ignored;
    runOnce(scenario, ignored, report->at, mode.andAllLater);
    runPlain(scenario, mode, "does not go on");
    if (Allocator::liveBlocks() > blocks)
        find(mode, "leaks %ld blocks", Allocator::liveBlocks() - blocks);
    if (countHandles() > handles)
        find(mode, "leaves %d descriptors or files behind", countHandles() - handles);
}

/** Whether the time is over; what is left does not count as done. */
bool mustStop(long step)
{
    if (!isTimeOver())
        return false;
    report->unreached += static_cast<int>(std::max(report->allocations - report->at, 0L) / step) + 1;
    report->isDone = true;
    return true;
}

/** In a process of its own, which goes on with the next allocation as long as it lives. */
void runWarm(const Scenario& scenario, const Mode& mode, long step)
{
    for (int i = 0; i < 3; ++i)
        runPlain(scenario, mode, "unsteady without failures");
    for (; !mustStop(step); report->at += step) {
        const long blocks = Allocator::liveBlocks();
        const int handles = countHandles();
        Seen seen;
        const End end = runOnce(scenario, seen, report->at, mode.andAllLater);
        if (!Allocator::hasFailed())
            break;
        judge(mode, end, seen);
        runPlain(scenario, mode, "does not go on");
        if (Allocator::liveBlocks() > blocks || countHandles() > handles)
            judgeGrowth(scenario, mode);
    }
    report->isDone = true;
}

/** In a process of its own that has never run the scenario: what is made on first use is made now. */
void runCold(const Scenario& scenario, const Mode& mode)
{
    Seen seen;
    const End end = runOnce(scenario, seen, report->at, mode.andAllLater);
    report->isDone = !Allocator::hasFailed();
    if (report->isDone)
        return;
    judge(mode, end, seen);
    for (int i = 0; i < 2; ++i)
        runPlain(scenario, mode, "does not go on");
}

template <class Body>
int inChild(Body body)
{
    std::fflush(stdout);
    for (const auto& file : std::filesystem::directory_iterator("."))
        std::filesystem::remove_all(file);
    const pid_t child = fork();
    if (child == 0) {
        if (options.only == 0) {
            const int nowhere = open("/dev/null", O_WRONLY);
            dup2(nowhere, 1);
            dup2(nowhere, 2);
            close(nowhere);
        }
        orvi::Log::addListener(&errorCounter);
        body();
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

bool noteDeath(const Mode& mode, int status)
{
    report->cases += status != 0 ? 1 : 0;
    if (WIFSIGNALED(status))
        find(mode, WTERMSIG(status) == SIGALRM ? "hangs" : "ends by signal %d", WTERMSIG(status));
    else if (WEXITSTATUS(status) != 0)
        find(mode, "ends with code %d", WEXITSTATUS(status));
    return status != 0;
}

void sweepWarm(const Scenario& scenario, bool andAllLater)
{
    const Mode mode{andAllLater, false};
    const long most = report->allocations > 1000 ? 20 : 100; // a scenario with so many takes its time
    const long step = options.isShort ? report->allocations / most + 1 : 1;
    int deaths = 0;
    report->at = 1;
    for (report->isDone = false; !report->isDone && deaths < 5; report->at += step)
        deaths += noteDeath(mode, inChild([&] { runWarm(scenario, mode, step); })) ? 1 : 0;
}

void sweepCold(const Scenario& scenario, bool andAllLater)
{
    const Mode mode{andAllLater, true};
    const long step = options.isShort ? report->allocations / 15 + 1 : 1;
    int deaths = 0;
    report->at = 1;
    for (report->isDone = false; !report->isDone && deaths < 5 && !mustStop(step); report->at += step)
        deaths += noteDeath(mode, inChild([&] { runCold(scenario, mode); })) ? 1 : 0;
}

void sweepOne(const Scenario& scenario)
{
    const Mode mode{options.andAllLater, options.isCold};
    Allocator::stopsForDebugger = std::getenv("SWEEP_STOP") != nullptr;
    report->at = options.only;
    if (!mode.isCold)
        runPlain(scenario, mode, "unsteady without failures");
    orvi::Log::addListener(&errorCounter);
    Seen seen;
    judge(mode, runOnce(scenario, seen, options.only, mode.andAllLater), seen);
    std::printf("saw %s\n", seen.text());
    runPlain(scenario, mode, "does not go on");
}

/** The first of each kind. */
void printFindings(const std::string& name)
{
    std::map<std::string, int> kinds;
    for (int i = 0; i < std::min(report->findingCount, maxFindings); ++i) {
        const std::string line = report->findings[i];
        if (kinds[line.substr(line.find('('), 35)]++ == 0)
            std::printf("%s, allocation %s\n", name.c_str(), line.c_str());
    }
    if (report->findingCount > static_cast<int>(kinds.size()))
        std::printf("%s: %d findings in all\n", name.c_str(), report->findingCount);
}

struct Row {
    int scenarios = 0, cases = 0, refused = 0, complete = 0, unreached = 0, findings = 0;
};

void sweepScenario(const Scenario& scenario, Row& row, Clock::time_point end)
{
    std::memset(static_cast<void*>(report), 0, sizeof *report);
    const std::string name = std::string(scenario.family) + ": " + scenario.name;
    const int status = inChild([&] {
        Seen warm;
        runOnce(scenario, warm, 0, false);
        report->isDone = runOnce(scenario, report->expected, 0, false) == End::Complete;
    });
    if (status != 0 || !report->isDone)
        find({}, "does not work without failures, status %d: %s", status, report->expected.text());
    else if (options.only != 0)
        sweepOne(scenario);
    else
        for (const bool andAllLater : {false, true}) {
            const int parts = andAllLater ? 2 : 4;
            partEnd = shareOf(end, parts);
            sweepWarm(scenario, andAllLater);
            partEnd = shareOf(end, parts - 1);
            sweepCold(scenario, andAllLater);
        }
    printFindings(name);
    ++row.scenarios;
    row.cases += report->cases;
    row.refused += report->refused;
    row.complete += report->complete;
    row.unreached += report->unreached;
    row.findings += report->findingCount;
}

void readOptions(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--short")
            options.isShort = true;
        else if (argument == "--later")
            options.andAllLater = true;
        else if (argument == "--cold")
            options.isCold = true;
        else if (argument.rfind("--seconds=", 0) == 0)
            options.seconds = std::atoi(argv[i] + 10);
        else if (argument.rfind("--without=", 0) == 0)
            options.others.push_back(argument.substr(10));
        else if (argument.rfind("--at=", 0) == 0)
            options.only = std::atoi(argv[i] + 5);
        else
            options.names.push_back(argument);
    }
}

bool isWanted(const Scenario& scenario)
{
    const std::string name = std::string(scenario.family) + ": " + scenario.name;
    const auto isPart = [&](const std::string& part) { return name.find(part) != std::string::npos; };
    return (options.names.empty() || std::any_of(options.names.begin(), options.names.end(), isPart)) &&
           std::none_of(options.others.begin(), options.others.end(), isPart);
}

} // namespace

constexpr const char* homeVariable = "SWEEP_HOME";

/** Goes on as a copy of the program in a directory of its own: reports of crashes come to lie beside it. */
int moveHome(char** argv)
{
    std::string directory = (std::filesystem::temp_directory_path() / "sweep_XXXXXX").string();
    if (mkdtemp(directory.data()) == nullptr)
        return 2;
    const std::string copy = directory + "/sweep_memory";
    std::filesystem::copy_file("/proc/self/exe", copy);
    std::filesystem::create_directory(directory + "/work");
    setenv(homeVariable, directory.c_str(), 1);
    execv(copy.c_str(), argv);
    return 2;
}

/** sweep_memory [--short] [--seconds=of all] [--without=part] [parts of "family: scenario" [--at=allocation [--later]
    [--cold]]]

    Every scenario has its share of the seconds; what there is no time for is told in the table, and no failure.
    With --at that one allocation fails in this very process; with SWEEP_STOP in the environment a debugger stops
    there. */
int main(int argc, char** argv)
{
    readOptions(argc, argv);
    report = static_cast<Report*>(
        mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    if (report == MAP_FAILED)
        return 2;
    if (std::getenv(homeVariable) == nullptr)
        return moveHome(argv);
    const std::filesystem::path directory = std::getenv(homeVariable);
    std::filesystem::current_path(directory / "work");
    setenv("TMPDIR", (directory / "work").c_str(), 1);

    // Where the loader lacks memory for some of its tables it ends the process: whoever loads the module pays for that.
    orvi::DebugHelper::getDebugHelper();
    std::map<std::string, Row> table;
    std::vector<Scenario> wanted;
    for (const auto& scenarios :
         {textScenarios, objectScenarios, streamScenarios, documentScenarios, runtimeScenarios})
        std::copy_if(scenarios.begin(), scenarios.end(), std::back_inserter(wanted), isWanted);
    const auto end = options.seconds > 0 ? Clock::now() + std::chrono::seconds(options.seconds) : partEnd;
    for (std::size_t i = 0; i < wanted.size(); ++i)
        sweepScenario(wanted[i], table[wanted[i].family], shareOf(end, static_cast<int>(wanted.size() - i)));
    int findings = 0;
    std::printf("%-20s %9s %8s %8s %8s %9s %8s\n", "family", "scenarios", "cases", "refused", "complete",
                "unreached", "findings");
    for (const auto& [family, row] : table) {
        std::printf("%-20s %9d %8d %8d %8d %9d %8d\n", family.c_str(), row.scenarios, row.cases, row.refused,
                    row.complete, row.unreached, row.findings);
        findings += row.findings;
    }
    std::filesystem::current_path("/");
    std::filesystem::remove_all(directory);
    std::fflush(stdout);
    _exit(findings == 0 ? 0 : 1); // the scenarios look for leaks: the loader's blocks are none of ours
}
