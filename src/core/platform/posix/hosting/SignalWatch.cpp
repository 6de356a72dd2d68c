#include "platform/hosting/SignalWatch.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <semaphore.h>
#include <system_error>
#include <thread>
#include <vector>

namespace orvi::platform {

namespace {

constexpr int signalLimit = 64;

}

struct SignalWatch::State {
    /** What a signal led to before. */
    struct Former {
        int signal;
        struct sigaction action;
        State* watch;
    };

    sem_t wake;
    std::atomic<std::uint64_t> pending = 0; // a bit for each signal
    std::atomic<bool> ending = false;
    Handler handler = nullptr;
    std::vector<Former> former;
    std::thread thread;

    void watch(int signal);
    void run();

    static void onSignal(int signal);
    static std::atomic<State*> watching[signalLimit];
};

std::atomic<SignalWatch::State*> SignalWatch::State::watching[signalLimit];
static_assert(std::atomic<std::uint64_t>::is_always_lock_free, "a signal handler may not wait for a lock");

// Signal-safe: lock-free atomics and sem_post only.
void SignalWatch::State::onSignal(int signal)
{
    const int interruptedError = errno;
    if (State* state = watching[signal]) {
        state->pending |= std::uint64_t{1} << signal;
        sem_post(&state->wake);
    }
    errno = interruptedError;
}

void SignalWatch::State::watch(int signal)
{
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART;
    Former before{signal, {}, watching[signal].exchange(this)};
    sigaction(signal, &action, &before.action);
    former.push_back(before);
}

void SignalWatch::State::run()
{
    for (;;) {
        const bool last = ending; // read first: what was heard before is pending by now
        const std::uint64_t arrived = pending.exchange(0);
        for (int signal = 1; signal < signalLimit; ++signal) {
            if ((arrived >> signal & 1) != 0)
                handler(signal);
        }
        if (last)
            return;
        sem_wait(&wake); // a signal may end it early, which costs one turn
    }
}

bool SignalWatch::start(std::initializer_list<int> signals, Handler handler)
{
    if (_state == nullptr) {
        _state = new State;
        sem_init(&_state->wake, 0, 0);
    }
    _state->handler = handler;
    _state->ending = false;
    _state->former.reserve(signals.size()); // nothing may fail behind the thread
    try {
        _state->thread = std::thread(&State::run, _state);
    } catch (const std::system_error& error) {
        errno = error.code().value();
        return false;
    }
    for (const int signal : signals)
        _state->watch(signal);
    return true;
}

void SignalWatch::stop()
{
    std::vector<State::Former>& former = _state->former;
    for (; !former.empty(); former.pop_back()) {
        const State::Former& before = former.back();
        sigaction(before.signal, &before.action, nullptr);
        State::watching[before.signal] = before.watch;
    }
    _state->ending = true;
    sem_post(&_state->wake);
    _state->thread.join();
}

} // namespace orvi::platform
