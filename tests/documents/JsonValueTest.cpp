#include "RecordingLog.h"
#include "TextPrinting.h"
#include "WideUnits.h"

#include <orvi/core/Json.h>
#include <orvi/core/JsonValue.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <numeric>
#include <random>
#include <type_traits>
#include <utility>
#include <vector>

using orvi::Json;
using orvi::JsonValue;
using orvi::String;

static_assert(std::is_nothrow_move_constructible_v<JsonValue> &&
              std::is_nothrow_move_assignable_v<JsonValue>);
static_assert(!std::is_constructible_v<JsonValue, const char*>, "it would be a bool");
static_assert(!std::is_constructible_v<JsonValue, int*> && !std::is_constructible_v<JsonValue, void*>);
static_assert(sizeof(JsonValue) == 16);

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

JsonValue parse(const wchar_t* text)
{
    JsonValue value;
    REQUIRE(Json::parseValue(text, value) != nullptr);
    return value;
}

String compact(const JsonValue& value) { return Json::convertToString(value, false); }

/** The text with NULs inside. */
template <std::size_t size>
String withNuls(const wchar_t (&text)[size])
{
    return String(text, static_cast<int>(size) - 1);
}

/** Checks the test and the conversion of one integer type: what fits, what is said, what comes out. */
template <class T>
void checkInteger(const String& name, bool (JsonValue::*is)() const, T (JsonValue::*as)() const)
{
    constexpr T lowest = std::numeric_limits<T>::min();
    constexpr T highest = std::numeric_limits<T>::max();
    const RecordingLog log;
    const auto check = [&](const JsonValue& value, bool fits, T expected, const String& warning) {
        CAPTURE(name);
        CAPTURE(compact(value));
        log.clear();
        CHECK((value.*is)() == fits);
        CHECK((value.*as)() == expected);
        CHECK(log.lines().size() == (warning.isEmpty() ? 0 : 1));
        CHECK(log.warnings() == (warning.isEmpty() ? std::vector<String>() : std::vector{warning}));
    };
    const auto checkStored = [&](auto number, const wchar_t* kind) {
        const bool fits = std::in_range<T>(number);
        check(number, fits, static_cast<T>(number), fits ? L"" : kind + (L" out of " + name) + L" range");
    };
    for (int bits = 0; bits < 64; ++bits) {
        for (const unsigned long long number :
             {(1ull << bits) - 1, 1ull << bits, ~0ull << bits, ~(1ull << bits)}) {
            checkStored(number, L"uintValue");
            checkStored(static_cast<long long>(number), L"intValue");
        }
    }
    const double low = static_cast<double>(lowest);
    const double high = static_cast<double>(highest); // of 64 bits the next power of two
    const double below = std::nextafter(high, 0.0);
    const double step = sizeof(T) == 8 ? high / 1024 : 0.5;
    const String outside = L"double out of " + name + L" range";
    check(low, true, lowest, L"");
    check(high, true, highest, L"");
    check(below, sizeof(T) == 8, static_cast<T>(below), L"");
    check(low - step, false, lowest, outside);
    check(high + step, false, highest, outside);
    check(-infinity, false, lowest, outside);
    check(infinity, false, highest, outside);
    check(notANumber, false, 0, outside);
    check(2.5, false, 2, L"");
    check(3.0f, true, 3, L"");
    check(-0.0, true, 0, L"");
    check(-2.5, false, lowest == 0 ? T() : static_cast<T>(-2), lowest == 0 ? outside : L"");

    check(JsonValue(), false, 0, L"");
    check(true, false, 1, L"");
    check(L" \t-12abc", false, static_cast<T>(-12), L"");
    check(L"+7.9", false, 7, L"");
    check(L"true", false, 0, L"");
    check(L"99999999999999999999", false, static_cast<T>(std::numeric_limits<std::int64_t>::max()), L"");
    check(JsonValue::arrayValue, false, 0, L"Value is not convertible to " + name);
    check(JsonValue::objectValue, false, 0, L"Value is not convertible to " + name);
}

/** Containers within each other: arrays and objects in turn. */
JsonValue nest(int levels)
{
    JsonValue value = 7;
    for (int i = 0; i < levels; ++i) {
        JsonValue outer;
        (i % 2 == 0 ? outer[0] : outer[L"a"]).swap(value);
        value = std::move(outer);
    }
    return value;
}

} // namespace

TEST_CASE("a document is built, read and walked as plain code reads")
{
    JsonValue order;
    order[L"id"] = 7;
    order[L"lines"][0][L"article"] = L"pen";
    order[L"lines"][1][L"article"] = String(L"ink");
    order[L"paid"] = true;
    order[L"sum"] = 2.5;
    CHECK(compact(order) == L"{\"id\":7,\"lines\":[{\"article\":\"pen\"},{\"article\":\"ink\"}],"
                            L"\"paid\":true,\"sum\":2.5}");

    const JsonValue& read = order;
    const String article = read[L"lines"][0][L"article"];
    CHECK(article == L"pen");
    String assigned;
    assigned = read[L"lines"][1][L"article"];
    CHECK(assigned == L"ink");
    const int id = read[L"id"];
    const double sum = read[L"sum"];
    const unsigned long wide = read[L"id"];
    CHECK((id == 7 && sum == 2.5 && wide == 7));
    CHECK((read[L"paid"] ? true : false));
    if (read[L"absent"][3][L"more"])
        FAIL("null is false");
    CHECK(read[L"absent"][3][L"more"].isNull());
    CHECK(read[0].isNull());
    CHECK(read.size() == 4);

    CHECK((read[L"id"] == 7 && 7 == read[L"id"] && read[L"id"] != 5 && 5 != read[L"id"]));
    CHECK((read[L"id"] == 7u && read[L"id"] == 7l && read[L"id"] == 7ull && read[L"id"] == 7.0f));
    CHECK((read[L"lines"][0][L"article"] == L"pen" && L"pen" == read[L"lines"][0][L"article"]));
    CHECK((read[L"lines"][0][L"article"] == article && article == read[L"lines"][0][L"article"]));
    CHECK((read[L"lines"][0][L"article"] != L"ink" && read[L"paid"] == true && read[L"paid"] != false));

    std::vector<String> keys;
    for (const auto& [key, member] : read.getMembers()) {
        keys.push_back(key);
        CHECK(member == read[key]);
    }
    CHECK(keys == std::vector<String>{L"id", L"lines", L"paid", L"sum"});
    CHECK(read.getMembers().find(L"sum")->second == 2.5);
    CHECK(read.getMembers().find(L"sun") == read.getMembers().end());
    CHECK((read.getMembers().count(L"id") == 1 && read.getMembers().count(L"ie") == 0));
    CHECK(JsonValue().getMembers().empty());
    CHECK(JsonValue(JsonValue::objectValue).getMembers().begin() == read.getMembers().end());
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
        {'A', intValue, L"65", true, 65},
        {static_cast<signed char>(-1), intValue, L"-1", true, -1},
        {static_cast<unsigned char>(255), intValue, L"255", true, 255},
        {short{-32768}, intValue, L"-32768", true, -32768},
        {static_cast<unsigned short>(65535), intValue, L"65535", true, 65535},
        {0, intValue, L"0", false, 0},
        {4000000000u, intValue, L"4000000000", true, 4e9},
        {-9l, intValue, L"-9", true, -9},
        {9ul, intValue, L"9", true, 9},
        {~0ul, uintValue, L"18446744073709551615", true, 18446744073709551616.},
        {LLONG_MIN, intValue, L"-9223372036854775808", true, -9223372036854775808.},
        {9ull, uintValue, L"9", true, 9},
        {0.1f, realValue, L"0.1000000014901161", true, 0.1f},
        {0.1, realValue, L"0.1", true, 0.1},
        {-0.0, realValue, L"-0", false, 0},
        {infinity, realValue, L"inf", true, infinity},
        {true, boolValue, L"true", true, 1},
        {false, boolValue, L"false", false, 0},
        {L"true", stringValue, L"true", false, 0},
        {static_cast<const wchar_t*>(nullptr), stringValue, L"", false, 0},
        {String(L" -1.5e2x"), stringValue, L" -1.5e2x", false, -150},
        {L"-INF", stringValue, L"-INF", false, -infinity},
        {intValue, intValue, L"0", false, 0},
        {uintValue, uintValue, L"0", false, 0},
        {realValue, realValue, L"0", false, 0},
        {boolValue, boolValue, L"false", false, 0},
        {stringValue, stringValue, L"", false, 0},
    };
    const RecordingLog log;
    for (const auto& row : rows) {
        CAPTURE(row.text);
        for (const JsonValue& value : {row.value, JsonValue(row.value)}) {
            CHECK(value.type() == row.type);
            CHECK(value.asString() == row.text);
            CHECK(value.asBool() == row.isTrue);
            CHECK(value.asDouble() == row.number);
            CHECK(value.asFloat() == static_cast<float>(row.number));
            CHECK(value.isNull() == (row.type == nullValue));
            CHECK(value.isNumber() == (row.type >= intValue && row.type <= realValue));
            CHECK(value.isBool() == (row.type == boolValue));
            CHECK(value.isString() == (row.type == stringValue));
            CHECK(!(value.isArray() || value.isObject()));
            CHECK(value.empty() == (row.type == nullValue));
            CHECK(value.size() == 0);
        }
    }
    CHECK(JsonValue(1e300).asFloat() == std::numeric_limits<float>::infinity());
    CHECK(JsonValue(notANumber).asBool());
    CHECK(log.lines().empty());

    for (const JsonValue& value : {JsonValue(arrayValue), JsonValue(objectValue)}) {
        log.clear();
        CHECK((value.empty() && value.size() == 0 && value.isArray() != value.isObject()));
        CHECK((value.asFloat() == 0 && value.asDouble() == 0 && !value.asBool()));
        CHECK(value.asString() == (value.isArray() ? L"[]" : L"{}"));
        CHECK(log.warnings() == std::vector<String>{L"Value is not convertible to float.",
                                                    L"Value is not convertible to double.",
                                                    L"Value is not convertible to bool."});
    }
    const String shared = L"text";
    CHECK(JsonValue(JsonValue(shared)).asString().getBuffer() == shared.getBuffer());
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
    JsonValue sparse = JsonValue::arrayValue;
    sparse[1] = 1;
    JsonValue other = JsonValue::arrayValue;
    other[2] = 1;
    const struct {
        const char* what;
        JsonValue left, right;
        bool isEqual, isEqualReversed;
    } rows[] = {
        {"two nulls", {}, {}, true, true},
        {"null and the empty string", {}, L"", false, true},
        {"null and 0", {}, 0, false, false},
        {"null and false", {}, false, false, false},
        {"int and uint", 5, 5ull, true, true},
        {"int and double", 1, 1.0, true, true},
        {"minus zero and zero", -0.0, 0.0, true, true},
        {"minus zero and int", -0.0, 0, false, false},
        {"doubles with the same text", 0.1 + 0.2, 0.3, false, false},
        {"NaNs", notANumber, notANumber, false, false},
        {"NaN and its text", notANumber, JsonValue(notANumber).asString(), true, true},
        {"bool and text", true, L"true", true, true},
        {"bool and 1", true, 1, false, false},
        {"number and text", 12, L"12", true, true},
        {"number and a text that goes on behind a NUL", 12, withNuls(L"12\0x"), false, false},
        {"texts", L"a", L"A", false, false},
        {"a text and its extension by a NUL", withNuls(L"a"), withNuls(L"a\0b"), false, false},
        {"texts that differ behind a NUL", withNuls(L"a\0c"), withNuls(L"a\0b"), false, false},
        {"arrays of numbers and texts", parse(L"[1,2]"), parse(L"[1.0,\"2\"]"), true, true},
        {"arrays of other lengths", parse(L"[1]"), parse(L"[1,2]"), false, false},
        {"arrays with other indices", sparse, other, false, false},
        {"array and its text", parse(L"[1, 2]"), L"[1,2]", true, true},
        {"array and object, empty", JsonValue::arrayValue, JsonValue::objectValue, false, false},
        {"objects", parse(L"{\"a\":1,\"b\":[]}"), parse(L"{\"b\":[],\"a\":1}"), true, true},
        {"objects with other keys", parse(L"{\"a\":1}"), parse(L"{\"b\":1}"), false, false},
        {"sides change with each level", parse(L"[\"\"]"), parse(L"[null]"), false, true},
        {"sides change twice", parse(L"[{\"a\":\"\"}]"), parse(L"[{\"a\":null}]"), true, false},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        CHECK((row.left == row.right) == row.isEqual);
        CHECK((row.right == row.left) == row.isEqualReversed);
        CHECK((row.left != row.right) == !row.isEqual);
    }
}

TEST_CASE("an entry stays in its place while others are added")
{
    const RecordingLog log;
    for (const int step : {1, 7, -1, -31, 99991}) { // in order, out of order, backwards, below 0
        CAPTURE(step);
        JsonValue array, object;
        std::vector<std::pair<JsonValue*, JsonValue*>> places;
        for (int i = 0; i < 700; ++i) {
            const int key = step % 2 != 0 && step > 1 ? i * step % 701 : i * step;
            places.emplace_back(&array[key], &object[orvi::convertToString(key)]);
            *places.back().first = i;
            *places.back().second = i;
        }
        REQUIRE(array.size() == 700);
        REQUIRE(object.size() == 700);
        for (int i = 0; i < 700; ++i)
            REQUIRE((*places[static_cast<std::size_t>(i)].first == i &&
                     *places[static_cast<std::size_t>(i)].second == i));
    }
    JsonValue array = JsonValue::arrayValue;
    array[5];
    CHECK((array.size() == 1 && std::as_const(array)[2].isNull() && array.size() == 1));
    array[-3] = L"low";
    array[std::numeric_limits<int>::min()] = 1;
    array[std::numeric_limits<int>::max()] = 2;
    array[1] = L"one";
    CHECK(array.size() == 5);
    CHECK(compact(array) == L"[null,\"one\",null,null,null]");
    const JsonValue copy = array;
    CHECK(copy == array);
    CHECK((copy[std::numeric_limits<int>::min()] == 1 && copy[std::numeric_limits<int>::max()] == 2));
    CHECK(copy[-3] == L"low");
    CHECK(log.lines().empty());
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
            REQUIRE(key.getBufferLength() == keys[expected].getBufferLength());
            REQUIRE(object.getMembers().find(keys[expected])->second == expected);
            REQUIRE(object[keys[expected]] == expected);
            REQUIRE(member == expected++);
        }
        REQUIRE(object[static_cast<const wchar_t*>(nullptr)] == 0);
        REQUIRE(object[L"a\0b"] == 4); // a plain text ends at its NUL
        std::shuffle(order.begin(), order.end(), random);
    }
}

TEST_CASE("copies are independent, and a value may be assigned from a part of itself")
{
    const JsonValue source = parse(L"{\"a\":[1,{\"b\":2}],\"c\":\"x\"}");
    JsonValue copy = source;
    copy[L"a"][1][L"b"] = 3;
    copy[L"d"];
    CHECK(compact(source) == L"{\"a\":[1,{\"b\":2}],\"c\":\"x\"}");
    CHECK(compact(copy) == L"{\"a\":[1,{\"b\":3}],\"c\":\"x\",\"d\":null}");
    copy.swap(copy);
    CHECK(copy.size() == 3);
    JsonValue moved = std::move(copy);
    CHECK(moved.size() == 3);
    moved.clear();
    CHECK(moved.type() == JsonValue::nullValue);

    using Change = void (*)(JsonValue&);
    const struct {
        const char* what;
        const wchar_t* before;
        Change change;
        const wchar_t* after;
    } rows[] = {
        {"itself", L"[1,[2]]", [](JsonValue& v) { v = static_cast<const JsonValue&>(v); }, L"[1,[2]]"},
        {"itself, moved", L"[1]", [](JsonValue& v) { v = static_cast<JsonValue&&>(v); }, L"[1]"},
        {"its entry", L"[[2,\"x\"]]", [](JsonValue& v) { v = v[0]; }, L"[2,\"x\"]"},
        {"its entry, moved", L"[[2,\"x\"]]", [](JsonValue& v) { v = std::move(v[0]); }, L"[2,\"x\"]"},
        {"its text, moved", L"{\"a\":\"x\"}", [](JsonValue& v) { v = std::move(v[L"a"]); }, L"\"x\""},
        {"into its entry", L"{\"a\":1}", [](JsonValue& v) { v[L"x"] = v; },
         L"{\"a\":1,\"x\":{\"a\":1,\"x\":null}}"},
        {"a key of an array's own", L"[{\"k\":1}]",
         [](JsonValue& v) { v[std::as_const(v)[0].getMembers().begin()->first] = 1; }, L"{\"k\":1}"},
        {"a text's own units as a key", L"\"key\"", [](JsonValue& v) { v[v.asString().getBuffer()] = 1; },
         L"{\"key\":1}"},
        {"an index discards a number", L"7", [](JsonValue& v) { v[0]; }, L"[null]"},
        {"a key discards an array", L"[7]", [](JsonValue& v) { v[L"a"]; }, L"{\"a\":null}"},
        {"an index discards an object", L"{\"a\":1}", [](JsonValue& v) { v[1]; }, L"[null]"},
        {"a key that is there", L"{\"a\":1}", [](JsonValue& v) { v[String(L"a")]; }, L"{\"a\":1}"},
        {"swapped with its entry's", L"[[1],2]", [](JsonValue& v) { v[0].swap(v[1]); }, L"[2,[1]]"},
        {"cleared", L"[[1],2]", [](JsonValue& v) { v.clear(); }, L"null"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        JsonValue value = parse(row.before);
        row.change(value);
        CHECK(compact(value) == row.after);
    }
}

TEST_CASE("a million levels are destroyed, copied, compared and printed")
{
    constexpr int levels = 1'000'000;
    const JsonValue value = nest(levels);
    JsonValue copy = value;
    CHECK(copy == value);
    const String text = compact(copy);
    CHECK(text.getLength() == levels / 2 * 2 + levels / 2 * 6 + 1);
    copy.clear();
    CHECK(copy != value);
    CHECK(nest(1000) != nest(1001));
    copy = text;
    CHECK(copy == value); // by the texts
}

TEST_CASE("random changes leave what an ordered map would hold")
{
    std::mt19937 random(7);
    for (int round = 0; round < 60; ++round) {
        JsonValue object = JsonValue::objectValue;
        JsonValue array = JsonValue::arrayValue;
        std::map<Wide, int> members;
        std::map<int, int> elements;
        int next = 0; // a part of the keys comes in order
        for (int i = 0; i < 200; ++i) {
            const int index = random() % 3 == 0 ? static_cast<int>(random() % 80) - 20 : next++;
            Wide name(1, 'e'); // at the end, where a String drops NULs
            for (int rest = index + 100; rest != 0; rest /= 5)
                name.insert(name.begin(), L"\0Aa\xD83D\xFFFF"[rest % 5]);
            object[String(name.data(), static_cast<int>(name.size()))] = members[name] = i;
            array[index] = elements[index] = i;
            if (random() % 40 == 0) {
                object = JsonValue(object);
                array = JsonValue(array);
            }
        }
        REQUIRE(object.size() == static_cast<int>(members.size()));
        auto member = members.begin();
        for (const auto& [key, value] : object.getMembers()) {
            REQUIRE(Wide(key.getBuffer(), key.getBuffer() + key.getBufferLength() / 2 - 1) == member->first);
            REQUIRE(value == member->second);
            ++member;
        }
        REQUIRE(array.size() == static_cast<int>(elements.size()));
        for (int i = -25; i < next + 25; ++i) {
            const auto found = elements.find(i);
            REQUIRE(std::as_const(array)[i] ==
                    (found != elements.end() ? JsonValue(found->second) : JsonValue()));
        }
        const JsonValue copies[] = {object, array};
        REQUIRE((copies[0] == object && copies[1] == array));
        array[elements.begin()->first] = L"changed";
        object[object.getMembers().begin()->first] = L"changed";
        REQUIRE((copies[0] != object && copies[1] != array));
    }
}
