#include "Connection.h"

#include "Status.h"

#include <orvi/core/Encoding.h>
#include <orvi/core/Exception.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace exchange {

namespace {

[[noreturn]] void refuse(const char* what, const char* path)
{
    const int error = errno;
    orvi::String text;
    text.format(L"cannot %s '%s': %s", orvi::StringHelper::utf8ToWide(what).getBuffer(),
                orvi::StringHelper::utf8ToWide(path).getBuffer(),
                orvi::StringHelper::utf8ToWide(std::strerror(error)).getBuffer());
    THROW_EXCEPTION(ownFailure, text);
}

sockaddr_un addressOf(const char* path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::size_t length = std::strlen(path);
    if (length >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        refuse("use the name", path);
    }
    std::memcpy(address.sun_path, path, length);
    return address;
}

int makeSocket() { return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0); }

/** Lets one peer come. */
int acceptAt(const char* path)
{
    const sockaddr_un address = addressOf(path);
    const int door = makeSocket();
    if (bind(door, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || listen(door, 1) != 0)
        refuse("listen at", path);
    std::fprintf(stderr, "listening at %s\n", path);
    int visitor = -1;
    do {
        visitor = accept4(door, nullptr, nullptr, SOCK_CLOEXEC);
    } while (visitor < 0 && errno == EINTR);
    if (visitor < 0)
        refuse("wait at", path);
    close(door);
    unlink(path);
    return visitor;
}

int connectTo(const char* path)
{
    const sockaddr_un address = addressOf(path);
    const int line = makeSocket();
    if (::connect(line, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        refuse("connect to", path);
    return line;
}

} // namespace

orvi::Handle_T<DescriptorIO> connect(const Options& options)
{
    if (options.way == Way::StandardIO) {
        if (isatty(STDIN_FILENO) || isatty(STDOUT_FILENO))
            THROW_EXCEPTION(ownFailure, L"standard input and output are for the peer, not for a terminal");
        return DescriptorIO::createInstance(STDIN_FILENO, STDOUT_FILENO, options.piece);
    }
    const int line = options.way == Way::Listen ? acceptAt(options.path) : connectTo(options.path);
    return DescriptorIO::createInstance(line, line, options.piece);
}

} // namespace exchange
