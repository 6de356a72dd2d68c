#include "platform/hosting/ServiceThread.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <mutex>
#include <pthread.h>

namespace orvi::platform {

namespace {

constinit std::mutex g_mutex; // guards the next two; never held while this thread stands still
bool g_running = false;
pthread_t g_thread;
struct sigaction g_before; // what the program had for the signal

std::atomic<bool> g_paused = false;
std::atomic<bool> g_standing = false; // the body's thread alone writes it
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler may not wait for a lock");

/** A real-time signal away from both ends, where programs and libraries look for theirs first. */
int pauseSignal() { return SIGRTMIN + 9; }

// Signal-safe: lock-free atomics and sigsuspend only. Comes to pause and again to resume; all signals are
// blocked here, so the second one finds sigsuspend or is pending when that begins.
void standStill(int)
{
    if (g_standing)
        return; // it was in sigsuspend: the loop below looks again
    const int interruptedError = errno;
    g_standing = true;
    sigset_t others;
    sigfillset(&others);
    sigdelset(&others, pauseSignal());
    while (g_paused)
        sigsuspend(&others);
    g_standing = false;
    errno = interruptedError;
}

using Body = void (*)(void*);

/** Marks the end of the body, also one by pthread_exit. */
struct RunningMark {
    ~RunningMark()
    {
        const std::lock_guard lock(g_mutex);
        g_running = false;
    }
};

void* runBody(void* body)
{
    const RunningMark mark;
    sigset_t pause;
    sigemptyset(&pause);
    sigaddset(&pause, pauseSignal());
    pthread_sigmask(SIG_UNBLOCK, &pause, nullptr);
    reinterpret_cast<Body>(body)(nullptr);
    return nullptr;
}

void change(bool paused)
{
    pthread_t thread;
    {
        const std::lock_guard lock(g_mutex);
        if (!g_running || g_paused.exchange(paused) == paused)
            return;
        thread = g_thread;
        if (!pthread_equal(thread, pthread_self())) {
            pthread_kill(thread, pauseSignal()); // under the lock it cannot have ended
            return;
        }
    }
    pthread_kill(thread, pauseSignal());
}

} // namespace

bool ServiceThread::start(Body body)
{
    struct sigaction action = {};
    action.sa_handler = standStill;
    sigfillset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(pauseSignal(), &action, &g_before);

    const std::lock_guard lock(g_mutex);
    g_paused = false;
    const int error = pthread_create(&g_thread, nullptr, runBody, reinterpret_cast<void*>(body));
    g_running = error == 0;
    if (error != 0) {
        sigaction(pauseSignal(), &g_before, nullptr);
        errno = error;
    }
    return error == 0;
}

void ServiceThread::join()
{
    pthread_join(g_thread, nullptr);
    sigaction(pauseSignal(), &g_before, nullptr);
}

void ServiceThread::pause() { change(true); }

void ServiceThread::resume() { change(false); }

} // namespace orvi::platform
