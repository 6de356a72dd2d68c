#include "TextPrinting.h"

#include "RecordingLog.h"

#include <orvi/core/Core.h>
#include <orvi/core/Json.h>

#include <unistd.h>

#include <cstdio>
#include <list>
#include <memory>
#include <string>
#include <vector>

using orvi::Handle_T;
using orvi::IPropertyConverter;
using orvi::Json;
using orvi::JsonValue;
using orvi::PropertyConverterUnit;
using orvi::PropertyFactory;
using orvi::String;
using orvi::Void;

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

/** What a T with the text `in` in it writes again through the converter of the name. */
template <class T>
String throughConverter(const wchar_t* type, const wchar_t* in, T& target)
{
    IPropertyConverter& converter = converterOf(type);
    CHECK(converter.getRttiClassName() == orvi::typeName(typeid(T)));
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
    const String single = throughConverter(type, in, target);
    std::vector<T> vector(1);
    std::list<T> list(3);
    const String array = String(L"[") + in + L",null,2]";
    if (!std::is_same_v<T, orvi::Buffer> && !std::is_same_v<T, orvi::Time> &&
        !std::is_same_v<T, orvi::Uuid> && !std::is_same_v<T, orvi::uuid_node_t>) { // those take no null
        const String fromVector = throughConverter(String(type) + L"Array", array, vector);
        CHECK(fromVector.find(single) == 1);
        CHECK(fromVector == throughConverter(String(type) + L"List", array, list));
        CHECK(vector.size() == 3);
    }
    CHECK(throughConverter(String(type) + L"Array", L"{\"a\":1}", vector) == L"[]");
    CHECK(throughConverter(String(type) + L"List", L"null", list) == L"[]");
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
        int warnings = 0;
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
        {L"Varint", &through<orvi::Varint>, L"-2147483648", L"-2147483648"},
        {L"Varint64", &through<orvi::Varint64>, L"9223372036854775807", L"9223372036854775807"},
        {L"TimeSpan", &through<orvi::TimeSpan>, L"-9223372036854775808", L"-9223372036854775808"},
        {L"String", &through<String>, L"7", L"\"7\""},
        {L"Buffer", &through<orvi::Buffer>, L"\"AAEC\"", L"\"AAEC\""},
        {L"Time", &through<orvi::Time>, L"\"2022/6/27 9:58:45\"", L"\"2022-6-27 09:58:45\""},
        {L"Uuid", &through<orvi::Uuid>, uuid, uuid},
        {L"uuid_node_t", &through<orvi::uuid_node_t>, node, node},
        {L"Point", &through<orvi::Point_T<int>>, point, point},
        {L"Pointf", &through<orvi::Point_T<float>>, L"{\"y\":0.5}", L"{\"x\":0,\"y\":0.5}"},
        {L"Rect", &through<orvi::Rect_T<int>>, L"{\"left\":1,\"top\":2,\"right\":3,\"bottom\":4}",
         L"{\"bottom\":4,\"left\":1,\"right\":3,\"top\":2}"},
        {L"Rectf", &through<orvi::Rect_T<float>>, L"{\"bottom\":0.25}",
         L"{\"bottom\":0.25,\"left\":0,\"right\":0,\"top\":0}"},
        {L"Vector2", &through<orvi::Vector2>, point, point},
        {L"Vector3", &through<orvi::Vector3>, L"{\"z\":3}", L"{\"x\":0,\"y\":0,\"z\":3}"},
        {L"Vector4", &through<orvi::Vector4>, L"{\"w\":3,\"x\":1}", L"{\"w\":3,\"x\":1,\"y\":0,\"z\":0}"},
        {L"Quaternion", &through<orvi::Quaternion>, L"{}", L"{\"w\":0,\"x\":0,\"y\":0,\"z\":0}"},
    };
    const RecordingLog log;
    for (const auto& row : rows) {
        CAPTURE(row.type);
        CHECK(row.through(row.type, row.in) == row.out);
        for (const wchar_t* sister : {L"", L"Array", L"List"}) {
            const String type = String(row.type) + sister;
            CHECK(converterOf(type).isUnitProperty());
            CHECK(PropertyFactory::getPropertyConverterByRttiClassName(
                      converterOf(type).getRttiClassName()) == &converterOf(type));
        }
    }
    CHECK(std::size(rows) == 29);
    CHECK(log.lines().empty());

    for (const wchar_t* name : {L"Property", L"PropertyDummy", L"Message"}) {
        CAPTURE(name);
        CHECK(!converterOf(name).isUnitProperty());
        CHECK(converterOf(String(name) + L"Array").isUnitProperty());
        CHECK(converterOf(String(name) + L"List").isUnitProperty());
    }
    for (const wchar_t* name : {L"", L"Object", L"int", L"uint64_t", L"UnknownArray", L"Event", L"Matrix4"})
        CHECK(PropertyFactory::getPropertyConverter(name) == nullptr);
}

TEST_CASE("what does not fit is told as JsonValue tells it")
{
    const RecordingLog log;
    CHECK(through<int>(L"int32_t", L"[]") == L"0");
    CHECK(log.warnings().front() == L"Value is not convertible to Int32");
    CHECK(through<orvi::Point_T<int>>(L"Point", L"7") == L"{\"x\":0,\"y\":0}");
    log.clear();
    int number = 5;
    CHECK(throughConverter(L"int32_t", L"null", number) == L"0");
    std::vector<String> strings;
    CHECK(throughConverter(L"StringArray", L"[\"a\",null,3]", strings) == L"[\"a\",\"\",\"3\"]");
    std::vector<bool> bits;
    CHECK(throughConverter(L"boolArray", L"[true,0,1]", bits) == L"[true,false,true]");
    CHECK(log.lines().empty());

    JsonValue sparse;
    sparse[1000000000] = 1;
    sparse[1] = 2;
    std::vector<int> numbers(5);
    converterOf(L"int32_tArray").set(reinterpret_cast<Void*>(&numbers), sparse);
    CHECK(numbers == std::vector<int>{0, 2});
}

TEST_CASE("texts that are malformed throw and leave nothing")
{
    const wchar_t* buffer = L"void convertPropertyToClass(const String &, Buffer &)";
    const wchar_t* time = L"void convertPropertyToClass(JsonValue const &,Time &)";
    const wchar_t* uuid = L"void convertPropertyToClass(JsonValue const &, Uuid &)";
    const wchar_t* node = L"void convertPropertyToClass(const JsonValue &, uuid_node_t &)";
    const struct {
        const char* what;
        const wchar_t* type;
        const wchar_t* text;
        const wchar_t* error;
    } rows[] = {
        {"number for bytes", L"Buffer", L"7", buffer},
        {"wrong length of Base64", L"Buffer", L"\"AAE\"", buffer},
        {"bad character behind good ones", L"Buffer", L"\"AAECAAE*\"", buffer},
        {"number for a time", L"Time", L"7", time},
        {"no such day", L"Time", L"\"2022-02-30\"", time},
        {"null for a uuid", L"Uuid", L"null", uuid},
        {"35 characters", L"Uuid", L"\"67452301-ab89-efcd-8001-0123456789a\"", uuid},
        {"37 characters", L"Uuid", L"\"67452301-ab89-efcd-8001-0123456789abc\"", uuid},
        {"wrong separator", L"Uuid", L"\"67452301-ab89-efcd-8001+0123456789ab\"", uuid},
        {"11 characters", L"uuid_node_t", L"\"0123456789a\"", node},
        {"no digit", L"uuid_node_t", L"\"0123456789ag\"", node},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        orvi::Buffer bytes(3);
        orvi::Time moment = 5;
        orvi::Uuid id(orvi::Uuid::CREATE);
        orvi::uuid_node_t address = id.node;
        void* target = row.error == buffer ? static_cast<void*>(&bytes)
                       : row.error == time ? static_cast<void*>(&moment)
                       : row.error == uuid ? static_cast<void*>(&id)
                                           : static_cast<void*>(&address);
        String error;
        try {
            converterOf(row.type).set(static_cast<Void*>(target), parsed(row.text));
        } catch (const orvi::Exception& exception) {
            error = exception.description();
        }
        CHECK(error == row.error);
        CHECK((row.error != buffer || bytes.getBufferSize() == 0));
        CHECK((row.error != time || moment == 0));
        CHECK((row.error != uuid || id == orvi::Uuid()));
        CHECK((row.error != node || address == orvi::uuid_node_t()));
    }
}

TEST_CASE("lists of messages hold messages alone")
{
    std::list<Handle_T<orvi::Message>> messages(1);
    CHECK(throughConverter(L"MessageList",
                           L"[{\"__class__\":\"Message\"},null,{\"__class__\":\"Property\"},{}]",
                           messages) == L"[{\"__class__\":\"Message\"},null,null,null]");
    std::vector<Handle_T<orvi::Property>> properties;
    CHECK(throughConverter(L"PropertyArray", L"[{\"__class__\":\"Message\"}]", properties) ==
          L"[{\"__class__\":\"Message\"}]");

    // Through the class itself the slot decides, and not the document.
    Handle_T<orvi::Property> slot;
    IPropertyConverter& converter = converterOf(L"Message");
    converter.set(reinterpret_cast<Void*>(&slot), parsed(L"{\"__class__\":\"Property\"}"));
    REQUIRE(!slot.isNull());
    CHECK(slot->getClassName() == L"Message");
    JsonValue document;
    converter.get(reinterpret_cast<const Void*>(&slot), document);
    CHECK(Json::convertToString(document, false) == L"{\"__class__\":\"Message\"}");
    converter.set(reinterpret_cast<Void*>(&slot), JsonValue());
    CHECK(slot.isNull());
    converter.get(reinterpret_cast<const Void*>(&slot), document);
    CHECK(document.isNull());
}

// A value type of one's own, as in docs/properties.md

namespace paint {

struct Colour {
    unsigned char red = 0, green = 0, blue = 0;
};
void convertPropertyToClass(const orvi::JsonValue& value, Colour& target)
{
    convertPropertyToClass(value[0], target.red);
    convertPropertyToClass(value[1], target.green);
    convertPropertyToClass(value[2], target.blue);
}
void convertPropertyToJson(const Colour& source, orvi::JsonValue& value)
{
    value.clear();
    value[0] = source.red;
    value[1] = source.green;
    value[2] = source.blue;
}
static const orvi::PropertyConverters<Colour> colourConverters(L"Colour");

class Palette : public orvi::Property {
    ORVI_DECLARE_PROPERTY(Palette, orvi::Property);
    Colour _paper;
    std::vector<Colour> _inks;
};
ORVI_DEFINE_PROPERTY(Palette)
{
    table.add(L"inks", &Palette::_inks);
    table.add(L"paper", &Palette::_paper);
}

} // namespace paint

TEST_CASE("a value type of one's own")
{
    CHECK(paint::colourConverters.joined());
    const wchar_t* text = L"{\"__class__\":\"Palette\",\"inks\":[[1,2,3],[0,0,0]],\"paper\":[4,5,6]}";
    CHECK(orvi::PropertyHelper::convertToString(orvi::PropertyHelper::convertToClass(text), false) == text);
}

namespace {

class FakeConverter : public IPropertyConverter {
public:
    FakeConverter(const String& rttiClassName, const String& propertyType, const wchar_t* timestamp = nullptr)
        : IPropertyConverter(rttiClassName, propertyType, true)
        , _timestamp(timestamp)
    {}
    void set(Void*, const JsonValue&) override {}
    void get(const Void*, JsonValue&) override {}
    const wchar_t* getClassTimestamp() const override
    {
        return _timestamp != nullptr ? _timestamp : IPropertyConverter::getClassTimestamp();
    }

private:
    const wchar_t* _timestamp;
};

} // namespace

namespace {

/** What `body` puts on the console. */
template <class Body>
std::string outputOf(Body body)
{
    std::fflush(stdout);
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), &std::fclose);
    const int kept = dup(STDOUT_FILENO);
    dup2(fileno(file.get()), STDOUT_FILENO);
    body();
    dup2(kept, STDOUT_FILENO);
    close(kept);
    std::string text(100, 0);
    std::rewind(file.get());
    text.resize(std::fread(text.data(), 1, text.size(), file.get()));
    return text;
}

} // namespace

TEST_CASE("a converter of another build is a notice on the console")
{
    const Handle_T<IPropertyConverter> fake = new FakeConverter(L"built type", L"Built", L"today");
    const orvi::PropertyMembership membership(fake);
    CHECK(membership.joined());
    const RecordingLog log;
    for (const wchar_t* timestamp : {L"today", L"yesterday"}) {
        CAPTURE(timestamp);
        const std::string output = outputOf([&] {
            const orvi::PropertyMembership second(new FakeConverter(L"built type", L"Built", timestamp));
            CHECK(!second.joined());
        });
        CHECK(output == (timestamp == String(L"today") ? "" : "\nProperty: (Built) has been setup!"));
        CHECK(PropertyFactory::getPropertyConverter(L"Built") == fake);
    }
    CHECK(log.lines().empty());
}

TEST_CASE("a name that is taken is refused")
{
    const Handle_T<IPropertyConverter> fake = new FakeConverter(L"fake type", L"Fake");
    REQUIRE(PropertyFactory::setUpPropertyConverter(fake));
    CHECK(fake->getReferenceCount() == 3);
    const struct {
        const char* what;
        const wchar_t* rttiClassName;
        const wchar_t* propertyType;
        bool isError;
    } rows[] = {
        {"new name, known type", L"int", L"Fresh", true},
        {"known name, new type", L"fresh type", L"Fake", true},
        {"names of two converters", L"int", L"Fake", true},
        {"the same once more", L"fake type", L"Fake", false},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        const RecordingLog log;
        const Handle_T<IPropertyConverter> other = new FakeConverter(row.rttiClassName, row.propertyType);
        CHECK(!PropertyFactory::setUpPropertyConverter(other));
        CHECK(other->getReferenceCount() == 1);
        String expected;
        expected.format(L"Property: (%s) has been setup error! RTTI class name(%s)", row.propertyType,
                        row.rttiClassName);
        CHECK(log.errors() == (row.isError ? std::vector<String>{expected} : std::vector<String>()));
        CHECK(PropertyFactory::getPropertyConverter(L"Fresh") == nullptr);
        CHECK(PropertyFactory::getPropertyConverterByRttiClassName(L"fresh type") == nullptr);
        CHECK(PropertyFactory::getPropertyConverter(L"Fake") == fake);
    }
    CHECK(!PropertyFactory::setUpPropertyConverter(nullptr));
    PropertyFactory::tearDownPropertyConverter(L"Nobody");
    PropertyFactory::tearDownPropertyConverter(L"Fake");
    CHECK(fake->getReferenceCount() == 1);
    CHECK(PropertyFactory::getPropertyConverterByRttiClassName(L"fake type") == nullptr);
    CHECK(PropertyFactory::getPropertyConverterByRttiClassName(L"int") == &converterOf(L"int32_t"));
}
