#include <orvi/core/System.h>

#include <orvi/core/Time.h>
#include <orvi/core/Watch.h>

#include "Guard.h"
#include "TaskSchedule.h"
#include "diagnostics/CrashReporter.h"
#include "platform/diagnostics/FaultGuard.h"
#include "platform/diagnostics/ThreadInfo.h"
#include "platform/runtime/LoopWait.h"
#include "platform/runtime/MessageQueue.h"
#include "values/RandomSeed.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <optional>
#include <thread>
#include <utility>

namespace orvi {

/** The run thread's queue for the time of a loop. Who was told that his closure runs can rely on it, however
    the loop ends: what still waits runs then. */
struct System::PostedClosures {
    explicit PostedClosures(System& ran)
        : system(ran)
    {}

    System& system;
    platform::MessageQueue queue{};

    ~PostedClosures()
    {
        bool dispatched = queue.close();
        while (dispatched)
            system.runStep(
                [](void* result) { *static_cast<bool*>(result) = platform::MessageQueue::dispatch(); },
                &dispatched);
    }
};

/** What a thread has while it runs a system, from before its start to behind its end. */
struct System::Stay {
    explicit Stay(System& system) { closures.emplace(system); }

    const platform::FaultStack faultStack;
    std::optional<PostedClosures> closures; // there before the id: who sees that may post at once
};

System::System()
    : _semaphore(Semaphore::createInstance())
    , _exit([](void* system) { static_cast<System*>(system)->System::exit(); })
    , _schedule(std::make_unique<TaskSchedule>())
    , _wait(std::make_unique<platform::LoopWait>())
{
    seedRandom();
}

System::~System() = default;

/** From a state to another one; whether a start is under way stays as it is. */
bool System::advance(EState from, EState to) noexcept
{
    int present = _state.load();
    do {
        if ((present & ~underWay) != from)
            return false;
    } while (!_state.compare_exchange_weak(present, to | (present & underWay)));
    return true;
}

bool System::load() { return advance(STATE_UNLOADED, STATE_LOADED); }

/** Takes a load back that nobody has used. */
void System::unreserve() noexcept { advance(STATE_LOADED, STATE_UNLOADED); }

/** A load for a thread that is going to start: until that has come to its end nobody else gets in, whatever becomes of the
    load meanwhile. Or a shutdown that comes before the thread would count for nothing once others unload and load. */
bool System::reserveForThread() noexcept
{
    int unloaded = STATE_UNLOADED;
    return _state.compare_exchange_strong(unloaded, STATE_LOADED | underWay);
}

/** The thread will not come: the system is loaded like any other. */
void System::giveBack() noexcept { _state &= ~underWay; }

void System::unload()
{
    int stopped = STATE_STOPPING; // not while a start is under way: another thread would come in
    _state.compare_exchange_strong(stopped, STATE_UNLOADED);
}

/** Runs one step of the system's life; false when something has left it, which has been handled then. */
bool System::runStep(void (*step)(void*), void* argument)
{
    const std::size_t passes = _schedule->passes(); // some, when a task turns the loop
    struct Call {
        System* system;
        unsigned long code;
    } call{this, runGuarded(step, argument)};
    if (call.code == 0)
        return true;
    _schedule->losePasses(passes, _firstTask); // a fault leaves its pass without ending it
    platform::MessageQueue::setWait(nullptr);  // or an inner loop, with the place where it waits
    runGuarded(
        [](void* failed) {
            const Call& told = *static_cast<const Call*>(failed);
            told.system->onException(told.code);
        },
        &call);
    return false;
}

void System::start() { runFrom(STATE_LOADED); }

void System::startOnThread()
{
    if (runFrom(STATE_LOADED | underWay))
        return;
    // A shutdown came before: an application leaves its table nevertheless, and its clients hear of it.
    runStep(_exit, this);
    _state &= ~underWay;
}

/** The whole life of the loop; false, with nothing run, when the state is not the expected one. */
bool System::runFrom(int expected)
{
    Stay stay(*this);
    if (!enter(expected))
        return false;
    if (prepare())
        runStep([](void* system) { static_cast<System*>(system)->run(); }, this);
    leave(stay);
    return true;
}

bool System::enter(int expected)
{
    prepareCrashReports();
    _runThreadId = platform::currentThreadId();
    return _state.compare_exchange_strong(expected, STATE_STARTING | underWay);
}

/** init; false when there is no loop to turn. */
bool System::prepare()
{
    struct Attempt {
        System* system;
        bool isReady;
    } attempt{this, false};
    if (!runStep(
            [](void* argument) {
                Attempt& made = *static_cast<Attempt*>(argument);
                made.isReady = made.system->init();
            },
            &attempt)) {
        advance(STATE_STARTING, STATE_STOPPING);
        return false;
    }
    return attempt.isReady && advance(STATE_INITIALISED, STATE_RUNNING);
}

/** The end of a start. What an override of exit has not got to is done nevertheless: tasks would keep the system alive, and
    an application would stay in its table. */
void System::leave(Stay& stay)
{
    advance(STATE_RUNNING, STATE_STOPPING);
    advance(STATE_INITIALISED, STATE_STOPPING);
    stay.closures.reset(); // the last ones find the system still whole
    if (!runStep([](void* system) { static_cast<System*>(system)->exit(); }, this) && !runStep(_exit, this))
        runStep([](void* system) { static_cast<System*>(system)->System::exit(); }, this);
    _state &= ~underWay;
}

bool System::begin()
{
    auto stay = std::make_unique<Stay>(*this);
    if (_wait->descriptor() < 0 || !enter(STATE_LOADED))
        return false;
    if (prepare()) {
        _stay = std::move(stay);
        return true;
    }
    leave(*stay);
    return false;
}

bool System::turn(unsigned int& timeToNext)
{
    timeToNext = 0;
    if (getState() != STATE_RUNNING)
        return false;
    _isTurn = true;
    runStep([](void* system) { static_cast<System*>(system)->tick(); }, this);
    _isTurn = false;
    if (_isPassDone && platform::MessageQueue::wakes(*_wait)) {
        const std::uint64_t time = untilNext(getTimeTick());
        if (time > 0 && _wait->expose())
            timeToNext = static_cast<unsigned int>(
                std::min<std::uint64_t>(time, std::numeric_limits<unsigned int>::max()));
    }
    return getState() == STATE_RUNNING;
}

void System::finish()
{
    if (_stay == nullptr)
        return;
    const std::unique_ptr<Stay> stay = std::move(_stay);
    leave(*stay);
}

int System::getWaitDescriptor() const noexcept { return _stay != nullptr ? _wait->descriptor() : -1; }

void System::sleep(unsigned int ms) { _semaphore->wait(ms, true); }

void System::waken()
{
    _semaphore->signal();
    _wait->wake();
}

bool System::init()
{
    if (!advance(STATE_STARTING, STATE_INITIALISED))
        return false;
    _firstTick = true;
    _isPassDone = false;
    return true;
}

void System::exit()
{
    while (!_firstTask.isNull()) {
        const Handle_T<TaskStatus> status = _firstTask;
        Task* task = status->task;
        if (!runStep([](void* stopped) { static_cast<Task*>(stopped)->stop(); }, task) &&
            task->_status == status)
            task->leaveSystem();
    }
    takeEvents();
    dropStopped();
}

void System::run()
{
    while (getState() == STATE_RUNNING)
        runStep([](void* system) { static_cast<System*>(system)->tick(); }, this);
}

bool System::shutdown()
{
    for (const EState state : {STATE_LOADED, STATE_STARTING, STATE_INITIALISED, STATE_RUNNING})
        advance(state, STATE_STOPPING);
    waken();
    return true;
}

void System::tick()
{
    const bool isTurn = std::exchange(_isTurn, false);
    const bool rests = !isTurn && _rests > 0;
    if (std::exchange(_isPassDone, false) && rests && getState() == STATE_RUNNING) {
        rest();
        if (getState() != STATE_RUNNING)
            return;
    }
    if (isTurn || rests) {
        platform::MessageQueue::setWait(_wait.get());
        _wait->arm(); // before anything is looked at
    }
    if (platform::MessageQueue::dispatch())
        return;
    _hasWorkLeft = _mustLookAgain = false;
    const unsigned int now = getTimeTick();
    const unsigned int delta = _firstTick ? 0 : now - _lastTime;
    _firstTick = false;
    _lastTime = now;
    onTick(delta);
    _isPassDone = true;
}

/** Sleeps until a task is due by its time, or somebody has woken the loop since the last pass began. */
void System::rest()
{
    using namespace std::chrono;
    if (!platform::MessageQueue::wakes(*_wait))
        return; // a task has run a loop of its own: what came meanwhile woke that
    const auto now = floor<milliseconds>(steady_clock::now()); // as getTimeTick counts
    const std::uint64_t time = untilNext(static_cast<unsigned int>(now.time_since_epoch().count()));
    if (time > 0)
        _wait->wait(time == TaskSchedule::never ? platform::LoopWait::never : now + milliseconds(time));
}

/** The milliseconds until something is due by its time. */
std::uint64_t System::untilNext(unsigned int now) const noexcept
{
    if (_hasWorkLeft || (_firstNew != nullptr && _schedule->passes() == 0))
        return 0;
    std::uint64_t time = _schedule->timeToNext();
    if (_mustLookAgain)
        time = std::min<std::uint64_t>(time, 1);
    if (time == TaskSchedule::never)
        return time;
    const unsigned int gone = now - _lastTime;
    return gone < time ? time - gone : 0;
}

/** Makes tasks due whose descriptors are ready, and those that others have signalled. */
void System::takeEvents() noexcept
{
    _wait->takeReady([](void* owner, unsigned int readiness) {
        Watch& watch = *static_cast<Watch*>(owner);
        watch.take(readiness);
        TaskStatus& status = *static_cast<Task&>(watch)._status;
        status.system->_schedule->makeDue(status);
    });
    if (_firstSignalled.load(std::memory_order_relaxed) == nullptr)
        return;
    for (TaskStatus* status = _firstSignalled.exchange(nullptr); status != nullptr;) {
        const Handle_T<TaskStatus> held = std::move(status->self);
        status = status->nextSignalled;
        held->isSignalled = false; // before the task looks at what it is signalled for
        _schedule->makeDue(*held);
    }
}

void System::onTick(unsigned int deltaMs)
{
    struct Pass {
        System& system;
        const std::size_t depth = system._schedule->passes();
        ~Pass() { system._schedule->losePasses(depth, system._firstTask); } // does nothing after its end
    } const pass{*this};
    const bool hasWorkLeft = _hasWorkLeft;
    bool isIdle = !hasWorkLeft;
    takeEvents();
    _schedule->beginPass(deltaMs);
    while (TaskStatus* status = _schedule->next()) {
        const std::uint64_t elapsed = _schedule->elapsed(*status);
        if ((elapsed < status->limit() && !status->isDue) || (hasWorkLeft && status->onlyRests)) {
            _schedule->passOver(*status);
            continue;
        }
        status->state = TASK_RUNNING;
        _schedule->restart(*status);
        isIdle = false;
        status->task->onTick(static_cast<unsigned int>(elapsed));
    }
    _schedule->endPass();
    if (pass.depth == 0)
        finishPass();
    // Where loops outnumber processors an idle one would otherwise turn through its whole time slice before the
    // next gets a turn: 100 boxes without a task took 19 s to start on two processors, and take 50 ms with this.
    if (isIdle && _rests == 0 && _stay == nullptr)
        std::this_thread::yield();
}

/** Takes a task in, or throws and leaves all as it is. */
void System::addTask(TaskStatus* status)
{
    _schedule->reserve(_taskCount + 1);
    ++_taskCount;
    _rests += status->letsRest ? 1 : 0;
    status->order = ++_lastOrder;
    status->previous = _lastTask;
    (_lastTask != nullptr ? _lastTask->next : _firstTask) = status;
    _lastTask = status;
    if (_firstNew == nullptr)
        _firstNew = status;
    _wait->recall();
}

/** The times of a task have changed. */
void System::reschedule(TaskStatus& status) noexcept
{
    _schedule->update(status);
    _wait->recall();
}

/** From the list of tasks to that of the stopped ones. */
void System::removeTask(TaskStatus* status) noexcept
{
    _schedule->remove(*status);
    --_taskCount;
    _rests -= status->letsRest ? 1 : 0;
    if (_firstNew == status)
        _firstNew = status->next;
    Handle_T<TaskStatus>& place = status->previous != nullptr ? status->previous->next : _firstTask;
    const Handle_T<TaskStatus> stopped = std::move(place);
    place = std::move(status->next);
    (place.isNull() ? _lastTask : place->previous) = status->previous;

    (_firstStopped.isNull() ? _firstStopped : _lastStopped->next) = stopped;
    _lastStopped = status;
}

void System::finishPass() noexcept
{
    for (TaskStatus* status = std::exchange(_firstNew, nullptr); status != nullptr; status = status->next)
        _schedule->add(*status);
    dropStopped();
}

/** Here stopped tasks are destroyed that nobody else holds; their destructors may start and stop others. */
void System::dropStopped() noexcept
{
    Handle_T<TaskStatus> stopped = std::move(_firstStopped);
    while (!stopped.isNull())
        stopped = std::move(stopped->next);
}

void System::onException(unsigned long) {}

System::Task::~Task() { stop(); }

bool System::Task::start(System* system)
{
    if (system == nullptr || _status != nullptr)
        return false;
    const EState state = system->getState();
    if (state != STATE_INITIALISED && state != STATE_RUNNING)
        return false;
    const Handle_T<TaskStatus> status = new TaskStatus(system, this);
    system->addTask(status);
    _status = status;
    bool isWilling = false;
    try {
        isWilling = init();
    } catch (...) {
        stop();
        throw;
    }
    if (!isWilling)
        stop();
    return isWilling;
}

void System::Task::stop()
{
    struct Leaving {
        Task& task;
        ~Leaving() { task.leaveSystem(); }
    } const leaving{*this}; // also when exit throws
    exit();
}

void System::Task::leaveSystem() noexcept
{
    if (_status == nullptr)
        return;
    TaskStatus* status = std::exchange(_status, nullptr);
    status->state = TASK_STOPPED;
    status->system->removeTask(status);
}

bool System::Task::sleep(unsigned int ms)
{
    if (_status == nullptr)
        return false;
    _status->sleepTime = ms;
    _status->state = TASK_SLEEPING;
    _status->system->reschedule(*_status);
    return true;
}

bool System::Task::waken()
{
    if (_status == nullptr)
        return false;
    _status->state = TASK_RUNNING;
    _status->system->reschedule(*_status);
    return true;
}

void System::Task::setTickTime(unsigned int ms) noexcept
{
    _tickTime = ms;
    if (_status != nullptr)
        _status->system->reschedule(*_status);
}

void System::Task::signal() noexcept
{
    if (_status == nullptr || _status->isSignalled.exchange(true))
        return;
    System& system = *_status->system;
    _status->self = _status;
    TaskStatus* first = system._firstSignalled.load();
    do
        _status->nextSignalled = first;
    while (!system._firstSignalled.compare_exchange_weak(first, _status));
    system._wait->wake();
}

bool System::Task::init() { return true; }

void System::Task::exit() {}

void System::Task::onTick(unsigned int) {}

ETaskState System::Task::getTaskState() const noexcept
{
    return _status != nullptr ? _status->state : TASK_STOPPED;
}

System* System::Task::getSystem() const noexcept
{
    return _status != nullptr ? static_cast<System*>(_status->system) : nullptr;
}

} // namespace orvi
