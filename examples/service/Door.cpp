#include "Door.h"

#include "Socket.h"

#include <orvi/core/Encoding.h>
#include <orvi/core/Log.h>
#include <orvi/core/Semaphore.h>

#include <cerrno>
#include <sys/socket.h>
#include <unistd.h>

namespace service {

using orvi::Watch;

namespace {

constexpr std::size_t mostVisitors = 16; // others wait outside
constexpr unsigned int retryMs = 1000;   // where the system has no descriptors left, say

} // namespace

Door::Door(const orvi::String& path, std::chrono::milliseconds patience)
    : _path(orvi::StringHelper::wideToUtf8(path))
    , _patience(patience)
{
    setTickTime(orvi::Semaphore::endless);
}

bool Door::init()
{
    _socket = listenAt(_path);
    _watch = Watch::createInstance(_socket, Watch::READABLE, {this, &Door::onKnock});
    const bool isOpen = _socket >= 0 && _watch->start(getSystem());
    if (!isOpen)
        orvi::Log::error(L"Cannot open the socket %S: %s", _path.getBuffer(),
                         orvi::getLastErrorString().getBuffer());
    return isOpen;
}

void Door::exit()
{
    for (Visitor& visitor : _visitors)
        visitor.sayLastWords();
    _visitors.clear();
    if (!_watch.isNull())
        _watch->stop();
    if (_socket < 0)
        return;
    unlink(_path);
    close(_socket);
    _socket = -1;
}

void Door::onTick(unsigned int)
{
    _visitors.remove_if([](const Visitor& visitor) { return visitor.isDone(); });
    openOrShut(true);
}

void Door::onKnock(unsigned int)
{
    const int socket = accept4(_socket, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket >= 0)
        _visitors.emplace_back(socket, _patience, getSystem(), [this] { signal(); });
    openOrShut(socket >= 0 || errno == EAGAIN || errno == EINTR || errno == ECONNABORTED);
}

void Door::openOrShut(bool canLetIn)
{
    const bool isOpen = canLetIn && _visitors.size() < mostVisitors;
    const bool isSet = _watch->setReadiness(isOpen ? Watch::READABLE : 0U);
    setTickTime(isSet && canLetIn ? orvi::Semaphore::endless : retryMs);
}

} // namespace service
