#pragma once
#include "platform/runtime/LoopWait.h"

#include <cstdint>
#include <unordered_map>

namespace orvi::platform {

/** What a loop watches in the system, with an event by which other threads reach it there. For one thread, but for
    wake().

    The system forgets a descriptor when its last copy is closed, and tells nobody. Where a copy lives on elsewhere, in the
    child of a fork for instance, it goes on telling, by a number that means something else now: each watch has a serial
    number, and a set that tells of one that has gone is made anew. So is one that a fork has brought along, which would
    be the parent's too. */
class DescriptorSet {
public:
    DescriptorSet() = default;
    ~DescriptorSet();
    DescriptorSet(const DescriptorSet&) = delete;
    DescriptorSet& operator=(const DescriptorSet&) = delete;

    /** False when the system has no descriptors left. To be called once, before all else. */
    bool open() noexcept;
    /** Readable when something is ready; stays the same. */
    int descriptor() const noexcept { return _set; }

    // As LoopWait has it.
    bool watch(int descriptor, unsigned int readiness, void* owner);
    void unwatch(int descriptor, const void* owner) noexcept;
    bool isEmpty() const noexcept { return _entries.empty(); }

    void wake() const noexcept;
    /** Waits until something is ready or somebody wakes; Time::min() looks alone. May end early. */
    void wait(LoopWait::Time deadline) noexcept;
    bool hasReady() const noexcept { return _readyCount > 0; }
    /** Hands over what the last wait has found. */
    void takeReady(void (*tell)(void* owner, unsigned int readiness)) noexcept;

private:
    struct Entry {
        void* owner = nullptr;
        std::uint32_t serial = 0;
        unsigned int readiness = 0;
    };
    struct Ready {
        void* owner; // null when it has gone since
        unsigned int readiness;
    };

    bool make() noexcept;
    bool refresh() noexcept;
    bool control(int operation, int descriptor, const Entry& entry) const noexcept;

    static constexpr int mostReady = 64; // the others come next

    int _set = -1;
    int _event = -1;
    unsigned int _forks = 0;
    bool _isStale = false;
    std::unordered_map<int, Entry> _entries;
    std::uint32_t _lastSerial = 0;
    Ready _ready[mostReady] = {};
    int _readyCount = 0;
};

} // namespace orvi::platform
