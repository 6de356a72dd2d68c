#include "platform/MessageQueue.h"

#include "platform/ThreadInfo.h"
#include "src/Immortal.h"

#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

namespace orvi::platform {

namespace {

struct Queue {
    const unsigned long threadId = currentThreadId(); // kept: the child of a fork has another one
    std::mutex mutex;
    std::deque<std::function<void()>> messages;
    std::atomic<bool> hasMessages = false; // the loop looks here before it takes the lock
    bool isOpen = true;
    int loops = 0; // the own thread's alone
};

struct Queues {
    std::mutex mutex; // before the mutex of a queue
    std::map<unsigned long, std::shared_ptr<Queue>> byThread;
};

Queues& queues()
{
    static Immortal<Queues> queues;
    return *queues;
}

thread_local Queue* t_queue = nullptr;

} // namespace

MessageQueue::MessageQueue()
{
    if (t_queue == nullptr) {
        const auto queue = std::make_shared<Queue>();
        Queues& all = queues();
        const std::lock_guard guard(all.mutex);
        all.byThread[queue->threadId] = queue;
        t_queue = queue.get();
    }
    ++t_queue->loops;
}

MessageQueue::~MessageQueue()
{
    close();
    if (--t_queue->loops > 0)
        return;
    const unsigned long threadId = std::exchange(t_queue, nullptr)->threadId;
    Queues& all = queues();
    decltype(all.byThread)::node_type last; // messages that nobody dispatched go without the lock
    const std::lock_guard guard(all.mutex);
    last = all.byThread.extract(threadId);
}

bool MessageQueue::close()
{
    if (t_queue->loops > 1)
        return false;
    const std::lock_guard guard(t_queue->mutex);
    t_queue->isOpen = false;
    return true;
}

bool MessageQueue::dispatch()
{
    Queue* queue = t_queue;
    if (queue == nullptr || !queue->hasMessages.load(std::memory_order_acquire))
        return false;
    std::function<void()> message;
    {
        const std::lock_guard guard(queue->mutex);
        message = std::move(queue->messages.front());
        queue->messages.pop_front();
        queue->hasMessages.store(!queue->messages.empty(), std::memory_order_relaxed);
    }
    message();
    return true;
}

bool MessageQueue::post(unsigned long threadId, std::function<void()> message)
{
    std::shared_ptr<Queue> queue;
    {
        Queues& all = queues();
        const std::lock_guard guard(all.mutex);
        const auto found = all.byThread.find(threadId);
        if (found == all.byThread.end())
            return false;
        queue = found->second;
    }
    const std::lock_guard guard(queue->mutex);
    if (!queue->isOpen)
        return false;
    queue->messages.push_back(std::move(message));
    queue->hasMessages.store(true, std::memory_order_release);
    return true;
}

} // namespace orvi::platform
