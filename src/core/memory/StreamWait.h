#pragma once
#include <orvi/core/MemoryStream.h>
#include <orvi/core/Mutex.h>

#include "platform/runtime/LoopWait.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace orvi {

/** Somebody who waits for what others write to a stream. It stands in the stream's list, under the lock that all who use
    the stream share. */
struct StreamWait {
    void (*wake)(void* target) = nullptr; // called with the lock held
    void* target = nullptr;
    StreamWait* next = nullptr;

    static StreamWait at(platform::LoopWait& place) noexcept
    {
        return {[](void* waiting) { static_cast<platform::LoopWait*>(waiting)->wake(); }, &place};
    }
};

/** What a stream has that is not for callers. */
struct StreamAccess {
    static void addWait(MemoryStream& stream, StreamWait& wait) noexcept
    {
        wait.next = std::exchange(stream._waits, &wait);
    }
    static void removeWait(MemoryStream& stream, StreamWait& wait) noexcept
    {
        StreamWait** link = &stream._waits;
        while (*link != &wait)
            link = &(*link)->next;
        *link = wait.next;
    }
    static void wakeWaits(const MemoryStream& stream) noexcept
    {
        for (const StreamWait* wait = stream._waits; wait != nullptr; wait = wait->next)
            wait->wake(wait->target);
    }

    /** No lines in the log about the pages of this stream: its owner writes with a lock held. */
    static void setQuiet(MemoryStream& stream) noexcept { stream._isQuiet = true; }
};

/** Blocks the calling thread until `look` says true or `timeoutMs` milliseconds are over, with false; 0xFFFFFFFF has no limit.
    It looks anew whenever somebody wakes those who wait for `stream`, whose lock is `mutex`; each millisecond where
    that is null. */
template <class Look>
bool waitForStream(MemoryStream* stream, Mutex& mutex, unsigned int timeoutMs, const Look& look)
{
    using namespace std::chrono;
    platform::LoopWait place;
    StreamWait wait = StreamWait::at(place);
    struct Entry {
        MemoryStream* stream;
        Mutex& mutex;
        StreamWait& wait;
        Entry(MemoryStream* from, Mutex& guarding, StreamWait& listed)
            : stream(from)
            , mutex(guarding)
            , wait(listed)
        {
            if (stream == nullptr)
                return;
            const MutexGuard guard(mutex);
            StreamAccess::addWait(*stream, wait);
        }
        ~Entry()
        {
            if (stream == nullptr)
                return;
            const MutexGuard guard(mutex);
            StreamAccess::removeWait(*stream, wait);
        }
    } const entry(stream, mutex, wait);
    constexpr unsigned int endless = 0xFFFFFFFF;
    const auto deadline =
        timeoutMs == endless ? platform::LoopWait::never : steady_clock::now() + milliseconds(timeoutMs);
    for (;;) {
        place.arm();
        if (look())
            return true;
        const auto now = steady_clock::now();
        if (now >= deadline)
            return false;
        place.wait(stream != nullptr ? deadline : std::min(deadline, now + milliseconds(1)));
    }
}

} // namespace orvi
