#include "JsonText.h"
#include "RecordingLog.h"
#include "TextPrinting.h"

#include <orvi/core/Core.h>

#include <list>
#include <vector>

using namespace orvi;

namespace {

IPropertyConverter& converterOf(const String& type)
{
    IPropertyConverter* converter = PropertyFactory::getPropertyConverter(type);
    REQUIRE(converter != nullptr);
    return *converter;
}

template <class T>
IPropertyConverter* rttiConverter(const T&)
{
    return PropertyFactory::getPropertyConverterByRttiClassName(typeName(typeid(T)));
}

/** What the target writes again through the converter of the name, by which the text came in. */
template <class T>
String throughConverter(const String& type, const wchar_t* in, T& target)
{
    IPropertyConverter& converter = converterOf(type);
    converter.set(reinterpret_cast<Void*>(&target), parsed(in));
    JsonValue out;
    converter.get(reinterpret_cast<const Void*>(&target), out);
    return compact(out);
}

/** What comes out of a value, of a vector and of a list; `malformed` throws, and leaves nothing. */
template <class T>
String through(const wchar_t* type, const wchar_t* in, const wchar_t* malformed = nullptr)
{
    T target{};
    std::vector<T> vector;
    std::list<T> list(3);
    const String single = throughConverter(type, in, target);
    const String array = String(type) + L"Array", sequence = String(type) + L"List";
    CHECK(rttiConverter(target) == &converterOf(type));
    CHECK((rttiConverter(vector) == &converterOf(array) && rttiConverter(list) == &converterOf(sequence)));
    CHECK(throughConverter(array, String(L"[") + in + L"]", vector) == L"[" + single + L"]");
    CHECK(throughConverter(sequence, String(L"[") + in + L"]", list) == L"[" + single + L"]");
    CHECK(throughConverter(array, L"{\"a\":1}", vector) == L"[]");
    CHECK(throughConverter(sequence, L"null", list) == L"[]");
    if (malformed != nullptr) {
        String error;
        try {
            converterOf(type).set(reinterpret_cast<Void*>(&target), parsed(malformed));
        } catch (const Exception& exception) {
            error = exception.description();
        }
        CHECK((error.find(L"void convertPropertyToClass(") == 0 && error.find(String(type) + L" &)") > 0));
        CHECK(target == T{});
    }
    return single;
}

struct FakeConverter : IPropertyConverter {
    FakeConverter(const String& rttiClassName, const String& propertyType)
        : IPropertyConverter(rttiClassName, propertyType, true)
    {}
    void set(Void*, const JsonValue&) override {}
    void get(const Void*, JsonValue&) override {}
};

} // namespace

TEST_CASE(
    "each value type is registered with a form of its own, alone and in collections, and refuses others")
{
    const wchar_t* point = L"{\"x\":1,\"y\":2}";
    const wchar_t* node = L"\"0123456789ab\"";
    const wchar_t* uuid = L"\"67452301-ab89-efcd-8001-0123456789ab\"";
    const struct {
        const wchar_t* type;
        String (*through)(const wchar_t* type, const wchar_t* in, const wchar_t* malformed);
        const wchar_t *in, *out;
        const wchar_t* malformed = nullptr;
    } rows[] = {
        {L"bool", &through<bool>, L"2", L"true"},
        {L"float", &through<float>, L"2.5", L"2.5"},
        {L"double", &through<double>, L"\"1e300\"", L"1e+300"},
        {L"char", &through<char>, L"-128", L"-128"},
        {L"int8_t", &through<signed char>, L"-128", L"-128"},
        {L"uint8_t", &through<unsigned char>, L"255", L"255"},
        {L"int16_t", &through<short>, L"-32768", L"-32768"},
        {L"uint16_t", &through<unsigned short>, L"65535", L"65535"},
        {L"int32_t", &through<int>, L"\"12\"", L"12"},
        {L"uint32_t", &through<unsigned int>, L"4294967295", L"4294967295"},
        {L"long", &through<long>, L"-9223372036854775808", L"-9223372036854775808"},
        {L"ulong_t", &through<unsigned long>, L"18446744073709551615", L"18446744073709551615"},
        {L"int64_t", &through<long long>, L"9223372036854775807", L"9223372036854775807"},
        {L"Varint", &through<Varint>, L"-2147483648", L"-2147483648"},
        {L"Varint64", &through<Varint64>, L"9223372036854775807", L"9223372036854775807"},
        {L"TimeSpan", &through<TimeSpan>, L"-9223372036854775808", L"-9223372036854775808"},
        {L"String", &through<String>, L"7", L"\"7\""},
        {L"Buffer", &through<Buffer>, L"\"AAEC\"", L"\"AAEC\"", L"\"AAECAAE*\""},
        {L"Time", &through<Time>, L"\"2022/6/27 9:58:45\"", L"\"2022-6-27 09:58:45\"", L"\"2022-02-30\""},
        {L"Uuid", &through<Uuid>, uuid, uuid, L"\"67452301-ab89-efcd-8001-0123456789abc\""},
        {L"uuid_node_t", &through<uuid_node_t>, node, node, L"\"0123456789ag\""},
        {L"Point", &through<Point_T<int>>, point, point},
        {L"Pointf", &through<Point_T<float>>, L"{\"y\":0.5}", L"{\"x\":0,\"y\":0.5}"},
        {L"Rect", &through<Rect_T<int>>, L"{\"left\":1,\"top\":2,\"right\":3,\"bottom\":4}",
         L"{\"bottom\":4,\"left\":1,\"right\":3,\"top\":2}"},
        {L"Rectf", &through<Rect_T<float>>, L"{\"bottom\":0.25}",
         L"{\"bottom\":0.25,\"left\":0,\"right\":0,\"top\":0}"},
        {L"Vector2", &through<Vector2>, point, point},
        {L"Vector3", &through<Vector3>, L"{\"z\":3}", L"{\"x\":0,\"y\":0,\"z\":3}"},
        {L"Vector4", &through<Vector4>, L"{\"w\":3,\"x\":1}", L"{\"w\":3,\"x\":1,\"y\":0,\"z\":0}"},
        {L"Quaternion", &through<Quaternion>, L"{}", L"{\"w\":0,\"x\":0,\"y\":0,\"z\":0}"},
    };
    const RecordingLog log;
    for (const auto& row : rows) {
        CAPTURE(row.type);
        CHECK(row.through(row.type, row.in, row.malformed) == row.out);
        for (const wchar_t* sister : {L"", L"Array", L"List"})
            CHECK(converterOf(String(row.type) + sister).isUnitProperty());
    }
    CHECK(log.lines().empty());
    for (const wchar_t* name : {L"Property", L"PropertyDummy", L"Message"})
        CHECK(!converterOf(name).isUnitProperty());
    for (const wchar_t* name : {L"", L"int", L"uint64_t", L"UnknownArray", L"Event"})
        CHECK(PropertyFactory::getPropertyConverter(name) == nullptr);
}

TEST_CASE("what does not fit is told as JsonValue tells it, and a class's slot decides, not the document")
{
    const RecordingLog log;
    CHECK(through<int>(L"int32_t", L"{}") == L"0");
    CHECK(log.warnings().front() == L"Value is not convertible to Int32");
    CHECK(through<Point_T<int>>(L"Point", L"7") == L"{\"x\":0,\"y\":0}");
    std::vector<String> strings;
    CHECK(throughConverter(L"StringArray", L"[\"a\",null,3]", strings) == L"[\"a\",\"\",\"3\"]");
    std::vector<bool> bits;
    CHECK(throughConverter(L"boolArray", L"[true,0,1]", bits) == L"[true,false,true]");
    JsonValue sparse;
    sparse[1000000000] = 1;
    sparse[1] = 2;
    std::vector<int> numbers(5);
    converterOf(L"int32_tArray").set(reinterpret_cast<Void*>(&numbers), sparse);
    CHECK(numbers == std::vector<int>{0, 2});
    Handle_T<Property> slot;
    CHECK(throughConverter(L"Message", L"{\"__class__\":\"Property\"}", slot) ==
          L"{\"__class__\":\"Message\"}");
    CHECK((throughConverter(L"Message", L"null", slot) == L"null" && slot.isNull()));
}

TEST_CASE("a name that is taken is refused")
{
    const Handle_T<IPropertyConverter> fake = new FakeConverter(L"fake type", L"Fake");
    REQUIRE((PropertyFactory::setUpPropertyConverter(fake) && fake->getReferenceCount() == 3));
    const std::pair<const wchar_t*, const wchar_t*> rows[] = {
        {L"int", L"Fresh"}, {L"fresh type", L"Fake"}, {L"int", L"Fake"}, {L"fake type", L"Fake"}};
    for (const auto& [rttiClassName, propertyType] : rows) {
        const RecordingLog log;
        const Handle_T<IPropertyConverter> other = new FakeConverter(rttiClassName, propertyType);
        CHECK((!PropertyMembership(other).joined() && other->getReferenceCount() == 1));
        String error;
        error.format(L"Property: (%s) has been setup error! RTTI class name(%s)", propertyType,
                     rttiClassName);
        const std::size_t errors = rttiClassName == String(L"fake type") ? 0 : 1; // the same again
        CHECK(log.errors() == std::vector<String>(errors, error));
        CHECK(PropertyFactory::getPropertyConverter(L"Fresh") == nullptr);
        CHECK(PropertyFactory::getPropertyConverterByRttiClassName(L"fresh type") == nullptr);
        CHECK(PropertyFactory::getPropertyConverter(L"Fake") == fake);
    }
    CHECK(!PropertyFactory::setUpPropertyConverter(nullptr));
    for (const wchar_t* name : {L"Nobody", L"Fake"})
        PropertyFactory::tearDownPropertyConverter(name);
    CHECK(fake->getReferenceCount() == 1);
    CHECK(PropertyFactory::getPropertyConverterByRttiClassName(L"fake type") == nullptr);
}
