#pragma once
#include <orvi/core/MessagePort.h>

#include <memory>

namespace apphost {

/** One of the two places at a named channel, each with a port of the channel's pipe. It belongs to its visitor
    until it goes, and is free for another one then; what its visitor has not read goes with it. A channel is there
    as long as it has a visitor.

    For the visitor's thread; each of the two may be on its own. */
class TalkPlace {
public:
    enum class Side { Server, Client };

    struct Visitor {
        int number = nobody; // no two visitors have the same
        orvi::String name;

        bool isThere() const { return number > nobody; }
    };
    static constexpr int nobody = 0;

    /** The first visitor of a channel is its server, the next one gets the place that is free. Null when none is. */
    static std::unique_ptr<TalkPlace> take(const orvi::String& channel, const orvi::String& visitor);
    ~TalkPlace();
    TalkPlace(const TalkPlace&) = delete;
    TalkPlace& operator=(const TalkPlace&) = delete;

    const orvi::String& channel() const { return _name; }
    Side side() const { return _side; }
    /** Where the messages for this visitor arrive. */
    orvi::MessagePort& port() { return portOf(_side); }

    /** Who is at the other place just now. */
    Visitor peer() const;
    /** False when that visitor is not at the other place, or no longer. */
    bool push(int peer, const orvi::Handle_T<orvi::Message>& message);

private:
    struct Channel;
    struct Channels;

    TalkPlace(const std::shared_ptr<Channel>& channel, const orvi::String& name, Side side);
    static Channels& channels();
    orvi::MessagePort& portOf(Side side);
    Side otherSide() const { return _side == Side::Server ? Side::Client : Side::Server; }

    std::shared_ptr<Channel> _channel;
    orvi::String _name;
    Side _side;
};

} // namespace apphost
