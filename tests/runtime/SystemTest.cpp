#include "TextPrinting.h"

#include "RecordingLog.h"

#include <orvi/core/Core.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <thread>
#include <vector>

using orvi::Handle_T;
using orvi::String;
using orvi::System;
using orvi::Thread;
using orvi::Tick;
using orvi::Yield;

namespace {

/** A system whose hooks the test fills in. Without a hook for the pass it shuts down after the given number.
 */
class TestSystem : public System {
public:
    static Handle_T<TestSystem> createInstance() { return new TestSystem; }

    bool init() override
    {
        log += L"i";
        if (beforeInit)
            beforeInit();
        const bool started = System::init();
        if (started && afterInit)
            afterInit();
        return started;
    }
    void exit() override
    {
        log += L"x";
        System::exit();
    }
    void onTick(unsigned int deltaMs) override
    {
        deltas.push_back(deltaMs);
        System::onTick(deltaMs);
        if (afterPass)
            afterPass();
        if (deltas.size() >= mostPasses)
            shutdown();
    }
    void onException(unsigned long code) override { codes.push_back(code); }

    void runHere()
    {
        CHECK(load());
        start();
        CHECK(getState() == STATE_STOPPING);
        unload();
        CHECK(getState() == STATE_UNLOADED);
    }

    String log;
    std::vector<unsigned int> deltas;
    std::vector<unsigned long> codes;
    std::size_t mostPasses = 3;
    std::function<void()> beforeInit, afterInit, afterPass;
};

class TestTask : public System::Task {
public:
    static Handle_T<TestTask> createInstance() { return new TestTask; }

    bool init() override
    {
        ++inits;
        return willing;
    }
    void exit() override
    {
        ++exits;
        if (atExit)
            atExit();
    }
    void onTick(unsigned int elapsedMs) override
    {
        ticks.push_back(elapsedMs);
        if (then)
            then();
    }

    bool willing = true;
    int inits = 0;
    int exits = 0;
    std::vector<unsigned int> ticks;
    std::function<void()> then, atExit;
    bool* destroyed = nullptr;

protected:
    ~TestTask() override
    {
        if (destroyed != nullptr)
            *destroyed = true;
    }
};

} // namespace

TEST_CASE("a system goes through its states and can be run again")
{
    const auto system = TestSystem::createInstance();
    CHECK(system->getState() == System::STATE_UNLOADED);
    system->start(); // not loaded: runs nothing
    CHECK(system->log == L"");
    CHECK(system->getRunThreadId() == Thread::getCurrentThreadId());
    system->unload();
    for (int round = 0; round < 2; ++round) {
        system->deltas.clear();
        system->runHere();
        CHECK(system->deltas.size() == 3);
        CHECK(system->deltas[0] == 0);
    }
    CHECK(system->log == L"ixix");
    CHECK(system->load());
    CHECK(!system->load());
    CHECK(system->shutdown());
    CHECK(system->getState() == System::STATE_STOPPING);
    system->start();
    CHECK(system->log == L"ixix");
    system->unload();
}

TEST_CASE("shutdown during init keeps the loop from running, and exit still runs")
{
    const auto system = TestSystem::createInstance();
    system->beforeInit = [&] { system->shutdown(); };
    system->runHere();
    CHECK(system->log == L"ix");
    CHECK(system->deltas.empty());
}

TEST_CASE("tasks start, tick in order and stop")
{
    const auto system = TestSystem::createInstance();
    const auto first = TestTask::createInstance();
    const auto second = TestTask::createInstance();
    const auto unwilling = TestTask::createInstance();
    const auto late = TestTask::createInstance();
    String order;
    unwilling->willing = false;
    first->then = [&] {
        order += L"1";
        late->start(system); // its first turn comes with the next pass
    };
    second->then = [&] { order += L"2"; };
    late->then = [&] {
        order += L"3";
        late->stop();
    };
    system->beforeInit = [&] { CHECK(!first->start(system)); };
    system->afterInit = [&] {
        CHECK(first->start(system));
        CHECK(!first->start(system));
        CHECK(!first->start(nullptr));
        CHECK(second->start(system));
        CHECK(!unwilling->start(system));
        CHECK(first->getTaskState() == orvi::TASK_RUNNING);
        CHECK(first->getSystem() == system);
    };
    system->mostPasses = 4;
    system->runHere();
    CHECK(order == L"1212312"); // the first pass only takes them in
    CHECK(unwilling->exits == 1);
    CHECK(unwilling->ticks.empty());
    CHECK(first->exits == 1);
    CHECK(first->getTaskState() == orvi::TASK_STOPPED);
    CHECK(first->getSystem() == nullptr);
    CHECK(!first->sleep(1));
    CHECK(!first->waken());
    first->stop();
    CHECK(first->exits == 2);
}

TEST_CASE("a stopped task outlives the pass and not the next one")
{
    const auto system = TestSystem::createInstance();
    bool destroyed = false;
    std::vector<bool> seen;
    system->afterInit = [&] {
        const auto task = TestTask::createInstance(); // nobody else holds it
        task->destroyed = &destroyed;
        task->then = [&destroyed, raw = static_cast<TestTask*>(task)] {
            raw->stop();
            CHECK(raw->getTaskState() == orvi::TASK_STOPPED);
            CHECK(!destroyed);
        };
        CHECK(task->start(system));
    };
    system->afterPass = [&] { seen.push_back(destroyed); };
    system->runHere();
    CHECK(seen == std::vector<bool>{false, true, true});
}

TEST_CASE("tick times and sleeps are kept, and waken ends a sleep")
{
    const auto system = TestSystem::createInstance();
    const auto paced = TestTask::createInstance();
    const auto sleeper = TestTask::createInstance();
    const auto woken = TestTask::createInstance();
    system->mostPasses = 1'000'000;
    paced->setTickTime(30);
    sleeper->then = [&] {
        if (sleeper->ticks.size() == 1)
            CHECK(sleeper->sleep(40));
        else
            sleeper->stop();
    };
    woken->then = [&] {
        if (woken->ticks.size() == 1) {
            CHECK(woken->sleep(1'000'000));
            CHECK(woken->getTaskState() == orvi::TASK_SLEEPING);
            CHECK(woken->waken());
        } else {
            woken->stop();
        }
    };
    system->afterInit = [&] {
        for (TestTask* task :
             {static_cast<TestTask*>(paced), static_cast<TestTask*>(sleeper), static_cast<TestTask*>(woken)})
            CHECK(task->start(system));
        CHECK(Yield::createInstance()->start(system));
    };
    system->afterPass = [&] {
        if (paced->ticks.size() >= 2 && sleeper->exits > 0 && woken->exits > 0)
            system->shutdown();
    };
    system->runHere();
    CHECK(paced->ticks[0] >= 30);
    CHECK(paced->ticks[1] >= 30);
    CHECK(sleeper->ticks[1] >= 40);
    CHECK(woken->ticks.size() == 2);
}

TEST_CASE("what a tick throws is reported and the loop goes on")
{
    const RecordingLog log;
    const auto system = TestSystem::createInstance();
    const auto thrower = TestTask::createInstance();
    const auto behind = TestTask::createInstance();
    thrower->then = [&] {
        if (thrower->ticks.size() == 1)
            THROW_EXCEPTION(-1, L"from a task");
        if (thrower->ticks.size() == 2)
            throw std::runtime_error("standard");
        if (thrower->ticks.size() == 3)
            throw 42;
    };
    system->afterInit = [&] {
        thrower->start(system);
        behind->start(system);
    };
    system->mostPasses = 6;
    system->runHere();
    CHECK(system->codes == std::vector<unsigned long>{0xE06D7363, 0xE06D7363, 0xE06D7363});
    CHECK(behind->ticks.size() == thrower->ticks.size() - 3);
    REQUIRE(log.lines().size() == 3);
    CHECK(log.lines()[0].text == L"from a task");
    CHECK(log.lines()[1].text == L"System: a tick threw std::runtime_error: standard");
    CHECK(log.lines()[2].text == L"System: a tick threw int");
}

TEST_CASE("a task may turn the loop itself")
{
    const auto system = TestSystem::createInstance();
    const auto nested = TestTask::createInstance();
    const auto stopped = TestTask::createInstance();
    nested->then = [&] {
        if (nested->ticks.size() == 1) {
            stopped->stop();
            system->System::onTick(0);
        }
    };
    system->afterInit = [&] {
        nested->start(system);
        stopped->start(system);
    };
    system->runHere();
    CHECK(stopped->ticks.empty());
    CHECK(nested->ticks.size() == 3); // twice in the second pass, once in the third
}

TEST_CASE("many tasks start and stop without slowing each other down")
{
    const auto system = TestSystem::createInstance();
    std::vector<Handle_T<TestTask>> tasks;
    system->afterInit = [&] {
        for (int i = 0; i < 100'000; ++i) {
            tasks.push_back(TestTask::createInstance());
            tasks.back()->start(system);
        }
    };
    system->afterPass = [&] {
        if (system->deltas.size() == 2) {
            for (std::size_t i = 0; i < tasks.size(); i += 2)
                tasks[i]->stop();
        }
    };
    system->runHere();
    CHECK(tasks[0]->ticks.size() == 1);
    CHECK(tasks[1]->ticks.size() == 2);
}

// ---- posted closures

TEST_CASE("the loop goes on after a fault in a tick, and so do its tasks")
{
    const auto system = TestSystem::createInstance();
    const auto faulty = TestTask::createInstance();
    const auto behind = TestTask::createInstance();
    faulty->then = [&] {
        if (faulty->ticks.size() <= 2)
            asm volatile("ud2");
    };
    system->afterInit = [&] {
        faulty->start(system);
        behind->start(system);
    };
    system->mostPasses = 6;
    system->runHere();
    CHECK(system->codes == std::vector<unsigned long>{0xC000001D, 0xC000001D});
    CHECK(behind->ticks.size() == faulty->ticks.size() - 2);
}

TEST_CASE("a loop does not settle the time zone of the process")
{
    setenv("TZ", "Etc/GMT+5", 1);
    const auto system = TestSystem::createInstance();
    system->runHere();
    CHECK(orvi::getTimeBias() == 0); // until the program itself asks for it
    unsetenv("TZ");
}

TEST_CASE("posted closures run once each, in order, on the run thread, before any pass")
{
    const auto system = TestSystem::createInstance();
    std::vector<int> order;
    const unsigned long self = Thread::getCurrentThreadId();
    CHECK(!orvi::postToThread(self, [] {}));
    system->afterInit = [&] {
        for (int i = 0; i < 100; ++i) {
            CHECK(orvi::postToThread(self, [&, i] {
                CHECK(Thread::getCurrentThreadId() == self);
                CHECK(system->deltas.empty()); // no pass while the queue is not empty
                order.push_back(i);
            }));
        }
        CHECK(!orvi::postToThread(self, nullptr));
    };
    system->runHere();
    REQUIRE(order.size() == 100);
    CHECK(std::is_sorted(order.begin(), order.end()));
    CHECK(!orvi::postToThread(self, [] {}));
}

TEST_CASE("closures that still wait at the end run, also when one throws")
{
    const RecordingLog log;
    const auto system = TestSystem::createInstance();
    const unsigned long self = Thread::getCurrentThreadId();
    int ran = 0;
    system->mostPasses = 1;
    system->afterPass = [&] {
        orvi::postToThread(self, [&] {
            ++ran;
            throw 1;
        });
        orvi::postToThread(self, [&] {
            ++ran;
            CHECK(!orvi::postToThread(self, [] {})); // the queue is closed by now
        });
    };
    system->runHere();
    CHECK(ran == 2);
}

TEST_CASE("what leaves init, run or exit ends that run alone, on any thread")
{
    class Unruly : public TestSystem {
    public:
        void run() override
        {
            TestSystem::run();
            if (atRun)
                atRun();
        }
        void exit() override
        {
            if (atExit)
                atExit();
            TestSystem::exit();
        }
        void onException(unsigned long code) override
        {
            codes.push_back(code);
            throw 2;
        }
        std::function<void()> atRun, atExit;
    };
    const RecordingLog log;
    const auto fail = [] { throw 1; };
    const auto fault = [] { asm volatile("ud2"); };
    const struct {
        const char* what;
        std::function<void()> beforeInit, afterInit, atRun, atExit, atTaskExit;
        unsigned long code;
    } rows[] = {{"init, before the base", fail, {}, {}, {}, {}, 0xE06D7363},
                {"init, behind the base", {}, fail, {}, {}, {}, 0xE06D7363},
                {"a fault in init", {}, fault, {}, {}, {}, 0xC000001D},
                {"run", {}, {}, fail, {}, {}, 0xE06D7363},
                {"exit, before the base", {}, {}, {}, fail, {}, 0xE06D7363},
                {"a fault in exit", {}, {}, {}, fault, {}, 0xC000001D},
                {"the exit of a task", {}, {}, {}, {}, fail, 0xE06D7363},
                {"a fault in the exit of a task", {}, {}, {}, {}, fault, 0xC000001D}};
    for (const auto& row : rows) {
        CAPTURE(row.what);
        const Handle_T<Unruly> system = new Unruly;
        const Handle_T<TestTask> tasks[] = {TestTask::createInstance(), TestTask::createInstance()};
        bool ran = false;
        system->beforeInit = [&] {
            orvi::postToThread(system->getRunThreadId(), [&ran] { ran = true; });
            if (row.beforeInit)
                row.beforeInit();
        };
        system->afterInit = [&] {
            for (const auto& task : tasks)
                task->start(system);
            if (row.afterInit)
                row.afterInit();
        };
        tasks[0]->atExit = row.atTaskExit;
        system->atRun = row.atRun;
        system->atExit = row.atExit;
        const auto thread = Thread::createInstance();
        REQUIRE(thread->start(system));
        while (!thread->getSystem().isNull())
            std::this_thread::yield();
        CHECK(system->codes == std::vector<unsigned long>{row.code});
        CHECK(ran);
        for (const auto& task : tasks) {
            CHECK(task->getReferenceCount() == 1);
            CHECK(task->getTaskState() == orvi::TASK_STOPPED);
        }
        for (int i = 0; i < 30000 && system->getReferenceCount() > 1;
             ++i) // its thread holds it until it returns
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        CHECK(system->getReferenceCount() == 1);
        CHECK(!orvi::postToThread(system->getRunThreadId(), [] {}));
        system->beforeInit = system->afterInit = system->atRun = system->atExit = nullptr;
        system->log = L"";
        system->runHere();
        CHECK(system->log == L"ix");
    }
}

TEST_CASE("a system is not unloaded while its start is under way")
{
    const auto system = TestSystem::createInstance();
    system->afterInit = [&] {
        const auto task = TestTask::createInstance();
        task->atExit = [&] {
            system->unload();
            CHECK(!system->load());
        };
        task->start(system);
    };
    system->runHere();
}

TEST_CASE("a loop within a loop that a fault ends leaves no queue behind")
{
    const auto outer = TestSystem::createInstance(), inner = TestSystem::createInstance();
    inner->beforeInit = [] { asm volatile("ud2"); };
    outer->afterPass = [&] {
        if (outer->deltas.size() == 1) {
            inner->load();
            inner->start();
        }
    };
    outer->runHere();
    CHECK(!orvi::postToThread(outer->getRunThreadId(), [] {}));
}

TEST_CASE("producers in many threads lose nothing")
{
    const auto system = TestSystem::createInstance();
    system->mostPasses = 100'000'000;
    const auto thread = Thread::createInstance();
    std::atomic<bool> ready = false;
    system->afterInit = [&] {
        Yield::createInstance()->start(system);
        ready = true;
    };
    CHECK(thread->start(system));
    while (!ready)
        std::this_thread::yield();
    constexpr int producers = 4, each = 2000;
    std::vector<int> last(producers, -1); // the run thread's alone
    std::atomic<int> ran = 0, posted = 0;
    std::vector<std::thread> threads;
    for (int p = 0; p < producers; ++p) {
        threads.emplace_back([&, p] {
            for (int i = 0; i < each; ++i) {
                const bool taken = orvi::postToThread(system->getRunThreadId(), [&, p, i] {
                    CHECK(last[static_cast<std::size_t>(p)] < i);
                    last[static_cast<std::size_t>(p)] = i;
                    ++ran;
                });
                posted += taken;
            }
        });
    }
    while (ran < producers * each / 2)
        std::this_thread::yield();
    thread->shutdown(); // in the middle of it: what was taken runs, the rest is refused
    for (auto& producer : threads)
        producer.join();
    CHECK(ran == posted);
}

// ---- Tick

namespace {

unsigned int g_calls = 0;
void countCall(unsigned int) { ++g_calls; }

} // namespace

TEST_CASE("a tick calls its handlers, each once, also when they come and go")
{
    struct Counter {
        void count(unsigned int) { ++calls; }
        int calls = 0;
    } counter;
    const auto tick = Tick::createInstance();
    tick->onTick(1);
    CHECK(tick->addTickHandler(&countCall));
    CHECK(tick->addTickHandler(&countCall));
    CHECK(tick->addTickHandler(Tick::Handler(&counter, &Counter::count)));
    tick->onTick(1);
    CHECK(g_calls == 1);
    CHECK(counter.calls == 1);
    tick->removeTickHandler(&countCall);
    tick->removeTickHandler(&countCall);
    tick->onTick(1);
    CHECK(g_calls == 1);
    CHECK(counter.calls == 2);

    struct Remover {
        void act(unsigned int)
        {
            tick->clearAllTickHandler();
            tick->addTickHandler(Tick::Handler(counter, &Counter::count));
        }
        Tick* tick;
        Counter* counter;
    } remover{tick, &counter};
    tick->clearAllTickHandler();
    tick->addTickHandler(Tick::Handler(&remover, &Remover::act));
    tick->addTickHandler(&countCall);
    tick->onTick(1);
    CHECK(g_calls == 1);
    CHECK(counter.calls == 3);
}

TEST_CASE("sleep takes all the wake-ups that have gathered")
{
    const auto system = TestSystem::createInstance();
    system->mostPasses = 1;
    system->afterPass = [&] {
        for (int i = 0; i < 3; ++i)
            system->waken();
        system->sleep(1'000'000); // returns at once
        const unsigned int before = orvi::getTimeTick();
        system->sleep(20);
        CHECK(orvi::getTimeTick() - before >= 19);
    };
    system->runHere();
}
