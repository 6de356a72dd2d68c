#include "TextPrinting.h"

#include "FaultyIO.h"
#include "RecordingLog.h"

#include <orvi/core/Core.h>

#include <cstddef>
#include <functional>
#include <list>
#include <vector>

using namespace orvi;

namespace {

class Greeting : public Message {
    ORVI_DECLARE_MESSAGE(Greeting, Message);

public:
    String text;
    int times = 1;
};
ORVI_DEFINE_MESSAGE(Greeting)
{
    table.add(L"text", &Greeting::text);
    table.add(L"times", &Greeting::times, L"how often to say it");
}

class Toast : public Greeting {
    ORVI_DECLARE_MESSAGE(Toast, Greeting);

public:
    bool loud = false;
    Handle_T<Greeting> answer;
    Buffer picture;
    Time time = 5;
    TimeSpan duration = -1;
    Vector2 place{1, 2};
    std::vector<bool> beats{true, false};
    std::list<String> guests{L"a", L"bc"};
};
ORVI_DEFINE_MESSAGE(Toast)
{
    table.add(L"loud", &Toast::loud);
    table.add(L"answer", &Toast::answer);
    table.add(L"picture", &Toast::picture);
    table.add(L"time", &Toast::time);
    table.add(L"duration", &Toast::duration);
    table.add(L"place", &Toast::place);
    table.add(L"beats", &Toast::beats);
    table.add(L"guests", &Toast::guests);
}

/** With a base that stands in front of the message, and a message as a virtual base. */
struct Mixin {
    virtual ~Mixin() = default;
    int weight = 3;
};
class Mixed : public Mixin, public virtual Message {
    ORVI_DECLARE_MESSAGE(Mixed, Message);

public:
    int number = 4;
};
ORVI_DEFINE_MESSAGE(Mixed)
{
    table.add(L"weight", &Mixed::weight);
    table.add(L"number", &Mixed::number);
}

Handle_T<Greeting> makeGreeting(const wchar_t* text, int times = 1)
{
    Handle_T<Greeting> greeting = Greeting::createInstance();
    greeting->text = text;
    greeting->times = times;
    return greeting;
}

std::string bodyOf(const Message& message)
{
    const Handle_T<ByteIO> bytes = ByteIO::create();
    OutputStream stream(bytes);
    message.exportTo(stream);
    return bytes->bytes;
}

std::string packageOf(const Message& message)
{
    const unsigned int id = message.getClassId();
    return std::string(reinterpret_cast<const char*>(&id), sizeof id) + bodyOf(message);
}

/** What the handlers below have been given. */
std::vector<String> heard;

void onGreeting(Greeting* greeting) { heard.push_back(greeting->text); }
void onToast(const Toast& toast) noexcept { heard.push_back(toast.text); }

struct Room {
    String name;
    void onGreeting(const Greeting* greeting) const { heard.push_back(name + L":" + greeting->text); }
    void onMixed(Mixed& mixed)
    {
        heard.push_back(mixed.number == 4 && mixed.weight == 3 ? L"mixed" : L"wrong");
    }
};

/** Takes itself out of its table while it runs. */
class Leaver : public CallbackBase<void, Message*> {
public:
    ~Leaver() override { isThere = false; }
    void operator()(Message*) override
    {
        isThere = true;
        leave();
        CHECK(isThere);
    }
    String getKey() override { return L"leaver"; }

    static inline std::function<void()> leave;
    static inline bool isThere = false;
};

} // namespace

TEST_CASE("the members of a message, listed once, are its body and its document")
{
    const Handle_T<Toast> toast = Toast::createInstance();
    toast->text = L"Skål";
    toast->times = 3;
    toast->loud = true;
    toast->answer = makeGreeting(L"a", 2);
    toast->picture.convertFromHex(L"aabb");
    const std::string body = bodyOf(*toast);
    // The base's members in front, texts with a count of their UTF-8, the handle with the class's id.
    CHECK(body == bytesOf("0A 53 6B C3 A5 6C 03 00 00 00 01 4F") + packageOf(*toast->answer) +
                      bytesOf("04 AA BB 05 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF "
                              "00 00 80 3F 00 00 00 40 04 01 00 04 02 61 04 62 63"));
    const Handle_T<Toast> copy = toast->clone();
    REQUIRE_FALSE(copy.isNull());
    CHECK(bodyOf(*copy) == body);
    JsonValue document;
    copy->exportProperty(document);
    CHECK(document[L"text"] == L"Skål");
    CHECK(document[L"answer"][L"times"] == 2);
    CHECK(document[L"__class__"] == L"Toast");

    for (std::size_t size = 0; size < body.size(); ++size) {
        CAPTURE(size);
        InputStream cut(ByteIO::create(body.substr(0, size)));
        CHECK_THROWS_AS(copy->importFrom(cut), Exception);
        const Handle_T<FaultyIO> full = FaultyIO::create();
        full->room = static_cast<int>(size);
        OutputStream output(full);
        CHECK_THROWS_AS(toast->exportTo(output), Exception);
    }

    const Handle_T<Mixed> mixed = Mixed::createInstance();
    CHECK(hexOf(bodyOf(*mixed)) == "03 00 00 00 04 00 00 00");
    CHECK_FALSE(Handle_T<Mixed>(mixed->clone()).isNull());
    CHECK(hexOf(packageOf(*Message::createInstance())) == "52 59 4B D4");
}

TEST_CASE("a member table serves a structure that is no class of the registry")
{
    struct Place {
        bool isOpen = true;
        String room = L"x";
        std::vector<std::vector<short>> rows{{1}, {}};
    } place;
    const Mtbl table[] = {
        mtblRow<bool>(offsetof(Place, isOpen)),
        mtblRow<String>(offsetof(Place, room)),
        mtblRow<std::vector<std::vector<short>>>(offsetof(Place, rows)),
        mtblEnd,
    };
    const Handle_T<ByteIO> bytes = ByteIO::create();
    OutputStream output(bytes);
    CHECK(&writeMtbl(output, place, table) == &output);
    CHECK(hexOf(bytes->bytes) == "01 02 78 04 02 01 00 00");

    Place copy{false, L"y", {{7}, {8}, {9}}};
    InputStream input(bytes);
    CHECK(&readMtbl(input, copy, table) == &input);
    CHECK(copy.isOpen);
    CHECK(copy.room == L"x");
    CHECK(copy.rows == place.rows);
    CHECK_THROWS_AS(readMtbl(input, copy, table), Exception);
}

TEST_CASE("a count of elements that cannot be there takes no memory")
{
    for (const char* count : {"FE FF FF FF 0F", "01", "06 00 00"}) { // 2^31 - 1, -1, and 3 before two bytes
        CAPTURE(count);
        InputStream stream(ByteIO::create(bytesOf(count)));
        std::vector<bool> flags;
        CHECK_THROWS_AS(messaging::readMember(stream, flags), Exception);
    }
}

TEST_CASE("a reader hands each message of a stream to the one handler of its class")
{
    heard.clear();
    const Room hall{L"hall"};
    Room cellar{L"cellar"};
    MessageReader reader;
    reader += onToast;
    reader += {&cellar, &Room::onMixed};
    reader += {&hall, &Room::onGreeting};
    reader += {&cellar, &Room::onGreeting};

    InputStream stream(ByteIO::create(packageOf(*makeGreeting(L"a")) + packageOf(*Toast::createInstance()) +
                                      packageOf(*Mixed::createInstance())));
    CHECK(reader.analyse(stream));
    CHECK(heard == std::vector<String>{L"cellar:a", L"", L"mixed"});
    CHECK(reader.analyse(stream)); // nothing there
    CHECK(heard.size() == 3);

    const auto id = Greeting::getClassId_();
    CHECK(reader.getMessageParser(id) == MessageParser(&cellar, &Room::onGreeting));
    CHECK(reader.getMessageParser(id) != MessageParser(&hall, &Room::onGreeting));
    reader -= MessageParser(onGreeting); // the class alone decides
    CHECK(reader.getMessageParser(id).isNull());
    CHECK_THROWS_AS(MessageParser().parser(stream), Exception);
}

TEST_CASE("a package of unknown class ends the reading, unless a handler takes it")
{
    heard.clear();
    const RecordingLog log;
    MessageReader reader;
    reader += onGreeting;
    const std::string greeting = packageOf(*makeGreeting(L"a"));
    const Handle_T<ByteIO> bytes = ByteIO::create(bytesOf("01 02 00 00") + greeting);
    InputStream stream(bytes);
    CHECK_FALSE(reader.analyse(stream));
    CHECK(log.errors() == std::vector<String>{L"Unknown message(513)."});
    CHECK(log.count(RecordingLog::Level::Debug, L"Call Stack:") == 1);
    CHECK(bytes->unread() == greeting);
    CHECK(reader.analyse(stream)); // what is behind it is whole
    CHECK(heard.size() == 1);

    bytes->position = 0;
    reader.setUnknownPackageHandler(+[](const MessageReader::MessagePackage&) { return false; });
    CHECK_FALSE(reader.analyse(stream));
    CHECK(log.errors().size() == 2);
    bytes->position = 0;
    reader.setUnknownPackageHandler(+[](const MessageReader::MessagePackage& package) {
        CHECK(package.classId == 513);
        return true;
    });
    CHECK(reader.analyse(stream));
    CHECK(heard.size() == 2);
    CHECK(log.errors().size() == 2);
    reader.clearMessageParser();
    CHECK(reader.getUnknownPackageHandler().isNull());
}

TEST_CASE("failures of a stream and of handlers leave analyse as they are, and pop not at all")
{
    heard.clear();
    MessageReader reader;
    reader += onGreeting;
    const std::string package = packageOf(*makeGreeting(L"abc"));
    const RecordingLog log;
    for (std::size_t size = 1; size < package.size(); ++size) {
        CAPTURE(size);
        const Handle_T<ByteIO> bytes = ByteIO::create(package.substr(0, size));
        InputStream stream(bytes);
        CHECK_THROWS_AS(reader.analyse(stream), Exception);
        bytes->position = 0;
        CHECK(MessageReader::pop(stream).isNull());
        CHECK(log.errors().size() == size);
    }
    CHECK(heard.empty());

    reader += [](Toast*) { throw 5; };
    InputStream toast(ByteIO::create(packageOf(*Toast::createInstance()) + package));
    CHECK_THROWS_AS(reader.analyse(toast), int);
    CHECK(reader.analyse(toast)); // goes on behind it
    CHECK(heard.size() == 1);
}

TEST_CASE("a handler may keep its message, and take itself out")
{
    static Handle_T<Greeting> kept;
    MessageReader reader;
    reader += [](Greeting* greeting) { kept = greeting; };
    InputStream stream(ByteIO::create(packageOf(*makeGreeting(L"a", 5))));
    CHECK(reader.analyse(stream));
    CHECK(kept->times == 5);
    CHECK(kept->getReferenceCount() == 1);

    const auto id = Greeting::getClassId_();
    MessageDispenser<void> dispenser;
    Leaver::leave = [&] { dispenser.clearMessageHandler(); };
    dispenser += {id, CallbackHandler<void, Message*>(new Leaver)};
    dispenser.dispatchMessage(kept);
    CHECK_FALSE(Leaver::isThere);

    Leaver::leave = [&] { reader.clearMessageParser(); };
    reader += {id, [] { return Handle_T<Message>(Greeting::createInstance()); },
               CallbackHandler<void, Message*>(new Leaver)};
    InputStream other(ByteIO::create(packageOf(*kept)));
    CHECK(reader.analyse(other));
    CHECK_FALSE(Leaver::isThere);
    kept.setNull();
}

TEST_CASE("pop takes one message of any class, and never throws")
{
    const RecordingLog log;
    const std::string package = packageOf(*makeGreeting(L"abc", 2));
    InputStream stream(ByteIO::create(package + bytesOf("01 02 00 00")));
    const Handle_T<Greeting> greeting = MessageReader::pop(stream);
    REQUIRE_FALSE(greeting.isNull());
    CHECK(greeting->times == 2);
    CHECK(log.lines().empty());
    CHECK(MessageReader::pop(stream).isNull());
    CHECK(log.errors() == std::vector<String>{L"Error ClassId! 513"});

    const Handle_T<MemoryStream> noMessage = MemoryStream::createInstance();
    OutputStream output(noMessage);
    output << noMessage->getClassId();
    stream.attach(noMessage);
    CHECK(MessageReader::pop(stream).isNull());
    CHECK(log.errors().size() == 2);
}

TEST_CASE("a dispenser calls the handler of the exact class and gives its result")
{
    struct Judge {
        int onGreeting(Greeting* greeting) { return greeting->times; }
    } judge;
    MessageDispenser<int> dispenser;
    dispenser += {&judge, &Judge::onGreeting};
    dispenser += [](const Mixed& mixed) { return mixed.weight; };
    CHECK(dispenser.dispatchMessage(makeGreeting(L"a", 6)) == 6);
    CHECK(dispenser.dispatchMessage(Mixed::createInstance()) == 3);

    class Nod : public Greeting {}; // without a declaration of its own
    CHECK(dispenser.dispatchMessage(Handle_T<Message>(new Nod)) == 1);
    struct Impostor : Message { // has the id of a handler's class, and is none
        unsigned int getClassId() const override { return id; }
        unsigned int id = 0;
    };
    const Handle_T<Impostor> impostor = new Impostor;
    for (const unsigned int id : {Mixed::getClassId_(), Greeting::getClassId_()}) {
        impostor->id = id;
        CHECK_THROWS_AS(dispenser.dispatchMessage(impostor), Exception);
    }
    CHECK_THROWS_WITH(dispenser.dispatchMessage(Handle_T<Message>(Toast::createInstance())),
                      "int MessageHandler::dispatchMessage( (anonymous namespace)::Toast )");
    CHECK_THROWS_WITH(dispenser.dispatchMessage(nullptr), "int MessageHandler::dispatchMessage( null )");
    dispenser -= {&judge, &Judge::onGreeting};
    CHECK_THROWS_AS(dispenser.dispatchMessage(makeGreeting(L"a")), Exception);
}
