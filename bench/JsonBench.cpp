#include <benchmark/benchmark.h>

#include <orvi/core/Encoding.h>
#include <orvi/core/File.h>
#include <orvi/core/Json.h>
#include <orvi/core/MemoryFile.h>

#ifdef ORVI_BENCH_NLOHMANN
#include <nlohmann/json.hpp>
#endif
#ifdef ORVI_BENCH_RAPIDJSON
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#endif
#ifdef ORVI_BENCH_QT
#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#endif

#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

using orvi::Json;
using orvi::JsonValue;
using orvi::String;

namespace {

enum Kind { Mixed, Numbers, Strings };

/** A small generator of numbers, the same in every run. */
class Random {
public:
    unsigned int next(unsigned int below)
    {
        _state = _state * 6364136223846793005u + 1442695040888963407u;
        return static_cast<unsigned int>(_state >> 33) % below;
    }

private:
    unsigned long long _state = 1;
};

std::string word(Random& random, unsigned int longest)
{
    std::string text;
    for (unsigned int length = 1 + random.next(longest); length > 0; --length)
        text += static_cast<char>('a' + random.next(26));
    return text;
}

std::string sentence(Random& random, unsigned int words)
{
    std::string text;
    for (unsigned int i = 0; i < words; ++i)
        text += (i != 0 ? " " : "") + word(random, 9);
    switch (random.next(8)) {
    case 0:
        return text + "\\n";
    case 1:
        return text + "\xC3\xA9t\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC";
    case 2:
        return text + " \\\"so\\\"";
    default:
        return text;
    }
}

std::string number(Random& random)
{
    char text[40];
    switch (random.next(3)) {
    case 0:
        std::snprintf(text, sizeof text, "%u", random.next(1000000));
        break;
    case 1:
        std::snprintf(text, sizeof text, "%.2f", random.next(10000000) / 100.0);
        break;
    default:
        std::snprintf(text, sizeof text, "-%.15g", random.next(1u << 31) / 3e5);
    }
    return text;
}

std::string record(Random& random, Kind kind)
{
    if (kind == Numbers)
        return "[" + number(random) + "," + number(random) + "," + number(random) + "]";
    if (kind == Strings)
        return "{\"title\":\"" + sentence(random, 6) + "\",\"body\":\"" + sentence(random, 30) + "\"}";
    return "{\"id\":" + std::to_string(random.next(1u << 31)) + ",\"guid\":\"" + word(random, 30) +
           "\",\"isActive\":" + (random.next(2) != 0 ? "true" : "false") + ",\"balance\":" + number(random) +
           ",\"name\":{\"first\":\"" + word(random, 10) + "\",\"last\":\"" + word(random, 12) +
           "\"},\"about\":\"" + sentence(random, 12) + "\",\"latitude\":" + number(random) + ",\"tags\":[\"" +
           word(random, 8) + "\",\"" + word(random, 8) + "\",null],\"friends\":[{\"id\":0,\"name\":\"" +
           sentence(random, 2) + "\"}]}";
}

const std::string& document(Kind kind, std::size_t megabytes)
{
    static std::map<std::pair<Kind, std::size_t>, std::string> made;
    std::string& text = made[{kind, megabytes}];
    if (!text.empty())
        return text;
    Random random;
    while (text.size() < megabytes << 20)
        text += (text.empty() ? "[" : ",") + record(random, kind);
    return text += "]";
}

const std::string& document(const benchmark::State& state)
{
    return document(static_cast<Kind>(state.range(0)), static_cast<std::size_t>(state.range(1)));
}

String wide(const std::string& utf8);

std::size_t countValues(const JsonValue& value)
{
    std::size_t count = 1;
    for (int i = 0; i < value.size() && value.isArray(); ++i)
        count += countValues(value[i]);
    if (value.isObject())
        for (const auto& [key, member] : value.getMembers())
            count += countValues(member);
    return count;
}

/** Heap that `parse` leaves occupied, for each value of the document. */
template <class Parse>
void countBytes(benchmark::State& state, Parse parse)
{
    const String text = wide(document(state));
    JsonValue value;
    Json::parseValue(text, value);
    const auto values = static_cast<double>(countValues(value));
    const std::size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
    const auto parsed = parse();
    const std::size_t after = mallinfo2().uordblks + mallinfo2().hblkhd;
    state.counters["bytes/value"] = static_cast<double>(after - before) / values;
    benchmark::DoNotOptimize(&parsed);
}

void setBytes(benchmark::State& state)
{
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(document(state).size()));
}

void parseOrvi(benchmark::State& state)
{
    const String text = wide(document(state));
    const auto parse = [&text] {
        JsonValue value;
        if (Json::parseValue(text, value) == nullptr)
            std::abort();
        return value;
    };
    countBytes(state, parse);
    for (auto _ : state)
        parse();
    setBytes(state);
}

void printOrvi(benchmark::State& state)
{
    JsonValue value;
    Json::parseValue(wide(document(state)), value);
    for (auto _ : state)
        benchmark::DoNotOptimize(Json::convertToString(value, false).getBuffer());
    setBytes(state);
}

void readOrvi(benchmark::State& state)
{
    const std::string& text = document(state);
    const auto file = orvi::MemoryFile::createInstance();
    file->write(text.data(), static_cast<int>(text.size()));
    for (auto _ : state) {
        file->setPosition(0);
        JsonValue value;
        if (!Json::read(value, file))
            std::abort();
    }
    setBytes(state);
}

void loadOrvi(benchmark::State& state)
{
    const std::string& text = document(state);
    const auto file = orvi::TempFile::createTempFile();
    file->write(text.data(), static_cast<int>(text.size()));
    file->setPosition(0); // writes the buffer out
    for (auto _ : state) {
        JsonValue value;
        if (!Json::load(value, file->getFileName()))
            std::abort();
    }
    setBytes(state);
}

#ifdef ORVI_BENCH_NLOHMANN
void parseNlohmann(benchmark::State& state)
{
    const std::string& text = document(state);
    const auto parse = [&text] { return nlohmann::json::parse(text); };
    countBytes(state, parse);
    for (auto _ : state)
        parse();
    setBytes(state);
}

void printNlohmann(benchmark::State& state)
{
    const auto value = nlohmann::json::parse(document(state));
    for (auto _ : state)
        benchmark::DoNotOptimize(value.dump().data());
    setBytes(state);
}
#endif

#ifdef ORVI_BENCH_RAPIDJSON
void parseRapid(benchmark::State& state)
{
    const std::string& text = document(state);
    const auto parse = [&text] {
        rapidjson::Document value;
        value.Parse<rapidjson::kParseFullPrecisionFlag>(text.data(), text.size());
        return value;
    };
    countBytes(state, parse);
    for (auto _ : state)
        parse();
    setBytes(state);
}

void printRapid(benchmark::State& state)
{
    rapidjson::Document value;
    value.Parse(document(state).c_str());
    for (auto _ : state) {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        value.Accept(writer);
        benchmark::DoNotOptimize(buffer.GetString());
    }
    setBytes(state);
}
#endif

#ifdef ORVI_BENCH_QT
void parseQt(benchmark::State& state)
{
    const std::string& text = document(state);
    const QByteArray bytes(text.data(), static_cast<qsizetype>(text.size()));
    const auto parse = [&bytes] { return QJsonDocument::fromJson(bytes); };
    countBytes(state, parse);
    for (auto _ : state)
        parse();
    setBytes(state);
}

void printQt(benchmark::State& state)
{
    const std::string& text = document(state);
    const auto value = QJsonDocument::fromJson(QByteArray(text.data(), static_cast<qsizetype>(text.size())));
    for (auto _ : state)
        benchmark::DoNotOptimize(value.toJson(QJsonDocument::Compact).constData());
    setBytes(state);
}
#endif

String wide(const std::string& utf8) { return orvi::StringHelper::utf8ToWide(utf8.c_str()); }

void documents(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgNames({"kind", "MB"})->ArgsProduct({{Mixed, Numbers, Strings}, {1, 20}});
    benchmark->Unit(benchmark::kMillisecond);
}

#define ORVI_BENCH(function) BENCHMARK(function)->Apply(documents)

ORVI_BENCH(parseOrvi);
ORVI_BENCH(readOrvi);
ORVI_BENCH(loadOrvi);
#ifdef ORVI_BENCH_RAPIDJSON
ORVI_BENCH(parseRapid);
#endif
#ifdef ORVI_BENCH_NLOHMANN
ORVI_BENCH(parseNlohmann);
#endif
#ifdef ORVI_BENCH_QT
ORVI_BENCH(parseQt);
#endif
ORVI_BENCH(printOrvi);
#ifdef ORVI_BENCH_RAPIDJSON
ORVI_BENCH(printRapid);
#endif
#ifdef ORVI_BENCH_NLOHMANN
ORVI_BENCH(printNlohmann);
#endif
#ifdef ORVI_BENCH_QT
ORVI_BENCH(printQt);
#endif

} // namespace
