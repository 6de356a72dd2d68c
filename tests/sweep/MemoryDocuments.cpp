#include "MemorySweep.h"

#include <cstring>

using namespace orvi;
using sweep::Seen;

namespace {

struct Colour {
    int red = 0;
};
void convertPropertyToClass(const JsonValue& value, Colour& target) { target.red = value.asInt32(); }
void convertPropertyToJson(const Colour& source, JsonValue& value) { value = JsonValue(source.red); }

class Leaf : public Message {
    ORVI_DECLARE_MESSAGE(Leaf, Message);

public:
    int number = 42;
    String text = L"leaf";
    std::vector<int> numbers{1, 2, 3};
};
ORVI_DEFINE_MESSAGE(Leaf)
{
    table.add(L"number", &Leaf::number);
    table.add(L"numbers", &Leaf::numbers);
    table.add(L"text", &Leaf::text);
}

class Tree : public Message {
    ORVI_DECLARE_MESSAGE(Tree, Message);

public:
    Handle_T<Leaf> leaf;
    std::vector<Handle_T<Leaf>> leaves;
    std::list<String> names{L"one", L"two"};
    Buffer bytes;
    Time time;
    Uuid id;
    double real = 2.5;
    Rect_T<int> place;
    Vector3 direction;
};
ORVI_DEFINE_MESSAGE(Tree)
{
    table.add(L"bytes", &Tree::bytes);
    table.add(L"direction", &Tree::direction);
    table.add(L"id", &Tree::id);
    table.add(L"leaf", &Tree::leaf);
    table.add(L"leaves", &Tree::leaves);
    table.add(L"names", &Tree::names);
    table.add(L"place", &Tree::place);
    table.add(L"real", &Tree::real);
    table.add(L"time", &Tree::time);
}

Handle_T<Tree> grow()
{
    const auto tree = Tree::createInstance();
    tree->leaf = Leaf::createInstance();
    tree->leaves = {Leaf::createInstance(), Leaf::createInstance()};
    tree->bytes.setBufferSize(3);
    Seen::must(tree->bytes.getBufferSize() == 3);
    std::memset(tree->bytes.getBuffer(), 'x', 3);
    Seen::must(!tree->leaf->text.isEmpty() && !tree->names.back().isEmpty());
    Seen::mustNotHaveLogged(); // no empty texts in the tree
    return tree;
}

constexpr const wchar_t* document =
    L"{\"a\":[1,2.5,true,null,\"t\\u00e9xt\\n and a longer one that does not fit\"],\"b\":{\"c\":{\"d\":-7}},"
    L"\"e\":\"\",\"z\":1,\"f\":2,/* no */\"g\":[[[]]]}";

void parse(Seen& seen)
{
    JsonValue value(L"before");
    try {
        const wchar_t* end = Json::parseValue(document, value);
        Seen::must(end != nullptr);
        seen << (*end == 0);
    } catch (const std::bad_alloc&) {
        if (!value.isString())
            seen << "half a value";
        throw;
    }
    for (const bool pretty : {false, true})
        seen << Json::convertToString(value, pretty);
    seen << value[L"a"][4].asString() << value[L"b"][L"c"][L"d"].asInt32();
}

void build(Seen& seen)
{
    JsonValue order;
    order[L"id"] = 7;
    for (int i = 0; i < 20; ++i)
        order[L"lines"][i * 3][L"key"] = L"pen and paper";
    order[L"c"] = order[L"a"] = order; // members out of order
    const JsonValue copy = order;
    const bool equal = copy == order;
    seen << equal << order.size() << copy.asString();
    seen << (JsonValue(7) == L"7") << JsonValue(2.5).asString() << JsonValue(true).asString();
}

void jsonFiles(Seen& seen)
{
    JsonValue value, back;
    Seen::must(Json::parseValue(document, value) != nullptr);
    Seen::must(Json::save(value, L"document", true));
    Seen::must(Json::load(back, L"document"));
    seen << back.asString();
    const auto stream = MemoryStream::createInstance();
    Seen::must(Json::write(value, stream, false) && Json::read(back, stream));
    seen << (back == value) << stream->available();
    value[L"new"] = 2;
    const bool saved = Json::save(value, L"document", true);
    sweep::Allocator::disarm();
    seen << Json::load(back, L"document")
         << ((back == value) == saved); // on the disc is the old one or the new one
    Seen::must(saved);
}

void properties(Seen& seen)
{
    const auto tree = grow();
    for (const auto& [key, attribute] : tree->getPropertyAttributes())
        seen << key << attribute->getPropertyType() << attribute->getPropertyRawName();
    const String text = PropertyHelper::convertToString(tree, false);
    Seen::mustNotHaveLogged(); // what is wrong with one member costs that member, and a line
    Seen::must(PropertyHelper::save(tree, L"tree", true));
    Seen::mustNotHaveLogged();
    seen.made(text);
    for (const bool isFile : {false, true}) {
        const Handle_T<Tree> back =
            isFile ? PropertyHelper::load(L"tree") : PropertyHelper::convertToClass(text);
        Seen::mustNotHaveLogged();
        Seen::must(!back.isNull());
        seen << back->leaf->number << back->leaf->text << back->leaves.size() << back->names.back()
             << back->bytes.getBufferSize();
    }
    const auto stream = MemoryStream::createInstance();
    Seen::must(PropertyHelper::write(tree, stream, false));
    Seen::mustNotHaveLogged();
    seen << stream->available();
    const Handle_T<Property> read = PropertyHelper::read(stream);
    Seen::mustNotHaveLogged();
    seen << read.isNull();
}

void converters(Seen& seen)
{
    const wchar_t* const names[] = {L"Colour", L"ColourArray", L"ColourList"};
    const auto count = [&] {
        int found = 0;
        for (const wchar_t* name : names)
            found += PropertyFactory::getPropertyConverter(name) != nullptr ? 1 : 0;
        return found;
    };
    int joined = -1;
    {
        const PropertyConverters<Colour> converters(L"Colour");
        joined = converters.joined() ? count() : -1;
    }
    sweep::Allocator::disarm();
    seen << count();
    Seen::must(joined == 3);
    seen << joined;
}

int handled = 0;
void onLeaf(Leaf* leaf) { handled += leaf->number; }
void onTree(Tree& tree) { handled += tree.leaf->number; }
bool onUnknown(const MessageReader::MessagePackage&) { return true; }

void port(Seen& seen)
{
    handled = 0;
    MessagePipe pipe;
    MessagePort& messages = pipe.getServerPort();
    messages.getMessageDispenser() += onLeaf;
    messages.getMessageDispenser() += onTree;
    const auto tree = grow();
    int pushed = 0;
    try {
        for (int i = 0; i < 5; ++i, ++pushed)
            messages.pushMessage(tree);
    } catch (...) {
    }
    const auto first = messages.popMessage();
    const int count = messages.procMessage(0xFFFFFFFF);
    Seen::must(pushed == 5 && !first.isNull() && count == 4);
    seen << handled << messages.popMessage().isNull();
    const Handle_T<Tree> copy = tree->clone();
    Seen::must(!copy.isNull());
    seen << copy->leaves.back()->text;
}

void reader(Seen& seen)
{
    handled = 0;
    MessageReader messages;
    messages += onLeaf;
    messages += MessageParser(onTree);
    messages.setUnknownPackageHandler(MessageReader::UnknownPackageHandler(&onUnknown));
    const auto bytes = MemoryStream::createInstance();
    const auto tree = grow();
    OutputStream stream(bytes);
    for (int i = 0; i < 3; ++i) {
        stream << tree->getClassId();
        tree->exportTo(stream);
    }
    InputStream input(bytes);
    const auto popped = MessageReader::pop(input);
    Seen::must(!popped.isNull() && messages.analyse(input));
    seen << handled << bytes->available() << messages.getMessageParserCount();
}

const sweep::Scenario scenarios[] = {
    {"JSON: parse and print", parse},
    {"JSON: build, copy, compare", build},
    {"JSON: files and streams", jsonFiles},
    {"properties", properties},
    {"properties: converters come and go", converters},
    {"messages: port", port},
    {"messages: reader", reader},
};

} // namespace

const std::span<const sweep::Scenario> sweep::documentScenarios = scenarios;
