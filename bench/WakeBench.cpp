#include "PeerLoops.h"

#include <benchmark/benchmark.h>

#include <orvi/core/RunQueue.h>
#include <orvi/core/System.h>
#include <orvi/core/Thread.h>
#include <orvi/core/Tick.h>

#ifdef ORVI_BENCH_UV
#include <uv.h>
#endif

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using orvi::Handle_T;
using orvi::System;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int roundCount = 20000;

// A loop at rest on a thread of its own runs what is posted.

class SystemLoop {
public:
    SystemLoop()
        : _system(new RestingSystem)
        , _thread(orvi::Thread::createInstance())
    {
        _thread->start(_system);
        while (_system->getState() != System::STATE_RUNNING)
            std::this_thread::yield();
    }
    ~SystemLoop() { _thread->shutdown(); }
    void post(std::function<void()> closure)
    {
        orvi::postToThread(_system->getRunThreadId(), std::move(closure));
    }

private:
    class RestingSystem : public System {
    public:
        bool init() override { return System::init() && orvi::Rest::createInstance()->start(this); }
    };

    const Handle_T<System> _system;
    const Handle_T<orvi::Thread> _thread;
};

class DequeLoop {
public:
    DequeLoop()
        : _thread([this] { run(); })
    {}
    ~DequeLoop()
    {
        post(nullptr);
        _thread.join();
    }
    void post(std::function<void()> closure)
    {
        {
            const std::lock_guard guard(_mutex);
            _closures.push_back(std::move(closure));
        }
        _posted.notify_one();
    }

private:
    void run()
    {
        while (const std::function<void()> closure = fetch())
            closure();
    }
    std::function<void()> fetch()
    {
        std::unique_lock guard(_mutex);
        _posted.wait(guard, [this] { return !_closures.empty(); });
        auto closure = std::move(_closures.front());
        _closures.pop_front();
        return closure;
    }

    std::mutex _mutex;
    std::condition_variable _posted;
    std::deque<std::function<void()>> _closures;
    std::thread _thread;
};

#ifdef ORVI_BENCH_UV
/** Libuv wakes for one handler and has no queue of closures: one place, for one closure at a time, is less work than the
    others have. */
class UvLoop {
public:
    UvLoop()
    {
        uv_loop_init(&_loop);
        uv_async_init(&_loop, &_async, [](uv_async_t* async) { static_cast<UvLoop*>(async->data)->take(); });
        _async.data = this;
        _thread = std::thread([this] { uv_run(&_loop, UV_RUN_DEFAULT); });
    }
    ~UvLoop()
    {
        post([this] { uv_close(reinterpret_cast<uv_handle_t*>(&_async), nullptr); });
        _thread.join();
        uv_loop_close(&_loop);
    }
    /** Only when the last one has run. */
    void post(std::function<void()> closure)
    {
        _closure = std::move(closure);
        _isPosted = true;
        uv_async_send(&_async);
    }

private:
    void take()
    {
        if (_isPosted.exchange(false))
            _closure();
    }

    uv_loop_t _loop{};
    uv_async_t _async{};
    std::function<void()> _closure;
    std::atomic<bool> _isPosted = false;
    std::thread _thread;
};
#endif

/** Looks whether a thread of this process is asleep. */
class SleepProbe {
public:
    explicit SleepProbe(int threadId)
        : _file(open(("/proc/self/task/" + std::to_string(threadId) + "/stat").c_str(), O_RDONLY | O_CLOEXEC))
    {
        if (_file < 0)
            std::abort();
    }
    SleepProbe(const SleepProbe&) = delete;
    SleepProbe& operator=(const SleepProbe&) = delete;
    ~SleepProbe() { close(_file); }

    bool isAsleep() const
    {
        char text[64];
        const ssize_t size = pread(_file, text, sizeof text, 0);
        // The state is the letter behind the name, which is in parentheses.
        const void* name = size > 0 ? std::memchr(text, ')', static_cast<std::size_t>(size) - 2) : nullptr;
        if (name == nullptr)
            std::abort();
        return static_cast<const char*>(name)[2] == 'S';
    }

private:
    const int _file;
};

/** From the call that posts to the first line of the closure. The time column is the mean. */
template <class Loop>
void wakeUp(benchmark::State& state)
{
    Loop loop;
    std::atomic<bool> hasRun = false;
    int threadId = 0;
    Clock::time_point ran;
    const auto postAndWait = [&loop, &hasRun](const auto& closure) {
        hasRun = false;
        loop.post(closure);
        while (!hasRun)
            std::this_thread::yield();
    };
    postAndWait([&] {
        threadId = gettid();
        hasRun = true;
    });
    const SleepProbe probe(threadId);
    std::vector<double> latencies; // in microseconds
    latencies.reserve(roundCount);
    for (auto _ : state) {
        while (!probe.isAsleep())
            std::this_thread::yield();
        const auto posted = Clock::now();
        postAndWait([&] {
            ran = Clock::now();
            hasRun = true;
        });
        const std::chrono::duration<double> latency = ran - posted;
        state.SetIterationTime(latency.count());
        latencies.push_back(latency.count() * 1e6);
    }
    std::sort(latencies.begin(), latencies.end());
    state.counters["p50_us"] = latencies[latencies.size() / 2];
    state.counters["p99_us"] = latencies[latencies.size() * 99 / 100];
}

void rounds(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Iterations(roundCount)->UseManualTime()->Unit(benchmark::kMicrosecond);
}

BENCHMARK(wakeUp<SystemLoop>)->Name("wake_up/System")->Apply(rounds);
BENCHMARK(wakeUp<DequeLoop>)->Name("wake_up/deque_waiting")->Apply(rounds);
#ifdef ORVI_BENCH_ASIO
BENCHMARK(wakeUp<AsioLoop>)->Name("wake_up/asio")->Apply(rounds);
#endif
#ifdef ORVI_BENCH_QT
BENCHMARK(wakeUp<QtLoop>)->Name("wake_up/Qt_queued")->Apply(rounds);
#endif
#ifdef ORVI_BENCH_UV
BENCHMARK(wakeUp<UvLoop>)->Name("wake_up/libuv")->Apply(rounds);
#endif

} // namespace
