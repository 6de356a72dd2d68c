#include "Link.h"

#include "Status.h"

#include <orvi/core/Encoding.h>
#include <orvi/core/Exception.h>

#include <cstring>

namespace exchange {

using orvi::Exception;
using orvi::InputStream;
using orvi::String;

namespace {

/** `what` with the system's reason. */
String explained(const wchar_t* what, int error)
{
    String text;
    text.format(L"%s: %s", what, orvi::StringHelper::utf8ToWide(std::strerror(error)).getBuffer());
    return text;
}

bool refuseUnknown(const orvi::MessageReader::MessagePackage& package)
{
    String text;
    text.format(L"the peer sent a message of the unknown class %u", package.classId);
    THROW_EXCEPTION(peerWrong, text);
}

} // namespace

Link::Link(const orvi::Handle_T<DescriptorIO>& io)
    : _io(io)
    , _packet(orvi::MemoryStream::createInstance())
    , _queue(orvi::MemoryStream::createInstance())
{
    _io->allow(mostPacketBytes);
    _reader.attach(_io);
    _writer.attach(_queue);
    _parsers.setUnknownPackageHandler(refuseUnknown);
}

void Link::add(const orvi::Message& message)
{
    orvi::OutputStream stream(_packet);
    stream << message.getClassId();
    message.exportTo(stream);
}

void Link::endPacket()
{
    InputStream packet(_packet);
    _writer << packet;
}

void Link::flush()
{
    for (;;) {
        if (_begin == _end) {
            _begin = 0;
            _end = _queue->read(_bytes, static_cast<int>(sizeof _bytes));
        }
        const int count = _begin < _end ? _io->write(_bytes + _begin, _end - _begin) : 0;
        if (count <= 0)
            return;
        _begin += count;
    }
}

bool Link::receive()
{
    InputStream packet;
    do {
        readPacket(packet);
    } while (packet.isNull() && _io->available() != 0); // the reader passed over an empty one
    if (packet.isNull()) {
        checkOutput();
        return false;
    }
    _io->allow(mostPacketBytes);
    parse(packet);
    return true;
}

void Link::readPacket(InputStream& packet)
{
    try {
        _reader >> packet;
    } catch (const Exception& exception) {
        checkInput(false);
        String text;
        text.format(L"the peer sent a packet that cannot be read: %s", exception.description());
        THROW_EXCEPTION(peerWrong, text);
    }
    if (packet.isNull())
        checkInput(true);
}

void Link::parse(InputStream& packet)
{
    try {
        _parsers.analyse(packet);
    } catch (const Exception& exception) {
        if (exception.code() >= 0) // from a parser
            throw;
        String text;
        text.format(L"the peer sent a message that cannot be read: %s", exception.description());
        THROW_EXCEPTION(peerWrong, text);
    }
}

void Link::checkInput(bool betweenPackets) const
{
    switch (_io->getInputState()) {
    case DescriptorIO::State::Open:
        break;
    case DescriptorIO::State::Ended:
        THROW_EXCEPTION(peerGone, betweenPackets ? L"the peer is gone, between two packets"
                                                 : L"the peer is gone, in the middle of a packet");
    case DescriptorIO::State::Failed:
        THROW_EXCEPTION(ownFailure, explained(L"cannot read from the peer", _io->getError()));
    case DescriptorIO::State::Exhausted:
        THROW_EXCEPTION(peerWrong, L"the peer sent 16 MiB without a complete packet");
    }
}

/** To be asked when everything that came is read: the last words of a peer count. */
void Link::checkOutput() const
{
    switch (_io->getOutputState()) {
    case DescriptorIO::State::Ended:
        THROW_EXCEPTION(peerGone, L"the peer is gone, and takes nothing any more");
    case DescriptorIO::State::Failed:
        THROW_EXCEPTION(ownFailure, explained(L"cannot write to the peer", _io->getError()));
    default:
        break;
    }
}

} // namespace exchange
