#pragma once
#include "TempDirectory.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

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
    /** A path, or "@name" for a name without a file. */
    explicit NotifySocket(const std::string& address)
        : _address(address)
        , _socket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
    {
        sockaddr_un name;
        const socklen_t size = nameOf(address, name);
        REQUIRE(bind(_socket, reinterpret_cast<sockaddr*>(&name), size) == 0);
    }
    ~NotifySocket() { close(); }
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;

    const std::string& address() const { return _address; }

    /** The next message; "(none)" when none comes in time. */
    std::string next(int patienceMs = servicePatienceMs) const
    {
        char bytes[4096];
        pollfd waiting{_socket, POLLIN, 0};
        if (poll(&waiting, 1, patienceMs) <= 0)
            return "(none)";
        const ssize_t count = recv(_socket, bytes, sizeof bytes, 0);
        return std::string(bytes, count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    /** As many messages as the queue holds. */
    void fill() const
    {
        sockaddr_un name;
        const socklen_t size = nameOf(_address, name);
        const int sender = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        while (sendto(sender, "x", 1, 0, reinterpret_cast<sockaddr*>(&name), size) == 1) {
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
    static socklen_t nameOf(const std::string& address, sockaddr_un& name)
    {
        name = {};
        name.sun_family = AF_UNIX;
        REQUIRE(address.size() < sizeof name.sun_path);
        std::memcpy(name.sun_path, address.data(), address.size());
        if (address[0] == '@')
            name.sun_path[0] = 0;
        return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address.size());
    }

    std::string _address;
    int _socket;
};

/** A child process that runs a function of the test's as if a service manager had started it. */
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
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    void kill(int signal) const { REQUIRE(::kill(_id, signal) == 0); }
    /** The exit status, or -1 for another end. */
    int wait()
    {
        int status = 0;
        REQUIRE(waitpid(_id, &status, 0) == _id);
        _id = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t _id;
};

/** One byte from one process to another. */
class Bell {
public:
    Bell() { REQUIRE(pipe2(_ends, O_CLOEXEC) == 0); }
    ~Bell()
    {
        close(_ends[0]);
        close(_ends[1]);
    }
    Bell(const Bell&) = delete;
    Bell& operator=(const Bell&) = delete;

    void ring() const
    {
        const ssize_t written = write(_ends[1], "!", 1);
        if (written != 1)
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
