#include "Socket.h"

#include <cerrno>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace service {

namespace {

constexpr int waitingVisitors = 8;

using Step = int (*)(int, const sockaddr*, socklen_t);

/** Makes a socket and binds or connects it. */
int makeSocket(const char* path, int flags, Step step)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::size_t length = std::strlen(path);
    if (length >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::memcpy(address.sun_path, path, length);
    const int made = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0);
    if (made >= 0 && step(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return made;
    const int error = errno;
    close(made);
    errno = error;
    return -1;
}

/** Whether nobody listens at the socket file. */
bool isLeftOver(const char* path)
{
    const int visitor = connectTo(path);
    const bool refused = visitor < 0 && errno == ECONNREFUSED;
    close(visitor);
    return refused;
}

} // namespace

int listenAt(const char* path)
{
    int door = makeSocket(path, SOCK_NONBLOCK, bind);
    if (door < 0 && errno == EADDRINUSE) {
        if (isLeftOver(path))
            unlink(path);
        door = makeSocket(path, SOCK_NONBLOCK, bind);
    }
    if (door >= 0)
        listen(door, waitingVisitors);
    return door;
}

int connectTo(const char* path) { return makeSocket(path, 0, connect); }

} // namespace service
