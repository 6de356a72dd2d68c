#include <orvi/core/Thread.h>

#include "platform/diagnostics/ThreadInfo.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>

namespace orvi {

/** One run of a system. Starter, thread and those who wait for the end share it. */
struct Thread::Run {
    explicit Run(System* toRun)
        : system(toRun)
    {}

    /** Waits for the end of the thread. One waiter joins it, the others wait for that one. */
    void join()
    {
        std::unique_lock lock(mutex);
        if (threadId == platform::currentThreadId())
            return;
        if (!worker.joinable()) {
            ended.wait(lock, [this] { return hasEnded; });
            return;
        }
        std::thread joined = std::move(worker);
        lock.unlock();
        joined.join();
        lock.lock();
        hasEnded = true;
        ended.notify_all();
    }

    /** The same with a limit, and leaves the joining to others. */
    bool waitForEnd(unsigned int timeoutMs)
    {
        std::unique_lock lock(mutex);
        if (threadId == platform::currentThreadId())
            return false;
        const auto isOver = [this] { return hasEnded; };
        if (timeoutMs != Semaphore::endless)
            return ended.wait_for(lock, std::chrono::milliseconds(timeoutMs), isOver);
        ended.wait(lock, isOver);
        return true;
    }

    /** The thread ends with nobody waiting, or will never begin; under the lock. Who comes later does not
        wait for it. */
    void letGo()
    {
        if (!worker.joinable())
            return;
        worker.detach();
        hasEnded = true;
        ended.notify_all();
    }

    const Handle_T<System> system;
    const Handle_T<Semaphore> started = Semaphore::createInstance();

    std::mutex mutex; // guards what follows; after the Thread's own
    std::condition_variable ended;
    std::thread worker;     // empty once somebody joins it, or it went unwatched
    Handle_T<Thread> owner; // on its way to the thread
    bool isWanted = true;   // false: the starter has given up
    bool hasEnded = false;
    unsigned long threadId = 0;
};

Thread::Thread() = default;

Thread::~Thread() = default;

Unknown::Handle_T<Thread> Thread::createInstance() { return new Thread; }

bool Thread::start(System* system)
{
    if (system == nullptr)
        return false;
    try {
        const auto run = std::make_shared<Run>(system);
        if (!system->reserveForThread())
            return false;
        if (launch(run))
            return true;
        system->giveBack();
        system->unload(); // changes something only if it was shut down meanwhile
    } catch (const std::bad_alloc&) {
        // Nothing has been done.
    }
    return false;
}

/** Throws std::bad_alloc with everything as it was before, the system's load included. */
bool Thread::launch(const std::shared_ptr<Run>& run)
{
    {
        const MutexGuard guard(_mutex);
        if (_run != nullptr)
            return false;
        const std::lock_guard runGuard(run->mutex); // the thread waits until its record is complete
        try {
            run->worker = std::thread(&Thread::main, run);
        } catch (const std::system_error&) {
            return false;
        } catch (const std::bad_alloc&) {
            run->system->giveBack();
            run->system->unreserve();
            throw;
        }
        run->owner = this;
        _run = run;
    }

    constexpr unsigned int mostMillisToStart = 60000;
    if (run->started->wait(mostMillisToStart, false))
        return true;
    {
        const std::lock_guard runGuard(run->mutex);
        if (run->threadId != 0)
            return true; // it has come to life just now
        run->isWanted = false;
        run->owner.setNull();
        run->letGo();
    }
    const MutexGuard guard(_mutex);
    _run.reset();
    return false;
}

void Thread::main(const std::shared_ptr<Run>& run)
{
    Handle_T<Thread> self;
    {
        const std::lock_guard guard(run->mutex);
        if (!run->isWanted)
            return;
        run->threadId = platform::currentThreadId();
        self = std::move(run->owner);
    }
    run->started->signal();
    run->system->startOnThread();
    {
        // In one step: whoever finds the system unloaded finds the thread idle, and the other way round.
        const MutexGuard guard(self->_mutex);
        self->_run.reset();
        run->system->unload();
    }
    self.setNull();

    const std::lock_guard guard(run->mutex);
    run->letGo();
}

bool Thread::shutdown()
{
    const std::shared_ptr<Run> run = currentRun();
    if (run != nullptr) {
        run->system->shutdown();
        run->join();
    }
    return true;
}

bool Thread::waitIdle(unsigned int timeoutMs) const
{
    const std::shared_ptr<Run> run = currentRun();
    return run == nullptr || run->waitForEnd(timeoutMs);
}

Unknown::Handle_T<System> Thread::getSystem() const
{
    const std::shared_ptr<Run> run = currentRun();
    return run != nullptr ? run->system : Handle_T<System>();
}

std::shared_ptr<Thread::Run> Thread::currentRun() const
{
    const MutexGuard guard(_mutex);
    return _run;
}

unsigned long Thread::getCurrentThreadId() { return platform::currentThreadId(); }

} // namespace orvi
