#include "Door.h"

#include "Socket.h"

#include <orvi/core/Encoding.h>
#include <orvi/core/Log.h>

#include <algorithm>
#include <vector>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace service {

namespace {

constexpr std::size_t mostVisitors = 16; // others wait outside
constexpr int idleMs = 50;               // a request to end the program waits so long
constexpr int workMs = 2;                // between two looks for what an application says

} // namespace

Door::Door(const orvi::String& path, std::chrono::milliseconds patience)
    : _path(orvi::StringHelper::wideToUtf8(path))
    , _patience(patience)
{}

bool Door::init()
{
    _socket = listenAt(_path);
    if (_socket < 0)
        orvi::Log::error(L"Cannot open the socket %S: %s", _path.getBuffer(),
                         orvi::getLastErrorString().getBuffer());
    return _socket >= 0;
}

void Door::exit()
{
    for (Visitor& visitor : _visitors)
        visitor.turn(); // the last words
    _visitors.clear();
    if (_socket < 0)
        return;
    unlink(_path);
    close(_socket);
    _socket = -1;
}

void Door::onTick(unsigned int)
{
    await();
    letIn();
    for (Visitor& visitor : _visitors)
        visitor.turn();
    _visitors.remove_if([](const Visitor& visitor) { return visitor.isDone(); });
}

void Door::await() const
{
    std::vector<pollfd> waiting;
    if (_visitors.size() < mostVisitors)
        waiting.push_back({_socket, POLLIN, 0});
    for (const Visitor& visitor : _visitors) {
        if (visitor.wishes() != 0) // without one its end would still be reported, again and again
            waiting.push_back({visitor.getSocket(), visitor.wishes(), 0});
    }
    const bool working = std::any_of(_visitors.begin(), _visitors.end(),
                                     [](const Visitor& visitor) { return visitor.awaitsAnswer(); });
    poll(waiting.data(), waiting.size(), working ? workMs : idleMs);
}

void Door::letIn()
{
    while (_visitors.size() < mostVisitors) {
        const int socket = accept4(_socket, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0)
            return;
        _visitors.emplace_back(socket, _patience);
    }
}

} // namespace service
