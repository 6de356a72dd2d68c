#pragma once
#include <cerrno>
#include <csignal>
#include <ctime>

namespace orvi::platform {

/** Keeps a signal that a failing write sends from the thread, for a scope: a pipe without a reader sends
    SIGPIPE, a file at the process's limit of sizes SIGXFSZ, and both end the process. */
class SignalShield {
public:
    explicit SignalShield(int signal)
    {
        sigset_t pending;
        sigpending(&pending);
        // One that waits already is somebody else's: it stays, and a second one merges into it.
        _ours = sigismember(&pending, signal) == 0;
        sigemptyset(&_signal);
        sigaddset(&_signal, signal);
        pthread_sigmask(SIG_BLOCK, &_signal, &_before);
    }
    ~SignalShield()
    {
        const int error = errno;
        const timespec atOnce{};
        while (_ours && sigtimedwait(&_signal, nullptr, &atOnce) < 0 && errno == EINTR) {
        }
        pthread_sigmask(SIG_SETMASK, &_before, nullptr);
        errno = error;
    }
    SignalShield(const SignalShield&) = delete;
    SignalShield& operator=(const SignalShield&) = delete;

private:
    sigset_t _signal;
    sigset_t _before;
    bool _ours;
};

} // namespace orvi::platform
