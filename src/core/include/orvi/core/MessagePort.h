#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/MemoryStream.h>
#include <orvi/core/Message.h>
#include <orvi/core/MessageDispenser.h>
#include <orvi/core/Mutex.h>
#include <orvi/core/Stream.h>
#include <orvi/core/System.h>

#include <atomic>

namespace orvi {

/** A queue of messages between threads, with a table of handlers at its end. Messages queue as bytes: what comes
    out is another object than what went in, of the same class, which must be registered.

        MessagePort port;
        port.getMessageDispenser() += onGreeting; // before messages flow, or in the thread that processes them
        ...
        port.pushMessage(greeting);               // any thread
        ...
        port.procMessage(10);                     // calls onGreeting

    A consumer without anything else to do waits for messages; a System processes its ports by itself:

        while (!isOver && port.wait(endless)) // a handler says when it is over
            port.procMessage(10);
        ...
        port.serveOn(system);

    What waits beyond some 10 MiB waits in a temporary file; 2^31 - 1 bytes can wait. Messages that nobody took die
    with the port. */
class ORVI_API MessagePort {
public:
    MessagePort();
    ~MessagePort();
    MessagePort(const MessagePort&) = delete;
    MessagePort& operator=(const MessagePort&) = delete;

    /** Appends the message as it is now; always true. Any thread, also a handler of this port. Throws Exception,
        with nothing queued, when exportTo does or the queue is full. A null handle is queued too. */
    bool pushMessage(const Unknown::Handle_T<Message>& message);

    /** Takes the next message. Null when there is none, for a null handle that was pushed, and for a message that
        cannot be read, with the reason in the log; the messages behind the latter may be lost. Any thread; waits
        while another one pops or processes. */
    Unknown::Handle_T<Message> popMessage();

    /** Hands messages to their handlers, on this thread, until none is left, a null handle comes or more than
        `timeLimit` milliseconds have passed (0xFFFFFFFF: no limit); gives their number. At least one goes,
        whatever the limit.

        An Exception of a handler, or a message without one, ends the call and is reported in the log; that message
        is gone and not counted. Any other exception passes through. A handler may use this port in every way;
        other threads that pop or process wait until this call is over. */
    int procMessage(unsigned int timeLimit);

    /** Waits until a message is there, `timeoutMs` milliseconds at most; false when none has come. 0xFFFFFFFF has no
        limit. Any number of threads may wait; which of them gets the message is open. */
    bool wait(unsigned int timeoutMs);

    /** From now on `system` processes the messages, when they come, for `timeLimit` milliseconds a pass; a loop that
        rests wakes up for them. Until another call, to another system or with null, or the end of the system's run.
        False, with nobody processing, for a system that takes no tasks. For the thread of the system, and so is the
        end of a port that is served. */
    bool serveOn(System* system, unsigned int timeLimit = 10);

    /** No lock guards it. */
    MessageDispenser<void>& getMessageDispenser() noexcept { return _messageDispenser; }
    const MessageDispenser<void>& getMessageDispenser() const noexcept { return _messageDispenser; }

private:
    class Server;

    bool hasMessages() const noexcept { return _hasArrived.load() || _hasTaken.load(); }

    MessageDispenser<void> _messageDispenser;

    // Lock order: _popMutex, then _pushMutex. User code runs under _popMutex alone.
    Mutex _pushMutex;
    Unknown::Handle_T<MemoryStream> _pushStream; // what has arrived
    std::atomic<bool> _hasArrived =
        false; // something has: who polls an empty port leaves the lock to the producers
    std::atomic<bool> _hasTaken = false; // something waits in _popStream
    Server* _server = nullptr;           // a started task, and for its thread
    Mutex _popMutex;
    Unknown::Handle_T<MemoryStream> _popStream; // what is being read, taken over from _pushStream as a whole
    InputStream _popInput;
};

/** Two ports for two sides that talk to each other. They are not connected: a message comes out where it went in,
    so each side pushes to the port that the other one reads. */
class MessagePipe {
public:
    MessagePort& getServerPort() noexcept { return _serverPort; }
    const MessagePort& getServerPort() const noexcept { return _serverPort; }
    MessagePort& getClientPort() noexcept { return _clientPort; }
    const MessagePort& getClientPort() const noexcept { return _clientPort; }

private:
    MessagePort _serverPort;
    MessagePort _clientPort;
};

} // namespace orvi
