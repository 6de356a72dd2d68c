#include "platform/hosting/ServiceLink.h"

#include "platform/posix/base/DescriptorNumber.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace orvi::platform {

namespace {

constexpr int sendLimitMs = 2'000;

/** The variable's value, which is taken out of the environment; empty without one. */
std::string takeVariable(const char* name)
{
    const char* value = std::getenv(name);
    std::string taken = value != nullptr ? value : "";
    ::unsetenv(name);
    return taken;
}

/** 0 for what is no number. */
std::uint64_t numberIn(const std::string& text)
{
    std::uint64_t number = 0;
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number);
    return parsed.ec == std::errc() && parsed.ptr == end ? number : 0;
}

/** What systemd told this process. */
struct Invitation {
    std::string address; // of the socket for reports
    unsigned int watchdogMs = 0;

    Invitation()
        : address(takeVariable("NOTIFY_SOCKET"))
    {
        const std::uint64_t ms = numberIn(takeVariable("WATCHDOG_USEC")) / 1000;
        const std::string process = takeVariable("WATCHDOG_PID");
        if (process.empty() || numberIn(process) == static_cast<std::uint64_t>(::getpid()))
            watchdogMs = static_cast<unsigned int>(
                std::min<std::uint64_t>(ms, std::numeric_limits<unsigned int>::max()));
    }
};

const Invitation& invitation()
{
    static const Invitation taken;
    return taken;
}

/** The size of the address; 0, with errno set, for a text that is none. "@" stands for the NUL in front of a
    name that has no file. */
socklen_t makeAddress(const std::string& text, sockaddr_un& address)
{
    address = {};
    address.sun_family = AF_UNIX;
    if (text.size() < 2 || (text[0] != '/' && text[0] != '@')) {
        errno = EAFNOSUPPORT;
        return 0;
    }
    if (text.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return 0;
    }
    std::memcpy(address.sun_path, text.data(), text.size());
    if (text[0] == '@')
        address.sun_path[0] = 0;
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + text.size() + (text[0] == '/' ? 1 : 0));
}

bool sendOnce(int connection, const std::string& message)
{
    ssize_t count = 0;
    do {
        count = ::send(connection, message.data(), message.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    } while (count < 0 && errno == EINTR);
    return count >= 0;
}

enum class Patience { None, Some };

/** Waits while the manager does not come to read, if so, but not for long. */
bool sendInTime(int connection, const std::string& message, Patience patience)
{
    if (sendOnce(connection, message))
        return true;
    if (errno != EAGAIN || patience == Patience::None)
        return false;
    pollfd waiting{connection, POLLOUT, 0};
    if (::poll(&waiting, 1, sendLimitMs) > 0 && sendOnce(connection, message))
        return true;
    errno = ETIMEDOUT;
    return false;
}

/** Connects anew for each message: they are few, and there is nothing to go stale. */
bool send(const std::string& message, Patience patience)
{
    sockaddr_un address;
    const socklen_t size = makeAddress(invitation().address, address);
    if (size == 0)
        return false;
    const int connection = aboveStandardStreams(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (connection < 0)
        return false;
    const bool sent = ::connect(connection, reinterpret_cast<const sockaddr*>(&address), size) == 0 &&
                      sendInTime(connection, message, patience);
    const int error = errno;
    ::close(connection);
    errno = error;
    return sent;
}

std::string textOf(const ServiceReport& report)
{
    switch (report.state) {
    case ServiceState::StartPending:
        return "STATUS=Starting, step " + std::to_string(report.checkPoint);
    case ServiceState::Running:
        return "READY=1\nSTATUS=Running";
    case ServiceState::StopPending: {
        static std::atomic<bool> told = false;
        return told.exchange(true) ? "STATUS=Stopping" : "STOPPING=1\nSTATUS=Stopping";
    }
    case ServiceState::Stopped:
        return report.exitCode == 0 ? "STATUS=Stopped"
                                    : "STATUS=Stopped, error\nERRNO=" + std::to_string(report.exitCode);
    default:
        return "STATUS=Unknown";
    }
}

} // namespace

bool ServiceLink::isOpen() { return !invitation().address.empty(); }

bool ServiceLink::report(const ServiceReport& report)
{
    std::string message = textOf(report);
    if (report.waitHintMs > 0)
        message += "\nEXTEND_TIMEOUT_USEC=" + std::to_string(report.waitHintMs) + "000";
    return send(message, Patience::Some);
}

unsigned int ServiceLink::watchdogMs() { return invitation().watchdogMs; }

void ServiceLink::giveSignOfLife() { send("WATCHDOG=1", Patience::None); }

} // namespace orvi::platform
