#include "MemorySweep.h"

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace sweep;
namespace fs = std::filesystem;

namespace sweep {

std::atomic<int> Seen::errors = 0;

void Seen::addBytes(const char* begin, std::size_t size) noexcept
{
    size = std::min(size, sizeof _text - 1 - _size);
    std::memcpy(_text + _size, begin, size);
    _size += size;
}

/** The beginning, and a number that stands for all of it. */
template <class T>
Seen& Seen::add(const T* text)
{
    unsigned int hash = 0;
    std::size_t length = 0;
    for (; text[length] != 0; ++length) {
        hash = hash * 31 + static_cast<std::make_unsigned_t<T>>(text[length]);
        const char unit = text[length] >= ' ' && text[length] < 127 ? static_cast<char>(text[length]) : '~';
        if (length < 60)
            addBytes(&unit, 1);
    }
    char rest[40];
    addBytes(rest, static_cast<std::size_t>(std::snprintf(rest, sizeof rest, "#%x|", hash)));
    return *this;
}
template Seen& Seen::add(const wchar_t*);
template Seen& Seen::add(const char*);
template Seen& Seen::add(const unsigned char*);

Seen& Seen::add(double number)
{
    char digits[40];
    addBytes(digits, static_cast<std::size_t>(std::snprintf(digits, sizeof digits, "%.15g|", number)));
    return *this;
}

bool Seen::operator==(const Seen& other) const noexcept { return _size == other._size && isPrefixOf(other); }

bool Seen::isPrefixOf(const Seen& other) const noexcept
{
    return _size <= other._size && std::memcmp(_text, other._text, _size) == 0;
}

orvi::String manyTimes(const wchar_t* text)
{
    orvi::String many(text);
    for (int i = 0; i < 13; ++i)
        many += many;
    Seen::mustNotHaveLogged();
    return many;
}

} // namespace sweep

namespace {

ErrorCounter errorCounter;

constexpr int patienceSeconds = 60; // the machine may be busy
constexpr int maxFindings = 20;     // that are shown of a scenario

struct Options {
    bool isShort = false;
    int seconds = 1'000'000; // for all
    int only = 0;            // this one allocation, in this very process
    bool andAllLater = false;
    std::vector<std::string> names;  // parts of the scenarios' names; none: all
    std::vector<std::string> others; // these are left out
} options;

using Clock = std::chrono::steady_clock;

/** The end of the part of a scenario that is under way, which leaves the others their share of the time. */
Clock::time_point partEnd;

/** The first of `parts` equal parts of the time from now on. */
Clock::time_point shareOf(Clock::time_point end, std::size_t parts)
{
    const auto now = Clock::now();
    return now + std::max(end - now, Clock::duration::zero()) / parts;
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
    int findings;
} * report;

struct Mode {
    bool andAllLater, isCold;
};

const Scenario* current = nullptr;
const int terminal = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 200); // for the children too

__attribute__((format(printf, 2, 3))) void find(const Mode& mode, const char* format, ...)
{
    if (report->findings++ >= maxFindings)
        return;
    dprintf(terminal, "%s, allocation %ld%s%s: ", current->name, report->at, mode.isCold ? ", cold" : "",
            mode.andAllLater ? ", and all later" : "");
    va_list arguments;
    va_start(arguments, format);
    vdprintf(terminal, format, arguments);
    va_end(arguments);
    dprintf(terminal, "\n");
}

End runOnce(const Scenario& scenario, Seen& seen, long failAt = 0, bool andAllLater = false)
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
    auto count = static_cast<int>(std::distance(fs::directory_iterator("."), {}));
    for (int fd = 0; fd < 100; ++fd)
        count += fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
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

/** Fails the allocation whose turn it is. False when the scenario has no such. */
bool runFailing(const Scenario& scenario, const Mode& mode)
{
    Seen seen;
    const End end = runOnce(scenario, seen, report->at, mode.andAllLater);
    if (!Allocator::hasFailed())
        return false;
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
    return true;
}

void runPlain(const Scenario& scenario, const Mode& mode, const char* when = "does not go on")
{
    Seen seen;
    const End end = runOnce(scenario, seen);
    if (end != End::Complete || seen != report->expected)
        find(mode, "%s: ...%.150s", when, difference(seen, report->expected));
}

/** Whether the time is over; what is left does not count as done. */
bool mustStop(long step)
{
    if (Clock::now() < partEnd)
        return false;
    report->unreached += static_cast<int>(std::max(report->allocations - report->at, 0L) / step) + 1;
    return report->isDone = true;
}

/** In a process of its own, which goes on with the next allocation as long as it lives. */
void runWarm(const Scenario& scenario, const Mode& mode, long step)
{
    for (int i = 0; i < 3; ++i)
        runPlain(scenario, mode, "unsteady without failures");
    for (; !mustStop(step); report->at += step) {
        long blocks = 0;
        int handles = 0;
        // What a failure makes once and keeps, as the file that streams spill into, is not lost: it must grow again.
        for (int round = 0; round < 2 && (round == 0 || blocks > 0 || handles > 0); ++round) {
            blocks = -Allocator::liveBlocks();
            handles = -countHandles();
            report->isDone = !runFailing(scenario, mode);
            if (report->isDone)
                return;
            runPlain(scenario, mode);
            blocks += Allocator::liveBlocks();
            handles += countHandles();
        }
        if (blocks > 0 || handles > 0)
            find(mode, "leaks %ld blocks, %d descriptors or files", blocks, handles);
    }
}

/** In a process of its own that has never run the scenario: what is made on first use is made now. */
void runCold(const Scenario& scenario, const Mode& mode)
{
    report->isDone = !runFailing(scenario, mode);
    for (int i = 0; i < 2 && !report->isDone; ++i)
        runPlain(scenario, mode);
}

template <class Body>
int inChild(Body body)
{
    std::fflush(stdout);
    for (const auto& file : fs::directory_iterator("."))
        fs::remove_all(file);
    const pid_t child = fork();
    if (child == 0) {
        const int nowhere = open("/dev/null", O_WRONLY);
        dup2(nowhere, 1);
        dup2(nowhere, 2);
        close(nowhere);
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

void sweepPart(const Scenario& scenario, const Mode& mode)
{
    const long most = mode.isCold ? 15 : report->allocations > 1000 ? 20 : 100; // so many take their time
    const long step = options.isShort ? report->allocations / most + 1 : 1;
    int deaths = 0;
    report->at = 1;
    for (report->isDone = false; !report->isDone && deaths < 5 && !mustStop(step); report->at += step)
        deaths +=
            noteDeath(mode,
                      inChild([&] { mode.isCold ? runCold(scenario, mode) : runWarm(scenario, mode, step); }))
                ? 1
                : 0;
}

void sweepScenario(const Scenario& scenario, Clock::time_point end)
{
    current = &scenario;
    report->findings = 0;
    report->expected = {};
    report->isDone = false;
    report->at = options.only;
    const int status = inChild([&] {
        Seen warm;
        runOnce(scenario, warm);
        report->isDone = runOnce(scenario, report->expected) == End::Complete;
    });
    if (status != 0 || !report->isDone)
        find({}, "does not work without failures, status %d: %s", status, report->expected.text());
    else if (options.only != 0) {
        orvi::Log::addListener(&errorCounter);
        runFailing(scenario, {options.andAllLater, true});
    } else
        for (int part = 0; part < 4; ++part) {
            partEnd = shareOf(end, 4 - static_cast<std::size_t>(part));
            sweepPart(scenario, {part >= 2, part % 2 != 0});
        }
}

void readOptions(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--short")
            options.isShort = true;
        else if (argument == "--later")
            options.andAllLater = true;
        else if (argument.starts_with("--seconds="))
            options.seconds = std::atoi(argv[i] + 10);
        else if (argument.starts_with("--without="))
            options.others.push_back(argument.substr(10));
        else if (argument.starts_with("--at="))
            options.only = std::atoi(argv[i] + 5);
        else
            options.names.push_back(argument);
    }
}

bool isWanted(const Scenario& scenario)
{
    const std::string name = scenario.name;
    const auto isPart = [&](const std::string& part) { return name.find(part) != std::string::npos; };
    return (options.names.empty() || std::ranges::any_of(options.names, isPart)) &&
           std::ranges::none_of(options.others, isPart);
}

} // namespace

/** sweep_memory [--short] [--seconds=of all] [--without=part] [parts of names [--at=allocation [--later]]]

    Every scenario has its share of the seconds; what there is no time for is told, and no failure. With --at that
    one allocation fails in this very process, where a debugger is. */
int main(int argc, char** argv)
{
    readOptions(argc, argv);
    report = static_cast<Report*>(
        mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    std::string directory = (fs::temp_directory_path() / "sweep_XXXXXX").string();
    if (report == MAP_FAILED || mkdtemp(directory.data()) == nullptr)
        return 2;
    fs::current_path(directory);
    setenv("TMPDIR", directory.c_str(), 1);

    // Where the loader lacks memory for some of its tables it ends the process: whoever loads the module pays for that.
    orvi::DebugHelper::getDebugHelper();
    std::vector<Scenario> wanted;
    for (const auto& scenarios :
         {textScenarios, objectScenarios, streamScenarios, documentScenarios, runtimeScenarios})
        std::ranges::copy_if(scenarios, std::back_inserter(wanted), isWanted);
    const auto end = Clock::now() + std::chrono::seconds(options.seconds);
    int findings = 0;
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        sweepScenario(wanted[i], shareOf(end, wanted.size() - i));
        findings += report->findings;
    }
    std::printf("%zu scenarios, %d cases: %d refused, %d complete; no time for %d; %d findings\n",
                wanted.size(), report->cases, report->refused, report->complete, report->unreached, findings);
    fs::current_path("/");
    fs::remove_all(directory);
    std::fflush(stdout);
    _exit(findings == 0 ? 0 : 1); // the scenarios look for leaks: the loader's blocks are none of ours
}
