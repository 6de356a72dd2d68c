#include <orvi/core/System.h>

#include <orvi/core/Time.h>

#include "CrashReporter.h"
#include "Guard.h"
#include "RandomSeed.h"
#include "platform/FaultGuard.h"
#include "platform/MessageQueue.h"
#include "platform/ThreadInfo.h"

#include <thread>
#include <utility>

namespace orvi {

/** The record of one start of one task. It owns the task, the system's lists own it: stopping a task during a
    pass leaves the record, and with it the task, in place until the pass is over. */
class System::TaskStatus : public Unknown {
public:
    TaskStatus(System* owner, Task* started)
        : system(owner)
        , task(started)
    {}

    Unknown::Handle_T<System> system;
    Unknown::Handle_T<Task> task;
    ETaskState state = TASK_RUNNING;
    unsigned int elapsed = 0; // gathered since the last onTick
    unsigned int sleepTime = 0;
};

/** The run thread's queue for the time of a loop. Who was told that his closure runs can rely on it, however
    the loop ends: what still waits runs then. */
struct System::PostedClosures {
    platform::MessageQueue queue;

    ~PostedClosures()
    {
        bool dispatched = queue.close();
        while (dispatched)
            runGuarded([](void* result) { *static_cast<bool*>(result) = platform::MessageQueue::dispatch(); },
                       &dispatched);
    }
};

/** A pass under way, also one that an exception ends. */
struct System::Pass {
    explicit Pass(int& passes)
        : _passes(passes)
    {
        ++_passes;
    }
    ~Pass() { --_passes; }
    int& _passes;
};

System::System()
    : _semaphore(Semaphore::createInstance())
{
    seedRandom();
}

System::~System() = default;

bool System::advance(EState from, EState to) noexcept { return _state.compare_exchange_strong(from, to); }

bool System::load() { return advance(STATE_UNLOADED, STATE_LOADED); }

void System::unload() { advance(STATE_STOPPING, STATE_UNLOADED); }

void System::start()
{
    const platform::FaultStack faultStack;
    prepareCrashReports();
    {
        const PostedClosures posted; // there before the id: who sees that may post at once
        _runThreadId = platform::currentThreadId();
        if (!advance(STATE_LOADED, STATE_STARTING))
            return;
        if (init() && advance(STATE_INITIALISED, STATE_RUNNING))
            run();
        advance(STATE_RUNNING, STATE_STOPPING);
        advance(STATE_INITIALISED, STATE_STOPPING);
    } // the last closures find the system still whole
    exit();
}

void System::sleep(unsigned int ms) { _semaphore->wait(ms, true); }

void System::waken() { _semaphore->signal(); }

bool System::init()
{
    if (!advance(STATE_STARTING, STATE_INITIALISED))
        return false;
    _firstTick = true;
    return true;
}

void System::exit()
{
    for (auto* tasks : {&_tasks, &_newTasks}) {
        // By index, and destroyed from a list of their own: the hooks may stop further tasks.
        for (std::size_t i = 0; i < tasks->size(); ++i) {
            TaskStatus* status = (*tasks)[i];
            if (status->state != TASK_STOPPED)
                status->task->stop();
        }
        std::vector<Handle_T<TaskStatus>>().swap(*tasks);
    }
    std::vector<Handle_T<TaskStatus>>().swap(_stoppedTasks);
}

void System::run()
{
    const int passes = _passes; // some, when a task turns the loop
    while (getState() == STATE_RUNNING) {
        const unsigned long code =
            runGuarded([](void* system) { static_cast<System*>(system)->tick(); }, this);
        if (code == 0)
            continue;
        _passes = passes; // a fault leaves its pass without counting it down
        onException(code);
    }
}

bool System::shutdown()
{
    for (const EState state : {STATE_LOADED, STATE_STARTING, STATE_INITIALISED, STATE_RUNNING})
        advance(state, STATE_STOPPING);
    _semaphore->signal();
    return true;
}

void System::tick()
{
    if (platform::MessageQueue::dispatch())
        return;
    const unsigned int now = getTimeTick();
    const unsigned int delta = _firstTick ? 0 : now - _lastTime;
    _firstTick = false;
    _lastTime = now;
    onTick(delta);
}

void System::onTick(unsigned int deltaMs)
{
    bool isIdle = true;
    {
        const Pass pass(_passes);
        for (std::size_t i = 0; i < _tasks.size(); ++i) {
            TaskStatus* status = _tasks[i];
            Task* task = status->task;
            if (status->state == TASK_STOPPED || task->_status != status)
                continue;
            status->elapsed += deltaMs;
            const bool sleeps = status->state == TASK_SLEEPING;
            if (status->elapsed < (sleeps ? status->sleepTime : task->_tickTime))
                continue;
            status->state = TASK_RUNNING;
            isIdle = false;
            task->onTick(std::exchange(status->elapsed, 0));
        }
    }
    if (_passes == 0)
        finishPass();
    // Where loops outnumber processors an idle one would otherwise turn through its whole time slice before the
    // next gets a turn: 100 boxes without a task took 19 s to start on two processors, and take 50 ms with this.
    if (isIdle)
        std::this_thread::yield();
}

void System::finishPass()
{
    for (auto& status : _newTasks) {
        if (status->state != TASK_STOPPED)
            _tasks.push_back(std::move(status));
    }
    _newTasks.clear();
    if (_stoppedTasks.empty())
        return;
    std::erase_if(_tasks, [](const auto& status) { return status->state == TASK_STOPPED; });
    // Here stopped tasks are destroyed that nobody else holds; their destructors may start and stop others.
    std::vector<Handle_T<TaskStatus>> stopped;
    stopped.swap(_stoppedTasks);
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
    _status = status;
    system->_newTasks.push_back(status);
    if (init())
        return true;
    stop();
    return false;
}

void System::Task::stop()
{
    exit();
    if (_status == nullptr)
        return;
    TaskStatus* status = std::exchange(_status, nullptr);
    status->system->_stoppedTasks.push_back(status);
    status->state = TASK_STOPPED;
}

bool System::Task::sleep(unsigned int ms)
{
    if (_status == nullptr)
        return false;
    _status->sleepTime = ms;
    _status->state = TASK_SLEEPING;
    return true;
}

bool System::Task::waken()
{
    if (_status == nullptr)
        return false;
    _status->state = TASK_RUNNING;
    return true;
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
