#include "TextPrinting.h"

#include "RecordingLog.h"

#include <orvi/core/Core.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <thread>

using namespace orvi;

namespace {

using Hook = std::function<void()>;

const Hook doNothing = [] {};
const Hook fail = [] { throw 1; };
const Hook fault = [] { asm volatile("ud2"); };
constexpr unsigned long thrown = 0xE06D7363, illegalInstruction = 0xC000001D;

/** A system whose hooks the test fills in. It shuts down after the given number of passes. */
class TestSystem : public System {
public:
    bool init() override
    {
        log += L"i";
        beforeInit();
        const bool isReady = System::init();
        if (isReady)
            afterInit();
        return isReady;
    }
    void run() override
    {
        System::run();
        afterRun();
    }
    void exit() override
    {
        log += L"x";
        beforeExit();
        System::exit();
    }
    void onTick(unsigned int deltaMs) override
    {
        deltas.push_back(deltaMs);
        System::onTick(deltaMs);
        afterPass();
        if (deltas.size() >= mostPasses)
            shutdown();
    }
    void onException(unsigned long code) override
    {
        codes.push_back(code);
        afterException();
    }
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
    Hook beforeInit = doNothing, afterInit = doNothing, afterPass = doNothing, afterRun = doNothing,
         beforeExit = doNothing, afterException = doNothing;
};

/** For a thread of its own: it goes on until somebody ends it, and is gentle with the processor. */
class QuietSystem : public TestSystem {
public:
    QuietSystem()
    {
        mostPasses = 1'000'000'000;
        afterInit = [this] { Yield::createInstance()->start(this); };
    }
    void onTick(unsigned int deltaMs) override { System::onTick(deltaMs); }
};

class TestTask : public System::Task {
public:
    bool init() override { return willing; }
    void exit() override
    {
        ++exits;
        atExit();
    }
    void onTick(unsigned int elapsedMs) override
    {
        ticks.push_back(elapsedMs);
        then();
    }

    bool willing = true;
    int exits = 0;
    std::vector<unsigned int> ticks;
    Hook then = doNothing, atExit = doNothing;
};

void waitFor(const std::function<bool()>& condition)
{
    while (!condition())
        std::this_thread::yield();
}

} // namespace

TEST_CASE("a system goes through its states and can be run again")
{
    const Handle_T<TestSystem> system = new TestSystem;
    CHECK(system->getState() == System::STATE_UNLOADED);
    system->start(); // not loaded: runs nothing
    system->unload();
    for (int round = 0; round < 2; ++round) {
        system->deltas.clear();
        system->runHere();
        CHECK(system->deltas.size() == 3);
        CHECK(system->deltas[0] == 0);
    }
    CHECK(system->load());
    CHECK(!system->load());
    CHECK(system->shutdown());
    CHECK(system->getState() == System::STATE_STOPPING);
    system->start();
    CHECK(system->log == L"ixix");
    system->unload();

    system->beforeInit = [&] { system->shutdown(); };
    system->beforeExit = [&] { // not while its start is under way
        system->unload();
        CHECK(!system->load());
    };
    system->deltas.clear();
    system->runHere();
    CHECK(system->log == L"ixixix");
    CHECK(system->deltas.empty());
}

TEST_CASE("tasks start, tick in order and stop")
{
    const Handle_T<TestSystem> system = new TestSystem;
    const Handle_T<TestTask> first = new TestTask, second = new TestTask, late = new TestTask;
    const Handle_T<TestTask> unwilling = new TestTask;
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
        CHECK(!second->start(nullptr));
        CHECK(second->start(system));
        CHECK(!unwilling->start(system));
        CHECK(first->getSystem() == system);
    };
    system->mostPasses = 4;
    system->runHere();
    CHECK(order == L"1212312"); // the first pass only takes them in
    CHECK(unwilling->exits == 1);
    CHECK(unwilling->ticks.empty());
    CHECK(first->exits == 1);
    CHECK(first->getSystem() == nullptr);
    CHECK(!first->sleep(1));
    CHECK(!first->waken());
}

TEST_CASE("a stopped task outlives the pass and not the next one")
{
    const Handle_T<TestSystem> system = new TestSystem;
    std::weak_ptr<int> life;
    std::vector<bool> seen;
    system->afterInit = [&] {
        const Handle_T<TestTask> task = new TestTask; // nobody else holds it
        const auto own = std::make_shared<int>();
        life = own;
        task->then = [&life, own, raw = static_cast<TestTask*>(task)] {
            raw->stop();
            CHECK(raw->getTaskState() == TASK_STOPPED);
            CHECK(!life.expired());
        };
        CHECK(task->start(system));
    };
    system->afterPass = [&] { seen.push_back(life.expired()); };
    system->runHere();
    CHECK(seen == std::vector<bool>{false, true, true});
}

TEST_CASE("tick times and sleeps are kept, and waken ends a sleep")
{
    const Handle_T<TestSystem> system = new TestSystem;
    const Handle_T<TestTask> paced = new TestTask, sleeper = new TestTask, woken = new TestTask;
    system->mostPasses = 1'000'000;
    paced->setTickTime(30);
    sleeper->then = [&] { CHECK(sleeper->sleep(40)); };
    woken->then = [&] {
        CHECK(woken->sleep(1'000'000));
        CHECK(woken->getTaskState() == TASK_SLEEPING);
        if (woken->ticks.size() == 1)
            CHECK(woken->waken());
    };
    system->afterInit = [&] {
        for (const auto& task : {paced, sleeper, woken})
            CHECK(task->start(system));
        CHECK(Yield::createInstance()->start(system));
    };
    system->afterPass = [&] {
        if (paced->ticks.size() >= 2 && sleeper->ticks.size() >= 2)
            system->shutdown();
    };
    system->runHere();
    CHECK(paced->ticks[0] >= 30);
    CHECK(paced->ticks[1] >= 30);
    CHECK(sleeper->ticks[1] >= 40);
    CHECK(woken->ticks.size() == 2);
}

TEST_CASE("the loop goes on after an exception or a fault in a tick, and so do its tasks")
{
    const RecordingLog log;
    const Handle_T<TestSystem> system = new TestSystem;
    const Handle_T<TestTask> thrower = new TestTask, behind = new TestTask, late = new TestTask;
    const Hook turns[] = {[] { THROW_EXCEPTION(-1, L"from a task"); },
                          [] { throw std::runtime_error("standard"); },
                          fail,
                          fault,
                          fault,
                          [&] { late->start(system); },
                          [] {}};
    thrower->then = [&] { turns[thrower->ticks.size() - 1](); };
    system->afterInit = [&] {
        thrower->start(system);
        behind->start(system);
    };
    system->mostPasses = 8;
    system->runHere();
    CHECK(system->codes ==
          std::vector<unsigned long>{thrown, thrown, thrown, illegalInstruction, illegalInstruction});
    CHECK(behind->ticks.size() == thrower->ticks.size() - 5);
    CHECK(late->ticks.size() == 1);
    REQUIRE(log.lines().size() >= 3);
    CHECK(log.lines()[0].text == L"from a task");
    CHECK(log.lines()[1].text == L"System: a tick threw std::runtime_error: standard");
    CHECK(log.lines()[2].text == L"System: a tick threw int");
}

TEST_CASE("a task may turn the loop itself")
{
    const Handle_T<TestSystem> system = new TestSystem;
    const Handle_T<TestTask> stopped = new TestTask, nested = new TestTask, behind = new TestTask;
    nested->then = [&] {
        if (nested->ticks.size() == 1) {
            stopped->stop();
            system->System::onTick(0);
        }
    };
    system->afterInit = [&] {
        for (const auto& task : {stopped, nested, behind})
            task->start(system);
    };
    system->runHere();
    CHECK(stopped->ticks.size() == 1);
    CHECK(nested->ticks.size() == 3); // twice in the second pass, once in the third
    CHECK(behind->ticks.size() == 3);
}

TEST_CASE("a loop does not settle the time zone of the process")
{
    setenv("TZ", "Etc/GMT+5", 1);
    const Handle_T<TestSystem> system = new TestSystem;
    system->runHere();
    CHECK(getTimeBias() == 0); // until the program itself asks for it
    unsetenv("TZ");
}

TEST_CASE("sleep takes all the wake-ups that have gathered")
{
    const Handle_T<TestSystem> system = new TestSystem;
    for (int i = 0; i < 3; ++i)
        system->waken();
    system->sleep(1'000'000); // returns at once
    const unsigned int before = getTimeTick();
    system->sleep(20);
    CHECK(getTimeTick() - before >= 19);
}

TEST_CASE("posted closures run once each, in order, on the run thread, before any pass, or at the end")
{
    const RecordingLog log;
    const Handle_T<TestSystem> system = new TestSystem;
    std::vector<int> order;
    const unsigned long self = Thread::getCurrentThreadId();
    CHECK(!postToThread(self, [] {}));
    system->afterInit = [&] {
        for (const int i : {1, 2, 3, 4}) {
            CHECK(postToThread(system->getRunThreadId(), [&, i] {
                CHECK(Thread::getCurrentThreadId() == self);
                CHECK(system->deltas.empty()); // no pass while the queue is not empty
                order.push_back(i);
            }));
        }
        CHECK(!postToThread(self, nullptr));
    };
    system->mostPasses = 1;
    system->afterPass = [&] {
        postToThread(self, fail);
        postToThread(self, [&] {
            order.push_back(5);
            CHECK(!postToThread(self, [] {})); // the queue is closed by now
        });
    };
    system->runHere();
    CHECK(order == std::vector<int>{1, 2, 3, 4, 5});
    CHECK(!postToThread(self, [] {}));
}

TEST_CASE("what leaves init, run or exit ends that run alone, on any thread")
{
    const RecordingLog log;
    const struct {
        const char* what;
        Hook TestSystem::*place; // none: the exit of a task
        const Hook& hook;
        unsigned long code;
    } rows[] = {{"init, before the base", &TestSystem::beforeInit, fail, thrown},
                {"init, behind the base", &TestSystem::afterInit, fail, thrown},
                {"a fault in init", &TestSystem::afterInit, fault, illegalInstruction},
                {"run", &TestSystem::afterRun, fail, thrown},
                {"exit, before the base", &TestSystem::beforeExit, fail, thrown},
                {"a fault in exit", &TestSystem::beforeExit, fault, illegalInstruction},
                {"the exit of a task", nullptr, fail, thrown},
                {"a fault in the exit of a task", nullptr, fault, illegalInstruction}};
    for (const auto& row : rows) {
        CAPTURE(row.what);
        const Handle_T<TestSystem> system = new TestSystem;
        const Handle_T<TestTask> tasks[] = {new TestTask, new TestTask};
        bool ran = false;
        system->beforeInit = [&] { postToThread(system->getRunThreadId(), [&ran] { ran = true; }); };
        system->afterInit = [&] {
            for (const auto& task : tasks)
                task->start(system);
        };
        Hook& place = row.place != nullptr ? (*system).*row.place : tasks[0]->atExit;
        place = [before = place, &row] {
            before();
            row.hook();
        };
        system->afterException = fail;
        const auto thread = Thread::createInstance();
        REQUIRE(thread->start(system));
        waitFor([&] { return thread->getSystem().isNull(); });
        CHECK(system->codes == std::vector<unsigned long>{row.code});
        CHECK(ran);
        for (const auto& task : tasks) {
            CHECK(task->getReferenceCount() == 1);
            CHECK(task->getTaskState() == TASK_STOPPED);
        }
        waitFor([&] { return system->getReferenceCount() == 1; }); // its thread holds it until it returns
        CHECK(!postToThread(system->getRunThreadId(), [] {}));
        system->beforeInit = system->afterInit = system->afterRun = system->beforeExit = doNothing;
        system->log = L"";
        system->runHere();
        CHECK(system->log == L"ix");
    }
}

TEST_CASE("a loop within a loop that a fault ends leaves no queue behind")
{
    const Handle_T<TestSystem> outer = new TestSystem, inner = new TestSystem;
    inner->beforeInit = fault;
    outer->afterPass = [&] {
        if (outer->deltas.size() == 1) {
            inner->load();
            inner->start();
        }
    };
    outer->runHere();
    CHECK(!postToThread(outer->getRunThreadId(), [] {}));
}

// ---- On threads

TEST_CASE("producers in many threads lose nothing")
{
    const Handle_T<TestSystem> system = new QuietSystem;
    const auto thread = Thread::createInstance();
    CHECK(thread->start(system));
    waitFor([&] { return system->getState() == System::STATE_RUNNING; });
    constexpr int producers = 4, each = 2000;
    int last[producers] = {}; // the run thread's alone
    std::atomic<int> ran = 0, posted = 0;
    std::vector<std::jthread> threads;
    for (int& mine : last) {
        threads.emplace_back([&] {
            for (int i = 1; i <= each; ++i) {
                posted += postToThread(system->getRunThreadId(), [&, i] {
                    CHECK(mine < i);
                    mine = i;
                    ++ran;
                });
            }
        });
    }
    waitFor([&] { return ran >= producers * each / 2; });
    thread->shutdown(); // in the middle of it: what was taken runs, the rest is refused
    threads.clear();
    CHECK(ran == posted);
}

TEST_CASE("a thread runs one system at a time, and is idle again afterwards")
{
    const auto thread = Thread::createInstance(), another = Thread::createInstance();
    const Handle_T<TestSystem> system = new QuietSystem, second = new QuietSystem;
    CHECK(!thread->start(nullptr));
    CHECK(thread->shutdown());
    for (int round = 1; round <= 2; ++round) {
        CHECK(thread->start(system));
        CHECK(thread->getSystem() == system);
        CHECK(!another->start(system));
        waitFor([&] { return system->getState() == System::STATE_RUNNING; });
        CHECK(system->getRunThreadId() != Thread::getCurrentThreadId());
        CHECK(!thread->waitIdle(1));
        CHECK(thread->shutdown());
        CHECK(thread->getSystem().isNull());
        CHECK(system->getState() == System::STATE_UNLOADED);
    }
    CHECK(system->log == L"ixix");
    CHECK(thread->start(system));
    CHECK(!thread->start(second));
    CHECK(second->getState() == System::STATE_LOADED);
    CHECK(thread->shutdown());
    second->shutdown();
    second->unload();
    CHECK(another->start(second));
    CHECK(another->shutdown());
}

TEST_CASE("a run goes on without handles, and takes thread and system with it")
{
    Handle_T<TestSystem> system = new QuietSystem;
    const auto life = std::make_shared<int>();
    system->afterException = [life] {};
    auto thread = Thread::createInstance();
    CHECK(thread->start(system));
    thread.setNull();
    waitFor([&] { return system->getState() == System::STATE_RUNNING; });
    system->shutdown();
    system.setNull();
    waitFor([&] { return life.use_count() == 1; });
}

TEST_CASE("threads start and stop at random, whoever asks them to")
{
    struct {
        Handle_T<Thread> thread = Thread::createInstance();
        Handle_T<System> system = new QuietSystem;
    } pairs[10];
    const auto churn = [&](unsigned seed) {
        std::mt19937 random(seed);
        for (int step = 0; step < 500; ++step) {
            const auto& [thread, system] = pairs[random() % std::size(pairs)];
            const auto kind = random() % 4;
            if (kind < 2) {
                thread->start(system);
            } else if (kind == 2) {
                thread->shutdown();
            } else {
                system->shutdown();
                system->unload();
            }
        }
    };
    std::vector<std::jthread> others;
    for (const unsigned seed : {1u, 2u, 3u, 4u})
        others.emplace_back(churn, seed);
    others.clear();
    for (const auto& pair : pairs) {
        pair.thread->shutdown();
        CHECK(pair.thread->getSystem().isNull());
    }
}

TEST_CASE("whoever finds the system unloaded finds its thread idle")
{
    const auto thread = Thread::createInstance();
    const Handle_T<TestSystem> system = new QuietSystem;
    std::atomic<bool> isOver = false;
    std::jthread other([&] { // holds the end of a run up where it can
        while (!isOver)
            thread->getSystem();
    });
    bool isIdle = true;
    for (int round = 0; round < 300 && isIdle; ++round) {
        isIdle = thread->start(system);
        system->shutdown();
        waitFor([&] { return !isIdle || system->getState() == System::STATE_UNLOADED; });
    }
    CHECK(isIdle);
    isOver = true;
    other.join();
    thread->shutdown();
}

TEST_CASE("on the thread itself a shutdown asks and does not wait, and others wait for the end")
{
    const auto thread = Thread::createInstance();
    const Handle_T<TestSystem> system = new TestSystem;
    system->afterPass = [&] {
        CHECK(!thread->waitIdle(Semaphore::endless));
        CHECK(thread->shutdown());
    };
    CHECK(thread->start(system));
    CHECK(thread->waitIdle(Semaphore::endless));
    CHECK(thread->getSystem().isNull());
    CHECK(system->getState() == System::STATE_UNLOADED);
    CHECK(system->deltas.size() == 1);
}
