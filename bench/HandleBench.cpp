#include <benchmark/benchmark.h>

#include <orvi/core/Unknown.h>

#include <future>
#include <memory>
#include <sys/single_threaded.h>
#include <thread>

using orvi::Handle_T;
using orvi::Unknown;

namespace orvi_bench {

class Sample : public Unknown {
    ORVI_DECLARE_CLASS(Sample);

public:
    static Handle_T<Sample> createInstance() { return new Sample; }
    int value = 1;

protected:
    Sample() = default;
};
ORVI_DEFINE_CLASS(Sample);

namespace {

struct Plain {
    virtual ~Plain() = default;
    int value = 1;
};

/** A thread that only exists: shared_ptr counts without atomics before a process has its first one. */
class IdleThread {
public:
    IdleThread()
        : _thread([ended = _end.get_future()] { ended.wait(); })
    {}
    ~IdleThread()
    {
        _end.set_value();
        _thread.join();
    }
    IdleThread(const IdleThread&) = delete;
    IdleThread& operator=(const IdleThread&) = delete;

private:
    std::promise<void> _end;
    std::thread _thread;
};

template <class Pointer>
void copyPointer(benchmark::State& state, const Pointer& pointer)
{
    for (auto _ : state) {
        Pointer copy(pointer);
        benchmark::DoNotOptimize(copy);
    }
}

template <class Pointer>
void copyAlone(benchmark::State& state, Pointer (*make)())
{
    if (!__libc_single_threaded) {
        state.SkipWithError("the process has had a thread");
        return;
    }
    copyPointer(state, make());
}

template <class Pointer>
void copyBesideThread(benchmark::State& state, Pointer (*make)())
{
    const IdleThread thread;
    copyPointer(state, make());
}

std::shared_ptr<Plain> makePlain() { return std::make_shared<Plain>(); }

void createById(benchmark::State& state)
{
    const unsigned int id = Sample::getClassId_();
    for (auto _ : state) {
        const Handle_T<Unknown> object = Unknown::RtFactory::createClassInstance(id);
        benchmark::DoNotOptimize(object->getReferenceCount());
    }
}

void createByNew(benchmark::State& state)
{
    for (auto _ : state) {
        const Handle_T<Sample> object = Sample::createInstance();
        benchmark::DoNotOptimize(object->getReferenceCount());
    }
}

BENCHMARK_CAPTURE(copyAlone, Handle, Sample::createInstance)->Name("handle_copy/no_thread/Handle_T");
BENCHMARK_CAPTURE(copyAlone, shared, makePlain)->Name("handle_copy/no_thread/shared_ptr");
BENCHMARK_CAPTURE(copyBesideThread, Handle, Sample::createInstance)->Name("handle_copy/thread/Handle_T");
BENCHMARK_CAPTURE(copyBesideThread, shared, makePlain)->Name("handle_copy/thread/shared_ptr");
BENCHMARK(createById)->Name("create/by_id");
BENCHMARK(createByNew)->Name("create/new");

} // namespace
} // namespace orvi_bench
