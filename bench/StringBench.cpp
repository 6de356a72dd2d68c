#include <benchmark/benchmark.h>

#include <orvi/core/Encoding.h>
#include <orvi/core/String.h>

#include <cstdio>
#include <cstring>
#include <iconv.h>
#include <memory>
#include <string>

using orvi::String;

namespace {

constexpr std::size_t mebibyte = 1024 * 1024;

template <class Text>
void copyText(benchmark::State& state, const Text& text)
{
    for (auto _ : state) {
        Text copy(text);
        benchmark::DoNotOptimize(copy);
    }
}

std::string letters(benchmark::State& state)
{
    return std::string(static_cast<std::size_t>(state.range(0)), 'x');
}

void copyString(benchmark::State& state)
{
    copyText(state, orvi::StringHelper::utf8ToWide(letters(state).c_str()));
}
void copyStdString(benchmark::State& state) { copyText(state, letters(state)); }
void copySharedString(benchmark::State& state)
{
    copyText(state, std::make_shared<const std::string>(letters(state)));
}

void formatString(benchmark::State& state)
{
    int number = 0;
    for (auto _ : state) {
        String text;
        text.format(L"%s: %d of %u, %08x", L"progress", ++number, 1000000u, 0xC0FFEEu);
        benchmark::DoNotOptimize(text.getBuffer());
    }
}

/** Like the other one it ends with a text of its own on the heap. */
void formatStdString(benchmark::State& state)
{
    int number = 0;
    for (auto _ : state) {
        char buffer[256];
        const int length = std::snprintf(buffer, sizeof buffer, "%s: %d of %u, %08x", "progress", ++number,
                                         1000000u, 0xC0FFEEu);
        std::string text(buffer, static_cast<std::size_t>(length));
        benchmark::DoNotOptimize(text.data());
    }
}

std::string repeated(const std::string& part)
{
    std::string text;
    while (text.size() + part.size() <= mebibyte)
        text += part;
    return text.append(mebibyte - text.size(), '.');
}

std::string asciiText() { return repeated("The quick brown fox jumps over the lazy dog. "); }
/** A part each of 1, 2, 3 and 4 bytes a character, as text in several languages has them. */
std::string mixedText()
{
    return repeated("Plain words, \xC3\xBC"
                    "ber \xD0\x96\xD0\xB8\xD0\xB7\xD0\xBD\xD1\x8C, "
                    "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E \xF0\x9F\x98\x80. ");
}

void toWide(benchmark::State& state, std::string (*make)())
{
    const std::string text = make();
    for (auto _ : state) {
        const String wide = orvi::StringHelper::utf8ToWide(text.c_str());
        benchmark::DoNotOptimize(wide.getBuffer());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(mebibyte));
}

void toWideByIconv(benchmark::State& state, std::string (*make)())
{
    std::string text = make();
    const iconv_t converter = iconv_open("UTF-16LE", "UTF-8");
    for (auto _ : state) {
        const std::unique_ptr<char[]> wide(new char[2 * mebibyte]);
        char* source = text.data();
        std::size_t sourceLeft = text.size();
        char* target = wide.get();
        std::size_t targetLeft = 2 * mebibyte;
        if (iconv(converter, &source, &sourceLeft, &target, &targetLeft) != 0)
            state.SkipWithError("the text did not convert");
        benchmark::DoNotOptimize(wide.get());
        benchmark::ClobberMemory();
    }
    iconv_close(converter);
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(mebibyte));
}

/** The floor: the bytes as they are. */
void copyBytes(benchmark::State& state)
{
    const std::string text = asciiText();
    for (auto _ : state) {
        const std::unique_ptr<char[]> copy(new char[mebibyte]);
        std::memcpy(copy.get(), text.data(), mebibyte);
        benchmark::DoNotOptimize(copy.get());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(mebibyte));
}

template <class Copy>
void copyBlock(benchmark::State& state, Copy copy)
{
    const auto size = static_cast<unsigned int>(state.range(0));
    const std::string source(size, 'x');
    std::string target(size, ' ');
    for (auto _ : state) {
        copy(target.data(), source.data(), size);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
}

void ourCopy(benchmark::State& state)
{
    copyBlock(state, [](void* to, const void* from, unsigned int size) { orvi::__memcpy__(to, from, size); });
}
void libraryCopy(benchmark::State& state)
{
    copyBlock(state, [](void* to, const void* from, unsigned int size) { std::memcpy(to, from, size); });
}

BENCHMARK(copyString)->Name("string_copy/String")->Arg(40)->Arg(4000);
BENCHMARK(copyStdString)->Name("string_copy/std_string")->Arg(40)->Arg(4000);
BENCHMARK(copySharedString)->Name("string_copy/shared_ptr")->Arg(40)->Arg(4000);
BENCHMARK(formatString)->Name("string_format/String");
BENCHMARK(formatStdString)->Name("string_format/snprintf");
BENCHMARK_CAPTURE(toWide, ascii, asciiText)->Name("utf8_to_wide/ascii/StringHelper");
BENCHMARK_CAPTURE(toWideByIconv, ascii, asciiText)->Name("utf8_to_wide/ascii/iconv");
BENCHMARK_CAPTURE(toWide, mixed, mixedText)->Name("utf8_to_wide/mixed/StringHelper");
BENCHMARK_CAPTURE(toWideByIconv, mixed, mixedText)->Name("utf8_to_wide/mixed/iconv");
BENCHMARK(copyBytes)->Name("utf8_to_wide/floor/memcpy");
BENCHMARK(ourCopy)->Name("block_copy/__memcpy__")->Arg(64)->Arg(4096)->Arg(mebibyte);
BENCHMARK(libraryCopy)->Name("block_copy/std_memcpy")->Arg(64)->Arg(4096)->Arg(mebibyte);

} // namespace
