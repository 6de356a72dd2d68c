#include <orvi/core/Packet.h>

#include <orvi/core/Exception.h>
#include <orvi/core/Log.h>

#include <algorithm>

namespace orvi {

namespace {

constexpr int headerSize = 4;

} // namespace

bool PacketWriter::attach(Output* output) { return _stream.attach(output); }

Unknown::Handle_T<Output> PacketWriter::detach() { return _stream.detach(); }

PacketWriter& PacketWriter::operator<<(InputStream& packet)
{
    const int size = packet.available();
    _stream << size;
    _stream << packet;
    return *this;
}

bool PacketWriter::write(InputStream& packet)
{
    try {
        *this << packet;
        return true;
    } catch (const Exception& exception) {
        Log::error(L"PacketWriter::write exception(%s)", exception.description());
        return false;
    }
}

bool PacketReader::attach(Input* input) { return _stream.attach(input); }

Unknown::Handle_T<Input> PacketReader::detach()
{
    _headerBytes = 0;
    _body.setNull();
    return _stream.detach();
}

bool PacketReader::read(InputStream& packet) { return step(packet) == Step::Done; }

PacketReader& PacketReader::operator>>(InputStream& packet)
{
    switch (step(packet)) {
    case Step::Done:
        break;
    case Step::SourceFailed:
        THROW_EXCEPTION(-1, L"");
    case Step::InvalidSize:
        THROW_EXCEPTION(-1, L"Invalid packet size");
    case Step::BodyRefused:
        THROW_EXCEPTION(-1, L"Read packet error");
    }
    return *this;
}

PacketReader::Step PacketReader::step(InputStream& packet)
{
    packet.detach();
    if (_headerBytes != headerSize) {
        const Step result = readHeader();
        if (_headerBytes != headerSize)
            return result;
    }
    char piece[4096];
    while (_body->available() < _size) {
        const int wanted = std::min(_size - _body->available(), static_cast<int>(sizeof piece));
        const int count = _stream.read(piece, wanted);
        if (count < 0 || count > wanted)
            return Step::SourceFailed;
        if (count == 0)
            return Step::Done;
        if (_body->write(piece, count) != count) {
            _headerBytes = 0;
            _body.setNull();
            return Step::BodyRefused;
        }
    }
    packet.attach(_body);
    _headerBytes = 0;
    _body.setNull();
    return Step::Done;
}

/** Goes on with the length; with all four bytes of a good one, a body is under way. */
PacketReader::Step PacketReader::readHeader()
{
    while (_headerBytes < headerSize) {
        const int wanted = headerSize - _headerBytes;
        const int count = _stream.read(reinterpret_cast<unsigned char*>(&_size) + _headerBytes, wanted);
        if (count < 0 || count > wanted)
            return _headerBytes == 0 ? Step::Done : Step::SourceFailed;
        if (count == 0)
            return Step::Done;
        _headerBytes += count;
    }
    if (_size > 0) {
        _body = MemoryStream::createInstance();
        return Step::Done;
    }
    _headerBytes = 0;
    return _size == 0 ? Step::Done : Step::InvalidSize;
}

} // namespace orvi
