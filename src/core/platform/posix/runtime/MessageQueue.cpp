#include "platform/runtime/MessageQueue.h"

#include "base/Immortal.h"
#include "platform/diagnostics/ThreadInfo.h"

#include <cstddef>
#include <utility>

namespace orvi::platform {

namespace {

/** The queues whose threads have ids with the same remainder. */
struct Bucket {
    std::mutex mutex; // before the mutex of a queue
    MessageQueue* first = nullptr;
};

constexpr std::size_t bucketCount = 256;

Bucket& bucketOf(unsigned long threadId)
{
    struct Buckets {
        Bucket all[bucketCount];
    };
    static Immortal<Buckets> buckets;
    return buckets->all[threadId % bucketCount];
}

thread_local MessageQueue* t_queue = nullptr;

} // namespace

MessageQueue::MessageQueue() noexcept
    : _isNested(t_queue != nullptr)
{
    if (_isNested) {
        _wait = t_queue->_wait;
        return;
    }
    t_queue = this;
    _threadId = currentThreadId();
    Bucket& bucket = bucketOf(_threadId);
    const std::lock_guard guard(bucket.mutex);
    _next = std::exchange(bucket.first, this);
}

MessageQueue::~MessageQueue()
{
    if (_isNested) {
        setWait(nullptr);
        if (_wait != nullptr)
            _wait->wake(); // it has to put its name down anew
        return;
    }
    t_queue = nullptr;
    Bucket& bucket = bucketOf(_threadId);
    {
        const std::lock_guard guard(bucket.mutex);
        MessageQueue** place = &bucket.first;
        while (*place != this)
            place = &(*place)->_next;
        *place = _next;
    }
    const std::lock_guard last(_mutex); // whoever found the queue before is done with it
}

bool MessageQueue::close()
{
    if (_isNested)
        return false;
    const std::lock_guard guard(_mutex);
    _isOpen = false;
    return true;
}

bool MessageQueue::dispatch()
{
    MessageQueue* queue = t_queue;
    if (queue == nullptr || !queue->_hasMessages.load())
        return false;
    std::function<void()> message;
    {
        const std::lock_guard guard(queue->_mutex);
        Messages& messages = *queue->_messages;
        message = std::move(messages.front());
        messages.pop_front();
        queue->_hasMessages.store(!messages.empty(), std::memory_order_relaxed);
    }
    message();
    return true;
}

void MessageQueue::setWait(LoopWait* wait)
{
    MessageQueue* queue = t_queue;
    if (queue == nullptr || queue->_wait == wait) // which this thread alone changes
        return;
    const std::lock_guard guard(queue->_mutex);
    queue->_wait = wait;
}

bool MessageQueue::wakes(const LoopWait& wait) noexcept
{
    return t_queue != nullptr && t_queue->_wait == &wait;
}

bool MessageQueue::post(unsigned long threadId, std::function<void()> message)
{
    const WakeLater later;
    Bucket& bucket = bucketOf(threadId);
    std::unique_lock bucketGuard(bucket.mutex);
    MessageQueue* queue = bucket.first;
    while (queue != nullptr && queue->_threadId != threadId)
        queue = queue->_next;
    if (queue == nullptr)
        return false;
    const std::lock_guard guard(queue->_mutex); // from here on the queue cannot go
    bucketGuard.unlock();
    if (!queue->_isOpen)
        return false;
    if (!queue->_messages)
        queue->_messages.emplace();
    queue->_messages->push_back(std::move(message));
    if (!queue->_hasMessages.load(std::memory_order_relaxed))
        queue->_hasMessages.store(true);
    if (queue->_wait != nullptr)
        queue->_wait->wake();
    return true;
}

} // namespace orvi::platform
