#pragma once
#include "TempDirectory.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

constexpr int servicePatienceMs = 60'000;

/** What stands for a service manager's end of the line. */
class NotifySocket {
public:
    /** A name without a file as "@name"; a path of its own if empty. */
    explicit NotifySocket(const std::string& address = {})
        : _address(address.empty() ? (_place / "notify").string() : address)
    {
        REQUIRE(_address.copy(_name.sun_path, sizeof _name.sun_path) == _address.size());
        if (_address[0] == '@')
            _name.sun_path[0] = 0;
        REQUIRE(bind(_socket, name(), nameSize()) == 0);
    }
    ~NotifySocket() { close(); }
    NotifySocket& operator=(NotifySocket&&) = delete;
    const std::string& address() const { return _address; }

    /** The next message; "(none)" when none comes in time. */
    std::string next(int patienceMs = servicePatienceMs) const
    {
        char bytes[4096];
        pollfd waiting{_socket, POLLIN, 0};
        const ssize_t count = poll(&waiting, 1, patienceMs) > 0 ? recv(_socket, bytes, sizeof bytes, 0) : -1;
        return count >= 0 ? std::string(bytes, static_cast<std::size_t>(count)) : "(none)";
    }
    /** Whether the message comes, behind whatever others. */
    bool hears(const std::string& message) const
    {
        std::string heard;
        while (heard != message && heard != "(none)")
            heard = next();
        return heard == message;
    }
    /** As many messages as the queue holds. */
    void fill() const
    {
        const int sender = makeSocket();
        while (sendto(sender, "x", 1, 0, name(), nameSize()) == 1) {
        }
        REQUIRE(errno == EAGAIN);
        ::close(sender);
    }
    void close()
    {
        if (_socket >= 0)
            ::close(_socket);
        _socket = -1;
    }

private:
    static int makeSocket() { return socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); }
    const sockaddr* name() const { return reinterpret_cast<const sockaddr*>(&_name); }
    socklen_t nameSize() const
    {
        return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + _address.size());
    }

    const TempDirectory _place;
    const std::string _address;
    sockaddr_un _name{AF_UNIX, {}};
    int _socket = makeSocket();
};

/** A child process that runs a function of the test's, if so as if a service manager had started it. */
class ServiceProcess {
public:
    /** `address`: of the manager; empty for a start without one. The function's result is the exit status. */
    template <class Function>
    ServiceProcess(const std::string& address, Function function)
        : _id(fork())
    {
        REQUIRE(_id >= 0);
        if (_id != 0)
            return;
        unsetenv("NOTIFY_SOCKET");
        if (!address.empty())
            setenv("NOTIFY_SOCKET", address.c_str(), 1);
        alarm(servicePatienceMs / 1000 * 2); // nobody else would end it if the test dies
        _exit(function());
    }
    ~ServiceProcess()
    {
        if (_id > 0) {
            ::kill(_id, SIGKILL);
            waitpid(_id, nullptr, 0);
        }
    }
    ServiceProcess& operator=(ServiceProcess&&) = delete;

    void kill(int signal) const { REQUIRE(::kill(_id, signal) == 0); }
    /** The exit status, or the negative number of the signal that ended it. */
    int wait()
    {
        int status = 0;
        REQUIRE(waitpid(_id, &status, 0) == _id);
        _id = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

private:
    pid_t _id;
};

/** Makes another program out of this process; comes back, with the exit status for that, when there is none. */
inline int execute(const char* program, const std::vector<std::string>& options)
{
    std::vector<char*> argv = {const_cast<char*>(program)};
    for (const std::string& option : options)
        argv.push_back(const_cast<char*>(option.c_str()));
    argv.push_back(nullptr);
    execv(program, argv.data());
    return 127;
}

/** One byte from one process to another. */
class Bell {
public:
    Bell() { REQUIRE(pipe2(_ends, O_CLOEXEC) == 0); }
    ~Bell()
    {
        close(_ends[0]);
        close(_ends[1]);
    }
    Bell& operator=(Bell&&) = delete;

    void ring() const
    {
        if (write(_ends[1], "!", 1) != 1)
            abort();
    }
    bool wait() const
    {
        char byte = 0;
        pollfd waiting{_ends[0], POLLIN, 0};
        return poll(&waiting, 1, servicePatienceMs) == 1 && read(_ends[0], &byte, 1) == 1;
    }

private:
    int _ends[2] = {};
};
