#include <orvi/core/PropertyConverter.h>

#include <orvi/core/Buffer.h>
#include <orvi/core/Exception.h>
#include <orvi/core/Geometry.h>
#include <orvi/core/Time.h>
#include <orvi/core/Uuid.h>
#include <orvi/core/Varint.h>

namespace orvi {

// 32 bits each: what the binary form would not carry does not come in.
void convertPropertyToClass(const JsonValue& value, Varint& target) { target = value.asInt32(); }
void convertPropertyToJson(const Varint& source, JsonValue& value) { value = std::int32_t(source); }

void convertPropertyToClass(const JsonValue& value, Varint64& target) { target = value.asInt64(); }
void convertPropertyToJson(const Varint64& source, JsonValue& value) { value = std::int64_t(source); }

void convertPropertyToClass(const JsonValue& value, TimeSpan& target) { target = value.asInt64(); }
void convertPropertyToJson(const TimeSpan& source, JsonValue& value) { value = source.getValue(); }

void convertPropertyToClass(const JsonValue& value, String& target) { target = value.asString(); }
void convertPropertyToJson(const String& source, JsonValue& value) { value = source; }

// Values with a text of their own

void convertPropertyToClass(const JsonValue& value, Buffer& target)
{
    target.setBufferSize(0);
    if (value.isString() && target.convertFromBase64(value.asString()))
        return;
    target.setBufferSize(0); // no half of the bytes
    THROW_EXCEPTION(-1, L"void convertPropertyToClass(const String &, Buffer &)");
}
void convertPropertyToJson(const Buffer& source, JsonValue& value) { value = source.convertToBase64(); }

void convertPropertyToClass(const JsonValue& value, Time& target)
{
    target.setValue(0);
    if (!value.isString() || !target.convertFromString(value.asString()))
        THROW_EXCEPTION(-1, L"void convertPropertyToClass(JsonValue const &,Time &)");
}
void convertPropertyToJson(const Time& source, JsonValue& value) { value = source.convertToString(false); }

void convertPropertyToClass(const JsonValue& value, Uuid& target)
{
    target = Uuid();
    const String text = value.isString() ? value.asString() : String();
    if (text.getLength() != Uuid::textLength || !uuid_convertFromString(target, text.getBuffer()))
        THROW_EXCEPTION(-1, L"void convertPropertyToClass(JsonValue const &, Uuid &)");
}
void convertPropertyToJson(const Uuid& source, JsonValue& value) { value = source.convertToString(); }

void convertPropertyToClass(const JsonValue& value, uuid_node_t& target)
{
    target = uuid_node_t();
    if (!value.isString() || !target.convertFromString(value.asString()))
        THROW_EXCEPTION(-1, L"void convertPropertyToClass(const JsonValue &, uuid_node_t &)");
}
void convertPropertyToJson(const uuid_node_t& source, JsonValue& value) { value = source.convertToString(); }

// Values with fields

namespace {

template <class T, class Element>
struct Field {
    const wchar_t* key;
    Element T::*member;
};

template <class T>
struct Fields; // `all` lists them, in the order of their keys: documents grow fastest that way

template <class Element>
struct Fields<Point_T<Element>> {
    using T = Point_T<Element>;
    static constexpr Field<T, Element> all[] = {{L"x", &T::x}, {L"y", &T::y}};
};
template <class Element>
struct Fields<Rect_T<Element>> {
    using T = Rect_T<Element>;
    static constexpr Field<T, Element> all[] = {
        {L"bottom", &T::bottom}, {L"left", &T::left}, {L"right", &T::right}, {L"top", &T::top}};
};
template <>
struct Fields<Vector2> {
    using T = Vector2;
    static constexpr Field<T, float> all[] = {{L"x", &T::x}, {L"y", &T::y}};
};
template <>
struct Fields<Vector3> {
    using T = Vector3;
    static constexpr Field<T, float> all[] = {{L"x", &T::x}, {L"y", &T::y}, {L"z", &T::z}};
};
/** Vector4 and Quaternion. */
template <class T>
struct Fields4 {
    static constexpr Field<T, float> all[] = {{L"w", &T::w}, {L"x", &T::x}, {L"y", &T::y}, {L"z", &T::z}};
};
template <>
struct Fields<Vector4> : Fields4<Vector4> {};
template <>
struct Fields<Quaternion> : Fields4<Quaternion> {};

template <class T>
void readFields(const JsonValue& value, T& target)
{
    for (const auto& field : Fields<T>::all)
        convertPropertyToClass(value[field.key], target.*field.member);
}

template <class T>
void writeFields(const T& source, JsonValue& value)
{
    JsonValue object(JsonValue::objectValue);
    for (const auto& field : Fields<T>::all)
        convertPropertyToJson(source.*field.member, object[field.key]);
    value.swap(object);
}

} // namespace

void convertPropertyToClass(const JsonValue& value, Point_T<int>& target) { readFields(value, target); }
void convertPropertyToJson(const Point_T<int>& source, JsonValue& value) { writeFields(source, value); }
void convertPropertyToClass(const JsonValue& value, Point_T<float>& target) { readFields(value, target); }
void convertPropertyToJson(const Point_T<float>& source, JsonValue& value) { writeFields(source, value); }
void convertPropertyToClass(const JsonValue& value, Rect_T<int>& target) { readFields(value, target); }
void convertPropertyToJson(const Rect_T<int>& source, JsonValue& value) { writeFields(source, value); }
void convertPropertyToClass(const JsonValue& value, Rect_T<float>& target) { readFields(value, target); }
void convertPropertyToJson(const Rect_T<float>& source, JsonValue& value) { writeFields(source, value); }
void convertPropertyToClass(const JsonValue& value, Vector2& target) { readFields(value, target); }
void convertPropertyToJson(const Vector2& source, JsonValue& value) { writeFields(source, value); }
void convertPropertyToClass(const JsonValue& value, Vector3& target) { readFields(value, target); }
void convertPropertyToJson(const Vector3& source, JsonValue& value) { writeFields(source, value); }
void convertPropertyToClass(const JsonValue& value, Vector4& target) { readFields(value, target); }
void convertPropertyToJson(const Vector4& source, JsonValue& value) { writeFields(source, value); }
void convertPropertyToClass(const JsonValue& value, Quaternion& target) { readFields(value, target); }
void convertPropertyToJson(const Quaternion& source, JsonValue& value) { writeFields(source, value); }

// What the library registers itself; its property classes do so where they are defined.

namespace {

const PropertyConverters<bool> boolConverters(L"bool");
const PropertyConverters<float> floatConverters(L"float");
const PropertyConverters<double> doubleConverters(L"double");
const PropertyConverters<char> charConverters(L"char");
const PropertyConverters<signed char> int8Converters(L"int8_t");
const PropertyConverters<unsigned char> uint8Converters(L"uint8_t");
const PropertyConverters<short> int16Converters(L"int16_t");
const PropertyConverters<unsigned short> uint16Converters(L"uint16_t");
const PropertyConverters<int> int32Converters(L"int32_t");
const PropertyConverters<unsigned int> uint32Converters(L"uint32_t");
const PropertyConverters<long> longConverters(L"long");
const PropertyConverters<unsigned long> ulongConverters(L"ulong_t");
const PropertyConverters<long long> int64Converters(L"int64_t");
const PropertyConverters<Varint> varintConverters(L"Varint");
const PropertyConverters<Varint64> varint64Converters(L"Varint64");
const PropertyConverters<TimeSpan> timeSpanConverters(L"TimeSpan");
const PropertyConverters<String> stringConverters(L"String");
const PropertyConverters<Buffer> bufferConverters(L"Buffer");
const PropertyConverters<Time> timeConverters(L"Time");
const PropertyConverters<Uuid> uuidConverters(L"Uuid");
const PropertyConverters<uuid_node_t> uuidNodeConverters(L"uuid_node_t");
const PropertyConverters<Point_T<int>> pointConverters(L"Point");
const PropertyConverters<Point_T<float>> pointfConverters(L"Pointf");
const PropertyConverters<Rect_T<int>> rectConverters(L"Rect");
const PropertyConverters<Rect_T<float>> rectfConverters(L"Rectf");
const PropertyConverters<Vector2> vector2Converters(L"Vector2");
const PropertyConverters<Vector3> vector3Converters(L"Vector3");
const PropertyConverters<Vector4> vector4Converters(L"Vector4");
const PropertyConverters<Quaternion> quaternionConverters(L"Quaternion");

} // namespace

} // namespace orvi
