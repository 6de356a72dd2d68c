#include "TextPrinting.h"

#include "RecordingLog.h"
#include "TempDirectory.h"

#include <orvi/core/Core.h>
#include <orvi/core/Json.h>

#include <atomic>
#include <list>
#include <thread>
#include <vector>

using orvi::Handle_T;
using orvi::Json;
using orvi::JsonValue;
using orvi::Property;
using orvi::PropertyDummy;
using orvi::PropertyFactory;
using orvi::PropertyHelper;
using orvi::String;

// The classes of docs/properties.md

class Layer : public Property {
    ORVI_DECLARE_PROPERTY(Layer, Property);

public:
    String name;
};
ORVI_DEFINE_PROPERTY(Layer) { table.add(L"name", &Layer::name); }

class Shape : public Property {
    ORVI_DECLARE_PROPERTY(Shape, Property);

public:
    Handle_T<Layer> layer;
    std::vector<Handle_T<Shape>> parts;
    int legs = 4;
};
ORVI_DEFINE_PROPERTY(Shape)
{
    table.add(L"layer", &Shape::layer);
    table.add(L"legs", &Shape::legs);
    table.add(L"parts", &Shape::parts, L"from back to front");
}

class Circle : public Shape {
    ORVI_DECLARE_PROPERTY(Circle, Shape);

public:
    float radius() const { return _radius; }

private:
    float _radius = 1;
};
ORVI_DEFINE_PROPERTY(Circle) { table.add(L"radius", &Circle::_radius, L"in millimetres"); }

namespace {

struct Mixin { // in front: the Property in the object does not lie at its beginning
    virtual ~Mixin() = default;
    int weight = 3;
};

class Robot : public Mixin, public Shape {
    class Arm : public Property {
        ORVI_DECLARE_PROPERTY(Arm, Property);
        std::list<int> _joints{1, 2};
    };
    ORVI_DECLARE_PROPERTY(Robot, Shape);

public:
    const Handle_T<Robot>& friendOfIt() const { return _friend; }
    short ownLegs() const { return _legs; }

private:
    Handle_T<Robot> _friend;
    Handle_T<Arm> _arm = Arm::createInstance();
    short _legs = 2;
};
ORVI_DEFINE_PROPERTY(Robot::Arm) { table.add(L"joints", &Robot::Arm::_joints); }
ORVI_DEFINE_PROPERTY(Robot)
{
    table.add(L"arm", &Robot::_arm);
    table.add(L"friend", &Robot::_friend);
    table.add(L"legs", &Robot::_legs); // hides that of Shape
    table.add(L"weight", &Robot::weight);
}

/** Tells when it goes. */
class Tracker : public Property {
    ORVI_DECLARE_PROPERTY(Tracker, Property);

public:
    Handle_T<Tracker> next;
    std::vector<Handle_T<Tracker>> others;
    static int alive;

protected:
    Tracker() { ++alive; }
    ~Tracker() override { --alive; }
};
int Tracker::alive = 0;
ORVI_DEFINE_PROPERTY(Tracker)
{
    table.add(L"next", &Tracker::next);
    table.add(L"others", &Tracker::others);
}

struct Opaque { // its form is known, and nobody registers it
    int value = 0;
};
[[maybe_unused]] void convertPropertyToClass(const JsonValue& value, Opaque& target)
{
    target.value = value.asInt32();
}
[[maybe_unused]] void convertPropertyToJson(const Opaque& source, JsonValue& value)
{
    value = JsonValue(source.value);
}

class Holder : public Property {
    ORVI_DECLARE_PROPERTY(Holder, Property);

public:
    orvi::Time time = 5;
    Opaque opaque;
    int zeal = 1;
};
ORVI_DEFINE_PROPERTY(Holder)
{
    table.add(L"opaque", &Holder::opaque);
    table.add(L"time", &Holder::time);
    table.add(L"zeal", &Holder::zeal);
}

/** Used before its statics have had their turn. */
class Early : public Property {
    ORVI_DECLARE_PROPERTY(Early, Property);
    int _number = 1;
};
const String early = PropertyHelper::convertToString(Early::createInstance(), false);
ORVI_DEFINE_PROPERTY(Early) { table.add(L"number", &Early::_number); }

JsonValue parsed(const wchar_t* text)
{
    JsonValue value;
    REQUIRE(Json::parseValue(text, value) != nullptr);
    return value;
}

String textOf(const Property* object) { return PropertyHelper::convertToString(object, false); }

template <class T>
Handle_T<T> made(const wchar_t* text)
{
    return PropertyHelper::convertToClass(text);
}

} // namespace

TEST_CASE("an object becomes a document and a document an object")
{
    const Handle_T<Circle> circle = Circle::createInstance();
    circle->layer = Layer::createInstance();
    circle->layer->name = L"roof";
    circle->parts = {Shape::createInstance(), nullptr};
    const wchar_t* text = L"{\"__class__\":\"Circle\",\"layer\":{\"__class__\":\"Layer\",\"name\":\"roof\"},"
                          L"\"legs\":4,\"parts\":[{\"__class__\":\"Shape\",\"layer\":null,\"legs\":4,"
                          L"\"parts\":[]},null],\"radius\":1}";
    CHECK(textOf(circle) == text);

    const Handle_T<Property> again = PropertyHelper::convertToClass(text);
    REQUIRE(!again.isNull());
    CHECK(again->getReferenceCount() == 1);
    CHECK(again->getClassName() == L"Circle");
    CHECK(again->getPropertyType() == L"Circle");
    CHECK(textOf(again) == text);
    CHECK(!Handle_T<Circle>(again)->parts[0].isNull());

    CHECK(textOf(Property::createInstance()) == L"{\"__class__\":\"Property\"}");
    const Handle_T<PropertyDummy> dummy = PropertyDummy::createInstance();
    dummy->setObject(Property::createInstance());
    CHECK(PropertyHelper::convertToString(dummy, true) ==
          L"{\n    \"__class__\" : \"PropertyDummy\",\n    \"obj\" : {\n        \"__class__\" : "
          L"\"Property\"\n    }\n}");
    CHECK(textOf(nullptr) == L"null");
}

TEST_CASE("a document in a readable form")
{
    const Handle_T<Circle> circle = Circle::createInstance();
    circle->layer = Layer::createInstance();
    circle->layer->name = L"roof";
    const wchar_t* text = LR"({
    "__class__" : "Circle",
    "layer" : {
        "__class__" : "Layer",
        "name" : "roof"
    },
    "legs" : 4,
    "parts" : [
    ],
    "radius" : 1
})";
    CHECK(PropertyHelper::convertToString(circle, true) == text);
    CHECK(textOf(PropertyHelper::convertToClass(text)) == textOf(circle));
}

TEST_CASE("a class may be used before its own static objects are there")
{
    CHECK(early == L"{\"__class__\":\"Early\",\"number\":1}");
}

TEST_CASE("import merges, and members take the class that their document names")
{
    const Handle_T<Robot> robot = Robot::createInstance();
    robot->importProperty(parsed(L"{\"__class__\":\"Other\",\"legs\":7,\"layer\":{\"__class__\":\"Layer\"},"
                                 L"\"friend\":{\"__class__\":\"Robot\",\"weight\":9},\"x\":1}"));
    CHECK(robot->ownLegs() == 7);
    CHECK(robot->legs == 4); // hidden
    CHECK(robot->weight == 3);
    REQUIRE(!robot->layer.isNull());
    REQUIRE(!robot->friendOfIt().isNull());
    CHECK(robot->friendOfIt()->weight == 9);
    robot->importProperty(parsed(L"{\"weight\":1}"));
    robot->importProperty(parsed(L"[1]"));
    CHECK(!robot->layer.isNull());
    CHECK(textOf(robot).find(L"\"arm\":{\"__class__\":\"Arm\",\"joints\":[1,2]}") >= 0);

    const Handle_T<Shape> shape =
        made<Shape>(L"{\"__class__\":\"Shape\",\"parts\":[{\"__class__\":\"Robot\"},"
                    L"{\"__class__\":\"Layer\"},{},{\"__class__\":\"Circle\"}]}");
    REQUIRE(shape->parts.size() == 4);
    CHECK(!Handle_T<Robot>(shape->parts[0]).isNull());
    CHECK(shape->parts[1].isNull());
    CHECK(shape->parts[2].isNull());
    CHECK(!Handle_T<Circle>(shape->parts[3]).isNull());
}

TEST_CASE("a table has its own attributes and those of its bases")
{
    const Handle_T<Robot> robot = Robot::createInstance();
    const orvi::PropertyAttributes& table = robot->getPropertyAttributes();
    CHECK(&table == &Robot::createInstance()->getPropertyAttributes());
    String keys;
    for (const auto& [key, attribute] : table)
        keys += key + L" ";
    CHECK(keys == L"arm friend layer legs parts weight ");
    CHECK(Shape::createInstance()->getPropertyAttributes().size() == 3);
    CHECK(Property::createInstance()->getPropertyAttributes().empty());

    orvi::IPropertyAttribute& legs = *table.find(L"legs")->second;
    CHECK(legs.getPropertyName() == L"legs");
    CHECK(legs.getRttiClassName() == L"short");
    CHECK(legs.getPropertyRawName() == L"(anonymous namespace)::Robot::legs");
    CHECK(legs.getDescription().isEmpty());
    CHECK(legs.isUnitProperty());
    CHECK(legs.getPropertyType() == L"int16_t");
    orvi::IPropertyAttribute& layer = *table.find(L"layer")->second;
    CHECK(layer.getRttiClassName() == L"Layer");
    CHECK(layer.getPropertyRawName() == L"Shape::layer");
    CHECK(!layer.isUnitProperty());
    CHECK(layer.getPropertyConverter() == PropertyFactory::getPropertyConverter(L"Layer"));
    CHECK(table.find(L"parts")->second->getDescription() == L"from back to front");
    CHECK(Holder::createInstance()
              ->getPropertyAttributes()
              .find(L"opaque")
              ->second->getPropertyType()
              .isEmpty());
}

TEST_CASE("what is wrong with one member leaves the others alone")
{
    const wchar_t* wrongType = L"Error attribute implement. ";
    const wchar_t* refused = L"void PropertyAttribute::set(";
    const wchar_t* badTime = L"void convertPropertyToClass(JsonValue const &,Time &)";
    const struct {
        const char* what;
        const wchar_t* member;
        std::vector<const wchar_t*> errors;
    } rows[] = {
        {"no such property", L"\"tail\":{\"__class__\":\"Nobody\"}", {}},
        {"null for a handle", L"\"layer\":null", {}},
        {"number for a handle", L"\"layer\":5", {}},
        {"object without a class", L"\"layer\":{\"name\":\"x\"}", {}},
        {"empty class name", L"\"layer\":{\"__class__\":\"\"}", {}},
        {"class of another kind", L"\"layer\":{\"__class__\":\"Circle\"}", {wrongType, refused}},
        {"base of the class", L"\"layer\":{\"__class__\":\"Property\"}", {wrongType, refused}},
        {"unknown class", L"\"layer\":{\"__class__\":\"Nobody\"}", {refused}},
        {"class name that is a container", L"\"layer\":{\"__class__\":[[]]}", {refused}},
        {"value converter for a handle", L"\"layer\":{\"__class__\":\"int32_t\"}", {wrongType, refused}},
        {"class for a value", L"\"legs\":{\"__class__\":\"Layer\"}", {wrongType, refused}},
        {"other type for a value", L"\"legs\":{\"__class__\":\"String\"}", {wrongType, refused}},
        {"larger type for a value", L"\"legs\":{\"__class__\":\"Rect\",\"top\":1}", {wrongType, refused}},
        {"unknown type for a value", L"\"legs\":{\"__class__\":\"Nobody\"}", {refused}},
        {"other collection", L"\"parts\":{\"__class__\":\"LayerArray\"}", {wrongType, refused}},
        {"malformed time in a part",
         L"\"layer\":{\"__class__\":\"Holder\",\"time\":\"x\"}",
         {badTime, wrongType, refused}},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        const Handle_T<Circle> circle = Circle::createInstance();
        const Handle_T<Layer> layer = circle->layer = Layer::createInstance();
        circle->parts.resize(1);
        const RecordingLog log;
        circle->importProperty(parsed(String(L"{\"a\":1,") + row.member + L",\"radius\":3,\"z\":2}"));
        CHECK(circle->radius() == 3);
        CHECK(circle->layer == layer);
        CHECK(circle->legs == 4);
        CHECK(circle->parts.size() == 1);
        REQUIRE(log.lines().size() == row.errors.size());
        for (std::size_t i = 0; i < row.errors.size(); ++i)
            CHECK(log.errors()[i].find(row.errors[i]) == 0);
    }
}

TEST_CASE("a converter that throws has cleared the member, and an unknown type has no key")
{
    const RecordingLog log;
    const Handle_T<Holder> holder = Holder::createInstance();
    holder->importProperty(parsed(L"{\"opaque\":1,\"time\":7,\"zeal\":2}"));
    CHECK(holder->time == 0);
    CHECK(holder->zeal == 2);
    JsonValue document(5);
    holder->exportProperty(document);
    CHECK(document.size() == 3);
    CHECK(document.getMembers().count(L"opaque") == 0);
    CHECK(document[L"zeal"] == 2);
    const std::vector<String> errors = log.errors();
    REQUIRE(errors.size() == 3);
    CHECK(errors[0].find(L"void PropertyAttribute::set(") == 0);
    CHECK(errors[0].find(L" @ (anonymous namespace)::Opaque (anonymous namespace)::Holder::opaque") > 0);
    CHECK(errors[1] == L"void convertPropertyToClass(JsonValue const &,Time &)");
    CHECK(errors[2].find(L"void PropertyAttribute::get(") == 0);
}

TEST_CASE("attributes refuse objects of other classes")
{
    orvi::IPropertyAttribute& radius =
        *Circle::createInstance()->getPropertyAttributes().find(L"radius")->second;
    JsonValue value(5);
    for (const Handle_T<Property>& object :
         {Handle_T<Property>(Layer::createInstance()), Handle_T<Property>()}) {
        CHECK_THROWS_AS(radius.set(object, radius.getPropertyConverter(), value), orvi::Exception);
        CHECK_THROWS_AS(radius.get(object, radius.getPropertyConverter(), value), orvi::Exception);
    }
    float number = 0;
    auto* target = reinterpret_cast<orvi::Void*>(&number);
    orvi::ProcessPropertyAttribute_set(&radius, L"float", target, value);
    CHECK(number == 5);
    orvi::ProcessPropertyAttribute_get(&radius, L"float", target, value);
    CHECK(value.type() == JsonValue::realValue);
    try {
        orvi::ProcessPropertyAttribute_set(&radius, L"Nobody", target, value);
        FAIL("nothing thrown");
    } catch (const orvi::Exception& exception) {
        String expected;
        expected.format(L"void ProcessPropertyAttribute::set(%p, %p) @ float Circle::radius", target,
                        nullptr);
        CHECK(exception.description() == expected);
        CHECK(String(exception.file()).find(L"src/core/properties/Property") == 0);
    }
    CHECK_THROWS_AS(orvi::ProcessPropertyAttribute_get(&radius, L"Nobody", target, value), orvi::Exception);
    // A null that a caller passes itself empties a handle.
    const Handle_T<Shape> shape = Shape::createInstance();
    shape->layer = Layer::createInstance();
    orvi::IPropertyAttribute& layer = *shape->getPropertyAttributes().find(L"layer")->second;
    layer.set(shape, layer.getPropertyConverter(), JsonValue());
    CHECK(shape->layer.isNull());
}

TEST_CASE("objects that hold each other end")
{
    {
        const Handle_T<Tracker> one = Tracker::createInstance();
        const Handle_T<Tracker> two = Tracker::createInstance();
        one->next = two;
        two->next = one;
        two->others = {one, two, Tracker::createInstance()};
        const RecordingLog log;
        CHECK(textOf(one) ==
              L"{\"__class__\":\"Tracker\",\"next\":{\"__class__\":\"Tracker\"},\"others\":[]}");
        CHECK(log.errors() ==
              std::vector<String>(2, L"void Property::exportProperty(JsonValue &) An object holds itself!"));
        one->next.setNull();
        two->others.clear();
    }
    CHECK(Tracker::alive == 0);
}

namespace {

JsonValue nestedDocument(int depth, const wchar_t* key)
{
    JsonValue document;
    for (int i = 0; i < depth; ++i) {
        JsonValue outer;
        outer[L"__class__"] = L"Tracker";
        JsonValue& place = key == String(L"others") ? outer[key][0] : outer[key];
        place.swap(document);
        document.swap(outer);
    }
    return document;
}

int depthOf(const JsonValue& document, const wchar_t* key)
{
    int depth = 0;
    for (const JsonValue* value = &document; value->isObject(); ++depth) {
        const JsonValue& member = (*value)[key];
        value = member.isArray() ? &member[0] : &member;
    }
    return depth;
}

} // namespace

TEST_CASE("nesting has a bound, in documents and in objects")
{
    for (const wchar_t* key : {L"next", L"others"}) {
        CAPTURE(key);
        const JsonValue deep = nestedDocument(100000, key);
        const RecordingLog log;
        Handle_T<Tracker> object = PropertyHelper::convertPropertyToClass(deep);
        CHECK(log.errors() ==
              std::vector<String>{L"void Property::importProperty(JsonValue const &) Nested too deep!"});
        CHECK(Tracker::alive == 1024);
        JsonValue document;
        object->exportProperty(document);
        CHECK(depthOf(document, key) == 1024);
        CHECK(log.errors().size() == 1);

        const Handle_T<Tracker> larger = Tracker::createInstance();
        (key == String(L"others") ? larger->others.emplace_back() : larger->next) = object;
        larger->exportProperty(document);
        CHECK(depthOf(document, key) == 1024);
        CHECK(log.errors().size() == 2);
        CHECK(log.errors().back() == L"void Property::exportProperty(JsonValue &) Nested too deep!");
    }
    CHECK(Tracker::alive == 0);
}

TEST_CASE("a document is whole again after it was read")
{
    const JsonValue document = parsed(L"{\"__class__\":\"Holder\",\"time\":\"never\",\"zeal\":2}");
    const JsonValue copy = document;
    const RecordingLog log;
    CHECK(!PropertyHelper::convertPropertyToClass(document).isNull());
    CHECK(document == copy);
    const struct {
        const char* what;
        const wchar_t* text;
        std::size_t errors;
    } rows[] = {
        {"no class", L"{}", 0},
        {"number", L"5", 0},
        {"malformed", L"{\"a\":", 0},
        {"nothing", L"", 0},
        {"null", L"null", 0},
        {"unknown class", L"{\"__class__\":\"Nobody\"}", 1},
        {"value", L"{\"__class__\":\"Rect\"}", 2},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        log.clear();
        CHECK(PropertyHelper::convertToClass(row.text).isNull());
        CHECK(log.errors().size() == row.errors);
    }
    CHECK(PropertyHelper::convertToClass(L" {\"__class__\":\"Layer\"} and more") != nullptr);
    JsonValue written(7);
    PropertyHelper::convertPropertyToJson(nullptr, written);
    CHECK(written.isNull());
}

TEST_CASE("objects on streams and in files")
{
    const Handle_T<Layer> layer = Layer::createInstance();
    layer->name = L"Dach \x00FC";
    const Handle_T<orvi::MemoryStream> stream = orvi::MemoryStream::createInstance();
    CHECK(PropertyHelper::write(layer, stream, false));
    CHECK(textOf(PropertyHelper::read(stream)) == textOf(layer));
    CHECK(!PropertyHelper::write(layer, nullptr, false));
    CHECK(PropertyHelper::read(nullptr).isNull());

    const TempDirectory directory;
    const String path = directory.name("layer.json");
    CHECK(PropertyHelper::save(layer, path, true));
    const Handle_T<Layer> loaded = PropertyHelper::load(path);
    REQUIRE(!loaded.isNull());
    CHECK(loaded->name == layer->name);
    CHECK(PropertyHelper::save(nullptr, path, true));
    CHECK(PropertyHelper::load(path).isNull());
    CHECK(!PropertyHelper::save(layer, directory.name("missing/layer.json"), true));
    CHECK(PropertyHelper::load(directory.name("missing")).isNull());
}

TEST_CASE("messages")
{
    const Handle_T<orvi::Message> message = orvi::Message::createMessage_();
    CHECK(message->getClassId() == 0xD44B5952);
    CHECK(textOf(message) == L"{\"__class__\":\"Message\"}");
    const Handle_T<orvi::Message> copy = message->clone();
    REQUIRE(!copy.isNull());
    CHECK(copy != message);
    CHECK(copy->getPropertyType() == L"Message");
    CHECK(orvi::Message::g_propertyType == L"Message");
}

// First used by many threads at once.
class Late : public Shape {
    ORVI_DECLARE_PROPERTY(Late, Shape);
    int _own = 1;
};
ORVI_DEFINE_PROPERTY(Late) { table.add(L"own", &Late::_own); }

TEST_CASE("many threads use a class for the first time")
{
    std::vector<std::thread> threads;
    std::atomic<int> good = 0;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&good] {
            for (int round = 0; round < 50; ++round) {
                const Handle_T<Property> late = PropertyHelper::convertToClass(
                    L"{\"__class__\":\"Late\",\"layer\":{\"__class__\":\"Layer\",\"name\":\"x\"},\"own\":2}");
                good += late->getPropertyAttributes().size() == 4 &&
                        textOf(late).find(L"\"name\":\"x\"},\"legs\":4,\"own\":2") > 0;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    CHECK(good == 4 * 50);
}
