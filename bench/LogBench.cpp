#include <benchmark/benchmark.h>

#include <orvi/core/Log.h>

#include <cstdio>
#include <mutex>

using orvi::Log;

namespace {

class NullListener : public orvi::LogListener {
public:
    NullListener() { Log::addListener(this); }
    ~NullListener() override { Log::removeListener(this); }
    const wchar_t* getName() override { return L"null"; }
    bool setparam(const wchar_t*) override { return false; }
    void error(const wchar_t*) override {}
    void warning(const wchar_t*) override {}
    void message(const wchar_t* text) override { benchmark::DoNotOptimize(text); }
    void debug(const wchar_t*) override {}
    void whistle(bool) override {}
};

void logLine(benchmark::State& state)
{
    int line = 0;
    for (auto _ : state)
        Log::message(L"line %d of %s", ++line, L"the benchmark");
}

void logToListener(benchmark::State& state)
{
    const NullListener listener;
    logLine(state);
}

void lockMutex(benchmark::State& state)
{
    std::mutex mutex;
    for (auto _ : state) {
        const std::lock_guard guard(mutex);
        benchmark::ClobberMemory();
    }
}

void printUnderMutex(benchmark::State& state)
{
    std::mutex mutex;
    char text[1024];
    int line = 0;
    for (auto _ : state) {
        const std::lock_guard guard(mutex);
        std::snprintf(text, sizeof text, "line %d of %s", ++line, "the benchmark");
        benchmark::DoNotOptimize(&text);
    }
}

BENCHMARK(logLine)->Name("log/no_listener/Log");
BENCHMARK(lockMutex)->Name("log/no_listener/mutex");
BENCHMARK(logToListener)->Name("log/one_listener/Log");
BENCHMARK(printUnderMutex)->Name("log/one_listener/mutex_snprintf");

} // namespace
