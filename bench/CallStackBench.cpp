#include <benchmark/benchmark.h>

#include <orvi/core/CallStack.h>

#include <execinfo.h>

using orvi::CallStack;

namespace {

constexpr int depth = 16;

/** Calls `step` below `depth` frames of our own. */
[[gnu::noinline]] unsigned int descend(int frames, unsigned int (*step)())
{
    const unsigned int result = frames > 0 ? descend(frames - 1, step) : step();
    asm volatile("" ::: "memory"); // keeps the call from becoming a jump
    return result;
}

const void* const* g_outermost; // the frame at which the plain loop ends

void capture(benchmark::State& state, unsigned int (*step)())
{
    g_outermost = static_cast<const void* const*>(__builtin_frame_address(0));
    unsigned int frames = 0;
    for (auto _ : state)
        frames = descend(depth, step);
    state.counters["frames"] = frames;
}

unsigned int keep(CallStack* stack)
{
    const unsigned int size = stack->size();
    stack->destroy();
    return size;
}

unsigned int captureFast() { return keep(CallStack::getCallStack_fast()); }
unsigned int captureByModule() { return keep(CallStack::getCallStack()); }

/** The floor: the same frames without a check, into an array on the stack. */
unsigned int followFrames()
{
    const void* addresses[64];
    unsigned int count = 0;
    auto frame = static_cast<const void* const*>(__builtin_frame_address(0));
    for (; frame != g_outermost && count < 64; frame = static_cast<const void* const*>(frame[0]))
        addresses[count++] = frame[1];
    benchmark::DoNotOptimize(addresses);
    return count;
}

unsigned int captureByBacktrace()
{
    void* addresses[64];
    const int count = backtrace(addresses, 64);
    benchmark::DoNotOptimize(addresses);
    return static_cast<unsigned int>(count);
}

BENCHMARK_CAPTURE(capture, fast, captureFast)->Name("call_stack/fast/getCallStack_fast");
BENCHMARK_CAPTURE(capture, frames, followFrames)->Name("call_stack/fast/plain_loop");
BENCHMARK_CAPTURE(capture, module, captureByModule)->Name("call_stack/module/getCallStack");
BENCHMARK_CAPTURE(capture, backtrace, captureByBacktrace)->Name("call_stack/module/backtrace");

} // namespace
