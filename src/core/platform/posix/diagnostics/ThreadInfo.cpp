#include "platform/diagnostics/ThreadInfo.h"

#include <pthread.h>
#include <unistd.h>

namespace orvi::platform {

// Not remembered: the child of a fork is another thread, and to notice that takes a system call, too.
unsigned long currentThreadId() { return static_cast<unsigned long>(gettid()); }

StackBounds currentStackBounds()
{
    static thread_local StackBounds bounds{0, 0};
    if (bounds.highest == 0) {
        // 0.4 us; 45 us in the main thread, where glibc reads /proc/self/maps.
        pthread_attr_t attributes;
        if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
            void* lowest = nullptr;
            size_t size = 0;
            pthread_attr_getstack(&attributes, &lowest, &size);
            pthread_attr_destroy(&attributes);
            bounds.lowest = reinterpret_cast<std::uintptr_t>(lowest);
            bounds.highest = bounds.lowest + size;
        }
    }
    return bounds;
}

} // namespace orvi::platform
