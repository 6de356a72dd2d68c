#include "Talk.h"

#include "Socket.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <sys/socket.h>
#include <unistd.h>

namespace service {

namespace {

bool sendAll(int socket, std::string text)
{
    while (!text.empty()) {
        const ssize_t count = send(socket, text.data(), text.size(), MSG_NOSIGNAL);
        if (count < 0)
            return false;
        text.erase(0, static_cast<std::size_t>(count));
    }
    return true;
}

/** Whether the answer, which is printed, ends well. */
bool printAnswer(int socket)
{
    std::string end; // of the answer so far
    char bytes[4096];
    ssize_t count = 0;
    while ((count = read(socket, bytes, sizeof bytes)) > 0) {
        const auto size = static_cast<std::size_t>(count);
        std::fwrite(bytes, 1, size, stdout);
        end.append(bytes, size);
        end.erase(0, end.size() - std::min<std::size_t>(end.size(), 4));
    }
    return count == 0 && (end == "ok\n" || end == "\nok\n");
}

} // namespace

int talk(const char* path, const char* command)
{
    const int socket = connectTo(path);
    bool fine = socket >= 0 && sendAll(socket, std::string(command) + "\n") && shutdown(socket, SHUT_WR) == 0;
    if (!fine)
        std::fprintf(stderr, "service: cannot talk at %s: %s\n", path, std::strerror(errno));
    fine = fine && printAnswer(socket);
    close(socket);
    return fine ? 0 : 1;
}

} // namespace service
