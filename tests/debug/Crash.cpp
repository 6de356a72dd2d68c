// Gets into the trouble that is named on its command line, with a handler that writes a dump:
//     crash MODULE DUMP TROUBLE THREADS
// Says what the handler saw, and ends as the fault would have ended it.
#include "../../src/debug/DebugApi.h"
#include "RefusedCall.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <string_view>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>

namespace {

decltype(&orvi_debug_write_dump) writeDump;
int dumpFile;
std::atomic<int> waitingThreads;

int openFiles()
{
    int count = 0;
    for (int file = 0; file < 1024; ++file)
        count += fcntl(file, F_GETFD) >= 0 ? 1 : 0;
    return count;
}

void report(const OrviDebugFault* fault)
{
    sigset_t before{}, after{};
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    const int files = openFiles();
    const int result = writeDump(dumpFile, fault);
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    const bool noChild = waitpid(-1, nullptr, WNOHANG | __WALL) < 0 && errno == ECHILD;
    dprintf(STDOUT_FILENO, "result %d, thread %d, files %+d, %s, %s, dumpable %d\n", result, gettid(),
            openFiles() - files, noChild ? "no child" : "A CHILD",
            std::memcmp(&before, &after, sizeof after) == 0 ? "same mask" : "NEW MASK",
            prctl(PR_GET_DUMPABLE));
}

void handle(int signal, siginfo_t* info, void* context)
{
    const OrviDebugFault fault{signal, info->si_code, reinterpret_cast<uintptr_t>(info->si_addr),
                               static_cast<const ucontext_t*>(context)};
    report(&fault);
    std::signal(signal, SIG_DFL);
    raise(signal);
}

void useSmallSignalStack()
{
    constexpr std::size_t size = 64 << 10, guard = 4096;
    auto* memory = static_cast<char*>(
        mmap(nullptr, guard + size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(memory, guard, PROT_NONE);
    stack_t stack{};
    stack.ss_sp = memory + guard;
    stack.ss_size = size;
    sigaltstack(&stack, nullptr);
}

} // namespace

// Visible names and a known value for debuggers.
[[gnu::noinline]] void writeToNowhere(int* target)
{
    const int answer = 4711;
    *target = answer;
}

[[gnu::noinline]] int recurse(int depth)
{
    volatile char room[256];
    room[0] = static_cast<char>(depth);
    return depth < 0 ? 0 : recurse(depth + 1) + room[0];
}

[[gnu::noinline]] void waitForever()
{
    pthread_setname_np(pthread_self(), "a waiting one");
    ++waitingThreads;
    for (;;)
        pause();
}

namespace {

void crash() { writeToNowhere(reinterpret_cast<int*>(0x10)); }

void runOnAThread(void (*trouble)())
{
    std::thread([trouble] {
        useSmallSignalStack();
        trouble();
    }).join();
}

void crashWithoutMainThread()
{
    static const pthread_t mainThread = pthread_self();
    std::thread(runOnAThread, [] {
        pthread_join(mainThread, nullptr);
        crash();
    }).detach();
    pthread_exit(nullptr);
}

} // namespace

int main(int count, char** arguments)
{
    void* module = count == 5 ? dlmopen(LM_ID_NEWLM, arguments[1], RTLD_NOW | RTLD_LOCAL) : nullptr;
    if (module == nullptr)
        return 2;
    writeDump = reinterpret_cast<decltype(writeDump)>(dlsym(module, "orvi_debug_write_dump"));
    dumpFile = open(arguments[2], O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    useSmallSignalStack();
    struct sigaction action {};
    action.sa_sigaction = handle;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigaction(SIGSEGV, &action, nullptr);
    const int threads = std::atoi(arguments[4]);
    for (int i = 0; i < threads; ++i)
        std::thread(waitForever).detach();
    while (waitingThreads != threads)
        std::this_thread::yield();

    const std::string_view trouble = arguments[3];
    if (trouble == "none") {
        report(nullptr);
        return 0;
    }
    if (trouble == "files") {
        const rlimit limit{64, 64};
        setrlimit(RLIMIT_NOFILE, &limit);
        while (open("/dev/null", O_RDONLY) >= 0) {
        }
    }
    if (trouble == "undumpable")
        prctl(PR_SET_DUMPABLE, 0);
    else if (trouble == "no-ptrace")
        refuse(SYS_ptrace, SECCOMP_RET_ERRNO | EPERM);
    else if (trouble == "deadly-ptrace")
        refuse(SYS_ptrace, SECCOMP_RET_KILL_PROCESS);
    else if (trouble == "overflow")
        recurse(0);
    else if (trouble == "overflow-thread")
        runOnAThread([] { recurse(0); });
    else if (trouble == "leader")
        crashWithoutMainThread();
    else if (trouble == "thread")
        runOnAThread(crash);
    crash();
    return 0;
}
