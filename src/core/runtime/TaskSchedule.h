#pragma once
#include <orvi/core/System.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace orvi {

/** The record of one start of one task. It owns the task, the system's lists own it: stopping a task during a
    pass leaves the record, and with it the task, in place until the pass is over. */
class System::TaskStatus : public Unknown {
public:
    TaskStatus(System* owner, Task* started);

    unsigned int limit() const noexcept { return state == TASK_SLEEPING ? sleepTime : task->_tickTime; }

    const Unknown::Handle_T<System> system;
    const Unknown::Handle_T<Task> task;
    ETaskState state = TASK_RUNNING;
    unsigned int sleepTime = 0;
    const bool onlyRests; // a Yield: it has no turn while there is work left
    const bool letsRest;  // a Rest: it has no turn at all

    // For the lists: of the tasks in order of starting, then of those stopped.
    Unknown::Handle_T<TaskStatus> next;
    TaskStatus* previous = nullptr;

    // For signals: a list that any thread adds to. A record in it holds itself.
    std::atomic<bool> isSignalled = false;
    TaskStatus* nextSignalled = nullptr;
    Unknown::Handle_T<TaskStatus> self;

    // For the schedule.
    bool isDue = false; // whatever its times
    enum class Place : unsigned char { Nowhere, EveryPass, Timed, Due, Skipped };
    Place place = Place::Nowhere;
    std::size_t index = 0;   // there, but for EveryPass
    std::uint64_t order = 0; // a number in order of starting
    std::uint64_t since = 0; // when it had its last turn, by the schedule's clock
};

/** Tells which tasks are due, in order of starting. A pass costs what is due, not what exists.

    Time is the sum of the passes' deltas, and each task counts a pass when that comes by: what a task sees of a pass
    that has not reached it, nested ones included, is as if the pass had not begun. */
class System::TaskSchedule {
public:
    TaskSchedule();

    /** Makes room for that many tasks; what follows takes no memory then, but for passes nested deeply. */
    void reserve(std::size_t count);
    /** Takes a task in; its time begins now. */
    void add(TaskStatus& status) noexcept;
    void remove(TaskStatus& status) noexcept;
    /** The task is due now, until it has had its turn. */
    void makeDue(TaskStatus& status) noexcept;
    /** The task's limit has changed. One that is not in yet does not matter. */
    void update(TaskStatus& status) noexcept;

    // A pass: begin it, ask for one task after the other, end it.
    void beginPass(unsigned int deltaMs);
    /** The next task that may be due; null when there is none. */
    TaskStatus* next() noexcept
    {
        Pass& pass = _passes.back();
        if (pass.changes == _everyPass.changes() && _due.isEmpty() &&
            (_timed.isEmpty() || _timed.topKey() > _clock)) { // nothing but the next in the row
            if (TaskStatus* status = _everyPass.at(pass.everyPass)) {
                ++pass.everyPass;
                pass.order = status->order;
                return status;
            }
        }
        return search();
    }
    /** What it has gathered in the pass under way. */
    std::uint64_t elapsed(const TaskStatus& status) const noexcept
    {
        return now(status.order) - status.since;
    }
    /** It gets its turn now, or is passed over. */
    void restart(TaskStatus& status) noexcept
    {
        status.since = now(status.order);
        status.isDue = false;
        if (status.place != TaskStatus::Place::EveryPass || status.limit() != 0)
            passOver(status);
    }
    void passOver(TaskStatus& status) noexcept;
    void endPass() noexcept;

    /** In milliseconds behind the last pass, 0 when a task is due; `never` when none waits for time. */
    std::uint64_t timeToNext() const noexcept;
    static constexpr std::uint64_t never = std::numeric_limits<std::uint64_t>::max();

    std::size_t passes() const noexcept { return _passes.size(); }
    /** Ends passes before their ends, down to so many: who was behind does not count them. `first` is the first of
        all tasks. */
    void losePasses(std::size_t depth, TaskStatus* first) noexcept;

private:
    /** Tasks by a key, the smallest first. */
    class Heap {
    public:
        bool isEmpty() const noexcept { return _entries.empty(); }
        std::uint64_t topKey() const noexcept { return _entries.front().key; }
        TaskStatus& top() const noexcept { return *_entries.front().status; }
        void reserve(std::size_t count) { _entries.reserve(count); }
        void clear() noexcept { _entries.clear(); }
        void push(std::uint64_t key, TaskStatus& status) noexcept;
        void remove(std::size_t index) noexcept;

    private:
        struct Entry {
            std::uint64_t key;
            TaskStatus* status;
        };

        void put(std::size_t index, const Entry& entry) noexcept;
        void rise(std::size_t index, const Entry& entry) noexcept;
        void sink(std::size_t index, const Entry& entry) noexcept;

        std::vector<Entry> _entries;
    };

    /** Tasks without a limit, in order. One that leaves keeps its slot for a while: tasks that sleep now and then come back
        to it. */
    class EveryPass {
    public:
        void reserve(std::size_t count) { _slots.reserve(2 * count); }
        bool isEmpty() const noexcept { return _slots.size() == _empty; }
        void clear() noexcept;
        void add(TaskStatus& status) noexcept;
        void remove(const TaskStatus& status) noexcept;
        void sweepIfSparse() noexcept;
        /** The first slot with a task behind this order. */
        std::size_t behind(std::uint64_t order) const noexcept;
        std::size_t skipEmpty(std::size_t index) const noexcept;
        TaskStatus* at(std::size_t index) const noexcept
        {
            return index < _slots.size() ? _slots[index].status : nullptr;
        }
        /** Counts what makes an index stale. */
        unsigned int changes() const noexcept { return _changes; }

    private:
        struct Slot {
            std::uint64_t order;
            TaskStatus* status; // null when it has left
        };

        std::size_t find(std::uint64_t order) const noexcept;
        void sweep() noexcept;

        std::vector<Slot> _slots;
        std::size_t _empty = 0;
        unsigned int _changes = 0;
    };

    struct Pass {
        std::uint64_t order; // of the task that it has come to
        unsigned int delta;
        unsigned int changes;  // of _everyPass, for which the next holds
        std::size_t everyPass; // the next one there; not beside `order`, or both are stored as one, slowly
    };

    /** The time that a task of this order has come to: passes under way count once they have reached it. */
    std::uint64_t now(std::uint64_t order) const noexcept
    {
        std::uint64_t time = _clock;
        for (const Pass& pass : _passes) {
            if (pass.order < order)
                time -= pass.delta;
        }
        return time;
    }
    TaskStatus* search() noexcept;
    void place(TaskStatus& status) noexcept;
    void takeOut(TaskStatus& status) noexcept;
    void returnSkipped() noexcept;

    std::size_t _room = 0; // for so many tasks
    std::uint64_t _clock = 0;
    std::vector<Pass> _passes; // under way, the innermost last
    EveryPass _everyPass;
    Heap _timed;                       // by the time when they are due
    Heap _due;                         // by order: due, and not visited yet
    std::vector<TaskStatus*> _skipped; // due, but the pass was beyond them
};

} // namespace orvi
