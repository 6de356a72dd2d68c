#include "JsonText.h"
#include "RecordingLog.h"
#include "TextPrinting.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>
#include <random>
#include <type_traits>
#include <utility>
#include <vector>

using namespace orvi;

static_assert(!std::is_constructible_v<JsonValue, const char*>, "it would be a bool");
static_assert(!std::is_constructible_v<JsonValue, int*> && !std::is_constructible_v<JsonValue, void*>);

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

/** The text with NULs inside. */
template <int size>
String withNuls(const wchar_t (&text)[size])
{
    return String(text, size - 1);
}

/** Checks the test and the conversion of one integer type: what fits, what is said, what comes out. */
template <class T>
void checkInteger(const String& name, bool (JsonValue::*is)() const, T (JsonValue::*as)() const)
{
    constexpr T lowest = std::numeric_limits<T>::min(), highest = std::numeric_limits<T>::max();
    const auto low = static_cast<double>(lowest);
    const auto high = static_cast<double>(highest); // of 64 bits the next power of two
    const double below = std::nextafter(high, 0.0);
    const double step = sizeof(T) == 8 ? high / 1024 : 0.5;
    const auto check = [&](const JsonValue& value, bool fits, T expected, const String& warning = {}) {
        CAPTURE(name);
        CAPTURE(compact(value));
        const RecordingLog log;
        CHECK((value.*is)() == fits);
        CHECK((value.*as)() == expected);
        CHECK(log.warnings() == std::vector<String>(warning.isEmpty() ? 0 : 1, warning));
    };
    const String outside = L"double out of " + name + L" range";
    check(low, true, lowest);
    check(high, true, highest);
    check(below, sizeof(T) == 8, static_cast<T>(below));
    check(low - step, false, lowest, outside);
    for (const double above : {high + step, infinity})
        check(above, false, highest, outside);
    check(notANumber, false, 0, outside);
    check(-0.0, true, 0);
    check(-2.5, false, lowest == 0 ? T() : static_cast<T>(-2), lowest == 0 ? outside : String());
    check({}, false, 0);
    check(L" \t-12abc", false, static_cast<T>(-12));
    check(L"99999999999999999999", false, static_cast<T>(std::numeric_limits<std::int64_t>::max()));
    check(JsonValue::arrayValue, false, 0, L"Value is not convertible to " + name);
    const auto checkStored = [&](auto number, const wchar_t* kind) {
        const bool fits = std::in_range<T>(number);
        check(number, fits, static_cast<T>(number),
              fits ? String() : kind + (L" out of " + name) + L" range");
    };
    for (int bits = 0; bits < 64; ++bits) {
        for (const unsigned long long number : {(1ull << bits) - 1, 1ull << bits, ~0ull << bits}) {
            checkStored(number, L"uintValue");
            checkStored(static_cast<long long>(number), L"intValue");
        }
    }
}

} // namespace

TEST_CASE("a document is built, read and walked as plain code reads")
{
    JsonValue order;
    order[L"id"] = 7;
    order[L"lines"][0][L"article"] = L"pen";
    order[L"lines"][1] = order[L"lines"][0];
    CHECK(compact(order) == L"{\"id\":7,\"lines\":[{\"article\":\"pen\"},{\"article\":\"pen\"}]}");
    const JsonValue& read = order;
    const String article = read[L"lines"][0][L"article"];
    CHECK((article == L"pen" && read[L"id"] == 7u && 7l == read[L"id"] &&
           L"pen" == read[L"lines"][1][L"article"]));
    CHECK((!read[L"absent"][3][L"more"] && read[0].isNull() && read.size() == 2));
    CHECK(read.getMembers().find(L"sun") == read.getMembers().end());
    CHECK((read.getMembers().count(L"id") == 1 && read.getMembers().count(L"ie") == 0));
    CHECK(JsonValue(JsonValue::objectValue).getMembers().begin() == JsonValue().getMembers().end());
}

TEST_CASE("each kind of argument makes its kind of value")
{
    using enum JsonValue::ValueType;
    const struct {
        JsonValue value;
        JsonValue::ValueType type;
        const wchar_t* text;
        bool isTrue;
        double number;
    } rows[] = {
        {{}, nullValue, L"", false, 0},
        {static_cast<signed char>(-1), intValue, L"-1", true, -1},
        {4000000000u, intValue, L"4000000000", true, 4e9},
        {~0ul, uintValue, L"18446744073709551615", true, 18446744073709551616.},
        {LLONG_MIN, intValue, L"-9223372036854775808", true, -9223372036854775808.},
        {0.1f, realValue, L"0.1000000014901161", true, 0.1f},
        {-0.0, realValue, L"-0", false, 0},
        {infinity, realValue, L"inf", true, infinity},
        {static_cast<const wchar_t*>(nullptr), stringValue, L"", false, 0},
        {String(L" -1.5e2x"), stringValue, L" -1.5e2x", false, -150},
        {L"-INF", stringValue, L"-INF", false, -infinity},
        {intValue, intValue, L"0", false, 0},
    };
    const RecordingLog log;
    for (const auto& row : rows) {
        CAPTURE(row.text);
        const JsonValue value = row.value;
        CHECK((value.type() == row.type && value.empty() == (row.type == nullValue)));
        CHECK((value.asString() == row.text && value.asBool() == row.isTrue));
        CHECK((value.asDouble() == row.number && value.asFloat() == static_cast<float>(row.number)));
    }
    CHECK((JsonValue(notANumber).asBool() && log.lines().empty()));
    for (const JsonValue& value : {JsonValue(arrayValue), JsonValue(objectValue)}) {
        log.clear();
        CHECK((value.empty() && value.asFloat() == 0 && value.asDouble() == 0 && !value.asBool()));
        CHECK(value.asString() == (value.isArray() ? L"[]" : L"{}"));
        CHECK(log.warnings().size() == 3);
    }
}

TEST_CASE("a number converts to each integer type as its range allows")
{
    checkInteger(L"Int8", &JsonValue::isInt8, &JsonValue::asInt8);
    checkInteger(L"UInt8", &JsonValue::isUInt8, &JsonValue::asUInt8);
    checkInteger(L"Int16", &JsonValue::isInt16, &JsonValue::asInt16);
    checkInteger(L"UInt16", &JsonValue::isUInt16, &JsonValue::asUInt16);
    checkInteger(L"Int32", &JsonValue::isInt32, &JsonValue::asInt32);
    checkInteger(L"UInt32", &JsonValue::isUInt32, &JsonValue::asUInt32);
    checkInteger(L"Int64", &JsonValue::isInt64, &JsonValue::asInt64);
    checkInteger(L"UInt64", &JsonValue::isUInt64, &JsonValue::asUInt64);
}

TEST_CASE("values of one kind compare by content, of two kinds by their texts")
{
    JsonValue sparse, other;
    sparse[1] = 1;
    other[2] = 1;
    const struct {
        JsonValue left, right;
        bool isEqual, isEqualReversed;
    } rows[] = {
        {{}, L"", false, true},
        {-0.0, 0.0, true, true},
        {0.1 + 0.2, 0.3, false, false}, // of the same text
        {notANumber, notANumber, false, false},
        {notANumber, JsonValue(notANumber).asString(), true, true},
        {12, withNuls(L"12\0x"), false, false},
        {withNuls(L"a\0c"), withNuls(L"a\0b"), false, false},
        {parsed(L"[1,2]"), parsed(L"[1.0,\"2\"]"), true, true},
        {sparse, other, false, false},
        {parsed(L"[1, 2]"), L"[1,2]", true, true},
        {JsonValue::arrayValue, JsonValue::objectValue, false, false},
        {parsed(L"[\"\"]"), parsed(L"[null]"), false, true}, // the sides change with each level
        {parsed(L"[{\"a\":\"\"}]"), parsed(L"[{\"a\":null}]"), true, false},
    };
    for (const auto& row : rows) {
        CAPTURE(compact(row.left));
        CHECK(((row.left == row.right) == row.isEqual && (row.right == row.left) == row.isEqualReversed));
    }
}

TEST_CASE("an entry stays in its place while others are added, and copies have them all")
{
    for (const int step : {1, 7, -31}) { // in order, out of order, backwards and below 0
        CAPTURE(step);
        JsonValue array, object;
        std::vector<std::pair<JsonValue*, JsonValue*>> places;
        for (int i = 0; i < 700; ++i) {
            const int key = step == 7 ? i * step % 701 : i * step;
            places.emplace_back(&array[key], &object[convertToString(key)]);
            *places.back().first = *places.back().second = i;
        }
        REQUIRE((array.size() == 700 && object.size() == 700));
        int expected = 0;
        for (const auto& [element, member] : places)
            REQUIRE((*element == expected && *member == expected++));
        const JsonValue copies[] = {array, object};
        CHECK((copies[0] == array && copies[1] == object));
        array[step] = object[convertToString(step)] = L"changed";
        CHECK((copies[0] != array && copies[1] != object));
    }
    JsonValue array = JsonValue::arrayValue;
    array[5];
    CHECK((std::as_const(array)[2].isNull() && array.size() == 1));
    array[std::numeric_limits<int>::min()] = 1;
    array[std::numeric_limits<int>::max()] = 2;
    array[1] = L"one";
    CHECK(compact(array) == L"[null,\"one\",null,null]");
    const JsonValue copy = array;
    CHECK((copy[std::numeric_limits<int>::min()] == 1 && copy[std::numeric_limits<int>::max()] == 2));
}

TEST_CASE("members are ordered by the code units of their keys")
{
    const String keys[] = {
        L"",  withNuls(L"\0a"), withNuls(L"\0aa"), L"Z",      L"a",     withNuls(L"a\0b"), L"ab",
        L"b", L"\x00E9",        L"\xD83D\xDE00",   L"\xE000", L"\xFFFF"};
    std::vector<int> order(std::size(keys));
    std::iota(order.begin(), order.end(), 0);
    std::mt19937 random(1);
    for (int round = 0; round < 50; ++round) {
        JsonValue object;
        for (const int i : order)
            object[keys[i]] = i;
        REQUIRE(object.size() == static_cast<int>(order.size()));
        int expected = 0;
        for (const auto& [key, member] : object.getMembers()) {
            REQUIRE(object.getMembers().find(keys[expected])->second == expected);
            REQUIRE(object[keys[expected]] == expected);
            REQUIRE(member == expected++);
        }
        REQUIRE((object[static_cast<const wchar_t*>(nullptr)] == 0 && JsonValue(object) == object));
        REQUIRE(object[L"a\0b"] == 4); // a plain text ends at its NUL
        std::shuffle(order.begin(), order.end(), random);
    }
}

TEST_CASE("copies are independent, and a value may be assigned from a part of itself")
{
    const JsonValue source = parsed(L"{\"a\":[1,{\"b\":2}],\"c\":\"x\"}");
    JsonValue copy = source;
    copy[L"a"][1][L"b"] = 3;
    copy[L"d"];
    CHECK(compact(source) == L"{\"a\":[1,{\"b\":2}],\"c\":\"x\"}");
    CHECK(compact(copy) == L"{\"a\":[1,{\"b\":3}],\"c\":\"x\",\"d\":null}");
    JsonValue moved = std::move(copy);
    CHECK(moved.size() == 3);

    using Value = JsonValue&;
    const struct {
        const wchar_t* before;
        void (*change)(Value);
        const wchar_t* after;
    } rows[] = {
        {L"[1,[2]]", [](Value v) { v = static_cast<const JsonValue&>(v); }, L"[1,[2]]"},
        {L"[[2,\"x\"]]", [](Value v) { v = std::move(v[0]); }, L"[2,\"x\"]"},
        {L"{\"a\":\"x\"}", [](Value v) { v = std::move(v[L"a"]); }, L"\"x\""},
        {L"{\"a\":1}", [](Value v) { v[L"x"] = v; }, L"{\"a\":1,\"x\":{\"a\":1,\"x\":null}}"},
        {L"[{\"k\":1}]", [](Value v) { v[v[0].getMembers().begin()->first] = 1; }, L"{\"k\":1}"},
        {L"\"key\"", [](Value v) { v[v.asString().getBuffer()] = 1; }, L"{\"key\":1}"},
        {L"7", [](Value v) { v[0]; }, L"[null]"},
        {L"[7]", [](Value v) { v[L"a"]; }, L"{\"a\":null}"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.before);
        JsonValue value = parsed(row.before);
        row.change(value);
        CHECK(compact(value) == row.after);
    }
}

TEST_CASE("deep values are destroyed, copied, compared and printed")
{
    constexpr int levels = 300'000; // more than a stack has room for
    JsonValue value = 7;
    for (int i = 0; i < levels; ++i) { // arrays and objects in turn
        JsonValue outer;
        (i % 2 == 0 ? outer[0] : outer[L"a"]).swap(value);
        value = std::move(outer);
    }
    JsonValue copy = value;
    CHECK(copy == value);
    const String text = compact(copy);
    CHECK(text.getLength() == levels / 2 * 2 + levels / 2 * 6 + 1);
    copy = text;
    CHECK(copy == value); // by the texts
}
