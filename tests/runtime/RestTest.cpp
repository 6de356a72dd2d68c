#include <orvi/core/RunQueue.h>
#include <orvi/core/Thread.h>
#include <orvi/core/Tick.h>

#include <doctest/doctest.h>

#include <algorithm>
#include <atomic>
#include <semaphore>
#include <thread>
#include <vector>

using orvi::Handle_T;
using orvi::postToThread;
using orvi::Rest;
using orvi::System;
using orvi::Thread;

namespace {

class RestingSystem : public System {
public:
    bool init() override { return System::init() && Rest::createInstance()->start(this); }
    void onTick(unsigned int deltaMs) override
    {
        ++passes;
        System::onTick(deltaMs);
    }
    /** Has `step` run on the run thread, and waits for it. */
    template <class Step>
    void call(const Step& step)
    {
        std::binary_semaphore done(0);
        while (!postToThread(getRunThreadId(), [&] {
            step();
            done.release();
        })) {
        }
        done.acquire();
    }

    std::atomic<int> passes = 0;
};

class Counter final : public System::Task {
public:
    void onTick(unsigned int elapsedMs) override
    {
        least = std::min(least, elapsedMs);
        if (++calls == 5)
            enough.release();
    }
    unsigned int least = 1'000'000;
    int calls = 0;
    std::binary_semaphore enough{0};
};

struct Running {
    Running() { CHECK(thread->start(system)); }
    ~Running() { thread->shutdown(); }
    const Handle_T<RestingSystem> system = new RestingSystem;
    const Handle_T<Thread> thread = Thread::createInstance();
};

} // namespace

TEST_CASE("rest: a loop turns only for what is due, and misses none of it")
{
    const Running running;
    RestingSystem& system = *running.system;
    constexpr int rounds = 20'000;
    std::vector<std::thread> producers;
    for (int i = 0; i < 2; ++i) {
        producers.emplace_back([&] {
            for (int round = 0; round < rounds;
                 ++round) // each waits for its closure: the loop rests in between
                system.call([] {});
        });
    }
    for (std::thread& producer : producers)
        producer.join();
    // A pass may stand before and behind each closure; one that polled would have made far more.
    CHECK(system.passes <= 2 * 2 * rounds + 10);
}

TEST_CASE("rest: a task wakes the loop when its time has come, and no sooner")
{
    const Running running;
    RestingSystem& system = *running.system;
    const Handle_T<Counter> paced = new Counter, sleeper = new Counter;
    system.call([&] {
        paced->setTickTime(20);
        paced->start(&system);
    });
    paced->enough.acquire();
    CHECK(paced->least >= 20);
    CHECK(system.passes <= 2 * 5 + 10);

    system.call(
        [&] { // without a tick time it is due each millisecond, and at once behind a change of its times
            paced->stop();
            sleeper->start(&system);
            sleeper->sleep(3'600'000);
        });
    system.call([&] { sleeper->waken(); });
    sleeper->enough.acquire();
}

TEST_CASE("rest: waken reaches a loop that is about to rest")
{
    const Running running;
    RestingSystem& system = *running.system;
    for (int round = 0; round < 10'000; ++round) {
        const int before = system.passes;
        system.waken();
        while (system.passes == before)
            std::this_thread::yield();
    }
}

TEST_CASE("rest: a task that turns the loop gets back when something was due")
{
    class Nesting final : public System::Task {
    public:
        void onTick(unsigned int) override
        {
            stop();
            while (!isDone)
                system->tick();
            left.release();
        }
        System* system = nullptr;
        std::atomic<bool> isDone = false;
        std::binary_semaphore left{0};
    };
    const Running running;
    RestingSystem& system = *running.system;
    const Handle_T<Nesting> nesting = new Nesting;
    system.call([&] {
        nesting->system = &system;
        nesting->start(&system);
    });
    system.call([&] { nesting->isDone = true; });
    nesting->left.acquire();
}

TEST_CASE("rest: an inner loop of the thread rests, and the outer one goes on")
{
    class Outer final : public System::Task {
    public:
        void onTick(unsigned int) override
        {
            stop();
            inner->load();
            inner->start();
            inner.setNull();
            left.release();
        }
        Handle_T<RestingSystem> inner = new RestingSystem;
        std::binary_semaphore left{0};
    };
    const Running running;
    RestingSystem& system = *running.system;
    const Handle_T<Outer> outer = new Outer;
    const Handle_T<RestingSystem> inner = outer->inner;
    system.call([&] { outer->start(&system); });
    system.call([] {}); // by whichever loop turns
    while (inner->getState() != System::STATE_RUNNING)
        std::this_thread::yield();
    system.call([] {});
    inner->shutdown();
    outer->left.acquire();
    system.call([] {});
}

TEST_CASE("rest: who turns the loop by hand sees what a pass has brought before the loop rests again")
{
    class Turning final : public RestingSystem {
    public:
        void run() override
        {
            for (int round = 0; round < 2; ++round) { // nothing is ever due but what is waited for
                const Handle_T<Counter> counter = new Counter;
                counter->setTickTime(2);
                counter->start(this);
                while (counter->calls == 0)
                    tick();
                counter->setTickTime(3'600'000);
                counter->sleep(1);
                while (counter->calls == 1)
                    tick();
            }
        }
    };
    const Handle_T<Turning> system = new Turning;
    CHECK(system->load());
    system->start();
    CHECK(system->passes <= 12);
}
