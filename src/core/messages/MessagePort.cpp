#include <orvi/core/MessagePort.h>

#include <orvi/core/Exception.h>
#include <orvi/core/Time.h>

#include "memory/StreamPage.h"

#include <cstring>
#include <limits>

namespace orvi {

namespace {

constexpr int streamSize = 0x2000000;

/** One message on its way into the queue: small ones in place, larger ones in the pages of a stream. */
class Draft final : public Output {
public:
    int write(const void* data, int size) override
    {
        if (_overflow.isNull() && size >= 0 && size <= static_cast<int>(sizeof _bytes) - _size) {
            std::memcpy(_bytes + _size, data, static_cast<std::size_t>(size));
            _size += size;
            return size;
        }
        if (_overflow.isNull()) {
            _overflow = MemoryStream::createInstance(streamSize);
            if (_overflow->write(_bytes, _size) != _size)
                return -1;
        }
        return _overflow->write(data, size);
    }

    /** Empties the draft into `queue`; false, with the queue as it was, when that is full. */
    bool moveTo(MemoryStream& queue)
    {
        if (!_overflow.isNull())
            return queue.append(*_overflow);
        if (_size > std::numeric_limits<int>::max() - queue.available())
            return false;
        return queue.write(_bytes, _size) == _size;
    }

private:
    Unknown::Handle_T<MemoryStream> _overflow; // everything, once it is too much for _bytes
    int _size = 0;
    unsigned char _bytes[512];
};

} // namespace

MessagePort::MessagePort()
    : _pushStream(MemoryStream::createInstance(streamSize))
    , _popStream(MemoryStream::createInstance(streamSize))
    , _popInput(_popStream)
{
    // A listener of the log may push to this port: it must not be called in the middle of a push.
    StreamAccess::setQuiet(*_pushStream);
}

MessagePort::~MessagePort() = default;

bool MessagePort::pushMessage(const Unknown::Handle_T<Message>& message)
{
    // What the message writes is gathered without a lock, and comes into the queue whole or not at all.
    const Unknown::Handle_T<Draft> draft = new Draft;
    OutputStream stream(draft);
    stream << message;

    const MutexGuard guard(_pushMutex);
    if (!draft->moveTo(*_pushStream))
        THROW_EXCEPTION(-1, L"OutputStream& operator <<(OutputStream &,InputStream &)");
    if (!_hasArrived.load(std::memory_order_relaxed))
        _hasArrived.store(true, std::memory_order_release);
    return true;
}

Unknown::Handle_T<Message> MessagePort::popMessage()
{
    const MutexGuard guard(_popMutex);
    if (_popStream->available() < 1 && _hasArrived.load(std::memory_order_acquire)) {
        const MutexGuard pushGuard(_pushMutex);
        _hasArrived.store(false, std::memory_order_relaxed);
        _popStream->append(*_pushStream);
    }
    if (_popStream->available() < 1)
        return {};
    try {
        Unknown::Handle_T<Message> message;
        _popInput >> message;
        return message;
    } catch (const Exception& exception) {
        exception.report();
        return {};
    }
}

int MessagePort::procMessage(unsigned int timeLimit)
{
    const MutexGuard guard(_popMutex);
    constexpr unsigned int forever = std::numeric_limits<unsigned int>::max(); // no time is longer
    const unsigned int began = getTimeTick();
    int count = 0;
    try {
        do {
            const Unknown::Handle_T<Message> message = popMessage();
            if (message.isNull())
                break;
            _messageDispenser.dispatchMessage(message);
            ++count;
        } while ((timeLimit == forever || getTimeTick() - began <= timeLimit) &&
                 count < std::numeric_limits<int>::max());
    } catch (const Exception& exception) {
        exception.report();
    }
    return count;
}

} // namespace orvi
