#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/MemoryStream.h>
#include <orvi/core/Stream.h>

namespace orvi {

// Packets put boundaries on a stream of bytes. A packet is its length, a signed 32-bit number, little-endian, and
// that many bytes. There is no mark, no checksum and no version: after a failure in the middle of a packet the
// stream is out of step, and nothing here repairs it.

/** Writes packets to an Output. Copies share the output. One thread at a time; a null writer must not write. */
class ORVI_API PacketWriter {
public:
    /** Replaces the output; always true. */
    bool attach(Output* output);
    /** Gives the output away. */
    Unknown::Handle_T<Output> detach();
    bool isNull() const noexcept { return _stream.isNull(); }

    /** Writes all that `packet` has as one packet, an empty one too, and consumes it. Throws Exception when the
        output refuses bytes, or the packet grows or fails meanwhile. */
    PacketWriter& operator<<(InputStream& packet);
    /** The same; a failure is a line at Log::error and false. */
    bool write(InputStream& packet);

private:
    OutputStream _stream;
};

/** Reads packets from an Input that delivers them in pieces: a call takes what is there, and gives a packet only
    when it is complete. A packet lies in the pages of a MemoryStream, so that a
    length that is a lie takes no memory.

        InputStream packet;
        while (reader.read(packet) && !packet.isNull())
            handle(packet);

    An empty packet gives nothing, as one that is not complete: it ends this loop, and the next packet comes with the
    next round. Do not send any, or go on for as long as the input has bytes.

    Copies share the input and the packet under way: of a reader and its copy, use one and only drop the other. One
    thread at a time; a null reader must not read. */
class ORVI_API PacketReader {
public:
    /** Replaces the input; always true. A packet under way goes on from the new one. */
    bool attach(Input* input);
    /** Gives the input away and drops a packet under way. */
    Unknown::Handle_T<Input> detach();
    bool isNull() const noexcept { return _stream.isNull(); }

    /** Lets `packet` hold the next packet, or null when it is not complete yet. At most one, with what is behind it
        left in the source. An input that fails between packets counts as one that has nothing yet.

        False when the length is negative, when the input fails in the middle of a packet, which a later call goes
        on with, and when the packet cannot be kept. */
    bool read(InputStream& packet);
    /** The same; where `read` is false it throws Exception. */
    PacketReader& operator>>(InputStream& packet);

private:
    enum class Step { Done, SourceFailed, InvalidSize, BodyRefused };
    Step step(InputStream& packet);
    Step readHeader();

    InputStream _stream;
    int _headerBytes = 0; // of the length that have arrived; 4 while a body is under way
    int _size = 0;
    Unknown::Handle_T<MemoryStream> _body; // of the packet under way; null in front of it
};

} // namespace orvi
