#include "platform/ThreadInfo.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace orvi::platform {

unsigned long currentThreadId()
{
    // gettid is a system call of some 100 ns. The child of a fork is another thread with another id; its
    // parent's cached one would be wrong, so the process is part of what is remembered.
    static thread_local pid_t process = 0;
    static thread_local unsigned long id = 0;
    const pid_t current = getpid();
    if (process != current) {
        id = static_cast<unsigned long>(syscall(SYS_gettid));
        process = current;
    }
    return id;
}

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
