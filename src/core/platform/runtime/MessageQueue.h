#pragma once
#include "LoopWait.h"

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>

namespace orvi::platform {

/** The calling thread's queue of messages, which are closures that any thread posts. Put one on the stack for each loop:
    where loops are nested, the outermost is the queue, also when a fault leaves the inner ones behind.

    To make one takes no memory and cannot fail: a thread that has come so far gets its loop. */
class MessageQueue {
public:
    MessageQueue() noexcept;
    ~MessageQueue();
    MessageQueue(const MessageQueue&) = delete;
    MessageQueue& operator=(const MessageQueue&) = delete;

    /** Ends posting; what waits can still be dispatched. False, with nothing done, when another loop of this
        thread goes on. */
    bool close();

    /** Runs one message that waits for the calling thread. False, at once, when there is none. */
    static bool dispatch();

    /** A message to the calling thread wakes this place from now on, until another one or null comes; and null comes
        with the end of a nested queue. */
    static void setWait(LoopWait* wait);
    /** Whether it is this place that a message wakes. */
    static bool wakes(const LoopWait& wait) noexcept;

    /** False when that thread has no queue. Any thread. Throws std::bad_alloc with nothing changed. */
    static bool post(unsigned long threadId, std::function<void()> message);

private:
    using Messages = std::deque<std::function<void()>>;

    std::mutex _mutex;
    std::optional<Messages> _messages;      // the first message makes it
    std::atomic<bool> _hasMessages = false; // the loop looks here before it takes the lock
    LoopWait* _wait = nullptr; // where the thread waits; of a nested queue, where it waited before
    bool _isOpen = true;
    unsigned long _threadId = 0;   // kept: the child of a fork has another one
    MessageQueue* _next = nullptr; // of the same bucket
    const bool _isNested;
};

} // namespace orvi::platform
