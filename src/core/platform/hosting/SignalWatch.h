#pragma once
#include <initializer_list>

namespace orvi::platform {

/** Hears requests that reach the process as signals, on a thread of its own, where everything may be done.

    Where two watches want the same signal, the one that started last has it until it stops: stop them in
    reverse order. For static objects; one thread at a time. */
class SignalWatch {
public:
    using Handler = void (*)(int signal);

    constexpr SignalWatch() = default;
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

    /** Numbers as in <csignal>, below 64. False, with nothing changed, when there is no thread to be had; the
        last error has the reason. */
    bool start(std::initializer_list<int> signals, Handler handler);
    /** Gives the signals back to who had them before. What was heard until then is handled first. Not for the
        handler. */
    void stop();

private:
    struct State;
    State* _state = nullptr; // never released: a signal handler may be late
};

} // namespace orvi::platform
