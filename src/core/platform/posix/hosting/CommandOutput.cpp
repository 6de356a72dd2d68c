#include "CommandOutput.h"

#include "platform/posix/base/DescriptorNumber.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace orvi::platform {

namespace {

constexpr std::size_t mostOutput = 65'536;
constexpr int napMs = 5; // between two looks whether the program has ended

using Clock = std::chrono::steady_clock;

int millisecondsUntil(Clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::max<long long>(left, 0));
}

/** A file descriptor that closes itself. */
class Descriptor {
public:
    explicit Descriptor(int number)
        : _number(number)
    {}
    ~Descriptor() { close(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int number() const { return _number; }
    void close()
    {
        if (_number >= 0)
            ::close(_number);
        _number = -1;
    }

private:
    int _number;
};

/** How the program is started: nothing to read, nowhere to complain, no signals blocked or ignored, in a
    process group of its own, so that it can be killed with what it has started itself. */
class SpawnSettings {
public:
    explicit SpawnSettings(int output)
    {
        posix_spawn_file_actions_init(&_files);
        posix_spawn_file_actions_addopen(&_files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&_files, output, STDOUT_FILENO);
        posix_spawn_file_actions_addopen(&_files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        sigset_t none, usual;
        sigemptyset(&none);
        sigemptyset(&usual);
        sigaddset(&usual, SIGPIPE);
        sigaddset(&usual, SIGCHLD);
        posix_spawnattr_init(&_attributes);
        posix_spawnattr_setsigmask(&_attributes, &none);
        posix_spawnattr_setsigdefault(&_attributes, &usual);
        posix_spawnattr_setpgroup(&_attributes, 0);
        posix_spawnattr_setflags(&_attributes,
                                 POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    }
    ~SpawnSettings()
    {
        posix_spawnattr_destroy(&_attributes);
        posix_spawn_file_actions_destroy(&_files);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    /** -1 when the program does not start. */
    pid_t spawn(const std::vector<std::string>& words) const
    {
        std::vector<char*> arguments;
        arguments.reserve(words.size() + 1);
        for (const std::string& word : words)
            arguments.push_back(const_cast<char*>(word.c_str()));
        arguments.push_back(nullptr);
        pid_t process = -1;
        return posix_spawn(&process, arguments[0], &_files, &_attributes, arguments.data(), environ) == 0
                   ? process
                   : -1;
    }

private:
    posix_spawn_file_actions_t _files;
    posix_spawnattr_t _attributes;
};

/** False when the end does not come in time, or not soon enough. */
bool readToEnd(int input, std::string& output, Clock::time_point deadline)
{
    char piece[4096];
    while (output.size() <= mostOutput) {
        pollfd waiting{input, POLLIN, 0};
        const int ready = ::poll(&waiting, 1, millisecondsUntil(deadline));
        if (ready == 0)
            return false;
        const ssize_t count = ready > 0 ? ::read(input, piece, sizeof piece) : -1;
        if (count == 0)
            return true;
        if (count > 0)
            output.append(piece, static_cast<std::size_t>(count));
        else if (errno != EINTR)
            return false;
    }
    return false;
}

/** Whether the program ends in time, and well. `process` becomes -1 when it has ended. */
bool succeeds(pid_t& process, Clock::time_point deadline)
{
    for (;;) {
        int status = 0;
        const pid_t ended = ::waitpid(process, &status, WNOHANG);
        if (ended == process || (ended < 0 && errno != EINTR)) {
            process = -1; // also where the program has its children collected by the system
            return ended >= 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
        }
        if (millisecondsUntil(deadline) == 0)
            return false;
        ::poll(nullptr, 0, napMs);
    }
}

void kill(pid_t process)
{
    ::kill(-process, SIGKILL);
    while (::waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
    }
}

} // namespace

std::optional<std::string> commandOutput(const std::vector<std::string>& words, int limitMs)
{
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(limitMs);
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return {};
    const Descriptor input(aboveStandardStreams(ends[0]));
    Descriptor output(aboveStandardStreams(ends[1]));
    if (input.number() < 0 || output.number() < 0)
        return {};
    pid_t process = SpawnSettings(output.number()).spawn(words);
    output.close(); // or there would never be an end
    if (process < 0)
        return {};
    std::string text;
    if (readToEnd(input.number(), text, deadline) && succeeds(process, deadline))
        return text;
    if (process > 0)
        kill(process);
    return {};
}

} // namespace orvi::platform
