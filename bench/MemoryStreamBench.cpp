#include <benchmark/benchmark.h>

#include <orvi/core/MemoryStream.h>
#include <orvi/core/String.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <string>

using orvi::InputStream;
using orvi::MemoryStream;
using orvi::OutputStream;
using orvi::String;
using orvi::String_T;

namespace {

constexpr int pieceSize = 1000;
constexpr std::int64_t gibibyte = 1 << 30;

template <class T>
void streamText(benchmark::State& state, const String_T<T>& text)
{
    const auto stream = MemoryStream::createInstance();
    OutputStream output(stream);
    InputStream input(stream);
    String_T<T> back;
    for (auto _ : state) {
        output << text;
        input >> back;
        benchmark::DoNotOptimize(back.getBuffer());
    }
}

void streamWide(benchmark::State& state)
{
    streamText(state, String(L"A line of text, of forty characters: 40."));
}
void streamUtf8(benchmark::State& state)
{
    streamText(state, String_T<char>("A line of text, of forty characters: 40."));
}

/** A length and the bytes behind one another in a string, and a new string out of them. */
void appendText(benchmark::State& state)
{
    const std::string text = "A line of text, of forty characters: 40.";
    std::string buffer;
    for (auto _ : state) {
        buffer.clear();
        const auto size = static_cast<std::uint32_t>(text.size());
        buffer.append(reinterpret_cast<const char*>(&size), sizeof size);
        buffer.append(text);
        benchmark::DoNotOptimize(buffer.data());
        std::uint32_t backSize;
        std::memcpy(&backSize, buffer.data(), sizeof backSize);
        std::string back(buffer.data() + sizeof backSize, backSize);
        benchmark::DoNotOptimize(back.data());
    }
}

class StreamQueue {
public:
    void write(const char* data) { _stream->write(data, pieceSize); }
    void read(char* buffer) { _stream->read(buffer, pieceSize); }

private:
    orvi::Handle_T<MemoryStream> _stream = MemoryStream::createInstance();
};

class DequeQueue {
public:
    void write(const char* data) { _bytes.insert(_bytes.end(), data, data + pieceSize); }
    void read(char* buffer)
    {
        std::copy_n(_bytes.begin(), pieceSize, buffer);
        _bytes.erase(_bytes.begin(), _bytes.begin() + pieceSize);
    }

private:
    std::deque<char> _bytes;
};

/** Sends `bytes` through, with at most `backlog` pieces unread. */
template <class Queue>
void sendThrough(benchmark::State& state)
{
    const std::int64_t pieces = state.range(0) / pieceSize;
    const std::int64_t backlog = state.range(1);
    char data[pieceSize] = {}, buffer[pieceSize];
    for (auto _ : state) {
        Queue queue;
        for (std::int64_t done = 0; done < pieces; done += backlog) {
            const std::int64_t count = std::min(backlog, pieces - done);
            for (std::int64_t i = 0; i < count; ++i)
                queue.write(data);
            for (std::int64_t i = 0; i < count; ++i) {
                queue.read(buffer);
                benchmark::DoNotOptimize(buffer);
            }
        }
    }
    state.SetBytesProcessed(state.iterations() * pieces * pieceSize);
}

/** One piece, some 1 MB and some 64 MB unread: the last is beyond what a stream keeps in memory. */
void sizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Args({gibibyte, 1})->Args({gibibyte, 1000})->Args({gibibyte / 16, 67108});
    benchmark->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK(streamWide)->Name("text_through_stream/String");
BENCHMARK(streamUtf8)->Name("text_through_stream/String_T_char");
BENCHMARK(appendText)->Name("text_through_stream/std_string");
BENCHMARK(sendThrough<StreamQueue>)->Name("bytes_through/MemoryStream")->Apply(sizes);
BENCHMARK(sendThrough<DequeQueue>)->Name("bytes_through/deque")->Apply(sizes);

} // namespace
