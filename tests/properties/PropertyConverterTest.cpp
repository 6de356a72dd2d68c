#include "TextPrinting.h"

#include "RecordingLog.h"

#include <orvi/core/Core.h>
#include <orvi/core/Json.h>

#include <list>
#include <vector>

using namespace orvi;

namespace {

JsonValue parsed(const wchar_t* text)
{
    JsonValue value;
    REQUIRE(Json::parseValue(text, value) != nullptr);
    return value;
}

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
    return Json::convertToString(out, false);
}

using Through = String (*)(const wchar_t* type, const wchar_t* in);
template <class T>
String through(const wchar_t* type, const wchar_t* in)
{
    T target{};
    std::vector<T> vector;
    std::list<T> list(3);
    const String single = throughConverter(type, in, target);
    const String array = String(type) + L"Array", sequence = String(type) + L"List";
    CHECK(rttiConverter(target) == &converterOf(type));
    CHECK(rttiConverter(vector) == &converterOf(array));
    CHECK(rttiConverter(list) == &converterOf(sequence));
    CHECK(throughConverter(array, String(L"[") + in + L"]", vector) == L"[" + single + L"]");
    CHECK(throughConverter(sequence, String(L"[") + in + L"]", list) == L"[" + single + L"]");
    CHECK(throughConverter(array, L"{\"a\":1}", vector) == L"[]");
    CHECK(throughConverter(sequence, L"null", list) == L"[]");
    return single;
}

} // namespace

TEST_CASE("each value type is registered with a form of its own, alone and in collections")
{
    const wchar_t* point = L"{\"x\":1,\"y\":2}";
    const wchar_t* node = L"\"0123456789ab\"";
    const wchar_t* uuid = L"\"67452301-ab89-efcd-8001-0123456789ab\"";
    const struct {
        const wchar_t* type;
        Through through;
        const wchar_t* in;
        const wchar_t* out;
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
        {L"Buffer", &through<Buffer>, L"\"AAEC\"", L"\"AAEC\""},
        {L"Time", &through<Time>, L"\"2022/6/27 9:58:45\"", L"\"2022-6-27 09:58:45\""},
        {L"Uuid", &through<Uuid>, uuid, uuid},
        {L"uuid_node_t", &through<uuid_node_t>, node, node},
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
        CHECK(row.through(row.type, row.in) == row.out);
        for (const wchar_t* sister : {L"", L"Array", L"List"})
            CHECK(converterOf(String(row.type) + sister).isUnitProperty());
    }
    CHECK(log.lines().empty());
    for (const wchar_t* name : {L"Property", L"PropertyDummy", L"Message"})
        CHECK(!converterOf(name).isUnitProperty());
    for (const wchar_t* name : {L"", L"int", L"uint64_t", L"UnknownArray", L"Event"})
        CHECK(PropertyFactory::getPropertyConverter(name) == nullptr);
}

TEST_CASE("what does not fit is told as JsonValue tells it")
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
}

namespace {

/** The error for a text that is malformed, behind which nothing is left of a good one. */
template <class T>
String errorOf(const wchar_t* type, const wchar_t* good, const wchar_t* malformed)
{
    T target{};
    throughConverter(type, good, target);
    CHECK(!(target == T{}));
    try {
        converterOf(type).set(reinterpret_cast<Void*>(&target), parsed(malformed));
    } catch (const Exception& exception) {
        CHECK(target == T{});
        return exception.description();
    }
    return {};
}

} // namespace

TEST_CASE("texts that are malformed throw and leave nothing")
{
    const wchar_t* uuid = L"\"67452301-ab89-efcd-8001-0123456789ab\"";
    const struct {
        const wchar_t* type;
        String (*errorOf)(const wchar_t*, const wchar_t*, const wchar_t*);
        const wchar_t *good, *malformed;
    } rows[] = {
        {L"Buffer", &errorOf<Buffer>, L"\"AAEC\"", L"7"},
        {L"Buffer", &errorOf<Buffer>, L"\"AAEC\"", L"\"AAE\""},
        {L"Buffer", &errorOf<Buffer>, L"\"AAEC\"", L"\"AAECAAE*\""},
        {L"Time", &errorOf<Time>, L"\"2022-6-27\"", L"7"},
        {L"Time", &errorOf<Time>, L"\"2022-6-27\"", L"\"2022-02-30\""},
        {L"Uuid", &errorOf<Uuid>, uuid, L"null"},
        {L"Uuid", &errorOf<Uuid>, uuid, L"\"67452301-ab89-efcd-8001-0123456789a\""},
        {L"Uuid", &errorOf<Uuid>, uuid, L"\"67452301-ab89-efcd-8001-0123456789abc\""},
        {L"Uuid", &errorOf<Uuid>, uuid, L"\"67452301-ab89-efcd-8001+0123456789ab\""},
        {L"uuid_node_t", &errorOf<uuid_node_t>, L"\"0123456789ab\"", L"\"0123456789a\""},
        {L"uuid_node_t", &errorOf<uuid_node_t>, L"\"0123456789ab\"", L"\"0123456789ag\""},
    };
    for (const auto& row : rows) {
        CAPTURE(row.malformed);
        const String error = row.errorOf(row.type, row.good, row.malformed);
        CHECK(error.find(L"void convertPropertyToClass(") == 0);
        CHECK(error.find(String(row.type) + L" &)") > 0);
    }
}

TEST_CASE("through the converter of a class the slot decides, and not the document")
{
    Handle_T<Property> slot;
    CHECK(throughConverter(L"Message", L"{\"__class__\":\"Property\"}", slot) ==
          L"{\"__class__\":\"Message\"}");
    CHECK(throughConverter(L"Message", L"null", slot) == L"null");
    CHECK(slot.isNull());
}

namespace {

class FakeConverter : public IPropertyConverter {
public:
    FakeConverter(const String& rttiClassName, const String& propertyType)
        : IPropertyConverter(rttiClassName, propertyType, true)
    {}
    void set(Void*, const JsonValue&) override {}
    void get(const Void*, JsonValue&) override {}
};

} // namespace

TEST_CASE("a name that is taken is refused")
{
    const Handle_T<IPropertyConverter> fake = new FakeConverter(L"fake type", L"Fake");
    REQUIRE(PropertyFactory::setUpPropertyConverter(fake));
    CHECK(fake->getReferenceCount() == 3);
    const struct {
        const wchar_t *rttiClassName, *propertyType;
        std::size_t errors;
    } rows[] = {
        {L"int", L"Fresh", 1}, {L"fresh type", L"Fake", 1}, {L"int", L"Fake", 1}, {L"fake type", L"Fake", 0}};
    for (const auto& row : rows) {
        CAPTURE(row.rttiClassName);
        CAPTURE(row.propertyType);
        const RecordingLog log;
        const Handle_T<IPropertyConverter> other = new FakeConverter(row.rttiClassName, row.propertyType);
        CHECK(!PropertyMembership(other).joined());
        CHECK(other->getReferenceCount() == 1);
        String error;
        error.format(L"Property: (%s) has been setup error! RTTI class name(%s)", row.propertyType,
                     row.rttiClassName);
        CHECK(log.errors() == std::vector<String>(row.errors, error));
        CHECK(PropertyFactory::getPropertyConverter(L"Fresh") == nullptr);
        CHECK(PropertyFactory::getPropertyConverterByRttiClassName(L"fresh type") == nullptr);
        CHECK(PropertyFactory::getPropertyConverter(L"Fake") == fake);
    }
    CHECK(!PropertyFactory::setUpPropertyConverter(nullptr));
    PropertyFactory::tearDownPropertyConverter(L"Nobody");
    PropertyFactory::tearDownPropertyConverter(L"Fake");
    CHECK(fake->getReferenceCount() == 1);
    CHECK(PropertyFactory::getPropertyConverterByRttiClassName(L"fake type") == nullptr);
}
