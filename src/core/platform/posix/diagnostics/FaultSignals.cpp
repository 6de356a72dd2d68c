#include "GuardRecord.h"

#include "platform/diagnostics/ThreadInfo.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

extern "C" [[gnu::visibility("hidden")]] void orvi_guard_landing();

namespace orvi::platform {
namespace {

std::atomic<FaultFilter> g_filter = nullptr;
std::atomic<bool> g_isUnguardedFiltered = false;
struct sigaction g_previous[NSIG];
std::terminate_handler g_previousTerminate = nullptr;

// Read by the handlers, as t_guard is.
[[gnu::tls_model("initial-exec")]] thread_local constinit StackBounds t_stack{0, 0};
[[gnu::tls_model("initial-exec")]] thread_local constinit int t_unguarded =
    0; // the signal that is being filtered

/** The end that the process would have had: by the handler that was there before us, or by the signal. */
void goTheOldWay(int signal, siginfo_t* info, void* context)
{
    const struct sigaction& previous = g_previous[signal];
    if ((previous.sa_flags & SA_SIGINFO) != 0) {
        previous.sa_sigaction(signal, info, context);
    } else if (previous.sa_handler != SIG_DFL && previous.sa_handler != SIG_IGN) {
        previous.sa_handler(signal);
    } else {
        ::signal(signal, SIG_DFL);
        const bool comesAgain = info->si_code > 0 && signal != SIGTRAP; // by itself, where the fault was
        if (!comesAgain)
            raise(signal);
    }
}

/** Whether the address lies in the pages below the stack that the system keeps free. */
bool isBelowStack(std::uintptr_t address, std::uintptr_t stackPointer)
{
    constexpr std::uintptr_t guardBytes = 1 << 20;
    constexpr std::uintptr_t pageBytes = 4096;
    return t_stack.lowest != 0 && address < t_stack.lowest + pageBytes &&
           address + guardBytes >= t_stack.lowest && stackPointer < t_stack.lowest + 2 * pageBytes;
}

Fault faultOf(int signal, const siginfo_t& info, const ucontext_t& context)
{
    // Behind a signal that was sent, and a general protection fault, the address says nothing.
    const bool hasAddress = info.si_code > 0 && info.si_code != SI_KERNEL;
    const auto address = hasAddress ? reinterpret_cast<std::uintptr_t>(info.si_addr) : 0;
    Fault fault{faultCode(signal, info.si_code), signal, info.si_code, address, &context};
    constexpr unsigned long stackOverflow = 0xC00000FD;
    if (signal == SIGSEGV && hasAddress &&
        isBelowStack(address, static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_RSP])))
        fault.code = stackOverflow;
    return fault;
}

/** Sends the interrupted thread behind its guard. The return from the handler does it, which also restores the signal
    mask and leaves the stack for signals. */
void land(const GuardRecord& guard, ucontext_t& context)
{
    greg_t* registers = context.uc_mcontext.gregs;
    registers[REG_RIP] = reinterpret_cast<greg_t>(&orvi_guard_landing);
    registers[REG_RSP] = static_cast<greg_t>(guard.place[0]);
    registers[REG_RBP] = static_cast<greg_t>(guard.place[1]);
}

/** The process ends by the first fault, also when the filter has one of its own. */
void filterUnguardedFault(const Fault& fault)
{
    if (t_unguarded != 0) {
        ::signal(t_unguarded, SIG_DFL);
        raise(t_unguarded);
    }
    t_unguarded = fault.signal;
    filterFault(fault);
    t_unguarded = 0;
}

void onFault(int signal, siginfo_t* info, void* contextOfThread)
{
    const int error = errno;
    auto& context = *static_cast<ucontext_t*>(contextOfThread);
    const bool isOurs = info->si_code > 0; // nobody sent it
    GuardRecord* guard = t_guard;
    if (isOurs && guard != nullptr) {
        const Fault fault = faultOf(signal, *info, context);
        const bool isInFilter = guard->isFiltering;
        guard->isFiltering = true;
        const bool isHandled = isInFilter || filterFault(fault);
        guard->isFiltering = false;
        if (isHandled) {
            guard->code = fault.code;
            land(*guard, context);
            errno = error;
            return;
        }
    } else if (isOurs && g_isUnguardedFiltered) {
        filterUnguardedFault(faultOf(signal, *info, context));
    }
    errno = error;
    goTheOldWay(signal, info, contextOfThread);
}

/** abort sends the signal to its own thread; from anybody else it is a signal like others. */
void onAbort(int signal, siginfo_t* info, void* context)
{
    const int error = errno;
    if (info->si_code == SI_TKILL && info->si_pid == getpid())
        filterUnguardedFault({abnormalEnd, signal, info->si_code, 0, context});
    errno = error;
    goTheOldWay(signal, info, context);
}

void onTerminate()
{
    ucontext_t here;
    getcontext(&here);
    filterUnguardedFault(
        {std::current_exception() != nullptr ? thrownObject : abnormalEnd, SIGABRT, SI_TKILL, 0, &here});
    if (g_previousTerminate != nullptr)
        g_previousTerminate();
    std::abort();
}

void install(int signal, void (*handler)(int, siginfo_t*, void*))
{
    struct sigaction action {};
    action.sa_sigaction = handler;
    // The signal stays open: a fault in the filter has to come through.
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, &g_previous[signal]);
}

bool isOurs(const struct sigaction& action)
{
    return (action.sa_flags & SA_SIGINFO) != 0 &&
           (action.sa_sigaction == onFault || action.sa_sigaction == onAbort);
}

/** The library goes: at dlclose, or behind the last destructor of the program. */
[[gnu::destructor]] void giveSignalsBack()
{
    for (const int signal : handledSignals) {
        struct sigaction present {};
        if (sigaction(signal, nullptr, &present) == 0 && isOurs(present))
            sigaction(signal, &g_previous[signal], nullptr);
    }
    if (std::get_terminate() == onTerminate)
        std::set_terminate(g_previousTerminate);
}

std::size_t faultStackBytes()
{
    // What is produced there reads debug information in a child of its own, on a copy of this stack.
    constexpr std::size_t filterBytes = 256UL * 1024;
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const auto least = static_cast<std::size_t>(sysconf(_SC_MINSIGSTKSZ));
    return (least + filterBytes + page - 1) / page * page;
}

} // namespace

unsigned long faultCode(int signal, int signalCode)
{
    switch (signal) {
    case SIGBUS:
        return signalCode == BUS_ADRALN ? 0x80000002 : 0xC0000006;
    case SIGTRAP:
        return signalCode == TRAP_TRACE ? 0x80000004 : 0x80000003;
    case SIGILL:
        return signalCode == ILL_PRVOPC || signalCode == ILL_PRVREG ? 0xC0000096 : 0xC000001D;
    case SIGFPE:
        switch (signalCode) {
        case FPE_INTOVF:
            return 0xC0000095;
        case FPE_FLTDIV:
            return 0xC000008E;
        case FPE_FLTOVF:
            return 0xC0000091;
        case FPE_FLTUND:
            return 0xC0000093;
        case FPE_FLTRES:
            return 0xC000008F;
        case FPE_FLTINV:
            return 0xC0000090;
        case FPE_FLTSUB:
            return 0xC000008C;
        default:
            return 0xC0000094;
        }
    default:
        return 0xC0000005;
    }
}

bool filterFault(const Fault& fault)
{
    const FaultFilter filter = g_filter;
    return filter == nullptr || filter(fault);
}

void guardFaults(FaultFilter filter)
{
    static constinit std::once_flag once;
    g_filter = filter;
    std::call_once(once, [] {
        for (const int signal : handledSignals) {
            if (signal != SIGABRT)
                install(signal, onFault);
        }
    });
}

void filterUnguarded()
{
    static constinit std::once_flag once;
    std::call_once(once, [] {
        g_isUnguardedFiltered = true;
        install(SIGABRT, onAbort);
        g_previousTerminate = std::set_terminate(onTerminate);
    });
}

bool FaultStack::isThere() noexcept
{
    stack_t present{};
    return sigaltstack(nullptr, &present) == 0 && (present.ss_flags & SS_DISABLE) == 0;
}

void* FaultStack::provide() noexcept
{
    t_stack = currentStackBounds();
    if (isThere())
        return nullptr;
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t size = faultStackBytes();
    void* memory =
        mmap(nullptr, page + size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (memory == MAP_FAILED)
        return nullptr;
    mprotect(memory, page, PROT_NONE); // an overflow of this stack shall be a fault too
    stack_t stack{};
    stack.ss_sp = static_cast<char*>(memory) + page;
    stack.ss_size = size;
    if (sigaltstack(&stack, nullptr) == 0)
        return memory;
    munmap(memory, page + size);
    return nullptr;
}

void FaultStack::remove(void* memory) noexcept
{
    if (memory == nullptr)
        return;
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    stack_t present{};
    if (sigaltstack(nullptr, &present) == 0 && present.ss_sp == static_cast<char*>(memory) + page) {
        stack_t none{};
        none.ss_flags = SS_DISABLE;
        sigaltstack(&none, nullptr);
    }
    munmap(memory, page + faultStackBytes());
}

} // namespace orvi::platform
