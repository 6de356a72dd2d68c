#include "Interrupt.h"

#include <atomic>
#include <csignal>
#include <cstdint>
#include <sys/eventfd.h>
#include <unistd.h>

namespace apphost {

namespace {

std::atomic<bool> g_interrupted = false;
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler may not wait for a lock");
int g_event = -1;

void onSignal(int)
{
    g_interrupted = true;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(g_event, &one, sizeof one);
}

} // namespace

void catchInterrupts()
{
    g_event = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool interrupted() { return g_interrupted; }

int interruptDescriptor() { return g_event; }

} // namespace apphost
