#include "TalkPlace.h"

#include <map>

namespace apphost {

using orvi::MessagePort;
using orvi::MutexGuard;
using orvi::String;

namespace {

constexpr int leaving = -1; // the place is not free yet

} // namespace

struct TalkPlace::Channel {
    Visitor& at(Side side) { return visitors[side == Side::Server ? 0 : 1]; }

    orvi::MessagePipe pipe;
    Visitor visitors[2];
};

struct TalkPlace::Channels {
    // Guards all visitors too. Handlers take it, so it must not be held while a port is read.
    orvi::Mutex mutex;
    std::map<String, std::shared_ptr<Channel>> byName;
    int visitorCount = 0;
};

TalkPlace::Channels& TalkPlace::channels()
{
    static Channels channels;
    return channels;
}

std::unique_ptr<TalkPlace> TalkPlace::take(const String& channel, const String& visitor)
{
    Channels& all = channels();
    const MutexGuard guard(all.mutex);
    std::shared_ptr<Channel>& found = all.byName[channel];
    if (found == nullptr)
        found = std::make_shared<Channel>();
    for (const Side side : {Side::Server, Side::Client}) {
        if (found->at(side).number == nobody) {
            found->at(side) = {++all.visitorCount, visitor};
            return std::unique_ptr<TalkPlace>(new TalkPlace(found, channel, side));
        }
    }
    return nullptr;
}

TalkPlace::TalkPlace(const std::shared_ptr<Channel>& channel, const String& name, Side side)
    : _channel(channel)
    , _name(name)
    , _side(side)
{}

TalkPlace::~TalkPlace()
{
    Channels& all = channels();
    {
        const MutexGuard guard(all.mutex);
        _channel->at(_side) = {leaving, {}};
    }
    // Nothing more arrives: the next visitor finds the port empty.
    while (!port().popMessage().isNull()) {
    }
    port().getMessageDispenser().clearMessageHandler();

    const MutexGuard guard(all.mutex);
    _channel->at(_side) = {};
    if (_channel->at(otherSide()).number == nobody)
        all.byName.erase(_name);
}

MessagePort& TalkPlace::portOf(Side side)
{
    return side == Side::Server ? _channel->pipe.getServerPort() : _channel->pipe.getClientPort();
}

TalkPlace::Visitor TalkPlace::peer() const
{
    const MutexGuard guard(channels().mutex);
    const Visitor& visitor = _channel->at(otherSide());
    return visitor.isThere() ? visitor : Visitor();
}

bool TalkPlace::push(int peer, const orvi::Handle_T<orvi::Message>& message)
{
    const MutexGuard guard(channels().mutex);
    const Visitor& visitor = _channel->at(otherSide());
    return visitor.isThere() && visitor.number == peer && portOf(otherSide()).pushMessage(message);
}

} // namespace apphost
