#include "TextPrinting.h"

#include <orvi/core/Core.h>

#include <atomic>
#include <functional>
#include <random>
#include <thread>
#include <vector>

using orvi::Handle_T;
using orvi::System;
using orvi::Thread;
using orvi::Yield;

namespace {

class QuietSystem : public System {
public:
    static Handle_T<QuietSystem> createInstance() { return new QuietSystem; }

    bool init() override
    {
        ++runs;
        return System::init() && Yield::createInstance()->start(this);
    }

    std::atomic<int> runs = 0;
    std::atomic<bool>* destroyed = nullptr;

protected:
    ~QuietSystem() override
    {
        if (destroyed != nullptr)
            *destroyed = true;
    }
};

void waitFor(const std::function<bool()>& condition)
{
    while (!condition())
        std::this_thread::yield();
}

} // namespace

TEST_CASE("a thread runs a system, and is idle again afterwards")
{
    const auto thread = Thread::createInstance();
    const auto system = QuietSystem::createInstance();
    CHECK(!thread->start(nullptr));
    CHECK(thread->shutdown());
    CHECK(thread->getSystem().isNull());
    for (int round = 1; round <= 3; ++round) {
        CHECK(thread->start(system));
        CHECK(thread->getSystem() == system);
        waitFor([&] { return system->getState() == System::STATE_RUNNING; });
        CHECK(system->getRunThreadId() != Thread::getCurrentThreadId());
        CHECK(thread->shutdown());
        CHECK(thread->getSystem().isNull());
        CHECK(system->getState() == System::STATE_UNLOADED);
        CHECK(system->runs == round);
    }
}

TEST_CASE("one run for a system and one for a thread")
{
    const auto thread = Thread::createInstance();
    const auto another = Thread::createInstance();
    const auto system = QuietSystem::createInstance();
    const auto second = QuietSystem::createInstance();
    CHECK(thread->start(system));
    CHECK(!another->start(system));
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
    std::atomic<bool> destroyed = false;
    auto system = QuietSystem::createInstance();
    system->destroyed = &destroyed;
    auto thread = Thread::createInstance();
    CHECK(thread->start(system));
    thread.setNull();
    waitFor([&] { return system->getState() == System::STATE_RUNNING; });
    system->shutdown();
    system.setNull();
    waitFor([&] { return destroyed.load(); });
}

TEST_CASE("a system that ends by itself races those who shut it down")
{
    for (int round = 0; round < 200; ++round) {
        const auto thread = Thread::createInstance();
        const auto system = QuietSystem::createInstance();
        REQUIRE(thread->start(system));
        std::thread other([&] { thread->shutdown(); });
        if (round % 2 == 0)
            system->shutdown();
        CHECK(thread->shutdown());
        other.join();
        CHECK(system->getState() == System::STATE_UNLOADED);
    }
}

TEST_CASE("a hundred threads start and stop at random")
{
    std::vector<Handle_T<Thread>> threads;
    std::vector<Handle_T<QuietSystem>> systems;
    for (int i = 0; i < 100; ++i) {
        threads.push_back(Thread::createInstance());
        systems.push_back(QuietSystem::createInstance());
    }
    const auto churn = [&](unsigned seed) {
        std::mt19937 random(seed);
        for (int step = 0; step < 300; ++step) {
            const std::size_t i = random() % threads.size();
            switch (random() % 4) {
            case 0:
            case 1:
                threads[i]->start(systems[i]);
                break;
            case 2:
                threads[i]->shutdown();
                break;
            default:
                systems[i]->shutdown();
                systems[i]->unload();
            }
        }
    };
    std::thread others[] = {std::thread(churn, 1), std::thread(churn, 2), std::thread(churn, 3)};
    churn(4);
    for (auto& other : others)
        other.join();
    for (const auto& thread : threads) {
        thread->shutdown();
        CHECK(thread->getSystem().isNull());
    }
}

TEST_CASE("whoever finds the system unloaded finds its thread idle")
{
    const auto thread = Thread::createInstance();
    const auto system = QuietSystem::createInstance();
    std::atomic<bool> isOver = false;
    std::thread other([&] { // holds the end of a run up where it can
        while (!isOver)
            thread->getSystem();
    });
    bool isIdle = true;
    for (int round = 0; round < 300 && isIdle; ++round) {
        isIdle = thread->start(system);
        system->shutdown();
        while (isIdle && system->getState() != System::STATE_UNLOADED)
            std::this_thread::yield();
    }
    CHECK(isIdle);
    isOver = true;
    other.join();
    thread->shutdown();
}

TEST_CASE("shutdown on the thread itself asks and does not wait")
{
    class Suicidal : public QuietSystem {
    public:
        static Handle_T<Suicidal> createInstance() { return new Suicidal; }
        void onTick(unsigned int) override { CHECK(thread->shutdown()); }
        Thread* thread = nullptr;
    };
    const auto thread = Thread::createInstance();
    const auto system = Suicidal::createInstance();
    system->thread = thread;
    CHECK(thread->start(system));
    waitFor([&] { return thread->getSystem().isNull(); });
    CHECK(system->getState() == System::STATE_UNLOADED);
}
