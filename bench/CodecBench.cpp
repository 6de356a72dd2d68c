#include <benchmark/benchmark.h>

#include <orvi/core/Base64.h>
#include <orvi/core/Digest.h>

#include <cstring>
#include <memory>
#include <vector>

#ifdef ORVI_BENCH_CRYPTO
#include <openssl/evp.h>
#endif

using orvi::String;

namespace {

constexpr int dataSize = 16 * 1024 * 1024;

const std::vector<unsigned char>& data()
{
    static const std::vector<unsigned char> bytes = [] {
        std::vector<unsigned char> fresh(dataSize);
        unsigned int next = 1;
        for (auto& byte : fresh)
            byte = static_cast<unsigned char>((next = next * 1664525 + 1013904223) >> 24);
        return fresh;
    }();
    return bytes;
}

void setBytes(benchmark::State& state) { state.SetBytesProcessed(state.iterations() * dataSize); }

void md5(benchmark::State& state)
{
    const auto& bytes = data();
    unsigned char digest[16];
    for (auto _ : state) {
        orvi::MD5Context context;
        orvi::MD5Init(&context);
        orvi::MD5Update(&context, bytes.data(), dataSize);
        orvi::MD5Final(digest, &context);
        benchmark::DoNotOptimize(digest);
    }
    setBytes(state);
}

// Also at a size whose text the allocator keeps: that of all the data comes fresh from the system each time.
void encode(benchmark::State& state)
{
    const auto& bytes = data();
    const auto size = static_cast<int>(state.range(0));
    for (auto _ : state) {
        const String text = orvi::base64_encode(bytes.data(), size);
        benchmark::DoNotOptimize(text.getBuffer());
    }
    state.SetBytesProcessed(state.iterations() * size);
}

void decode(benchmark::State& state)
{
    const String text = orvi::base64_encode(data().data(), dataSize);
    std::vector<unsigned char> bytes(dataSize + 3);
    for (auto _ : state) {
        orvi::base64_decode(text, bytes.data());
        benchmark::ClobberMemory();
    }
    setBytes(state);
}

#ifdef ORVI_BENCH_CRYPTO
/** With the NUL that the peer writes. */
constexpr std::size_t encodedSize(int size) { return (static_cast<std::size_t>(size) + 2) / 3 * 4 + 1; }

void cryptoMd5(benchmark::State& state)
{
    const auto& bytes = data();
    unsigned char digest[EVP_MAX_MD_SIZE];
    for (auto _ : state) {
        EVP_Digest(bytes.data(), dataSize, digest, nullptr, EVP_md5(), nullptr);
        benchmark::DoNotOptimize(digest);
    }
    setBytes(state);
}

void cryptoEncode(benchmark::State& state)
{
    const auto& bytes = data();
    const auto size = static_cast<int>(state.range(0));
    for (auto _ : state) {
        const std::unique_ptr<unsigned char[]> text(new unsigned char[encodedSize(size)]);
        EVP_EncodeBlock(text.get(), bytes.data(), size);
        benchmark::DoNotOptimize(text.get());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * size);
}

void cryptoDecode(benchmark::State& state)
{
    std::vector<unsigned char> text(encodedSize(dataSize));
    EVP_EncodeBlock(text.data(), data().data(), dataSize);
    std::vector<unsigned char> bytes(dataSize + 3);
    for (auto _ : state) {
        EVP_DecodeBlock(bytes.data(), text.data(), static_cast<int>(text.size()) - 1);
        benchmark::ClobberMemory();
    }
    setBytes(state);
}
#endif

/** The floor: reading and writing the bytes once. */
void copyBytes(benchmark::State& state)
{
    const auto& bytes = data();
    std::vector<unsigned char> copy(dataSize);
    for (auto _ : state) {
        std::memcpy(copy.data(), bytes.data(), dataSize);
        benchmark::ClobberMemory();
    }
    setBytes(state);
}

void inMillis(benchmark::internal::Benchmark* benchmark) { benchmark->Unit(benchmark::kMillisecond); }

BENCHMARK(md5)->Name("md5/MD5Update")->Apply(inMillis);
BENCHMARK(encode)->Name("base64/encode/base64_encode")->Apply(inMillis)->Arg(dataSize / 16)->Arg(dataSize);
BENCHMARK(decode)->Name("base64/decode/base64_decode")->Apply(inMillis);
#ifdef ORVI_BENCH_CRYPTO
BENCHMARK(cryptoMd5)->Name("md5/libcrypto")->Apply(inMillis);
BENCHMARK(cryptoEncode)->Name("base64/encode/libcrypto")->Apply(inMillis)->Arg(dataSize / 16)->Arg(dataSize);
BENCHMARK(cryptoDecode)->Name("base64/decode/libcrypto")->Apply(inMillis);
#endif
BENCHMARK(copyBytes)->Name("md5_base64_floor/memcpy")->Apply(inMillis);

} // namespace
