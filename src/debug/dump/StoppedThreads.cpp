#include "StoppedThreads.h"

#include "base/ProcFile.h"
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <iterator>
#include <sys/ptrace.h>
#include <sys/wait.h>

namespace orvi::debug {

void StoppedThreads::stopOthers(pid_t task)
{
    constexpr int mostMillis = 500;
    const Deadline deadline(mostMillis);
    // A thread may start others until it stops.
    while (seizeNew(task) && !deadline.isOver())
        awaitStops(deadline);
}

bool StoppedThreads::seizeNew(pid_t task)
{
    const std::size_t before = _count;
    const ProcFile directory(task, "task", O_DIRECTORY);
    alignas(dirent64) char entries[4096];
    for (ssize_t size; (size = getdents64(directory.descriptor(), entries, sizeof entries)) > 0;) {
        for (ssize_t place = 0; place < size;) {
            const auto* entry = reinterpret_cast<const dirent64*>(entries + place);
            const pid_t id = std::atoi(entry->d_name); // 0 for "." and ".."
            if (id != 0 && id != task)
                seize(id);
            place += entry->d_reclen;
        }
    }
    return _count != before;
}

void StoppedThreads::seize(pid_t id)
{
    const bool isKnown =
        std::ranges::any_of(threads(), [&](const Thread& thread) { return thread.id == id; });
    if (isKnown || _count == std::size(_threads) || ptrace(PTRACE_SEIZE, id, nullptr, nullptr) != 0)
        return;
    ptrace(PTRACE_INTERRUPT, id, nullptr, nullptr);
    _threads[_count++].id = id;
}

void StoppedThreads::awaitStops(const Deadline& deadline)
{
    for (Thread& thread : std::span(_threads, _count)) {
        while (thread.state == Thread::State::Running) {
            int status = 0;
            const pid_t ready = waitpid(thread.id, &status, __WALL | WNOHANG);
            if (ready > 0)
                thread.state = WIFSTOPPED(status) ? Thread::State::Stopped : Thread::State::Gone;
            else if (ready < 0 && errno != EINTR)
                thread.state = Thread::State::Gone;
            else if (deadline.isOver())
                break; // the others may have stopped meanwhile
            else
                Deadline::pause();
        }
    }
}

bool StoppedThreads::Thread::readRegisters(user_regs_struct& general, user_fpregs_struct& floatingPoint) const
{
    return state == State::Stopped && ptrace(PTRACE_GETREGS, id, nullptr, &general) == 0 &&
           ptrace(PTRACE_GETFPREGS, id, nullptr, &floatingPoint) == 0;
}

} // namespace orvi::debug
