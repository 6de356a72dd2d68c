#pragma once
#include "DescriptorIO.h"

#include <orvi/core/MessageReader.h>
#include <orvi/core/Packet.h>

namespace exchange {

/** Messages in packets over a connection, for a loop that waits at one place:

        for (;;) {
            ... add() and endPacket() while isRoomy()
            link.flush();
            if (!link.receive())
                link.wait();
        }

    What goes wrong is an Exception whose code() is a Status. */
class Link {
public:
    /** A packet that is longer is refused: the length that a peer announces must not cost memory or disc. */
    static constexpr int mostPacketBytes = 16 << 20;
    /** More should not wait in the queue. */
    static constexpr int mostQueuedBytes = 1 << 20;

    explicit Link(const orvi::Handle_T<DescriptorIO>& io);

    /** Adds a message to the packet that is being made. */
    void add(const orvi::Message& message);
    /** Queues the packet. */
    void endPacket();
    bool isRoomy() const { return _queue->available() < mostQueuedBytes; }
    bool isFlushed() const { return _queue->available() == 0 && _begin == _end; }

    /** Sends of the queue what the connection takes now. A peer that takes no more shows in the next receive(). */
    void flush();

    /** Who gets which messages. */
    orvi::MessageReader& getParsers() { return _parsers; }
    /** Hands the messages of the next packet to their parsers; false when no packet is complete yet. Throws when none
        will be, or when the packet makes no sense. What a parser throws passes through. */
    bool receive();

    /** Waits until there is something to receive, or room for what is queued. */
    void wait() const { _io->wait(!isFlushed()); }

private:
    void readPacket(orvi::InputStream& packet);
    void parse(orvi::InputStream& packet);
    void checkInput(bool betweenPackets) const;
    void checkOutput() const;

    orvi::Handle_T<DescriptorIO> _io;
    orvi::PacketReader _reader;
    orvi::MessageReader _parsers;

    orvi::Handle_T<orvi::MemoryStream> _packet; // being made
    orvi::Handle_T<orvi::MemoryStream> _queue;  // of packets
    orvi::PacketWriter _writer;
    int _begin = 0; // of what was taken from the queue and is still to be sent
    int _end = 0;
    unsigned char _bytes[65536];
};

} // namespace exchange
