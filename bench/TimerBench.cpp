#include <benchmark/benchmark.h>

#include <orvi/core/System.h>
#include <orvi/core/Tick.h>

#ifdef ORVI_BENCH_UV
#include <uv.h>
#endif
#ifdef ORVI_BENCH_ASIO
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#endif

#include <chrono>
#include <cstdlib>
#include <memory>
#include <random>
#include <vector>

using orvi::Handle_T;
using orvi::System;

namespace {

/** Times from an hour to two: none is over in a run, and they are in no order. Everybody gets the same ones. */
class Times {
public:
    unsigned int nextMs() { return _distribution(_engine); }

private:
    std::minstd_rand _engine{1};
    std::uniform_int_distribution<unsigned int> _distribution{3'600'000, 7'200'000};
};

// A loop has a crowd of timers none of which is due, and one more. pass() is a turn that waits for nothing.

enum class Inside { ForeignLoop, OwnLoop };

/** In a loop of another library a pass is a turn, which has to look at the descriptor of the System. In its own it is a tick,
    here with a Rest that a wake-up in each pass keeps from sleeping. */
template <Inside inside>
class SystemTimers {
public:
    explicit SystemTimers(int count)
        : _system(new MeasuredSystem)
        , _one(new SleepingTask)
    {
        if (!_system->load() || !_system->begin())
            std::abort();
        for (int i = 0; i < count; ++i) {
            const Handle_T<SleepingTask> task = new SleepingTask;
            task->setTickTime(_times.nextMs());
            task->start(_system);
        }
        pass(); // takes them in
    }
    ~SystemTimers()
    {
        _system->finish();
        _system->unload();
    }
    void pass()
    {
        if constexpr (inside == Inside::ForeignLoop) {
            unsigned int timeToNextMs = 0;
            _system->turn(timeToNextMs);
            benchmark::DoNotOptimize(timeToNextMs);
        } else {
            _system->tick();
        }
    }
    void start()
    {
        _one->setTickTime(_times.nextMs());
        _one->start(_system);
    }
    void stop() { _one->stop(); }

private:
    class MeasuredSystem : public System {
    public:
        bool init() override
        {
            return System::init() &&
                   (inside == Inside::ForeignLoop || orvi::Rest::createInstance()->start(this));
        }
        void onTick(unsigned int deltaMs) override
        {
            System::onTick(deltaMs);
            if constexpr (inside == Inside::OwnLoop)
                waken();
        }
    };
    class SleepingTask : public System::Task {
    public:
        void onTick(unsigned int) override { std::abort(); }
    };

    Times _times;
    const Handle_T<System> _system;
    const Handle_T<SleepingTask> _one;
};
using TurnedTimers = SystemTimers<Inside::ForeignLoop>;
using TickedTimers = SystemTimers<Inside::OwnLoop>;

#ifdef ORVI_BENCH_UV
class UvTimers {
public:
    explicit UvTimers(int count)
        : _timers(static_cast<std::size_t>(count) + 1)
    {
        uv_loop_init(&_loop);
        for (uv_timer_t& timer : _timers)
            uv_timer_init(&_loop, &timer);
        for (int i = 0; i < count; ++i)
            start(_timers[static_cast<std::size_t>(i)]);
        pass();
    }
    ~UvTimers()
    {
        for (uv_timer_t& timer : _timers)
            uv_close(reinterpret_cast<uv_handle_t*>(&timer), nullptr);
        uv_run(&_loop, UV_RUN_DEFAULT);
        uv_loop_close(&_loop);
    }
    void pass() { uv_run(&_loop, UV_RUN_NOWAIT); }
    void start() { start(_timers.back()); }
    void stop() { uv_timer_stop(&_timers.back()); }

private:
    void start(uv_timer_t& timer)
    {
        uv_timer_start(
            &timer, [](uv_timer_t*) { std::abort(); }, _times.nextMs(), 0);
    }

    Times _times;
    uv_loop_t _loop{};
    std::vector<uv_timer_t> _timers;
};
#endif

#ifdef ORVI_BENCH_ASIO
class AsioTimers {
public:
    explicit AsioTimers(int count)
        : _one(_context)
    {
        for (int i = 0; i < count; ++i) {
            _timers.push_back(std::make_unique<boost::asio::steady_timer>(_context));
            start(*_timers.back());
        }
        pass();
    }
    void pass() { _context.poll(); }
    void start() { start(_one); }
    void stop() { _one.cancel(); }

private:
    void start(boost::asio::steady_timer& timer)
    {
        timer.expires_after(std::chrono::milliseconds(_times.nextMs()));
        timer.async_wait([](const boost::system::error_code& error) {
            if (!error)
                std::abort();
        });
    }

    Times _times;
    boost::asio::io_context _context;
    std::vector<std::unique_ptr<boost::asio::steady_timer>> _timers;
    boost::asio::steady_timer _one;
};
#endif

template <class Timers>
void pass(benchmark::State& state)
{
    Timers timers(static_cast<int>(state.range(0)));
    for (auto _ : state)
        timers.pass();
}

constexpr int crowdSize = 100000;

/** So many starts and stops, then a pass: there a System lets the stopped tasks go, and Asio tells the handler that the
    timer was cancelled. */
template <class Timers>
void startAndStop(benchmark::State& state)
{
    Timers timers(crowdSize);
    for (auto _ : state) {
        for (std::int64_t i = 0; i < state.range(0); ++i) {
            timers.start();
            timers.stop();
        }
        timers.pass();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

/** A System takes a task in at the end of a pass: only with one in between the task gets among the others. */
template <class Timers>
void startAndStopWithPass(benchmark::State& state)
{
    Timers timers(crowdSize);
    for (auto _ : state) {
        timers.start();
        timers.pass();
        timers.stop();
        timers.pass();
    }
}

/** Not 0: the loops of the peers end at once without a timer. */
void counts(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgName("timers")->Arg(1)->Arg(1000)->Arg(100000);
}

void batches(benchmark::internal::Benchmark* benchmark) { benchmark->ArgName("pairs")->Arg(1)->Arg(1000); }

BENCHMARK(pass<TurnedTimers>)->Name("pass/System_turn")->Apply(counts);
BENCHMARK(pass<TickedTimers>)->Name("pass/System_tick")->Apply(counts);
#ifdef ORVI_BENCH_UV
BENCHMARK(pass<UvTimers>)->Name("pass/libuv")->Apply(counts);
#endif
#ifdef ORVI_BENCH_ASIO
BENCHMARK(pass<AsioTimers>)->Name("pass/asio")->Apply(counts);
#endif
BENCHMARK(startAndStop<TurnedTimers>)->Name("start_stop_then_pass/System_turn")->Apply(batches);
BENCHMARK(startAndStop<TickedTimers>)->Name("start_stop_then_pass/System_tick")->Apply(batches);
#ifdef ORVI_BENCH_UV
BENCHMARK(startAndStop<UvTimers>)->Name("start_stop_then_pass/libuv")->Apply(batches);
#endif
#ifdef ORVI_BENCH_ASIO
BENCHMARK(startAndStop<AsioTimers>)->Name("start_stop_then_pass/asio")->Apply(batches);
#endif
BENCHMARK(startAndStopWithPass<TurnedTimers>)->Name("start_pass_stop_pass/System_turn");
BENCHMARK(startAndStopWithPass<TickedTimers>)->Name("start_pass_stop_pass/System_tick");
#ifdef ORVI_BENCH_UV
BENCHMARK(startAndStopWithPass<UvTimers>)->Name("start_pass_stop_pass/libuv");
#endif
#ifdef ORVI_BENCH_ASIO
BENCHMARK(startAndStopWithPass<AsioTimers>)->Name("start_pass_stop_pass/asio");
#endif

} // namespace
