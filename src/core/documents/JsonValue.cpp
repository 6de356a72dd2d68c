#include <orvi/core/JsonValue.h>

#include <orvi/core/Json.h>
#include <orvi/core/Log.h>

#include "JsonAccess.h"
#include "base/NumberText.h"
#include "base/StringAccess.h"
#include "base/WideText.h"

#include <cmath>
#include <limits>

namespace orvi {

namespace {

const JsonValue nullJson;

/** The range of an integer type as doubles. The largest 64-bit numbers are no doubles: the limit is the next
    one, which converts to them. */
template <class T>
struct DoubleRange {
    static constexpr double lowest = static_cast<double>(std::numeric_limits<T>::min());
    static constexpr double highest = static_cast<double>(std::numeric_limits<T>::max());
};

template <class T>
bool isInRange(double value) noexcept
{
    return value >= DoubleRange<T>::lowest && value <= DoubleRange<T>::highest;
}

/** Without a NaN, truncated, and to the nearest number in range. */
template <class T>
T toInteger(double value) noexcept
{
    if (std::isnan(value))
        return 0;
    if (value <= DoubleRange<T>::lowest)
        return std::numeric_limits<T>::min();
    if (value >= DoubleRange<T>::highest)
        return std::numeric_limits<T>::max();
    return static_cast<T>(value);
}

} // namespace

JsonValue::JsonValue(const wchar_t* text)
    : _type(stringValue)
{
    const String string(text);
    if (string.isEmpty() && text != nullptr && *text != 0)
        throw std::bad_alloc();
    setText(string);
}

JsonValue::JsonValue(const JsonValue& other)
{
    if (other._type >= arrayValue) {
        JsonAccess::copy(*this, other);
        return;
    }
    if (other._type == stringValue)
        setText(other.getText());
    else
        _word = other._word;
    _type = other._type;
}

void JsonValue::setText(const String& text) noexcept
{
    _word.asText = StringAccess<wchar_t>::detach(String(text));
}

String JsonValue::getText() const noexcept { return StringAccess<wchar_t>::share(_word.asText); }

void JsonValue::clear() noexcept
{
    if (_type >= arrayValue)
        JsonAccess::destroy(*this);
    else if (_type == stringValue)
        StringAccess<wchar_t>::release(_word.asText);
    _type = nullValue;
}

int JsonValue::size() const noexcept
{
    if (isArray())
        return _word.elements != nullptr ? static_cast<int>(_word.elements->size()) : 0;
    return isObject() ? static_cast<int>(getMembers().size()) : 0;
}

JsonValue& JsonValue::operator[](int index)
{
    if (!isArray())
        *this = JsonValue(arrayValue);
    Elements& elements = _word.elements != nullptr ? *_word.elements : JsonAccess::makeElements(*this, 0);
    return elements.findOrAdd(index);
}

const JsonValue& JsonValue::operator[](int index) const noexcept
{
    const JsonValue* found = isArray() && _word.elements != nullptr ? _word.elements->find(index) : nullptr;
    return found != nullptr ? *found : nullJson;
}

JsonValue& JsonValue::operator[](const String& key) { return member(key, &key); }
JsonValue& JsonValue::operator[](const wchar_t* key) { return member(key, nullptr); }
const JsonValue& JsonValue::operator[](const String& key) const noexcept { return member(key); }
const JsonValue& JsonValue::operator[](const wchar_t* key) const noexcept { return member(key); }

JsonValue& JsonValue::member(const JsonKey& key, const String* name)
{
    JsonValue old; // the key may stand in it
    if (!isObject()) {
        swap(old);
        _type = objectValue;
        _word.members = nullptr;
    }
    JsonObject* object = JsonAccess::object(*this);
    return (object != nullptr ? *object : JsonAccess::makeObject(*this, 0)).findOrAdd(key, name);
}

const JsonValue& JsonValue::member(const JsonKey& key) const noexcept
{
    const JsonValue* found =
        isObject() && _word.members != nullptr ? JsonAccess::object(*this)->find(key) : nullptr;
    return found != nullptr ? *found : nullJson;
}

template <class T>
bool JsonValue::fits() const noexcept
{
    using Limits = std::numeric_limits<T>;
    switch (_type) {
    case intValue:
        return std::cmp_greater_equal(_word.asInt, Limits::min()) &&
               std::cmp_less_equal(_word.asInt, Limits::max());
    case uintValue:
        return std::cmp_less_equal(_word.asUInt, Limits::max());
    case realValue:
        return isInRange<T>(_word.asReal) && std::trunc(_word.asReal) == _word.asReal;
    default:
        return false;
    }
}

template <class T>
T JsonValue::asInteger(const wchar_t* type) const
{
    switch (_type) {
    case nullValue:
        return 0;
    case intValue:
        if (!fits<T>())
            Log::warning(L"intValue out of %s range", type);
        return static_cast<T>(_word.asInt);
    case uintValue:
        if (!fits<T>())
            Log::warning(L"uintValue out of %s range", type);
        return static_cast<T>(_word.asUInt);
    case realValue:
        if (!isInRange<T>(_word.asReal))
            Log::warning(L"double out of %s range", type);
        return toInteger<T>(_word.asReal);
    case boolValue:
        return _word.asBool ? 1 : 0;
    case stringValue:
        return static_cast<T>(text::parseInteger<std::int64_t>(_word.asText));
    default:
        Log::warning(L"Value is not convertible to %s", type);
        return 0;
    }
}

bool JsonValue::isInt8() const noexcept { return fits<std::int8_t>(); }
bool JsonValue::isUInt8() const noexcept { return fits<std::uint8_t>(); }
bool JsonValue::isInt16() const noexcept { return fits<std::int16_t>(); }
bool JsonValue::isUInt16() const noexcept { return fits<std::uint16_t>(); }
bool JsonValue::isInt32() const noexcept { return fits<std::int32_t>(); }
bool JsonValue::isUInt32() const noexcept { return fits<std::uint32_t>(); }
bool JsonValue::isInt64() const noexcept { return fits<std::int64_t>(); }
bool JsonValue::isUInt64() const noexcept { return fits<std::uint64_t>(); }

signed char JsonValue::asInt8() const { return asInteger<std::int8_t>(L"Int8"); }
unsigned char JsonValue::asUInt8() const { return asInteger<std::uint8_t>(L"UInt8"); }
short JsonValue::asInt16() const { return asInteger<std::int16_t>(L"Int16"); }
unsigned short JsonValue::asUInt16() const { return asInteger<std::uint16_t>(L"UInt16"); }
int JsonValue::asInt32() const { return asInteger<std::int32_t>(L"Int32"); }
unsigned int JsonValue::asUInt32() const { return asInteger<std::uint32_t>(L"UInt32"); }
long long JsonValue::asInt64() const { return asInteger<std::int64_t>(L"Int64"); }
unsigned long long JsonValue::asUInt64() const { return asInteger<std::uint64_t>(L"UInt64"); }

float JsonValue::asFloat() const
{
    static_assert(std::numeric_limits<float>::is_iec559, "a double out of range becomes an infinity");
    if (_type >= arrayValue) {
        Log::warning(L"Value is not convertible to float.");
        return 0;
    }
    return static_cast<float>(asDouble());
}

double JsonValue::asDouble() const
{
    switch (_type) {
    case nullValue:
        return 0;
    case intValue:
        return static_cast<double>(_word.asInt);
    case uintValue:
        return static_cast<double>(_word.asUInt);
    case realValue:
        return _word.asReal;
    case boolValue:
        return _word.asBool ? 1 : 0;
    case stringValue:
        return text::parseDouble(_word.asText);
    default:
        Log::warning(L"Value is not convertible to double.");
        return 0;
    }
}

bool JsonValue::asBool() const
{
    switch (_type) {
    case intValue:
    case uintValue:
        return _word.asUInt != 0;
    case realValue:
        return _word.asReal != 0.0;
    case boolValue:
        return _word.asBool;
    case nullValue:
    case stringValue:
        return false;
    default:
        Log::warning(L"Value is not convertible to bool.");
        return false;
    }
}

/** The text of a number. */
static String whole(const wchar_t* text, int length)
{
    String string(text, length);
    if (string.isEmpty())
        throw std::bad_alloc();
    return string;
}

String JsonValue::asString() const
{
    wchar_t buffer[text::numberRoom];
    switch (_type) {
    case nullValue:
        return String();
    case intValue:
        return whole(buffer, text::printInteger(buffer, _word.asInt));
    case uintValue:
        return whole(buffer, text::printInteger(buffer, _word.asUInt));
    case realValue:
        return whole(buffer, text::printDouble(buffer, _word.asReal));
    case boolValue:
        return whole(_word.asBool ? L"true" : L"false", _word.asBool ? 4 : 5);
    case stringValue:
        return getText();
    default:
        return Json::convertToString(*this, false);
    }
}

bool JsonValue::operator==(const JsonValue& other) const
{
    if (_type >= arrayValue && _type == other._type)
        return JsonAccess::equal(*this, other);
    return equalsScalar(other);
}

/** For two values that are no containers of the same kind. */
bool JsonValue::equalsScalar(const JsonValue& other) const
{
    if (_type == nullValue)
        return other._type == nullValue;
    if (_type != other._type)
        return equalTexts(asString(), other.asString());
    switch (_type) {
    case realValue:
        return _word.asReal == other._word.asReal;
    case boolValue:
        return _word.asBool == other._word.asBool;
    case stringValue:
        return equalTexts(JsonAccess::text(*this), JsonAccess::text(other));
    default:
        return _word.asInt == other._word.asInt;
    }
}

} // namespace orvi
