#include <benchmark/benchmark.h>

#include <orvi/core/RunQueue.h>
#include <orvi/core/Semaphore.h>
#include <orvi/core/System.h>
#include <orvi/core/Thread.h>

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <semaphore>
#include <thread>
#include <vector>

using orvi::Handle_T;
using orvi::System;

namespace {

constexpr int batchSize = 1000; // closures

class CountingTask : public System::Task {
public:
    static Handle_T<CountingTask> createInstance() { return new CountingTask; }
    void onTick(unsigned int elapsedMs) override { _sum += elapsedMs + 1; }

private:
    unsigned int _sum = 0;
};

/** Turns its loop on the benchmark's own thread; each turn is an iteration. */
class MeasuredSystem : public System {
public:
    MeasuredSystem(benchmark::State& state, int tasks)
        : _state(state)
        , _taskCount(tasks)
    {}

    bool init() override
    {
        if (!System::init())
            return false;
        for (int i = 0; i < _taskCount; ++i)
            CountingTask::createInstance()->start(this);
        _started = false;
        return true;
    }
    void onTick(unsigned int deltaMs) override
    {
        System::onTick(deltaMs);
        // The first pass takes the tasks in and is not counted.
        if (_started && !_state.KeepRunning())
            shutdown();
        _started = true;
    }

protected:
    benchmark::State& _state;

private:
    int _taskCount;
    bool _started = false;
};

void turnOnThisThread(System* system)
{
    system->load();
    system->start();
    system->unload();
}

void tick(benchmark::State& state)
{
    const Handle_T<System> system = new MeasuredSystem(state, static_cast<int>(state.range(0)));
    turnOnThisThread(system);
}

void loopOverFunctions(benchmark::State& state)
{
    std::vector<std::unique_ptr<unsigned int>> sums;
    std::vector<std::function<void(unsigned int)>> functions;
    for (int i = 0; i < state.range(0); ++i) {
        sums.push_back(std::make_unique<unsigned int>(0));
        functions.emplace_back([sum = sums.back().get()](unsigned int elapsed) { *sum += elapsed + 1; });
    }
    for (auto _ : state) {
        for (const auto& function : functions)
            function(1);
        benchmark::ClobberMemory();
    }
}

void yieldThread(benchmark::State& state)
{
    for (auto _ : state)
        std::this_thread::yield();
}

/** Posts a batch to itself in each pass: the next pass comes when all of it has run. */
class PostingSystem : public System {
public:
    explicit PostingSystem(benchmark::State& state)
        : _state(state)
    {}
    void onTick(unsigned int) override
    {
        if (!_state.KeepRunning()) {
            shutdown();
            return;
        }
        for (int i = 0; i < batchSize; ++i)
            orvi::postToThread(getRunThreadId(), [this] { ++_ran; });
    }

private:
    benchmark::State& _state;
    int _ran = 0;
};

class ClosureQueue {
public:
    void post(std::function<void()> closure)
    {
        const std::lock_guard guard(_mutex);
        _closures.push_back(std::move(closure));
    }
    bool runOne()
    {
        std::function<void()> closure;
        {
            const std::lock_guard guard(_mutex);
            if (_closures.empty())
                return false;
            closure = std::move(_closures.front());
            _closures.pop_front();
        }
        closure();
        return true;
    }

private:
    std::mutex _mutex;
    std::deque<std::function<void()>> _closures;
};

void setBatches(benchmark::State& state) { state.SetItemsProcessed(state.iterations() * batchSize); }

void postToSelf(benchmark::State& state)
{
    const Handle_T<System> system = new PostingSystem(state);
    turnOnThisThread(system);
    setBatches(state);
}

void queueToSelf(benchmark::State& state)
{
    ClosureQueue queue;
    int ran = 0;
    for (auto _ : state) {
        for (int i = 0; i < batchSize; ++i)
            queue.post([&ran] { ++ran; });
        while (queue.runOne()) {
        }
    }
    setBatches(state);
    benchmark::DoNotOptimize(ran);
}

/** Posts batches and waits for the end of each, with the loop on another thread. */
template <class Post>
void postBatches(benchmark::State& state, Post post)
{
    std::atomic<int> ran = 0;
    for (auto _ : state) {
        ran.store(0);
        for (int i = 0; i < batchSize; ++i)
            post([&ran] { ran.fetch_add(1, std::memory_order_relaxed); });
        while (ran.load() < batchSize)
            std::this_thread::yield();
    }
    setBatches(state);
}

class PlainSystem : public System {};

void postToOther(benchmark::State& state)
{
    const Handle_T<System> system = new PlainSystem;
    const Handle_T<orvi::Thread> thread = orvi::Thread::createInstance();
    thread->start(system);
    while (system->getState() != System::STATE_RUNNING)
        std::this_thread::yield();
    const unsigned long id = system->getRunThreadId();
    postBatches(state, [id](std::function<void()> closure) { orvi::postToThread(id, std::move(closure)); });
    thread->shutdown();
}

void queueToOther(benchmark::State& state)
{
    ClosureQueue queue;
    std::atomic<bool> ended = false;
    std::thread thread([&] {
        while (!ended) {
            if (!queue.runOne())
                std::this_thread::yield();
        }
    });
    postBatches(state, [&queue](std::function<void()> closure) { queue.post(std::move(closure)); });
    ended = true;
    thread.join();
}

void semaphore(benchmark::State& state)
{
    const auto semaphore = orvi::Semaphore::createInstance();
    for (auto _ : state) {
        semaphore->signal();
        semaphore->wait(orvi::Semaphore::endless, false);
    }
}

void countingSemaphore(benchmark::State& state)
{
    std::counting_semaphore<> semaphore(0);
    for (auto _ : state) {
        semaphore.release();
        semaphore.acquire();
    }
}

BENCHMARK(tick)->Name("tick/System")->Arg(0)->Arg(1)->Arg(100)->Arg(100000);
BENCHMARK(loopOverFunctions)->Name("tick/functions")->Arg(1)->Arg(100)->Arg(100000);
BENCHMARK(yieldThread)->Name("tick/yield_alone");
BENCHMARK(postToSelf)->Name("post/same_thread/postToThread");
BENCHMARK(queueToSelf)->Name("post/same_thread/mutex_deque");
BENCHMARK(postToOther)->Name("post/other_thread/postToThread")->UseRealTime();
BENCHMARK(queueToOther)->Name("post/other_thread/mutex_deque")->UseRealTime();
BENCHMARK(semaphore)->Name("semaphore/Semaphore");
BENCHMARK(countingSemaphore)->Name("semaphore/counting_semaphore");

} // namespace
