#include <orvi/core/MessagePort.h>

#include <orvi/core/Exception.h>
#include <orvi/core/Time.h>

#include "memory/StreamWait.h"

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

constexpr unsigned int forever = std::numeric_limits<unsigned int>::max(); // no time is longer

} // namespace

/** Processes the messages of a port on a System. */
class MessagePort::Server final : public System::Task {
public:
    Server(MessagePort& port, unsigned int timeLimit)
        : _port(port)
        , _timeLimit(timeLimit)
    {
        setTickTime(forever);
    }

    bool init() override
    {
        _port._server = this;
        const MutexGuard guard(_port._pushMutex);
        StreamAccess::addWait(*_port._pushStream, _wait);
        signal(); // for what has come before
        return true;
    }
    void exit() override
    {
        if (_port._server != this) // it was never started
            return;
        _port._server = nullptr;
        const MutexGuard guard(_port._pushMutex);
        StreamAccess::removeWait(*_port._pushStream, _wait);
    }
    void onTick(unsigned int) override
    {
        struct Turn {
            Server& server;
            ~Turn()
            {
                if (server.getSystem() != nullptr && server._port.hasMessages())
                    server.signal();
            }
        } const turn{*this}; // a handler may end the service, and leave by an exception
        _port.procMessage(_timeLimit);
    }

private:
    MessagePort& _port;
    const unsigned int _timeLimit;
    StreamWait _wait{[](void* server) { static_cast<Server*>(server)->signal(); }, this};
};

MessagePort::MessagePort()
    : _pushStream(MemoryStream::createInstance(streamSize))
    , _popStream(MemoryStream::createInstance(streamSize))
    , _popInput(_popStream)
{
    // A listener of the log may push to this port: it must not be called in the middle of a push.
    StreamAccess::setQuiet(*_pushStream);
}

MessagePort::~MessagePort() { serveOn(nullptr); }

bool MessagePort::serveOn(System* system, unsigned int timeLimit)
{
    if (_server != nullptr)
        _server->stop();
    return system != nullptr && Unknown::Handle_T<Server>(new Server(*this, timeLimit))->start(system);
}

bool MessagePort::wait(unsigned int timeoutMs)
{
    return waitForStream(_pushStream, _pushMutex, timeoutMs, [this] { return hasMessages(); });
}

bool MessagePort::pushMessage(const Unknown::Handle_T<Message>& message)
{
    // What the message writes is gathered without a lock, and comes into the queue whole or not at all.
    const Unknown::Handle_T<Draft> draft = new Draft;
    OutputStream stream(draft);
    stream << message;

    const platform::WakeLater later;
    const MutexGuard guard(_pushMutex);
    if (!draft->moveTo(*_pushStream))
        THROW_EXCEPTION(-1, L"OutputStream& operator <<(OutputStream &,InputStream &)");
    if (!_hasArrived.load(std::memory_order_relaxed))
        _hasArrived.store(true);
    StreamAccess::wakeWaits(*_pushStream);
    return true;
}

Unknown::Handle_T<Message> MessagePort::popMessage()
{
    const MutexGuard guard(_popMutex);
    if (_popStream->available() < 1 && _hasArrived.load(std::memory_order_acquire)) {
        const MutexGuard pushGuard(_pushMutex);
        _hasTaken.store(true, std::memory_order_relaxed); // never neither: who waits would miss it
        _hasArrived.store(false, std::memory_order_release);
        _popStream->append(*_pushStream);
    }
    struct Look {
        MessagePort& port;
        ~Look() { port._hasTaken.store(port._popStream->available() > 0, std::memory_order_release); }
    } const look{*this};
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
