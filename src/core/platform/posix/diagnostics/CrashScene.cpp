#include "platform/diagnostics/CrashScene.h"

#include "GuardRecord.h"
#include "SignalShield.h"
#include "platform/diagnostics/FileReserve.h"
#include "platform/posix/base/DescriptorNumber.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

namespace orvi::platform {
namespace {

/** Whether another try may find a descriptor. */
bool makesRoom(int error) { return (error == EMFILE || error == ENFILE) && releaseReservedFile(); }

int openForReport(const char* path, int flags, mode_t mode = 0)
{
    int file = noFile;
    do
        file = open(path, flags | O_CLOEXEC, mode);
    while (file == noFile && makesRoom(errno));
    if (file == noFile || file >= firstOwnDescriptor)
        return file;
    int moved = noFile;
    do
        moved = fcntl(file, F_DUPFD_CLOEXEC, firstOwnDescriptor);
    while (moved == noFile && makesRoom(errno));
    close(file);
    return moved;
}

/** The beginning of a file of the system, with a NUL behind it; gives its size. */
std::size_t readBeginning(const char* path, char* target, std::size_t size)
{
    const int file = openForReport(path, O_RDONLY);
    std::size_t count = 0;
    while (file != noFile && count < size - 1) {
        const ssize_t piece = read(file, target + count, size - 1 - count);
        if (piece < 0 && errno == EINTR)
            continue;
        if (piece <= 0)
            break;
        count += static_cast<std::size_t>(piece);
    }
    if (file != noFile)
        close(file);
    target[count] = 0;
    return count;
}

} // namespace

bool isDebuggerPresent()
{
    static char text[4096]; // one report at a time
    if (readBeginning("/proc/self/status", text, sizeof text) == 0)
        return false;
    const char* line = std::strstr(text, "\nTracerPid:");
    return line != nullptr && std::strtol(line + std::strlen("\nTracerPid:"), nullptr, 10) != 0;
}

std::size_t readProgramPath(char* target, std::size_t size)
{
    const ssize_t length = readlink("/proc/self/exe", target, size - 1);
    const std::size_t count = length > 0 ? static_cast<std::size_t>(length) : 0;
    target[count] = 0;
    return count;
}

std::size_t readCommandLine(char* target, std::size_t size)
{
    std::size_t count = readBeginning("/proc/self/cmdline", target, size);
    for (std::size_t i = 0; i + 1 < count; ++i) {
        if (target[i] == 0)
            target[i] = ' ';
    }
    return count;
}

SystemVersion systemVersion()
{
    SystemVersion version{};
    utsname name{};
    if (uname(&name) != 0)
        return version;
    const char* digits = name.release; // as in 6.1.0-13-amd64
    for (int* number : {&version.major, &version.minor, &version.build}) {
        char* behind = nullptr;
        *number = static_cast<int>(std::strtol(digits, &behind, 10));
        if (*behind != '.')
            break;
        digits = behind + 1;
    }
    std::snprintf(version.text, sizeof version.text, "%s %s %s", name.sysname, name.release, name.machine);
    return version;
}

bool findSecondsEast(long& seconds, unsigned int mostMillis)
{
    void* shared = mmap(nullptr, sizeof seconds, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED)
        return false;
    const auto ask = [](void* answer) {
        const std::time_t now = std::time(nullptr);
        std::tm local{};
        if (localtime_r(&now, &local) == nullptr)
            _exit(1);
        *static_cast<long*>(answer) = local.tm_gmtoff;
    };
    const bool isKnown = runInChild(ask, shared, noFile, mostMillis) == ChildEnd::Done;
    if (isKnown)
        seconds = *static_cast<const long*>(shared);
    munmap(shared, sizeof seconds);
    return isKnown;
}

RegisterValues registerValues(const void* registers)
{
    const auto& values = static_cast<const ucontext_t*>(registers)->uc_mcontext.gregs;
    const auto value = [&](int index) { return static_cast<std::uint64_t>(values[index]); };
    const auto selector = [&](int place) {
        return static_cast<unsigned int>(value(REG_CSGSFS) >> (16 * place) & 0xFFFF);
    };
    RegisterValues result{value(REG_RAX),
                          value(REG_RBX),
                          value(REG_RCX),
                          value(REG_RDX),
                          value(REG_RSI),
                          value(REG_RDI),
                          value(REG_RIP),
                          value(REG_RSP),
                          value(REG_RBP),
                          value(REG_EFL),
                          selector(0),
                          selector(3),
                          0,
                          0,
                          selector(2),
                          selector(1)};
    // The same in every thread, and in no context.
    asm("mov %%ds, %0" : "=r"(result.ds));
    asm("mov %%es, %0" : "=r"(result.es));
    return result;
}

std::size_t walkFramePointers(const void* registers, std::uintptr_t* addresses, std::size_t capacity)
{
    const RegisterValues values = registerValues(registers);
    std::uintptr_t frame[2] = {values.bp, values.ip}; // its caller's frame, and the address
    std::uintptr_t above = values.sp;
    std::size_t count = 0;
    while (count < capacity && frame[1] != 0) {
        addresses[count++] = frame[1];
        const std::uintptr_t place = frame[0];
        iovec target{frame, sizeof frame};
        iovec source{reinterpret_cast<void*>(place), sizeof frame};
        // Read by the system, since the stack may be anything.
        if (place < above || process_vm_readv(getpid(), &target, 1, &source, 1, 0) != sizeof frame)
            break;
        above = place + sizeof frame;
    }
    return count;
}

void withRegisters(void (*use)(const void* registers))
{
    ucontext_t here;
    getcontext(&here);
    use(&here);
}

int createFile(const char* path) { return openForReport(path, O_WRONLY | O_CREAT | O_EXCL, 0600); }

int openFile(const char* path) { return openForReport(path, O_RDWR | O_TRUNC); }

bool endsInLine(int file)
{
    struct stat status {};
    char last = '\n';
    return fstat(file, &status) == 0 && status.st_size > 0 &&
           pread(file, &last, 1, status.st_size - 1) == 1 && last != '\n';
}

bool writeFile(int file, const char* data, std::size_t size)
{
    while (size > 0) {
        const ssize_t count = write(file, data, size);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        data += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

void withoutWriteSignals(void (*work)(void*), void* argument)
{
    const SignalShield atLimit(SIGXFSZ);
    const SignalShield withoutReader(SIGPIPE);
    work(argument);
}

void closeFile(int file) { close(file); }

void writeStandardError(const char* data, std::size_t size) { writeFile(STDERR_FILENO, data, size); }

namespace {

/** A child has no use for the program's files, and may need some where the program has no descriptor left. */
void closeFilesBut(int kept)
{
    const auto number = static_cast<unsigned int>(std::max(kept, firstOwnDescriptor - 1));
    if (number > firstOwnDescriptor)
        close_range(firstOwnDescriptor, number - 1, 0);
    close_range(number + 1, ~0U, 0);
}

} // namespace

ChildEnd runInChild(void (*work)(void*), void* argument, int file, unsigned int mostMillis)
{
    // Not fork: that waits for the locks of the heap, which may be this very thread's.
    const pid_t child = _Fork();
    if (child < 0)
        return ChildEnd::NotStarted;
    if (child == 0) {
        for (const int signal : handledSignals)
            ::signal(signal, SIG_DFL);
        closeFilesBut(file);
        work(argument);
        _exit(0);
    }
    constexpr unsigned int pauseMillis = 1;
    int status = -1;
    for (unsigned int waited = 0;; waited += pauseMillis) {
        const pid_t ended = waitpid(child, &status, WNOHANG | __WALL);
        if (ended == child || (ended < 0 && errno != EINTR))
            break; // without a status where children are not waited for
        if (waited >= mostMillis) {
            kill(child, SIGKILL);
            waitpid(child, &status, __WALL);
            break;
        }
        sleepMillis(pauseMillis);
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? ChildEnd::Done : ChildEnd::Failed;
}

void sleepMillis(unsigned int millis)
{
    const timespec pause{static_cast<time_t>(millis / 1000), static_cast<long>(millis % 1000) * 1000000};
    nanosleep(&pause, nullptr);
}

} // namespace orvi::platform
