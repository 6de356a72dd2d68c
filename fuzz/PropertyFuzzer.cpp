#include "Input.h"

#include <orvi/core/Core.h>
#include <orvi/core/Json.h>

#include <list>

using namespace orvi;
using fuzz::expect;

namespace {

class Numbers : public Property {
    ORVI_DECLARE_PROPERTY(Numbers, Property);

public:
    bool truth = true;
    signed char tiny = -1;
    unsigned char octet = 1;
    unsigned short word = 2;
    int number = 3;
    unsigned int count = 4;
    long long large = 5;
    unsigned long size = 6;
    float ratio = 0.5f;
    double real = 0.25;
    Varint varint = 7;
    Varint64 varint64 = 8;
};
ORVI_DEFINE_PROPERTY(Numbers)
{
    table.add(L"count", &Numbers::count);
    table.add(L"large", &Numbers::large);
    table.add(L"number", &Numbers::number);
    table.add(L"octet", &Numbers::octet);
    table.add(L"ratio", &Numbers::ratio);
    table.add(L"real", &Numbers::real);
    table.add(L"size", &Numbers::size);
    table.add(L"tiny", &Numbers::tiny);
    table.add(L"truth", &Numbers::truth);
    table.add(L"varint", &Numbers::varint);
    table.add(L"varint64", &Numbers::varint64);
    table.add(L"word", &Numbers::word);
}

class Node : public Property {
    ORVI_DECLARE_PROPERTY(Node, Property);

public:
    String name;
    Handle_T<Node> next;
    Handle_T<Numbers> numbers;
    Handle_T<Property> any;
    std::vector<Handle_T<Node>> parts;
    std::list<Handle_T<Property>> mixture;
};
ORVI_DEFINE_PROPERTY(Node)
{
    table.add(L"any", &Node::any);
    table.add(L"mixture", &Node::mixture);
    table.add(L"name", &Node::name);
    table.add(L"next", &Node::next);
    table.add(L"numbers", &Node::numbers);
    table.add(L"parts", &Node::parts);
}

class Values : public Node {
    ORVI_DECLARE_PROPERTY(Values, Node);

public:
    int name = 0; // hides that of Node
    Buffer buffer;
    Time time;
    TimeSpan span;
    Uuid uuid;
    uuid_node_t node;
    Point_T<int> point;
    Rect_T<float> rect;
    Quaternion turn;
    std::vector<double> reals;
    std::vector<bool> flags;
    std::list<String> texts;
    std::vector<Time> times;
    std::vector<Vector3> places;
};
ORVI_DEFINE_PROPERTY(Values)
{
    table.add(L"buffer", &Values::buffer);
    table.add(L"flags", &Values::flags);
    table.add(L"name", &Values::name);
    table.add(L"node", &Values::node);
    table.add(L"places", &Values::places);
    table.add(L"point", &Values::point);
    table.add(L"reals", &Values::reals);
    table.add(L"rect", &Values::rect);
    table.add(L"span", &Values::span);
    table.add(L"texts", &Values::texts);
    table.add(L"time", &Values::time);
    table.add(L"times", &Values::times);
    table.add(L"turn", &Values::turn);
    table.add(L"uuid", &Values::uuid);
}

String print(const Property* object) { return PropertyHelper::convertToString(object, false); }

/** The document of an object makes an object with the same document. */
void checkObject(const Property* object)
{
    JsonValue document;
    PropertyHelper::convertPropertyToJson(object, document);
    const String text = Json::convertToString(document, false);
    const Handle_T<Property> again = PropertyHelper::convertPropertyToClass(document);
    expect(!again.isNull(), "a document names its class");
    expect(print(again) == text, "what was exported can be imported");

    const Handle_T<Property> over = PropertyHelper::convertPropertyToClass(document);
    over->importProperty(document);
    expect(print(over) == text, "a second import changes nothing");

    // Through text doubles lose digits, -0 its sign, and an infinity is none of JSON: once.
    const Handle_T<Property> parsed = PropertyHelper::convertToClass(text);
    if (parsed.isNull())
        return;
    const String second = print(parsed);
    expect(print(PropertyHelper::convertToClass(second)) == second, "the second text is the third");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    JsonValue document;
    if (Json::parseValue(fuzz::Input(data, size).takeText(), document) == nullptr)
        return 0;
    const Handle_T<Property> object = PropertyHelper::convertPropertyToClass(document);
    if (!object.isNull())
        checkObject(object);
    for (const Handle_T<Property>& target :
         {Handle_T<Property>(Values::createInstance()), Handle_T<Property>(Numbers::createInstance()),
          Handle_T<Property>(Node::createInstance())}) {
        target->importProperty(document);
        checkObject(target);
    }
    return 0;
}
