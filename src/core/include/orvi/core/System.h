#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/Semaphore.h>
#include <orvi/core/Unknown.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace orvi {

namespace platform {
class LoopWait;
}

enum ETaskState {
    TASK_STOPPED = 0,  // not started, or stopped
    TASK_SLEEPING = 1, // no onTick until the sleep has run out or waken is called
    TASK_RUNNING = 2   // onTick each tick time
};

/** A run loop: a state machine, a queue of posted closures and a cooperative scheduler of tasks.

    One thread runs it, the one that calls start(); every task runs there, one after the other. Derive your
    own, and put it on a thread of its own with Thread, or turn it on yours:

        system->load();
        system->start();  // returns when somebody has called shutdown()
        system->unload();

    Where the thread has a loop of another library, that calls begin, turn and finish instead of start.

    The loop never blocks by itself: a Rest task lets it sleep until something is due, a Yield task for a time
    at each of its turns, System::sleep in a hook. What a tick throws is reported in the log, handed to
    onException as a code, and the loop goes on. So it does after a fault of the hardware in a tick, with the
    locks that the tick held still locked; the first fault of a process leaves a report (CrashReporter.h). What
    leaves init, run or exit is treated alike and ends this run alone: exit is called in any case, and the base
    exit has its way after an override that did not get to it.

    Any thread may call getState, getRunThreadId, waken, shutdown, load and unload at any time; everything
    else belongs to the run thread. Times are unsigned milliseconds. */
class ORVI_API System : public virtual Unknown {
public:
    class Task;

    enum EState {
        STATE_UNLOADED = 0,    // constructed, or finished and unloaded
        STATE_LOADED = 1,      // reserved by load
        STATE_STARTING = 2,    // start has begun, init has not finished
        STATE_INITIALISED = 3, // the base init has run: tasks may be started from here on
        STATE_RUNNING = 4,     // the loop turns
        STATE_STOPPING = 5     // shutdown was asked for, or the loop has ended
    };

    /** Reserves the system for one start; false unless it is unloaded. */
    bool load();
    /** Runs the whole life of the loop on the calling thread. Returns at once, having run nothing, unless it
        is loaded. */
    void start();

    /** The loop inside that of another library: begin in the place of start, then turn each time that the descriptor is
        readable or the time is over, and finish:

            if (system->begin()) {
                unsigned int ms = 0;
                for (pollfd ready{system->getWaitDescriptor(), POLLIN, 0}; system->turn(ms);)
                    poll(&ready, 1, ms == 0xFFFFFFFF ? -1 : static_cast<int>(ms));
                system->finish();
            }

        False unless it is loaded, and when the system has no descriptors left; or when init refuses, and then exit has
        run. All are for one thread. Several systems of a thread finish in the opposite order. Throws std::bad_alloc with
        nothing changed. */
    bool begin();
    /** Runs one closure, or one pass over the tasks, and tells in how many milliseconds at the latest it wants to be called
        again: 0, at once, when others have had their turn; 0xFFFFFFFF, when the descriptor tells. False when the
        system has been shut down. A Rest is not needed here, and a Yield would delay the other loop. */
    bool turn(unsigned int& timeToNextMs);
    /** Ends what begin began; does nothing else. */
    void finish();
    /** Readable when turn has something to do before its time, from one turn to the next: a closure, a waken, a
        text, a watched descriptor. The system's own: to be waited for alone, not read. -1 unless it has begun. */
    int getWaitDescriptor() const noexcept;

    /** Makes a stopping system ready for another load; does nothing in any other state, nor before start has
        come to its end. */
    void unload();
    /** Blocks the run thread until the time is over, waken or shutdown; takes all wake-ups that have
        gathered. */
    void sleep(unsigned int ms);
    /** Wakes the loop where it sleeps or rests; a rest that is about to begin ends at once. */
    void waken();

    EState getState() const noexcept { return static_cast<EState>(_state.load() & ~underWay); }
    /** The id of the thread that called start; 0 before. What postToThread wants. */
    unsigned long getRunThreadId() const noexcept { return _runThreadId.load(); }

    /** An override calls this first: tasks can be started only once it has run. False when shutdown came
        first. */
    virtual bool init();
    /** Stops all tasks; an override calls this last. Runs at the end of every start, also after a failed
        init. */
    virtual void exit();
    /** Ticks while the system is running. */
    virtual void run();
    /** Asks the loop to end with the tick under way, without waiting for that; always true. */
    virtual bool shutdown();
    /** Runs one posted closure or, when none waits, one pass over the tasks. With a Rest it sleeps first, behind a pass and
        as long as nothing is due. */
    virtual void tick();
    /** One pass: every task that is due gets its onTick. `deltaMs` is the time since the last pass, 0 in the
        first. */
    virtual void onTick(unsigned int deltaMs);
    /** Called after a tick that threw (0xE06D7363) or had a fault (0xC0000005 and others), on the run thread. So it
        is after an init, a run or an exit that did, and after the stop of a task at the end. What leaves it is
        reported and goes no further. */
    virtual void onException(unsigned long code);

protected:
    System();
    ~System() override;

private:
    friend class AppBox;
    friend class ServiceSystem;
    friend class Thread;
    friend class Watch;

    struct PostedClosures;
    struct Stay;
    class TaskStatus; // one start of one task
    class TaskSchedule;

    static constexpr int underWay =
        8; // beside the state: from the begin of start, or of a Thread's, to its end

    bool advance(EState from, EState to) noexcept;
    void unreserve() noexcept;
    bool reserveForThread() noexcept;
    void giveBack() noexcept;
    void startOnThread();
    bool runStep(void (*step)(void*), void* argument);
    bool runFrom(int expected);
    bool enter(int expected);
    bool prepare();
    void leave(Stay& stay);
    void rest();
    std::uint64_t untilNext(unsigned int now) const noexcept;
    void takeEvents() noexcept;
    void addTask(TaskStatus* status);
    void reschedule(TaskStatus& status) noexcept;
    void removeTask(TaskStatus* status) noexcept;
    void finishPass() noexcept;
    void dropStopped() noexcept;

    std::atomic<int> _state = STATE_UNLOADED; // with underWay
    std::atomic<unsigned long> _runThreadId = 0;
    Unknown::Handle_T<Semaphore> _semaphore;
    bool _firstTick = false;
    unsigned int _lastTime = 0; // getTimeTick of the last pass
    // What the last tick has found, for the rest behind it.
    bool _hasWorkLeft = false;   // there is none: the next tick goes on where work was left
    bool _mustLookAgain = false; // it is short: something is due that wakes nobody
    bool _isPassDone = false;    // it was no closure, and came to its end
    bool _isTurn = false;        // the next tick is that of a turn
    int _rests = 0;              // started tasks that let the loop rest
    void (*_exit)(void*);        // what the library's own class does in exit; gets the System

    // Linked lists: to stop a task takes no memory.
    Unknown::Handle_T<TaskStatus> _firstTask; // in order of starting
    TaskStatus* _lastTask = nullptr;
    TaskStatus* _firstNew = nullptr; // of those started since the last pass
    std::size_t _taskCount = 0;
    std::uint64_t _lastOrder = 0;
    Unknown::Handle_T<TaskStatus> _firstStopped;
    TaskStatus* _lastStopped = nullptr;
    std::atomic<TaskStatus*> _firstSignalled = nullptr; // any thread puts one in front
    const std::unique_ptr<TaskSchedule> _schedule;
    const std::unique_ptr<platform::LoopWait> _wait;
    std::unique_ptr<Stay> _stay; // between begin and finish
};

/** Work that a System does bit by bit: override the hooks init, exit and onTick.

    A started task is owned by its system: it goes on when its maker has dropped the handle, until stop or the
    system's end. It may be started again afterwards. For the system's run thread, but for construction. */
class ORVI_API System::Task : public virtual Unknown {
public:
    /** False when `system` is null or takes no tasks (states 3 and 4 do), when the task is started already,
        or when init refuses. The first onTick comes with the next pass at the earliest. Where memory is short it
        throws std::bad_alloc and has done nothing; what init throws passes on when the task has been stopped. */
    virtual bool start(System* system);
    /** Calls exit, in every case, and takes the task out of its system, also when exit throws. A task may stop
        itself or any other. Takes no memory. */
    virtual void stop();
    /** No onTick for `ms` milliseconds, counted from the last one; false when not started. */
    virtual bool sleep(unsigned int ms);
    virtual bool waken();

    virtual bool init();
    virtual void exit();
    /** `elapsedMs`: the time since the last call, or since the start. A late task is not called more often
        for it. */
    virtual void onTick(unsigned int elapsedMs);

    /** Least time between two onTicks; 0, the start value, means every pass. Takes effect at once. */
    void setTickTime(unsigned int ms) noexcept;
    ETaskState getTaskState() const noexcept;
    /** Null when not started. */
    System* getSystem() const noexcept;

protected:
    Task() = default;
    /** Has the task called in the next pass, whatever its times; a loop that rests wakes up. Many signals before that
        are one. For any thread, as long as the task is started: where others signal, exit takes a lock that they
        take too. */
    void signal() noexcept;
    /** Calls stop, when the hooks of subclasses are gone already: clean-up in exit needs an explicit stop. */
    ~Task() override;

private:
    friend class System;

    void leaveSystem() noexcept;

    System::TaskStatus* _status = nullptr; // held by the system's lists
    unsigned int _tickTime = 0;
};

} // namespace orvi
