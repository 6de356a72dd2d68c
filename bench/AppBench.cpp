#include <benchmark/benchmark.h>

#include <orvi/core/App.h>
#include <orvi/core/Tick.h>

#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>

using orvi::App;
using orvi::AppBox;
using orvi::AppPipe;
using orvi::Handle_T;
using orvi::String;

namespace {

/** Says yes to every command. Its loop never rests. */
class SpinningBox : public AppBox {
public:
    static Handle_T<AppBox> create(const wchar_t* appName, const wchar_t* parameters)
    {
        return new SpinningBox(appName, parameters);
    }
    bool docmd(AppPipe*, wchar_t**, int) override { return true; }

protected:
    using AppBox::AppBox;
};

/** The same, asleep for a millisecond in every pass. */
class YieldingBox : public SpinningBox {
public:
    static Handle_T<AppBox> create(const wchar_t* appName, const wchar_t* parameters)
    {
        return new YieldingBox(appName, parameters);
    }
    bool init() override { return SpinningBox::init() && orvi::Yield::createInstance(1)->start(this); }

protected:
    using SpinningBox::SpinningBox;
};

/** The same, asleep until a text comes. */
class RestingBox : public SpinningBox {
public:
    static Handle_T<AppBox> create(const wchar_t* appName, const wchar_t* parameters)
    {
        return new RestingBox(appName, parameters);
    }
    bool init() override { return SpinningBox::init() && orvi::Rest::createInstance()->start(this); }

protected:
    using SpinningBox::SpinningBox;
};

enum class Client { Polls, Waits };

template <Client client>
void readUntil(App* app, const wchar_t* last)
{
    constexpr unsigned int limitMs = 10000; // nothing takes as long
    String text;
    while (text != last) {
        if constexpr (client == Client::Polls) {
            if (!app->getPipe()->read(text))
                std::this_thread::yield();
        } else if (!app->getPipe()->read(text, limitMs)) {
            std::abort();
        }
    }
}

template <Client client>
void roundTrip(benchmark::State& state, orvi::AppFactory factory)
{
    orvi::setUpApp(L"bench", factory);
    const Handle_T<App> app = orvi::startApp(L"bench", L"bench", L"");
    orvi::tearDownApp(L"bench");
    readUntil<client>(app, L"$HELLO");
    for (auto _ : state) {
        app->getPipe()->write(L"$COMMAND ping");
        readUntil<client>(app, L"$END OK");
    }
    orvi::exitApp(app);
}

/** A turn for each of two threads. */
void pingPong(benchmark::State& state)
{
    std::mutex mutex;
    std::condition_variable changed;
    enum class Turn { Here, There, Nobody } turn = Turn::Here;
    const auto pass = [&](Turn from, Turn to) {
        std::unique_lock guard(mutex);
        changed.wait(guard, [&] { return turn == from || turn == Turn::Nobody; });
        if (turn == Turn::Nobody)
            return false;
        turn = to;
        changed.notify_one();
        return true;
    };
    std::thread other([&] {
        while (pass(Turn::There, Turn::Here)) {
        }
    });
    for (auto _ : state) {
        pass(Turn::Here, Turn::There);
        std::unique_lock guard(mutex);
        changed.wait(guard, [&] { return turn == Turn::Here; });
    }
    {
        const std::lock_guard guard(mutex);
        turn = Turn::Nobody;
        changed.notify_one();
    }
    other.join();
}

void inMicros(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Unit(benchmark::kMicrosecond)->UseRealTime();
}

void toSpinningBox(benchmark::State& state) { roundTrip<Client::Polls>(state, SpinningBox::create); }
void toYieldingBox(benchmark::State& state) { roundTrip<Client::Polls>(state, YieldingBox::create); }
void toRestingBox(benchmark::State& state) { roundTrip<Client::Waits>(state, RestingBox::create); }

BENCHMARK(toSpinningBox)->Name("command/spinning_box")->Apply(inMicros);
BENCHMARK(toYieldingBox)->Name("command/yielding_box")->Apply(inMicros);
BENCHMARK(toRestingBox)->Name("command/resting_box")->Apply(inMicros);
BENCHMARK(pingPong)->Name("command/condition_variable")->Apply(inMicros);

} // namespace
