#include "Interrupt.h"

#include <atomic>
#include <csignal>

namespace apphost {

namespace {

std::atomic<bool> g_interrupted = false;
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler may not wait for a lock");

void onSignal(int) { g_interrupted = true; }

} // namespace

void catchInterrupts()
{
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool interrupted() { return g_interrupted; }

} // namespace apphost
