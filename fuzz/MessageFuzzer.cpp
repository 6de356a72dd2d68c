#include "Input.h"

#include <orvi/core/Buffer.h>
#include <orvi/core/Exception.h>
#include <orvi/core/Geometry.h>
#include <orvi/core/MessagePort.h>
#include <orvi/core/MessageReader.h>
#include <orvi/core/Time.h>
#include <orvi/core/Uuid.h>
#include <orvi/core/Varint.h>

#include <algorithm>
#include <list>

using namespace orvi;
using fuzz::expect;

namespace {

class Leaf : public Message {
    ORVI_DECLARE_MESSAGE(Leaf, Message);

public:
    bool truth = true;
    int number = 1;
    long large = 2;
    double real = 0.5;
    Varint varint = 3;
    String text;
};
ORVI_DEFINE_MESSAGE(Leaf)
{
    table.add(L"truth", &Leaf::truth);
    table.add(L"number", &Leaf::number);
    table.add(L"large", &Leaf::large);
    table.add(L"real", &Leaf::real);
    table.add(L"varint", &Leaf::varint);
    table.add(L"text", &Leaf::text);
}

class Node : public Message {
    ORVI_DECLARE_MESSAGE(Node, Message);

public:
    Handle_T<Leaf> leaf;
    Handle_T<Node> next;
    Handle_T<Message> any;
    std::vector<Handle_T<Message>> parts;
};
ORVI_DEFINE_MESSAGE(Node)
{
    table.add(L"leaf", &Node::leaf);
    table.add(L"next", &Node::next);
    table.add(L"any", &Node::any);
    table.add(L"parts", &Node::parts);
}

/** Its body has that of a Node in front. */
class Values : public Node {
    ORVI_DECLARE_MESSAGE(Values, Node);

public:
    Buffer buffer;
    Uuid uuid;
    Time time;
    TimeSpan span;
    Point_T<int> point;
    std::vector<bool> flags;
    std::vector<String> texts;
    std::list<int> numbers;
    std::vector<std::vector<short>> rows;
};
ORVI_DEFINE_MESSAGE(Values)
{
    table.add(L"buffer", &Values::buffer);
    table.add(L"uuid", &Values::uuid);
    table.add(L"time", &Values::time);
    table.add(L"span", &Values::span);
    table.add(L"point", &Values::point);
    table.add(L"flags", &Values::flags);
    table.add(L"texts", &Values::texts);
    table.add(L"numbers", &Values::numbers);
    table.add(L"rows", &Values::rows);
}

/** Puts bytes into a port as they are, behind an empty message. */
class Raw : public Message {
    ORVI_DECLARE_PROPERTY(Raw, Message);

public:
    static Handle_T<Message> createMessage_() { return createInstance(); }
    void importFrom(InputStream&) override {}
    void exportTo(OutputStream& stream) const override
    {
        stream.write(bytes.data(), static_cast<int>(bytes.size()));
    }

    std::string bytes;
};
ORVI_DEFINE_PROPERTY(Raw) {}

Handle_T<Message> rawOf(const std::string& bytes)
{
    const Handle_T<Raw> raw = Raw::createInstance();
    raw->bytes = bytes;
    return raw;
}

Handle_T<MemoryStream> streamOf(const std::string& bytes)
{
    const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
    stream->write(bytes.data(), static_cast<int>(bytes.size()));
    return stream;
}

std::string print(const Handle_T<Message>& message)
{
    const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
    OutputStream os(stream);
    os << message;
    std::string bytes(static_cast<std::size_t>(stream->available()), 0);
    stream->read(bytes.data(), static_cast<int>(bytes.size()));
    return bytes;
}

/** What was read writes itself, is read from that again, and then writes the same. Gives what it writes. */
std::string checked(const Handle_T<Message>& message)
{
    const std::string bytes = print(message);
    InputStream stream(streamOf(bytes));
    Handle_T<Message> again;
    stream >> again;
    expect(stream.available() == 0, "a message reads all that it has written");
    expect(print(again) == bytes, "a message comes back as it was");
    expect(message.isNull() || print(message->clone()) == bytes, "and so does its clone");
    return bytes;
}

/** Takes notes of the messages that are handed to it. */
struct Notes {
    void onMessage(Message* message) { lines.push_back(checked(message)); }
    void onLeaf(Leaf* leaf) { onMessage(leaf); }
    void onNode(Node* node) { onMessage(node); }
    void onValues(Values& values) { onMessage(&values); }
    void onRaw(const Raw& raw) { lines.push_back(checked(const_cast<Raw*>(&raw))); }

    template <class Table>
    void install(Table& table)
    {
        table += {this, &Notes::onMessage};
        table += {this, &Notes::onLeaf};
        table += {this, &Notes::onNode};
        table += {this, &Notes::onValues};
        table += {this, &Notes::onRaw};
    }

    std::vector<std::string> lines;
};

void analyse(MessageReader& reader, InputStream& stream)
{
    try {
        expect(!reader.analyse(stream) || stream.available() == 0, "nothing is left of what could be read");
    } catch (const Exception&) { // NOLINT(bugprone-empty-catch): that is what it is to do with bad bytes
    }
}

/** A reader with a parser for each class gives what popping one after the other does. */
void checkReader(const std::string& bytes)
{
    Notes notes;
    MessageReader reader;
    notes.install(reader);
    InputStream stream(streamOf(bytes));
    analyse(reader, stream);

    std::vector<std::string> popped;
    InputStream other(streamOf(bytes));
    while (other.available() > 0) {
        const Handle_T<Message> message = MessageReader::pop(other);
        if (message.isNull())
            break;
        popped.push_back(checked(message));
    }
    expect(notes.lines == popped, "parsers get what can be popped");
    expect(stream.available() == other.available(), "and as many bytes are left");
}

/** Passes a package of an unknown class, as long as its id is no multiple of 8. */
bool passUnknown(const MessageReader::MessagePackage& package)
{
    unsigned char bytes[8];
    const int size = static_cast<int>(package.classId % sizeof bytes);
    return size > 0 && package.stream.read(bytes, size) == size;
}

void checkUnknown(const std::string& bytes)
{
    Notes notes;
    MessageReader reader;
    reader += {&notes, &Notes::onLeaf};
    reader.setUnknownPackageHandler(&passUnknown);
    InputStream stream(streamOf(bytes));
    analyse(reader, stream);
}

/** The handles that come out of a stream; what cannot be read counts as null. False when there is little else: each
    exception takes its time. */
bool readHandles(const std::string& bytes, std::vector<Handle_T<Message>>& handles)
{
    constexpr int mostFailures = 16;
    int failures = 0;
    InputStream stream(streamOf(bytes));
    while (stream.available() > 0) {
        Handle_T<Message> message;
        try {
            stream >> message;
        } catch (const Exception&) {
            if (++failures > mostFailures)
                return false;
            message.setNull();
        }
        handles.push_back(message);
    }
    return true;
}

Handle_T<Message> goodMessage()
{
    const Handle_T<Leaf> leaf = Leaf::createInstance();
    leaf->text = L"behind the garbage";
    return leaf;
}

void checkPop(const std::string& bytes, const std::vector<Handle_T<Message>>& handles)
{
    MessagePort port;
    port.pushMessage(rawOf(bytes));
    expect(!port.popMessage().isNull(), "what stands in front of garbage comes out");
    port.pushMessage(goodMessage());
    for (const Handle_T<Message>& handle : handles)
        expect(checked(port.popMessage()) == print(handle), "a port gives what a stream gives");
    expect(print(port.popMessage()) == print(goodMessage()), "what comes behind garbage comes out");
    expect(port.popMessage().isNull(), "an empty port gives nothing");
}

/** The messages of a port in their order, with handlers that push, throw, or are not there. */
struct Room {
    explicit Room(const std::string& bytes)
    {
        notes.install(port.getMessageDispenser());
        port.getMessageDispenser() += {this, &Room::onLeaf};
        port.getMessageDispenser() += {this, &Room::onRaw};
        port.getMessageDispenser().uninstallMessageHandler(Node::getClassId_());
        port.pushMessage(rawOf(bytes));
    }

    static bool isRefused(const Message& message)
    {
        const auto* const leaf = dynamic_cast<const Leaf*>(&message);
        return leaf != nullptr && !leaf->truth;
    }
    void onLeaf(Leaf* leaf)
    {
        notes.onLeaf(leaf);
        if (!isRefused(*leaf))
            return;
        ++failures;
        THROW_EXCEPTION(-1, L"a leaf without truth");
    }
    void onRaw(Raw* raw)
    {
        notes.onRaw(*raw);
        if (notes.lines.size() == 1)
            port.pushMessage(goodMessage());
    }

    MessagePort port;
    Notes notes;
    int failures = 0;
};

void checkProc(const std::string& bytes, const std::vector<Handle_T<Message>>& handles)
{
    constexpr unsigned int noLimit = 1'000'000'000;
    std::vector<std::string> expected = {print(rawOf({}))};
    int calls = 1;
    for (const Handle_T<Message>& handle : handles) {
        const bool isHandled = !handle.isNull() && handle->getClassId() != Node::getClassId_();
        if (isHandled)
            expected.push_back(print(handle));
        calls += !isHandled || Room::isRefused(*handle) ? 1 : 0;
    }
    expected.push_back(print(goodMessage()));

    Room room(bytes);
    int count = 0;
    for (; calls > 0; --calls)
        count += room.port.procMessage(noLimit);
    expect(room.notes.lines == expected, "handlers get what a stream gives, and what comes behind garbage");
    expect(count + room.failures == static_cast<int>(expected.size()), "what a handler has done is counted");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string bytes(data, data + size);
    checkReader(bytes);
    checkUnknown(bytes);
    std::vector<Handle_T<Message>> handles;
    if (readHandles(bytes, handles)) {
        checkPop(bytes, handles);
        checkProc(bytes, handles);
    }
    return 0;
}
