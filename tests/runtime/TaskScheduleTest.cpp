#include <orvi/core/System.h>

#include <doctest/doctest.h>

#include <cstddef>
#include <list>
#include <random>
#include <string>
#include <utility>
#include <vector>

using orvi::Handle_T;
using orvi::System;

namespace {

/** The schedule as its description has it: a list, each of which is looked at in each pass. */
class Model {
public:
    struct Task {
        int id = 0;
        unsigned int tickTime = 0, elapsed = 0, sleepTime = 0;
        bool isStarted = false, sleeps = false, isNew = false;
    };
    std::list<Task> tasks; // in order of starting
    int passes = 0;

    template <class Turn>
    void pass(unsigned int delta, const Turn& turn)
    {
        ++passes;
        for (auto task = tasks.begin(); task != tasks.end(); ++task) {
            if (!task->isStarted || task->isNew)
                continue;
            task->elapsed += delta;
            if (task->elapsed < (task->sleeps ? task->sleepTime : task->tickTime))
                continue;
            task->sleeps = false;
            turn(task->id, std::exchange(task->elapsed, 0U));
        }
        if (--passes > 0)
            return;
        tasks.remove_if([](const Task& task) { return !task.isStarted; });
        for (Task& task : tasks)
            task.isNew = false;
    }
    Task* find(int id)
    {
        for (Task& task : tasks) {
            if (task.isStarted && task.id == id)
                return &task;
        }
        return nullptr;
    }
};

constexpr int taskCount = 20;

class Random {
public:
    explicit Random(unsigned int seed)
        : _generator(seed)
    {}
    unsigned int below(unsigned int end) { return static_cast<unsigned int>(_generator() % end); }
    /** A time of few milliseconds, often 0. */
    unsigned int time() { return below(3) == 0 ? 0 : below(30); }

private:
    std::mt19937 _generator;
};

/** Turns the same dice for a schedule and its model: each task that has its turn does something to some task. */
class Play {
public:
    explicit Play(unsigned int seed)
        : _random(seed)
    {}
    virtual ~Play() = default;

    std::string run()
    {
        for (int id = 0; id < taskCount; ++id)
            start(id, _random.time());
        for (int pass = 0; pass < 300; ++pass)
            turn(_random.time());
        return _calls;
    }

protected:
    virtual void start(int id, unsigned int tickTime) = 0;
    virtual void stop(int id) = 0;
    virtual void sleep(int id, unsigned int ms) = 0;
    virtual void waken(int id) = 0;
    virtual void setTickTime(int id, unsigned int ms) = 0;
    virtual void turn(unsigned int delta) = 0;

    void called(int id, unsigned int elapsed)
    {
        _calls += std::to_string(id) + ":" + std::to_string(elapsed) + " ";
        const int other = _random.below(2) == 0 ? id : static_cast<int>(_random.below(taskCount));
        switch (_random.below(16)) {
        case 0:
            return stop(other);
        case 1:
            return start(other, _random.time());
        case 2:
            return waken(other);
        case 3:
            return setTickTime(other, _random.time());
        case 4:
        case 5:
            return sleep(other, _random.time());
        case 6:
            if (_depth == 2) // a task that turns the loop
                return;
            ++_depth;
            turn(_random.time());
            --_depth;
            return;
        default:
            return;
        }
    }

private:
    Random _random;
    std::string _calls;
    int _depth = 0;
};

class ModelPlay final : public Play {
public:
    using Play::Play;

private:
    void start(int id, unsigned int tickTime) override
    {
        if (_model.find(id) != nullptr)
            return;
        _model.tasks.push_back({id, tickTime, 0, 0, true, false, true});
    }
    void stop(int id) override
    {
        if (auto* task = _model.find(id))
            task->isStarted = false;
    }
    void sleep(int id, unsigned int ms) override
    {
        if (auto* task = _model.find(id))
            task->sleeps = true, task->sleepTime = ms;
    }
    void waken(int id) override
    {
        if (auto* task = _model.find(id))
            task->sleeps = false;
    }
    void setTickTime(int id, unsigned int ms) override
    {
        if (auto* task = _model.find(id))
            task->tickTime = ms;
    }
    void turn(unsigned int delta) override
    {
        _model.pass(delta, [this](int id, unsigned int elapsed) { called(id, elapsed); });
    }

    Model _model;
};

class SystemPlay final : public Play {
public:
    using Play::Play;

    std::string runOnSystem()
    {
        const Handle_T<Host> host = new Host(*this);
        _system = host;
        for (int id = 0; id < taskCount; ++id)
            _tasks.push_back(new PlayTask(*this, id));
        host->load();
        host->start();
        return host->calls;
    }

private:
    class Host final : public System {
    public:
        explicit Host(SystemPlay& play)
            : _play(play)
        {}
        void run() override { calls = _play.Play::run(); }
        std::string calls;

    private:
        SystemPlay& _play;
    };
    class PlayTask final : public System::Task {
    public:
        PlayTask(SystemPlay& play, int id)
            : _play(play)
            , _id(id)
        {}
        void onTick(unsigned int elapsed) override { _play.called(_id, elapsed); }

    private:
        SystemPlay& _play;
        const int _id;
    };

    System::Task& task(int id) { return *_tasks[static_cast<std::size_t>(id)]; }
    void start(int id, unsigned int tickTime) override
    {
        if (task(id).getSystem() != nullptr)
            return;
        task(id).setTickTime(tickTime);
        task(id).start(_system);
    }
    void stop(int id) override { task(id).stop(); }
    void sleep(int id, unsigned int ms) override { task(id).sleep(ms); }
    void waken(int id) override { task(id).waken(); }
    void setTickTime(int id, unsigned int ms) override { task(id).setTickTime(ms); }
    void turn(unsigned int delta) override { _system->onTick(delta); }

    System* _system = nullptr;
    std::vector<Handle_T<PlayTask>> _tasks;
};

} // namespace

TEST_CASE("task_schedule: random schedules run as a list that is looked through would")
{
    for (unsigned int seed = 1; seed <= 40; ++seed) {
        CAPTURE(seed);
        const std::string expected = ModelPlay(seed).run();
        CHECK(expected.size() > 1000);
        CHECK(SystemPlay(seed).runOnSystem() == expected);
    }
}
