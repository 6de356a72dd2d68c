#pragma once
#include <functional>

namespace orvi::platform {

/** The calling thread's queue of messages, which are closures that any thread posts. It is there as long as
    at least one object of this class lives on the thread: one for each loop, where loops are nested. */
class MessageQueue {
public:
    MessageQueue();
    ~MessageQueue();
    MessageQueue(const MessageQueue&) = delete;
    MessageQueue& operator=(const MessageQueue&) = delete;

    /** Ends posting; what waits can still be dispatched. False, with nothing done, when another loop of this
        thread goes on. */
    bool close();

    /** Runs one message that waits for the calling thread. False, at once, when there is none. */
    static bool dispatch();

    /** False when that thread has no queue. Any thread. */
    static bool post(unsigned long threadId, std::function<void()> message);
};

} // namespace orvi::platform
