#include "Dump.h"
#include "base/Deadline.h"
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace orvi::debug;

constexpr int childMillis = 8'000;
constexpr int killMillis = 1'000;
constexpr int turnMillis = 10'000; // somewhat longer than another thread takes

/** The right to write a dump, one thread at a time. A thread that has it already, whose writing a fault or a signal
    interrupted, gets none. */
class Turn {
public:
    Turn()
    {
        const Deadline deadline(turnMillis);
        const pid_t self = gettid();
        for (pid_t holder = 0; !_holder.compare_exchange_strong(holder, self); holder = 0) {
            if (holder == self || deadline.isOver())
                return;
            Deadline::pause();
        }
        _isMine = true;
    }
    ~Turn()
    {
        if (_isMine)
            _holder.store(0);
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    bool isMine() const { return _isMine; }

private:
    static constinit std::atomic<pid_t> _holder;
    bool _isMine = false;
};

constinit std::atomic<pid_t> Turn::_holder{0};

/** A process that once changed its user, or asked for it, may read neither its own memory map nor its memory, and no
    child may trace it. */
class Dumpable {
public:
    Dumpable()
    {
        if (_before != 1)
            prctl(PR_SET_DUMPABLE, 1);
    }
    ~Dumpable()
    {
        if (_before != 1)
            prctl(PR_SET_DUMPABLE, 0); // 2 is not for processes to set
    }
    Dumpable(const Dumpable&) = delete;
    Dumpable& operator=(const Dumpable&) = delete;

private:
    int _before = prctl(PR_GET_DUMPABLE);
};

sigset_t only(int signal)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    return set;
}

constexpr int startSignal = SIGUSR1;

// The program's files are not the child's business, and it needs some numbers for its own.
void closeOthers(int file)
{
    const auto number = static_cast<unsigned int>(file);
    if (number != 0)
        close_range(0, number - 1, 0);
    close_range(number + 1, ~0u, 0);
}

enum class Outcome { Written, FileFailed, ChildFailed }; // the child's exit status

[[noreturn]] void runChild(const DumpRequest& request)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL); // should somebody lose patience with the process
    closeOthers(request.file);
    Outcome outcome = Outcome::ChildFailed;
    const sigset_t start = only(startSignal);
    const timespec limit{childMillis / 1000, 0};
    if (sigtimedwait(&start, nullptr, &limit) == startSignal)
        outcome = writeDump(request, DumpThreads::All) ? Outcome::Written : Outcome::FileFailed;
    _exit(static_cast<int>(outcome));
}

// The C library's own function lets two signals through that it needs for itself.
void setSignalMask(const sigset_t& mask, sigset_t* before)
{
    constexpr std::size_t kernelMaskBytes = 8;
    syscall(SYS_rt_sigprocmask, SIG_SETMASK, &mask, before, kernelMaskBytes);
}

// A copy of this process, and nothing else: the C library's fork() waits for locks that the thread of the fault may
// hold. No signal at its end: the program's handler and its wait() shall not see it. Every signal is blocked in the
// child.
pid_t startChild(const DumpRequest& request)
{
    sigset_t all, before;
    std::memset(&all, 0xFF, sizeof all);
    setSignalMask(all, &before);
    const auto child = static_cast<pid_t>(syscall(SYS_clone, 0, nullptr, nullptr, nullptr, nullptr));
    if (child == 0)
        runChild(request);
    setSignalMask(before, nullptr);
    return child;
}

/** Gives its status when the child ends in time. */
std::optional<int> awaitEnd(pid_t child, int millis)
{
    for (const Deadline deadline(millis); !deadline.isOver(); Deadline::pause()) {
        int status = 0;
        const pid_t ended = waitpid(child, &status, __WALL | WNOHANG);
        if (ended == child)
            return status;
        if (ended < 0 && errno != EINTR)
            return SIGKILL; // somebody else has waited for it: how it ended is unknown, and its id another's soon
    }
    return {};
}

Outcome writeByChild(const DumpRequest& request)
{
    const pid_t child = startChild(request);
    if (child < 0)
        return Outcome::ChildFailed;
    // Some systems let only parents trace; the others do not know the call.
    prctl(PR_SET_PTRACER, child);
    kill(child, startSignal);
    std::optional<int> status = awaitEnd(child, childMillis);
    if (!status) {
        kill(child, SIGKILL);
        awaitEnd(child, killMillis);
    }
    return status && WIFEXITED(*status) ? static_cast<Outcome>(WEXITSTATUS(*status)) : Outcome::ChildFailed;
}

bool write(const DumpRequest& request)
{
    const Turn turn;
    if (!turn.isMine())
        return false;
    const Dumpable dumpable;
    Outcome outcome = writeByChild(request);
    if (outcome == Outcome::ChildFailed && ftruncate(request.file, 0) == 0)
        outcome = writeDump(request, DumpThreads::OfFaultOnly) ? Outcome::Written : Outcome::FileFailed;
    if (outcome == Outcome::Written)
        return true;
    [[maybe_unused]] const int ignored =
        ftruncate(request.file, 0); // without its header it is no dump anyway
    return false;
}

} // namespace

int orvi_debug_write_dump(int file, const OrviDebugFault* fault)
{
    // Appending, the header would come last.
    const int flags = fcntl(file, F_GETFL);
    if (flags < 0 || (flags & O_APPEND) != 0)
        return 0;

    ucontext_t here{};
    DumpRequest request{file, getpid(), gettid(), fault != nullptr ? *fault : OrviDebugFault{}};
    if (request.fault.registers == nullptr) {
        if (getcontext(&here) != 0)
            return 0;
        request.fault.registers = &here;
    }
    return write(request) ? 1 : 0;
}
