#include <benchmark/benchmark.h>

#include <orvi/core/App.h>
#include <orvi/core/Tick.h>

#include <sys/resource.h>

#include <chrono>
#include <condition_variable>
#include <latch>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

using orvi::App;
using orvi::AppBox;
using orvi::Handle_T;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int crowdSize = 1000;
constexpr std::chrono::seconds idleTime(10);

std::unique_ptr<std::latch> g_started; // counts down with each member of the crowd that has started

/** Does nothing, at rest. */
class RestingBox : public AppBox {
public:
    static Handle_T<AppBox> create(const wchar_t* appName, const wchar_t* parameters)
    {
        return new RestingBox(appName, parameters);
    }
    bool init() override
    {
        const bool isReady = AppBox::init() && orvi::Rest::createInstance()->start(this);
        g_started->count_down();
        return isReady;
    }

protected:
    using AppBox::AppBox;
};

// A crowd comes to life in its constructor and ends with the call of end: all are asked, then each is waited for.

class Applications {
public:
    Applications()
    {
        orvi::setUpApp(L"resting", RestingBox::create);
        for (int i = 0; i < crowdSize; ++i) {
            orvi::String name;
            name.format(L"resting %d", i);
            _apps.push_back(orvi::startApp(L"resting", name, L""));
        }
        orvi::tearDownApp(L"resting");
    }
    void end()
    {
        for (const auto& app : _apps)
            app->getAppBox()->shutdown();
        for (const auto& app : _apps)
            orvi::exitApp(app);
    }

private:
    std::vector<Handle_T<App>> _apps;
};

class WaitingThread {
public:
    WaitingThread()
        : _thread([this] {
            std::unique_lock guard(_mutex);
            _hasStarted.count_down();
            g_started->count_down();
            _asked.wait(guard, [this] { return _isAsked; });
        })
    {}
    void awaitStart() { _hasStarted.wait(); }
    void askToEnd()
    {
        const std::lock_guard guard(_mutex);
        _isAsked = true;
        _asked.notify_one();
    }
    void join() { _thread.join(); }

private:
    std::mutex _mutex;
    std::condition_variable _asked;
    bool _isAsked = false;
    std::latch _hasStarted{1};
    std::thread _thread;
};

enum class Starts { Together, OneByOne };

template <Starts starts>
class Threads {
public:
    Threads()
    {
        for (int i = 0; i < crowdSize; ++i) {
            _threads.push_back(std::make_unique<WaitingThread>());
            if constexpr (starts == Starts::OneByOne) // as an application starts
                _threads.back()->awaitStart();
        }
    }
    void end()
    {
        for (const auto& thread : _threads)
            thread->askToEnd();
        for (const auto& thread : _threads)
            thread->join();
    }

private:
    std::vector<std::unique_ptr<WaitingThread>> _threads;
};

/** Returns when all have started. */
template <class Crowd>
std::unique_ptr<Crowd> startCrowd()
{
    g_started = std::make_unique<std::latch>(crowdSize);
    auto crowd = std::make_unique<Crowd>();
    g_started->wait();
    return crowd;
}

/** What the threads of the process have used up, without the calling one. */
struct Usage {
    long switches = 0; // voluntary: one for each time that a thread has gone to sleep
    double millis = 0; // of processor time

    static Usage ofOthers()
    {
        const Usage all = of(RUSAGE_SELF), here = of(RUSAGE_THREAD);
        return all - here;
    }
    Usage operator-(const Usage& other) const { return {switches - other.switches, millis - other.millis}; }

private:
    static Usage of(int who)
    {
        rusage usage{};
        getrusage(who, &usage);
        const auto inMillis = [](const timeval& time) {
            return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
        };
        return {usage.ru_nvcsw, inMillis(usage.ru_utime) + inMillis(usage.ru_stime)};
    }
};

/** Those that have just started are still on their way to sleep. A crowd that never sleeps is not waited for. */
void waitUntilQuiet()
{
    long before = -1;
    for (int looks = 0; looks < 10 && Usage::ofOthers().switches != before; ++looks) {
        before = Usage::ofOthers().switches;
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
    }
}

template <class Crowd>
void idle(benchmark::State& state)
{
    const auto crowd = startCrowd<Crowd>();
    waitUntilQuiet();
    const Usage before = Usage::ofOthers();
    for (auto _ : state)
        std::this_thread::sleep_for(idleTime);
    const Usage used = Usage::ofOthers() - before;
    state.counters["wake_ups"] = static_cast<double>(used.switches);
    state.counters["cpu_ms"] = used.millis;
    crowd->end();
}

double secondsSince(Clock::time_point began)
{
    return std::chrono::duration<double>(Clock::now() - began).count();
}

template <class Crowd>
void start(benchmark::State& state)
{
    for (auto _ : state) {
        const auto began = Clock::now();
        const auto crowd = startCrowd<Crowd>();
        state.SetIterationTime(secondsSince(began));
        crowd->end();
    }
}

template <class Crowd>
void end(benchmark::State& state)
{
    for (auto _ : state) {
        const auto crowd = startCrowd<Crowd>();
        waitUntilQuiet();
        const auto began = Clock::now();
        crowd->end();
        state.SetIterationTime(secondsSince(began));
    }
}

void once(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
}

void fewTimes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Iterations(5)->UseManualTime()->Unit(benchmark::kMillisecond);
}

using ThreadsTogether = Threads<Starts::Together>;
using ThreadsOneByOne = Threads<Starts::OneByOne>;

BENCHMARK(idle<Applications>)->Name("idle_10_s/1000_applications")->Apply(once);
BENCHMARK(idle<ThreadsTogether>)->Name("idle_10_s/1000_threads")->Apply(once);
BENCHMARK(start<Applications>)->Name("start/1000_applications")->Apply(fewTimes);
BENCHMARK(start<ThreadsOneByOne>)->Name("start/1000_threads_one_by_one")->Apply(fewTimes);
BENCHMARK(start<ThreadsTogether>)->Name("start/1000_threads_together")->Apply(fewTimes);
BENCHMARK(end<Applications>)->Name("end/1000_applications")->Apply(fewTimes);
BENCHMARK(end<ThreadsTogether>)->Name("end/1000_threads")->Apply(fewTimes);

} // namespace
