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

const char* Seen::beyond(const Seen& other) const noexcept
{
    return std::mismatch(_text, _text + _size, other._text).first;
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

bool isShort = false;

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
    int cases, findings;
    int unreached; // allocations that there was no time for
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

/** Fails the allocation whose turn it is. False when the scenario has no such. */
bool runFailing(const Scenario& scenario, const Mode& mode)
{
    Seen seen;
    const End end = runOnce(scenario, seen, report->at, mode.andAllLater);
    if (!Allocator::hasFailed())
        return false;
    ++report->cases;
    const char *const wrong = seen.beyond(report->expected), *const missing = report->expected.beyond(seen);
    if (end == End::Foreign)
        find(mode, "throws what is neither bad_alloc nor Exception");
    else if (*wrong != 0 || (end == End::Complete && *missing != 0))
        find(mode, "wrong %s: %.150s (expected %.150s)",
             end == End::Refused ? "in front of the refusal" : "without a word", wrong, missing);
    return true;
}

void runPlain(const Scenario& scenario, const Mode& mode, const char* when = "does not go on")
{
    Seen seen;
    const End end = runOnce(scenario, seen);
    const char *const wrong = seen.beyond(report->expected), *const missing = report->expected.beyond(seen);
    if (end != End::Complete || *wrong != 0 || *missing != 0)
        find(mode, "%s: %.150s (expected %.150s)", when, wrong, missing);
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

void sweepPart(const Scenario& scenario, const Mode& mode)
{
    const long most = mode.isCold ? 15 : report->allocations > 1000 ? 20 : 100; // so many take their time
    const long step = isShort ? report->allocations / most + 1 : 1;
    int deaths = 0;
    report->at = 1;
    for (report->isDone = false; !report->isDone && deaths < 5 && !mustStop(step); report->at += step) {
        const int status =
            inChild([&] { mode.isCold ? runCold(scenario, mode) : runWarm(scenario, mode, step); });
        if (status == 0)
            continue;
        ++deaths;
        ++report->cases;
        find(mode, "ends by signal %d, an alarm when it hangs, or with code %d", WTERMSIG(status),
             WEXITSTATUS(status));
    }
}

void sweepScenario(const Scenario& scenario, Clock::time_point end)
{
    current = &scenario;
    report->findings = 0;
    report->expected = {};
    report->isDone = false;
    const int status = inChild([&] {
        Seen warm;
        runOnce(scenario, warm);
        report->isDone = runOnce(scenario, report->expected) == End::Complete;
    });
    if (status != 0 || !report->isDone)
        find({}, "does not work without failures, status %d: %s", status, report->expected.text());
    for (int part = 0; part < 4 && report->findings == 0; ++part) {
        partEnd = shareOf(end, 4 - static_cast<std::size_t>(part));
        sweepPart(scenario, {part >= 2, part % 2 != 0});
    }
}

} // namespace

/** sweep_memory [--short] [--seconds=of all] [--without=part of a name]... [part of a name]...

    Every scenario has its share of the seconds; what there is no time for is told, and no failure. */
int main(int argc, char** argv)
{
    int seconds = 1'000'000;
    std::vector<std::string> names, others;
    for (const std::string argument : std::span(argv + 1, argv + argc)) {
        if (argument == "--short")
            isShort = true;
        else if (argument.starts_with("--seconds="))
            seconds = std::stoi(argument.substr(10));
        else if (argument.starts_with("--without="))
            others.push_back(argument.substr(10));
        else
            names.push_back(argument);
    }
    const auto isWanted = [&](const Scenario& scenario) {
        const auto isPart = [&](const std::string& part) { return std::strstr(scenario.name, part.c_str()); };
        return (names.empty() || std::ranges::any_of(names, isPart)) && std::ranges::none_of(others, isPart);
    };
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
    const auto end = Clock::now() + std::chrono::seconds(seconds);
    int findings = 0;
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        sweepScenario(wanted[i], shareOf(end, wanted.size() - i));
        findings += report->findings;
    }
    std::printf("%zu scenarios, %d cases; no time for %d; %d findings\n", wanted.size(), report->cases,
                report->unreached, findings);
    fs::current_path("/");
    fs::remove_all(directory);
    std::fflush(stdout);
    _exit(findings == 0 ? 0 : 1); // the scenarios look for leaks: the loader's blocks are none of ours
}
