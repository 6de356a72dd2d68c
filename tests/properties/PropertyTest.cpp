#include "JsonText.h"
#include "RecordingLog.h"
#include "TempDirectory.h"
#include "TextPrinting.h"

#include <orvi/core/Core.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace orvi;

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

namespace {

struct Mixin { // in front: the Property in the object does not lie at its beginning
    virtual ~Mixin() = default;
    int weight = 3;
};

class Robot : public Mixin, public Shape {
    ORVI_DECLARE_PROPERTY(Robot, Shape);

public:
    Handle_T<Robot> other;
    short ownLegs = 2;
};
ORVI_DEFINE_PROPERTY(Robot)
{
    table.add(L"friend", &Robot::other);
    table.add(L"legs", &Robot::ownLegs); // hides that of Shape
    table.add(L"weight", &Robot::weight);
}

class Tracker : public Property {
    ORVI_DECLARE_PROPERTY(Tracker, Property);

public:
    Tracker() { ++alive; }
    ~Tracker() override { --alive; }
    Handle_T<Tracker> next;
    std::vector<Handle_T<Tracker>> others;
    inline static int alive = 0;
};
ORVI_DEFINE_PROPERTY(Tracker)
{
    table.add(L"next", &Tracker::next);
    table.add(L"others", &Tracker::others);
}

struct Opaque {}; // its form is known, and nobody registers it
[[maybe_unused]] void convertPropertyToClass(const JsonValue&, Opaque&) {}
[[maybe_unused]] void convertPropertyToJson(const Opaque&, JsonValue&) {}

class Holder : public Property {
    ORVI_DECLARE_PROPERTY(Holder, Property);

public:
    Opaque opaque;
    Time time = 5;
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

int depthOf(const JsonValue& document)
{
    int depth = 0;
    for (const JsonValue* value = &document; value->isObject(); ++depth)
        value = (*value)[L"next"].isObject() ? &(*value)[L"next"] : &(*value)[L"others"][0];
    return depth;
}

String textOf(const Property* object) { return PropertyHelper::convertToString(object, false); }

} // namespace

TEST_CASE("an object becomes a document and a document an object")
{
    const Handle_T<Robot> robot = new Robot;
    robot->layer = Layer::createInstance();
    robot->layer->name = L"roof";
    robot->parts = {Shape::createInstance(), nullptr};
    const wchar_t* text =
        L"{\"__class__\":\"Robot\",\"friend\":null,"
        L"\"layer\":{\"__class__\":\"Layer\",\"name\":\"roof\"},\"legs\":2,"
        L"\"parts\":[{\"__class__\":\"Shape\",\"layer\":null,\"legs\":4,\"parts\":[]},null],"
        L"\"weight\":3}";
    CHECK(textOf(robot) == text);
    const Handle_T<Property> again = PropertyHelper::convertToClass(text);
    REQUIRE(!again.isNull());
    CHECK((again->getReferenceCount() == 1 && again->getPropertyType() == L"Robot"));
    CHECK(textOf(again) == text);
    CHECK(early == L"{\"__class__\":\"Early\",\"number\":1}");
}

TEST_CASE("import merges, and members take the class that their document names")
{
    const Handle_T<Robot> robot = new Robot;
    robot->importProperty(parsed(L"{\"__class__\":\"Other\",\"legs\":7,\"layer\":{\"__class__\":\"Layer\"},"
                                 L"\"friend\":{\"__class__\":\"Robot\",\"weight\":9},\"x\":1}"));
    CHECK((robot->ownLegs == 7 && robot->legs == 4 && robot->weight == 3)); // Shape's legs are hidden
    CHECK((!robot->other.isNull() && robot->other->weight == 9));
    robot->importProperty(parsed(L"{\"weight\":1}"));
    robot->importProperty(parsed(L"[1]"));
    CHECK(!robot->layer.isNull());

    const Handle_T<Shape> shape = PropertyHelper::convertToClass(
        L"{\"__class__\":\"Shape\",\"parts\":[{\"__class__\":\"Robot\"},{\"__class__\":\"Layer\"},{},5]}");
    REQUIRE(shape->parts.size() == 4);
    CHECK(!Handle_T<Robot>(shape->parts[0]).isNull());
    CHECK((shape->parts[1].isNull() && shape->parts[2].isNull() && shape->parts[3].isNull()));
}

TEST_CASE("a table has its own attributes and those of its bases")
{
    const PropertyAttributes& table = Robot::createInstance()->getPropertyAttributes();
    String keys;
    for (const auto& [key, attribute] : table)
        keys += key + L" " + attribute->getPropertyType() + L"\n";
    CHECK(keys == L"friend Robot\nlayer Layer\nlegs int16_t\nparts ShapeArray\nweight int32_t\n");
    CHECK(Shape::createInstance()->getPropertyAttributes().size() == 3);
    CHECK(table.find(L"layer")->second->getPropertyRawName() == L"Shape::layer");
    CHECK(table.find(L"parts")->second->getDescription() == L"from back to front");
    CHECK(Holder::createInstance()->getPropertyAttributes().begin()->second->getPropertyType().isEmpty());
}

TEST_CASE("what is wrong with one member leaves the others alone")
{
    const wchar_t* wrongType = L"Error attribute implement. ";
    const wchar_t* refused = L"void PropertyAttribute::set(";
    const wchar_t* badTime = L"void convertPropertyToClass(JsonValue const &,Time &)";
    const struct {
        const wchar_t* member;
        std::vector<const wchar_t*> errors;
    } rows[] = {
        {L"\"tail\":{\"__class__\":\"Nobody\"}", {}},
        {L"\"layer\":null", {}},
        {L"\"layer\":{\"__class__\":\"\"}", {}},
        {L"\"layer\":{\"__class__\":\"Shape\"}", {wrongType, refused}},
        {L"\"layer\":{\"__class__\":\"Property\"}", {wrongType, refused}}, // the base of the class
        {L"\"layer\":{\"__class__\":\"Nobody\"}", {refused}},
        {L"\"layer\":{\"__class__\":[[]]}", {refused}},
        {L"\"layer\":{\"__class__\":\"int32_t\"}", {wrongType, refused}},
        {L"\"legs\":{\"__class__\":\"Layer\"}", {wrongType, refused}},
        {L"\"legs\":{\"__class__\":\"Rect\",\"top\":1}", {wrongType, refused}},
        {L"\"layer\":{\"__class__\":\"Holder\",\"time\":\"x\"}", {badTime, wrongType, refused}},
    };
    for (const auto& row : rows) {
        CAPTURE(row.member);
        const Handle_T<Robot> robot = new Robot;
        const Handle_T<Layer> layer = robot->layer = Layer::createInstance();
        const RecordingLog log;
        robot->importProperty(parsed(String(L"{\"a\":1,") + row.member + L",\"weight\":8,\"z\":2}"));
        CHECK((robot->weight == 8 && robot->layer == layer && robot->ownLegs == 2));
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
    JsonValue document(5);
    holder->exportProperty(document);
    CHECK((document.size() == 3 && document[L"opaque"].isNull() && document[L"zeal"] == 2));
    const std::vector<String> errors = log.errors();
    REQUIRE(errors.size() == 3);
    CHECK(errors[0].find(L" @ (anonymous namespace)::Opaque (anonymous namespace)::Holder::opaque") > 0);
    CHECK(errors[2].find(L"void PropertyAttribute::get(") == 0);
}

TEST_CASE("attributes refuse objects of other classes and types that nobody knows")
{
    const Handle_T<Robot> robot = new Robot;
    IPropertyAttribute& weight = *robot->getPropertyAttributes().find(L"weight")->second;
    JsonValue value(5);
    for (const Handle_T<Property>& object : {Handle_T<Property>(new Layer), Handle_T<Property>()}) {
        CHECK_THROWS_AS(weight.set(object, weight.getPropertyConverter(), value), Exception);
        CHECK_THROWS_AS(weight.get(object, weight.getPropertyConverter(), value), Exception);
    }
    float number = 0;
    ProcessPropertyAttribute_set(&weight, L"float", reinterpret_cast<Void*>(&number), value);
    CHECK(number == 5);
    CHECK_THROWS_AS(ProcessPropertyAttribute_set(&weight, L"Nobody", nullptr, value), Exception);
    // A null that a caller passes itself empties a handle.
    robot->layer = Layer::createInstance();
    IPropertyAttribute& layer = *robot->getPropertyAttributes().find(L"layer")->second;
    layer.set(robot, layer.getPropertyConverter(), JsonValue());
    CHECK(robot->layer.isNull());
}

TEST_CASE("nesting has a bound, in documents and in objects, and objects that hold each other end")
{
    const Handle_T<Tracker> one = new Tracker, two = new Tracker;
    one->next = two;
    two->next = one;
    two->others = {one, two, new Tracker};
    const RecordingLog log;
    CHECK(textOf(one) == L"{\"__class__\":\"Tracker\",\"next\":{\"__class__\":\"Tracker\"},\"others\":[]}");
    CHECK(log.errors() ==
          std::vector<String>(2, L"void Property::exportProperty(JsonValue &) An object holds itself!"));
    one->next.setNull();
    two->others.clear();

    JsonValue deep, document; // along each kind of member in turn
    for (int i = 0; i < 3000; ++i) {
        JsonValue outer;
        outer[L"__class__"] = L"Tracker";
        (i % 2 == 0 ? outer[L"next"] : outer[L"others"][0]).swap(deep);
        deep.swap(outer);
    }
    log.clear();
    const Handle_T<Tracker> larger = new Tracker;
    larger->next = PropertyHelper::convertPropertyToClass(deep);
    CHECK(Tracker::alive == 3 + 1024);
    larger->next->exportProperty(document);
    CHECK(depthOf(document) == 1024);
    larger->exportProperty(document);
    CHECK(depthOf(document) == 1024);
    CHECK(log.errors() ==
          std::vector<String>{L"void Property::importProperty(JsonValue const &) Nested too deep!",
                              L"void Property::exportProperty(JsonValue &) Nested too deep!"});
    larger->next.setNull();
    CHECK(Tracker::alive == 3);
}

TEST_CASE("objects on streams and in files")
{
    for (const wchar_t* text : {L"{}", L"5", L"{\"a\":", L"{\"__class__\":\"Rect\"}"})
        CHECK(PropertyHelper::convertToClass(text).isNull());
    const Handle_T<Layer> layer = Layer::createInstance();
    layer->name = L"Dach \x00FC";
    const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
    CHECK((PropertyHelper::write(layer, stream, true) &&
           textOf(PropertyHelper::read(stream)) == textOf(layer)));
    const TempDirectory directory;
    const String path = directory.name("layer");
    CHECK((PropertyHelper::save(layer, path, false) && textOf(PropertyHelper::load(path)) == textOf(layer)));
    CHECK((PropertyHelper::save(nullptr, path, false) && PropertyHelper::load(path).isNull()));
}

// First used by many threads at once.
class Late : public Shape {
    ORVI_DECLARE_PROPERTY(Late, Shape);
    int _own = 1;
};
ORVI_DEFINE_PROPERTY(Late) { table.add(L"own", &Late::_own); }

TEST_CASE("many threads use a class for the first time")
{
    std::vector<std::jthread> threads;
    std::atomic<int> good = 0;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&good] {
            const Handle_T<Property> late = PropertyHelper::convertToClass(
                L"{\"__class__\":\"Late\",\"layer\":{\"__class__\":\"Layer\"},\"own\":2}");
            good += late->getPropertyAttributes().size() == 4 && !Handle_T<Late>(late)->layer.isNull();
        });
    }
    threads.clear(); // joins
    CHECK(good == 4);
}
