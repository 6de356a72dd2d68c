#include "platform/diagnostics/ConsoleDevice.h"

#include "platform/posix/base/DescriptorNumber.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace orvi::platform {

namespace {

/** Keeps SIGPIPE from this thread. The signal goes to the thread that writes, so that nobody else is
    concerned. Costs two system calls of some 100 ns and leaves the program's own handling of the signal
    alone. */
class BrokenPipeGuard {
public:
    BrokenPipeGuard()
    {
        sigemptyset(&_brokenPipe);
        sigaddset(&_brokenPipe, SIGPIPE);
        ::pthread_sigmask(SIG_BLOCK, &_brokenPipe, &_before);
    }
    ~BrokenPipeGuard()
    {
        // Where the program blocks the signal itself, a pending one is its own affair.
        const timespec noWait{};
        if (_raised && sigismember(&_before, SIGPIPE) == 0)
            ::sigtimedwait(&_brokenPipe, nullptr, &noWait);
        ::pthread_sigmask(SIG_SETMASK, &_before, nullptr);
    }
    BrokenPipeGuard(const BrokenPipeGuard&) = delete;
    BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;

    void setRaised() { _raised = true; }

private:
    sigset_t _brokenPipe;
    sigset_t _before;
    bool _raised = false;
};

/** Gives false, with errno set, when not all could be written. */
bool writeAll(const char* bytes, std::size_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(STDOUT_FILENO, bytes, size);
        if (written >= 0) {
            bytes += written;
            size -= static_cast<std::size_t>(written);
        } else if (errno == EAGAIN) {
            // Somebody made the terminal or pipe non-blocking, for himself as a rule.
            pollfd output{STDOUT_FILENO, POLLOUT, 0};
            ::poll(&output, 1, -1);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

/** Where standard input and output went before attach, -1 for closed. */
struct SavedStreams {
    bool attached = false;
    int input = -1;
    int output = -1;
};

constinit std::mutex g_attachMutex;
constinit SavedStreams g_saved;

/** A copy above the standard streams; -1 when `file` is closed. */
int copyAside(int file) { return ::fcntl(file, F_DUPFD_CLOEXEC, firstOwnDescriptor); }

int openTerminal() { return aboveStandardStreams(::open("/dev/tty", O_RDWR | O_CLOEXEC)); }

/** False, with nothing saved, when one that is open cannot be copied. */
bool saveStreams()
{
    const int input = copyAside(STDIN_FILENO);
    if (input < 0 && errno != EBADF)
        return false;
    const int output = copyAside(STDOUT_FILENO);
    if (output < 0 && errno != EBADF) {
        if (input >= 0)
            ::close(input);
        return false;
    }
    g_saved = {true, input, output};
    return true;
}

/** Makes `file` the standard stream `stream`, or closes that for -1. */
void restore(int file, int stream)
{
    if (file < 0) {
        ::close(stream);
        return;
    }
    ::dup2(file, stream);
    ::close(file);
}

void forgetStreamState()
{
    std::clearerr(stdin); // the end that was seen was that of another file
    std::clearerr(stdout);
}

} // namespace

bool ConsoleDevice::isOpen() { return ::fcntl(STDOUT_FILENO, F_GETFD) != -1; }

bool ConsoleDevice::isTerminal() { return ::isatty(STDOUT_FILENO) == 1; }

void ConsoleDevice::write(const char* bytes, std::size_t size)
{
    BrokenPipeGuard guard;
    const int callersError = errno;
    errno = 0;
    const bool flushed = std::fflush(stdout) == 0 || errno != EPIPE;
    const bool written = writeAll(bytes, size) || errno != EPIPE;
    if (!flushed || !written)
        guard.setRaised();
    errno = callersError; // a program may print first and ask why something failed then
}

bool ConsoleDevice::getSize(int& columns, int& rows)
{
    winsize size;
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0)
        return false;
    columns = size.ws_col;
    rows = size.ws_row;
    return true;
}

bool ConsoleDevice::attach()
{
    const std::lock_guard lock(g_attachMutex);
    if (isTerminal())
        return false;
    const int terminal = openTerminal();
    if (terminal < 0)
        return false;
    if (isOpen())
        std::fflush(stdout); // that text was meant for the other place
    if (!g_saved.attached && !saveStreams()) {
        ::close(terminal);
        return false;
    }
    ::dup2(terminal, STDIN_FILENO);
    ::dup2(terminal, STDOUT_FILENO);
    ::close(terminal);
    forgetStreamState();
    return true;
}

void ConsoleDevice::detach()
{
    const std::lock_guard lock(g_attachMutex);
    if (!g_saved.attached)
        return;
    std::fflush(stdout);
    restore(g_saved.input, STDIN_FILENO);
    restore(g_saved.output, STDOUT_FILENO);
    g_saved = {};
    forgetStreamState();
}

} // namespace orvi::platform
