// Lets each system call that the library makes fail, one after the other, with each error that it can have, and
// looks whether what the library says is true, whether it goes on afterwards, and whether a descriptor is left.
// Each case runs in a child of its own. Usage: system_call_sweep [SECONDS]; without a limit it runs to the end.
#include "SystemCallSweep.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <iterator>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int half = -1; // no error: the call does half of what was asked for

/** One of the system's calls, in a scene. */
struct Call {
    const char* name;
    int count;     // in a run without a failure
    int errors[8]; // that it can have; 0 behind the last
};

/** What the children tell: the memory is shared with them. */
struct Record {
    Call calls[64];
    int descriptorsKept; // after a run without a failure
    const char* fault;   // of the run under way; null for none
};

Record* g_record = nullptr;
bool g_isRecording = false;
bool g_isArmed = false;
const char* g_failing = ""; // the call that fails,
int g_turn = 0;             // so many of it from now,
int g_error = 0;            // with this
bool g_hasFailed = false;

/** Whether this call fails, with errno set, or becomes `half`. */
bool strikes(const char* name, std::initializer_list<int> errors)
{
    if (g_isArmed && g_isRecording) {
        Call* call = g_record->calls;
        while (call->name != nullptr && std::strcmp(call->name, name) != 0)
            ++call;
        call->name = name;
        ++call->count;
        std::copy(errors.begin(), errors.end(), call->errors);
    }
    if (!g_isArmed || std::strcmp(g_failing, name) != 0 || --g_turn != 0)
        return false;
    g_hasFailed = true;
    if (g_error != half)
        errno = g_error;
    return true;
}

/** Calls with six words whatever a function takes: the rest is not looked at. */
using Words = long (*)(long, long, long, long, long, long);

Words next(const char* name) { return reinterpret_cast<Words>(dlsym(RTLD_NEXT, name)); }

} // namespace

// In the place of the C library's functions, for the library under test as for this program. They have names of
// their own for the compiler, which knows the others in other forms.
#define ORVI_HOOK(name)                                                                                 \
    extern "C"                                                                                          \
        [[gnu::visibility("default")]] long hook_##name(long, long, long, long, long, long) asm(#name); \
    long hook_##name(long a, [[maybe_unused]] long b, [[maybe_unused]] long c, [[maybe_unused]] long d, \
                     [[maybe_unused]] long e, [[maybe_unused]] long f)
// One that is no more than a system call; of a transfer, `c` is the size.
#define ORVI_CALL(name, number, ...)                                               \
    ORVI_HOOK(name)                                                                \
    {                                                                              \
        if (!strikes(#name, {__VA_ARGS__}))                                        \
            return syscall(number, a, b, c, d, e, f);                              \
        return g_error != half ? -1 : syscall(number, a, b, (c + 1) / 2, d, e, f); \
    }
// One that does more; `failure` is its answer then.
#define ORVI_FORWARD(name, failure, ...) \
    ORVI_HOOK(name) { return strikes(#name, {__VA_ARGS__}) ? failure : next(#name)(a, b, c, d, e, f); }

// clang-format off
ORVI_CALL(connect, SYS_connect, ECONNREFUSED, EINTR, EAGAIN)
ORVI_CALL(epoll_create1, SYS_epoll_create1, EMFILE, ENFILE, ENOMEM)
ORVI_CALL(epoll_ctl, SYS_epoll_ctl, ENOMEM, ENOSPC)
ORVI_CALL(epoll_wait, SYS_epoll_wait, EINTR)
ORVI_CALL(eventfd, SYS_eventfd2, EMFILE, ENFILE, ENOMEM)
ORVI_CALL(faccessat, SYS_faccessat2, EACCES, EROFS)
ORVI_CALL(fchmod, SYS_fchmod, EPERM, EIO, EROFS)
ORVI_CALL(fchown, SYS_fchown, EPERM, EIO)
ORVI_CALL(fcntl, SYS_fcntl, EBADF, EMFILE)
ORVI_CALL(flock, SYS_flock, EWOULDBLOCK, ENOLCK, EINTR)
ORVI_CALL(fstat, SYS_fstat, EIO, EBADF, ENOMEM)
ORVI_CALL(fstatat, SYS_newfstatat, EACCES, ENOENT, EIO)
ORVI_CALL(fstatfs, SYS_fstatfs, ENOSYS, EINTR)
ORVI_CALL(fsync, SYS_fsync, EIO, ENOSPC, EINTR, EINVAL)
ORVI_CALL(getrandom, SYS_getrandom, EAGAIN, ENOSYS, EINTR, EPERM)
ORVI_CALL(getrlimit, SYS_getrlimit, EINVAL)
ORVI_CALL(ioctl, SYS_ioctl, ENOTTY, EBADF)
ORVI_CALL(link, SYS_link, EPERM, EEXIST, ENOSPC)
ORVI_CALL(lseek, SYS_lseek, ESPIPE, EINVAL)
ORVI_CALL(lstat, SYS_lstat, EACCES, ENOENT)
ORVI_CALL(mkdir, SYS_mkdir, EACCES, ENOSPC, EEXIST)
ORVI_CALL(mkdirat, SYS_mkdirat, EACCES, ENOSPC, EEXIST)
ORVI_CALL(open, SYS_open, EACCES, EMFILE, ENOENT, ENOSPC, EINTR, EIO, ENOMEM)
ORVI_CALL(openat, SYS_openat, EACCES, EMFILE, ENOENT, EEXIST, ENOSPC, EINTR, EIO)
ORVI_CALL(pipe2, SYS_pipe2, EMFILE, ENFILE)
ORVI_CALL(poll, SYS_poll, EINTR, ENOMEM)
ORVI_CALL(pread, SYS_pread64, EIO, half, EINTR)
ORVI_CALL(pwrite, SYS_pwrite64, ENOSPC, half, EINTR, EIO, EFBIG)
ORVI_CALL(read, SYS_read, EIO, half, EINTR, EAGAIN)
ORVI_CALL(readlinkat, SYS_readlinkat, EACCES, ENOENT, EIO, EINVAL)
ORVI_CALL(remove, SYS_unlink, EACCES, EBUSY) // of files
ORVI_CALL(renameat, SYS_renameat, EPERM, ENOSPC, EBUSY, EIO, EROFS)
ORVI_CALL(socket, SYS_socket, EMFILE, EAFNOSUPPORT, ENOBUFS)
ORVI_CALL(stat, SYS_stat, EACCES, ENOENT, ENOMEM)
ORVI_CALL(statx, SYS_statx, EACCES, ENOENT, EINTR, ENOMEM)
ORVI_CALL(symlink, SYS_symlink, EEXIST, ENOSPC, EACCES)
ORVI_CALL(unlink, SYS_unlink, EACCES, ENOENT, EBUSY)
ORVI_CALL(write, SYS_write, ENOSPC, half, EINTR, EAGAIN, EIO, EPIPE, EFBIG)
ORVI_FORWARD(fdopendir, 0, ENOMEM, EIO)
ORVI_FORWARD(mkostemp, -1, EACCES, EMFILE, ENOSPC, EINTR)
ORVI_FORWARD(posix_spawn, errno, EAGAIN, ENOENT, ENOMEM)
ORVI_FORWARD(readdir, 0, EIO, ENOENT)
ORVI_FORWARD(send, -1, EAGAIN, EINTR, ENOBUFS, ECONNREFUSED)
ORVI_FORWARD(waitpid, -1, EINTR, ECHILD)
ORVI_HOOK(close)
{
    const bool isStruck = strikes("close", {EIO, EINTR, ENOSPC});
    const int error = errno;
    const long result = syscall(SYS_close, a); // the descriptor is gone in any case
    errno = isStruck ? error : errno;
    return isStruck ? -1 : result;
}
// clang-format on

Armed::Armed() { g_isArmed = true; }
Armed::~Armed() { g_isArmed = false; }
bool hasFailed(const char* call) { return g_hasFailed && std::strcmp(g_failing, call) == 0; }

namespace {

int countDescriptors()
{
    int count = 0;
    for (int file = 0; file < 128; ++file)
        count += fcntl(file, F_GETFD) >= 0 ? 1 : 0;
    return count;
}

/** In a child: what is wrong with a case; null for nothing. */
const char* faultOf(const Scene& scene, const std::filesystem::path& place)
{
    setenv("TMPDIR", place.c_str(), 1);
    const int before = countDescriptors();
    int run = 0;
    const auto outcome = [&] {
        const std::filesystem::path own = place / std::to_string(++run);
        std::filesystem::create_directory(own);
        return scene.run(own);
    };
    const Outcome first = outcome();
    const int kept = countDescriptors() - before;
    if (g_isRecording)
        g_record->descriptorsKept = kept;
    g_turn = 0; // never
    if (first == Outcome::Wrong || (g_isRecording && first == Outcome::Failed))
        return "is wrong without a word";
    g_isRecording = false;
    if (kept > g_record->descriptorsKept)
        return "leaves a descriptor open";
    return outcome() == Outcome::Done ? nullptr : "does not go on";
}

/** Runs a case in a child, and tells what is wrong with it. Without a `call` nothing fails. */
bool isRight(const Scene& scene, const char* call, int turn, int error)
{
    char place[] = "/tmp/orvi-sweep-XXXXXX";
    if (mkdtemp(place) == nullptr)
        return false;
    std::fflush(stdout);
    g_record->fault = "ends early";
    const pid_t child = fork();
    if (child == 0) {
        alarm(20); // ends what hangs
        g_isRecording = *call == 0;
        g_failing = call;
        g_turn = turn;
        g_error = error;
        g_record->fault = faultOf(scene, place);
        _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    if (g_record->fault != nullptr)
        std::printf("%s: %s, number %d, error %d: %s, status %d\n", scene.name, call, turn, error,
                    g_record->fault, status);
    std::error_code ignored;
    std::filesystem::remove_all(place, ignored);
    return g_record->fault == nullptr;
}

} // namespace

int main(int count, char** words)
{
    const auto start = std::chrono::steady_clock::now();
    const std::chrono::duration<double> most(count > 1 ? std::atof(words[1]) : 1e9);
    void* shared = mmap(nullptr, sizeof(Record), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    g_record = static_cast<Record*>(shared);
    int cases = 0, left = 0, faults = 0;
    std::vector<Record> records;
    for (const Scene& scene : scenes()) {
        *g_record = {};
        faults += isRight(scene, "", 0, 0) ? 0 : 1;
        records.push_back(*g_record);
    }
    for (std::size_t round = 0; round < std::size(Call().errors); ++round) { // a short run has all calls fail
        for (std::size_t at = 0; at < records.size(); ++at) {
            *g_record = records[at];
            for (const Call* call = records[at].calls; call->name != nullptr; ++call) {
                for (int turn = 1; turn <= call->count && call->errors[round] != 0; ++turn) {
                    const bool isTime = std::chrono::steady_clock::now() - start < most;
                    ++(isTime ? cases : left);
                    if (isTime && !isRight(scenes()[at], call->name, turn, call->errors[round]))
                        ++faults;
                }
            }
        }
    }
    std::printf("%d cases, %d faults; no time for %d\n", cases, faults, left);
    return faults == 0 && cases > 0 ? 0 : 1;
}
