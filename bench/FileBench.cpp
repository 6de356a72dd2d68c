#include <benchmark/benchmark.h>

#include <orvi/core/File.h>

#include <cstdio>
#include <memory>

namespace {

constexpr int pieceSize = 100;
constexpr int pieces = 64 * 1024 * 1024 / pieceSize;

void finish(benchmark::State& state, bool complete)
{
    if (!complete)
        state.SkipWithError("the file failed");
    state.SetBytesProcessed(state.iterations() * 2 * pieces * pieceSize);
}

void writeAndRead(benchmark::State& state)
{
    char piece[pieceSize] = {};
    bool complete = true;
    for (auto _ : state) {
        const auto file = orvi::TempFile::createTempFile();
        if (file.isNull()) {
            state.SkipWithError("no file");
            break;
        }
        for (int i = 0; i < pieces; ++i)
            complete &= file->write(piece, pieceSize) == pieceSize;
        file->setPosition(0);
        for (int i = 0; i < pieces; ++i)
            complete &= file->read(piece, pieceSize) == pieceSize;
    }
    finish(state, complete);
}

void writeAndReadByStdio(benchmark::State& state)
{
    char piece[pieceSize] = {};
    bool complete = true;
    for (auto _ : state) {
        const std::unique_ptr<std::FILE, decltype(&std::fclose)> file(std::tmpfile(), std::fclose);
        if (file == nullptr) {
            state.SkipWithError("no file");
            break;
        }
        for (int i = 0; i < pieces; ++i)
            complete &= std::fwrite(piece, 1, pieceSize, file.get()) == pieceSize;
        std::rewind(file.get());
        for (int i = 0; i < pieces; ++i)
            complete &= std::fread(piece, 1, pieceSize, file.get()) == pieceSize;
    }
    finish(state, complete);
}

void inMillis(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK(writeAndRead)->Name("file/File")->Apply(inMillis);
BENCHMARK(writeAndReadByStdio)->Name("file/stdio")->Apply(inMillis);

} // namespace
