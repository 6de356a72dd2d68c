#include "PeerLoops.h"

#include <benchmark/benchmark.h>

#include <orvi/core/Buffer.h>
#include <orvi/core/MemoryStream.h>
#include <orvi/core/MessagePort.h>
#include <orvi/core/MessageReader.h>
#include <orvi/core/Packet.h>
#include <orvi/core/Thread.h>
#include <orvi/core/Tick.h>

#ifdef ORVI_BENCH_SIGNALS2
#include <boost/signals2/signal.hpp>
#endif
#ifdef ORVI_BENCH_QT
#include <QBuffer>
#endif

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

using orvi::Handle_T;
using orvi::InputStream;
using orvi::MemoryStream;
using orvi::Message;
using orvi::MessagePort;
using orvi::OutputStream;

namespace {

constexpr int messageCount = 200000; // through a channel, in an iteration
constexpr int roundTripCount = 10000;
constexpr int packageCount = 1000;
constexpr unsigned int noTimeLimit = 0xFFFFFFFF;
constexpr unsigned int endless = 0xFFFFFFFF;

// Sixteen characters: one more than a std::string holds in place. Every message gets a copy.
const orvi::String noteText(L"Sixteen letters.");
const std::string noteTextUtf8("Sixteen letters.");

class Empty : public Message {
    ORVI_DECLARE_MESSAGE(Empty, Message);
};
ORVI_DEFINE_MESSAGE(Empty) {}

class Note : public Message {
    ORVI_DECLARE_MESSAGE(Note, Message);

public:
    int number = 0;
    orvi::String text;
};
ORVI_DEFINE_MESSAGE(Note)
{
    table.add(L"number", &Note::number);
    table.add(L"text", &Note::text);
}

/** Bytes are no property: the body is written by hand. */
class Blob : public Message {
    ORVI_DECLARE_PROPERTY(Blob, Message);

public:
    static Handle_T<Message> createMessage_() { return createInstance(); }
    void importFrom(InputStream& stream) override { stream >> bytes; }
    void exportTo(OutputStream& stream) const override { stream << bytes; }

    orvi::Buffer bytes;
};
ORVI_DEFINE_PROPERTY(Blob) {}

Handle_T<Note> makeNote(int number)
{
    Handle_T<Note> note = Note::createInstance();
    note->number = number;
    note->text = noteText;
    return note;
}

/** Where the messages of a channel end: called on its thread. */
class Receiver {
public:
    virtual void take(int number) = 0;

protected:
    ~Receiver() = default;
};

// A channel hands what is sent, from any thread, to its receiver on a thread of its own.

enum class Idle { Polls, Waits };

template <Idle idle>
class PortChannel {
public:
    explicit PortChannel(Receiver& receiver)
        : _receiver(receiver)
    {
        _port.getMessageDispenser() += {this, &PortChannel::onNote};
        _thread = std::thread([this] {
            while (!_ended) { // between taking a message, which may be the last, and waiting
                if constexpr (idle == Idle::Waits)
                    _port.wait(endless);
                const int count = _port.procMessage(noTimeLimit); // the peers have none either
                if (count == 0 && idle == Idle::Polls)
                    std::this_thread::yield();
            }
        });
    }
    ~PortChannel()
    {
        _ended = true;
        _port.pushMessage({}); // ends a wait
        _thread.join();
    }
    void send(int number) { _port.pushMessage(makeNote(number)); }

private:
    void onNote(Note* note)
    {
        benchmark::DoNotOptimize(note->text.getBuffer());
        _receiver.take(note->number);
    }

    Receiver& _receiver;
    MessagePort _port;
    std::atomic<bool> _ended = false;
    std::thread _thread;
};

/** A port that a System at rest processes. */
class ServedPortChannel {
public:
    explicit ServedPortChannel(Receiver& receiver)
        : _receiver(receiver)
        , _system(new ServingSystem(_port))
        , _thread(orvi::Thread::createInstance())
    {
        _port.getMessageDispenser() += {this, &ServedPortChannel::onNote};
        _thread->start(_system);
    }
    ~ServedPortChannel() { _thread->shutdown(); }
    void send(int number) { _port.pushMessage(makeNote(number)); }

private:
    class ServingSystem : public orvi::System {
    public:
        explicit ServingSystem(MessagePort& port)
            : _port(port)
        {}
        bool init() override
        {
            return System::init() && orvi::Rest::createInstance()->start(this) &&
                   _port.serveOn(this, noTimeLimit);
        }

    private:
        MessagePort& _port;
    };

    void onNote(Note* note)
    {
        benchmark::DoNotOptimize(note->text.getBuffer());
        _receiver.take(note->number);
    }

    Receiver& _receiver;
    MessagePort _port;
    const Handle_T<orvi::System> _system;
    const Handle_T<orvi::Thread> _thread;
};

class Event {
public:
    virtual ~Event() = default;
    virtual void run(Receiver& receiver) = 0;
};

class NoteEvent : public Event {
public:
    explicit NoteEvent(int number)
        : _number(number)
        , _text(noteTextUtf8)
    {}
    void run(Receiver& receiver) override
    {
        benchmark::DoNotOptimize(_text.data());
        receiver.take(_number);
    }

private:
    int _number;
    std::string _text;
};

template <Idle idle>
class DequeChannel {
public:
    explicit DequeChannel(Receiver& receiver)
        : _thread([this, &receiver] {
            while (fetch()) {
                for (const auto& event : _taken)
                    event->run(receiver);
                _taken.clear();
            }
        })
    {}
    ~DequeChannel()
    {
        {
            const std::lock_guard guard(_mutex);
            _ended = true;
        }
        _arrived.notify_one();
        _thread.join();
    }
    void send(int number)
    {
        auto event = std::make_unique<NoteEvent>(number);
        {
            const std::lock_guard guard(_mutex);
            _sent.push_back(std::move(event));
        }
        if constexpr (idle == Idle::Waits)
            _arrived.notify_one();
    }

private:
    bool fetch()
    {
        std::unique_lock guard(_mutex);
        while (_sent.empty() && !_ended) {
            if constexpr (idle == Idle::Waits) {
                _arrived.wait(guard);
            } else {
                guard.unlock();
                std::this_thread::yield();
                guard.lock();
            }
        }
        _taken.swap(_sent);
        return !_taken.empty();
    }

    std::mutex _mutex;
    std::condition_variable _arrived;
    std::deque<std::unique_ptr<Event>> _sent;
    bool _ended = false;
    std::deque<std::unique_ptr<Event>> _taken; // of the thread alone
    std::thread _thread;
};

/** A loop of PeerLoops.h. */
template <class Loop>
class LoopChannel {
public:
    explicit LoopChannel(Receiver& receiver)
        : _receiver(receiver)
    {}
    void send(int number)
    {
        _loop.post([this, number, text = noteTextUtf8] {
            benchmark::DoNotOptimize(text.data());
            _receiver.take(number);
        });
    }

private:
    Receiver& _receiver;
    Loop _loop;
};

/** Counts an iteration's messages and checks that they are the right ones. */
class Counter final : public Receiver {
public:
    void take(int number) override
    {
        _sum += number;
        if (++_count < messageCount)
            return;
        if (_sum != std::int64_t{messageCount} * (messageCount - 1) / 2)
            std::abort();
        _count = 0;
        _sum = 0;
        _complete.release();
    }
    void wait() { _complete.acquire(); }

private:
    std::binary_semaphore _complete{0};
    int _count = 0;
    std::int64_t _sum = 0;
};

template <class Channel>
void throughput(benchmark::State& state)
{
    const int producerCount = static_cast<int>(state.range(0));
    Counter counter;
    Channel channel(counter);
    for (auto _ : state) {
        std::vector<std::thread> producers;
        for (int producer = 0; producer < producerCount; ++producer) {
            producers.emplace_back([&channel, producer, producerCount] {
                for (int number = producer; number < messageCount; number += producerCount)
                    channel.send(number);
            });
        }
        counter.wait();
        for (std::thread& producer : producers)
            producer.join();
    }
    state.SetItemsProcessed(state.iterations() * messageCount);
}

/** Sends back what comes, one less, until none is left. */
template <class Channel>
class Echo final : public Receiver {
public:
    void take(int number) override
    {
        if (number > 0)
            target->send(number - 1);
        else
            _complete.release();
    }
    void wait() { _complete.acquire(); }

    Channel* target = nullptr; // set before anything is sent

private:
    std::binary_semaphore _complete{0};
};

template <class Channel>
void roundTrip(benchmark::State& state)
{
    Echo<Channel> ping, pong;
    Channel toPing(ping), toPong(pong);
    ping.target = &toPong;
    pong.target = &toPing;
    for (auto _ : state) {
        toPong.send(2 * roundTripCount - 1); // the odd ones go to pong, so the last one ends at ping
        ping.wait();
    }
    state.SetItemsProcessed(state.iterations() * roundTripCount);
}

// Dispatch.

class Sum final : public Receiver {
public:
    void take(int number) override { value += number; }
    void onNote(Note* note) { value += note->number; }

    long value = 0;
};

Sum g_sum;

void addToSum(Note* note) { g_sum.value += note->number; }

void dispatch(benchmark::State& state, const orvi::MessageHandler<void>& handler)
{
    orvi::MessageDispenser<void> dispenser;
    dispenser += handler;
    for (unsigned int id = 1; dispenser.getMessageHandlerCount() < state.range(0); ++id)
        dispenser += {id * 140000, handler.getCallbackHandler()}; // on both sides of the one that is called
    const Handle_T<Note> note = makeNote(1);
    for (auto _ : state) {
        dispenser.dispatchMessage(note);
        benchmark::DoNotOptimize(g_sum.value);
    }
}

void dispatchToFunction(benchmark::State& state) { dispatch(state, addToSum); }
void dispatchToMethod(benchmark::State& state) { dispatch(state, {&g_sum, &Sum::onNote}); }

#ifdef ORVI_BENCH_SIGNALS2
void emitSignal(benchmark::State& state)
{
    boost::signals2::signal<void(Note*)> signal;
    signal.connect(addToSum);
    const Handle_T<Note> note = makeNote(1);
    for (auto _ : state) {
        signal(note);
        benchmark::DoNotOptimize(g_sum.value);
    }
}
#endif

#ifdef ORVI_BENCH_QT
/** By a signal that comes with Qt and has one number. */
void emitQtSignal(benchmark::State& state)
{
    QBuffer sender;
    QObject::connect(&sender, &QIODevice::bytesWritten, [](qint64 number) { g_sum.value += number; });
    for (auto _ : state) {
        emit sender.bytesWritten(1);
        benchmark::DoNotOptimize(g_sum.value);
    }
}
#endif

void callVirtual(benchmark::State& state)
{
    Receiver* receiver = &g_sum;
    for (auto _ : state) {
        benchmark::DoNotOptimize(receiver);
        receiver->take(1);
        benchmark::DoNotOptimize(g_sum.value);
    }
}

void callFunction(benchmark::State& state)
{
    std::function<void(Note*)> function = addToSum;
    const Handle_T<Note> note = makeNote(1);
    for (auto _ : state) {
        benchmark::DoNotOptimize(function);
        function(note);
        benchmark::DoNotOptimize(g_sum.value);
    }
}

// The two ends of a queue on one thread, each alone. The argument is how many messages an iteration has: so few
// of the large ones that all of them stay in memory.

Handle_T<Message> makeEmpty() { return Empty::createInstance(); }
Handle_T<Message> makeSmall() { return makeNote(1); }
Handle_T<Message> makeBlob()
{
    const Handle_T<Blob> blob = Blob::createInstance();
    blob->bytes.setBufferSize(64 << 10);
    std::memset(blob->bytes.getBuffer(), 1, 64 << 10);
    return blob;
}

/** The same message over and over. */
template <Handle_T<Message> (*make)()>
void push(benchmark::State& state)
{
    MessagePort port;
    const Handle_T<Message> message = make();
    for (auto _ : state) {
        for (std::int64_t i = 0; i < state.range(0); ++i)
            port.pushMessage(message);
        state.PauseTiming();
        while (!port.popMessage().isNull()) {
        }
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <Handle_T<Message> (*make)()>
void pop(benchmark::State& state)
{
    MessagePort port;
    const Handle_T<Message> message = make();
    for (auto _ : state) {
        state.PauseTiming();
        for (std::int64_t i = 0; i < state.range(0); ++i)
            port.pushMessage(message);
        state.ResumeTiming();
        while (!port.popMessage().isNull()) {
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

class EventQueue {
public:
    void push(std::unique_ptr<Event> event)
    {
        const std::lock_guard guard(_mutex);
        _events.push_back(std::move(event));
    }
    std::unique_ptr<Event> pop()
    {
        const std::lock_guard guard(_mutex);
        if (_events.empty())
            return nullptr;
        auto event = std::move(_events.front());
        _events.pop_front();
        return event;
    }

private:
    std::mutex _mutex;
    std::deque<std::unique_ptr<Event>> _events;
};

/** Makes each event, which in the port is the work of the other end. */
void pushEvent(benchmark::State& state)
{
    EventQueue queue;
    for (auto _ : state) {
        for (std::int64_t i = 0; i < state.range(0); ++i)
            queue.push(std::make_unique<NoteEvent>(1));
        state.PauseTiming();
        while (queue.pop() != nullptr) {
        }
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void popEvent(benchmark::State& state)
{
    EventQueue queue;
    for (auto _ : state) {
        state.PauseTiming();
        for (std::int64_t i = 0; i < state.range(0); ++i)
            queue.push(std::make_unique<NoteEvent>(1));
        state.ResumeTiming();
        while (queue.pop() != nullptr) {
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// Packets: from a block of bytes into a stream of packets, and out of it into a block. One packet is under way.

void packets(benchmark::State& state)
{
    const auto size = static_cast<std::size_t>(state.range(0));
    const std::vector<char> data(size, 'x');
    std::vector<char> back(size);
    const auto wire = MemoryStream::createInstance();
    const auto body = MemoryStream::createInstance();
    orvi::PacketWriter writer;
    writer.attach(wire);
    orvi::PacketReader reader;
    reader.attach(wire);
    InputStream out(body), in;
    for (auto _ : state) {
        body->write(data.data(), static_cast<int>(size));
        writer << out;
        reader >> in;
        if (in.read(back.data(), static_cast<int>(size)) != static_cast<int>(size))
            std::abort();
        benchmark::DoNotOptimize(back.data());
    }
    state.SetItemsProcessed(state.iterations());
}

void framesInString(benchmark::State& state)
{
    const auto size = static_cast<std::size_t>(state.range(0));
    const std::vector<char> data(size, 'x');
    std::vector<char> back(size);
    std::string wire;
    for (auto _ : state) {
        const auto length = static_cast<std::uint32_t>(size);
        wire.append(reinterpret_cast<const char*>(&length), sizeof length);
        wire.append(data.data(), size);
        std::uint32_t arrived;
        std::memcpy(&arrived, wire.data(), sizeof arrived);
        const std::string packet(wire, sizeof arrived, arrived);
        wire.erase(0, sizeof arrived + arrived);
        std::memcpy(back.data(), packet.data(), packet.size());
        benchmark::DoNotOptimize(back.data());
    }
    state.SetItemsProcessed(state.iterations());
}

// Packages. Putting the bytes back into the stream is one copy of them in a thousand messages.

void analyse(benchmark::State& state)
{
    const auto stream = MemoryStream::createInstance();
    OutputStream output(stream);
    for (int i = 0; i < packageCount; ++i) {
        const Handle_T<Note> note = makeNote(i);
        output << note->getClassId();
        note->exportTo(output);
    }
    std::vector<char> bytes(static_cast<std::size_t>(stream->available()));
    stream->read(bytes.data(), static_cast<int>(bytes.size()));
    orvi::MessageReader reader;
    reader += addToSum;
    InputStream input(stream);
    for (auto _ : state) {
        stream->write(bytes.data(), static_cast<int>(bytes.size()));
        if (!reader.analyse(input))
            std::abort();
    }
    state.SetItemsProcessed(state.iterations() * packageCount);
}

/** What a program would write that knows its one block of bytes: an id, a number, a counted text. */
void analyseBlock(benchmark::State& state)
{
    std::string bytes;
    const auto append = [&bytes](const void* data, std::size_t size) {
        bytes.append(static_cast<const char*>(data), size);
    };
    for (int i = 0; i < packageCount; ++i) {
        const unsigned int id = Note::getClassId_();
        append(&id, sizeof id);
        append(&i, sizeof i);
        bytes += static_cast<char>(noteTextUtf8.size());
        bytes += noteTextUtf8;
    }
    const std::map<unsigned int, std::function<void(int, const std::string&)>> handlers{
        {Note::getClassId_(), [](int number, const std::string&) { g_sum.value += number; }}};
    for (auto _ : state) {
        const char* at = bytes.data();
        while (at != bytes.data() + bytes.size()) {
            unsigned int id;
            int number;
            std::memcpy(&id, at, sizeof id);
            std::memcpy(&number, at + sizeof id, sizeof number);
            at += sizeof id + sizeof number;
            const std::string text(at + 1, static_cast<unsigned char>(*at));
            at += 1 + text.size();
            handlers.find(id)->second(number, text);
        }
        benchmark::DoNotOptimize(g_sum.value);
    }
    state.SetItemsProcessed(state.iterations() * packageCount);
}

void producers(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgName("producers")
        ->Arg(1)
        ->Arg(2)
        ->Arg(4)
        ->UseRealTime()
        ->MeasureProcessCPUTime()
        ->Unit(benchmark::kMillisecond);
}

void trips(benchmark::internal::Benchmark* benchmark)
{
    benchmark->UseRealTime()->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);
}

void sizes(benchmark::internal::Benchmark* benchmark) { benchmark->Arg(100)->Arg(4000)->Arg(1 << 20); }

BENCHMARK(throughput<PortChannel<Idle::Polls>>)->Name("throughput/MessagePort_polled")->Apply(producers);
BENCHMARK(throughput<PortChannel<Idle::Waits>>)->Name("throughput/MessagePort_waiting")->Apply(producers);
BENCHMARK(throughput<ServedPortChannel>)->Name("throughput/MessagePort_served")->Apply(producers);
BENCHMARK(throughput<DequeChannel<Idle::Polls>>)->Name("throughput/deque_polled")->Apply(producers);
BENCHMARK(throughput<DequeChannel<Idle::Waits>>)->Name("throughput/deque_waiting")->Apply(producers);
#ifdef ORVI_BENCH_ASIO
BENCHMARK(throughput<LoopChannel<AsioLoop>>)->Name("throughput/asio")->Apply(producers);
#endif
#ifdef ORVI_BENCH_QT
BENCHMARK(throughput<LoopChannel<QtLoop>>)->Name("throughput/Qt_queued")->Apply(producers);
#endif
BENCHMARK(roundTrip<PortChannel<Idle::Polls>>)->Name("round_trip/MessagePort_polled")->Apply(trips);
BENCHMARK(roundTrip<PortChannel<Idle::Waits>>)->Name("round_trip/MessagePort_waiting")->Apply(trips);
BENCHMARK(roundTrip<ServedPortChannel>)->Name("round_trip/MessagePort_served")->Apply(trips);
BENCHMARK(roundTrip<DequeChannel<Idle::Polls>>)->Name("round_trip/deque_polled")->Apply(trips);
BENCHMARK(roundTrip<DequeChannel<Idle::Waits>>)->Name("round_trip/deque_waiting")->Apply(trips);
#ifdef ORVI_BENCH_ASIO
BENCHMARK(roundTrip<LoopChannel<AsioLoop>>)->Name("round_trip/asio")->Apply(trips);
#endif
#ifdef ORVI_BENCH_QT
BENCHMARK(roundTrip<LoopChannel<QtLoop>>)->Name("round_trip/Qt_queued")->Apply(trips);
#endif
BENCHMARK(dispatchToFunction)->Name("dispatch/function")->Arg(1)->Arg(50);
BENCHMARK(dispatchToMethod)->Name("dispatch/method")->Arg(1)->Arg(50);
#ifdef ORVI_BENCH_SIGNALS2
BENCHMARK(emitSignal)->Name("dispatch/signals2");
#endif
#ifdef ORVI_BENCH_QT
BENCHMARK(emitQtSignal)->Name("dispatch/Qt_direct");
#endif
BENCHMARK(callVirtual)->Name("dispatch/virtual_call");
BENCHMARK(callFunction)->Name("dispatch/std_function");
BENCHMARK(push<makeEmpty>)->Name("push/empty")->Arg(1000);
BENCHMARK(push<makeSmall>)->Name("push/two_members")->Arg(1000);
BENCHMARK(push<makeBlob>)->Name("push/64_KiB")->Arg(100);
BENCHMARK(pushEvent)->Name("push/deque_of_events")->Arg(1000);
BENCHMARK(pop<makeEmpty>)->Name("pop/empty")->Arg(1000);
BENCHMARK(pop<makeSmall>)->Name("pop/two_members")->Arg(1000);
BENCHMARK(pop<makeBlob>)->Name("pop/64_KiB")->Arg(100);
BENCHMARK(popEvent)->Name("pop/deque_of_events")->Arg(1000);
BENCHMARK(packets)->Name("packet/PacketWriter_PacketReader")->Apply(sizes);
BENCHMARK(framesInString)->Name("packet/std_string")->Apply(sizes);
BENCHMARK(analyse)->Name("packages/MessageReader");
BENCHMARK(analyseBlock)->Name("packages/block_by_hand");

} // namespace
