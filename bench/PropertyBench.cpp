#include <benchmark/benchmark.h>

#include <orvi/core/Json.h>
#include <orvi/core/Property.h>
#include <orvi/core/PropertyHelper.h>

using namespace orvi;

namespace {

/** Ten numbers, as the least that a property can cost. */
class Reading : public Property {
    ORVI_DECLARE_PROPERTY(Reading, Property);

public:
    static constexpr int properties = 10;
    int a = 1, b = 2, c = 3, d = 4, e = 5, f = 6, g = 7, h = 8, i = 9, j = 10;
};
ORVI_DEFINE_PROPERTY(Reading)
{
    table.add(L"a", &Reading::a);
    table.add(L"b", &Reading::b);
    table.add(L"c", &Reading::c);
    table.add(L"d", &Reading::d);
    table.add(L"e", &Reading::e);
    table.add(L"f", &Reading::f);
    table.add(L"g", &Reading::g);
    table.add(L"h", &Reading::h);
    table.add(L"i", &Reading::i);
    table.add(L"j", &Reading::j);
}

void exportNumbers(benchmark::State& state)
{
    const auto reading = Reading::createInstance();
    for (auto _ : state) {
        JsonValue document;
        reading->exportProperty(document);
        benchmark::DoNotOptimize(document.size());
    }
    state.SetItemsProcessed(state.iterations() * Reading::properties);
}

void importNumbers(benchmark::State& state)
{
    const auto reading = Reading::createInstance();
    JsonValue document;
    reading->exportProperty(document);
    for (auto _ : state)
        reading->importProperty(document);
    state.SetItemsProcessed(state.iterations() * Reading::properties);
}

void findConverter(benchmark::State& state)
{
    const String name = typeName(typeid(int));
    for (auto _ : state)
        benchmark::DoNotOptimize(PropertyFactory::getPropertyConverterByRttiClassName(name));
}

// The text of the same document, for the measure of it: parsing and printing.
void parseText(benchmark::State& state)
{
    const String text = PropertyHelper::convertToString(Reading::createInstance(), false);
    for (auto _ : state) {
        JsonValue document;
        Json::parseValue(text, document);
    }
    state.SetItemsProcessed(state.iterations() * Reading::properties);
}

void printText(benchmark::State& state)
{
    JsonValue document;
    Reading::createInstance()->exportProperty(document);
    for (auto _ : state)
        benchmark::DoNotOptimize(Json::convertToString(document, false).getBuffer());
    state.SetItemsProcessed(state.iterations() * Reading::properties);
}

BENCHMARK(exportNumbers)->Name("property/export");
BENCHMARK(importNumbers)->Name("property/import");
BENCHMARK(findConverter)->Name("property/find converter");
BENCHMARK(parseText)->Name("property/peer: parse the text");
BENCHMARK(printText)->Name("property/peer: print the text");

} // namespace
