#include <orvi/core/RunQueue.h>

#include "platform/runtime/MessageQueue.h"

#include <utility>

namespace orvi {

bool postToThread(unsigned long threadId, std::function<void()> closure)
{
    return closure != nullptr && platform::MessageQueue::post(threadId, std::move(closure));
}

} // namespace orvi
