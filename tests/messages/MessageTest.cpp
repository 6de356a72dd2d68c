#include "TextPrinting.h"

#include "FaultyIO.h"
#include "RecordingLog.h"

#include <orvi/core/Core.h>

#include <cstddef>
#include <list>
#include <vector>

using orvi::Exception;
using orvi::Handle_T;
using orvi::InputStream;
using orvi::JsonValue;
using orvi::Message;
using orvi::MessageParser;
using orvi::MessageReader;
using orvi::OutputStream;
using orvi::PropertyHelper;
using orvi::String;
using orvi::Unknown;
using Level = RecordingLog::Level;

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
};
ORVI_DEFINE_MESSAGE(Toast)
{
    table.add(L"loud", &Toast::loud);
    table.add(L"answer", &Toast::answer);
}

/** Every kind of member that has both forms. */
class Everything : public Message {
    ORVI_DECLARE_MESSAGE(Everything, Message);

public:
    bool yes = true;
    signed char tiny = -2;
    unsigned short small = 0x0304;
    long large = 0x1122334455667788;
    double number = 1;
    orvi::Varint varint = -3;
    orvi::Buffer buffer;
    orvi::Time time = 5;
    orvi::TimeSpan span = -1;
    orvi::Uuid uuid{};
    orvi::uuid_node_t node{};
    orvi::Point_T<int> point{1, 2};
    orvi::Vector2 vector{1, 2};
    std::vector<bool> flags{true, false};
    std::list<String> names{L"a", L"bc"};
    std::vector<std::vector<short>> rows{{1}, {}};
    std::vector<Handle_T<Message>> messages{Message::createInstance(), {}};
};
ORVI_DEFINE_MESSAGE(Everything)
{
    table.add(L"yes", &Everything::yes);
    table.add(L"tiny", &Everything::tiny);
    table.add(L"small", &Everything::small);
    table.add(L"large", &Everything::large);
    table.add(L"number", &Everything::number);
    table.add(L"varint", &Everything::varint);
    table.add(L"buffer", &Everything::buffer);
    table.add(L"time", &Everything::time);
    table.add(L"span", &Everything::span);
    table.add(L"uuid", &Everything::uuid);
    table.add(L"node", &Everything::node);
    table.add(L"point", &Everything::point);
    table.add(L"vector", &Everything::vector);
    table.add(L"flags", &Everything::flags);
    table.add(L"names", &Everything::names);
    table.add(L"rows", &Everything::rows);
    table.add(L"messages", &Everything::messages);
}
constexpr const char* everythingBody =
    "01 FE 04 03 88 77 66 55 44 33 22 11 00 00 00 00 00 00 F0 3F 05 04 AA BB "
    "05 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF "
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
    "01 00 00 00 02 00 00 00 00 00 80 3F 00 00 00 40 "
    "04 01 00 04 02 61 04 62 63 04 02 01 00 00 04 4F 52 59 4B D4 6F";

/** Writes its body by hand, and keeps one member out of it. */
class ByHand : public Message {
    ORVI_DECLARE_PROPERTY(ByHand, Message);

public:
    static Handle_T<Message> createMessage_() { return createInstance(); }
    void importFrom(InputStream& stream) override { stream >> number; }
    void exportTo(OutputStream& stream) const override { stream << number; }

    int number = 0;
    int onlyJson = 0;
};
ORVI_DEFINE_PROPERTY(ByHand)
{
    table.add(L"number", &ByHand::number);
    table.add(L"onlyJson", &ByHand::onlyJson);
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
    const Handle_T<ByteIO> bytes = ByteIO::create();
    OutputStream stream(bytes);
    stream << message.getClassId();
    message.exportTo(stream);
    return bytes->bytes;
}

/** What the handlers below have been given. */
std::vector<String> heard;

void hear(const Greeting& greeting)
{
    String line;
    line.format(L"%s*%d", greeting.text.getBuffer(), greeting.times);
    heard.push_back(line);
}
void onGreeting(Greeting* greeting) { hear(*greeting); }
void onToast(const Toast& toast) noexcept
{
    hear(toast);
    heard.push_back(toast.loud ? L"loud" : L"quiet");
}

struct Room {
    String name;
    void onGreeting(const Greeting* greeting) const { heard.push_back(name + L":" + greeting->text); }
    void onMixed(Mixed& mixed)
    {
        heard.push_back(mixed.number == 4 && mixed.weight == 3 ? L"mixed" : L"wrong");
    }
};

} // namespace

TEST_CASE("the members of a message, listed once, are its body and its document")
{
    const Handle_T<Toast> toast = Toast::createInstance();
    toast->text = L"Skål";
    toast->times = 3;
    toast->loud = true;
    toast->answer = makeGreeting(L"a", 2);

    const unsigned int id = Greeting::getClassId_();
    std::string tag = "4F";
    for (int i = 0; i < 4; ++i)
        tag += " " + hexOf(std::string(1, static_cast<char>(id >> (8 * i))));
    // The base's members in front, texts with a count of their UTF-8, the handle with the class's id.
    CHECK(hexOf(bodyOf(*toast)) == "0A 53 6B C3 A5 6C 03 00 00 00 01 " + tag + " 02 61 02 00 00 00");

    const Handle_T<Toast> copy = toast->clone();
    REQUIRE_FALSE(copy.isNull());
    CHECK(copy->text == L"Skål");
    CHECK(copy->loud);
    REQUIRE_FALSE(copy->answer.isNull());
    CHECK(copy->answer->times == 2);

    CHECK(PropertyHelper::convertToString(toast, false) == PropertyHelper::convertToString(copy, false));
    JsonValue document;
    toast->exportProperty(document);
    CHECK(document[L"text"] == L"Skål");
    CHECK(document[L"answer"][L"times"] == 2);
    CHECK(document[L"__class__"] == L"Toast");
}

TEST_CASE("every kind of member travels")
{
    const Handle_T<Everything> everything = Everything::createInstance();
    everything->buffer.convertFromHex(L"aabb");
    CHECK(hexOf(bodyOf(*everything)) == everythingBody);

    SUBCASE("and comes back")
    {
        const Handle_T<ByteIO> bytes = ByteIO::create(bodyOf(*everything));
        const Handle_T<Everything> copy = Everything::createInstance();
        copy->rows.assign(9, {7});
        copy->yes = false;
        InputStream stream(bytes);
        copy->importFrom(stream);
        CHECK(bytes->available() == 0);
        CHECK(hexOf(bodyOf(*copy)) == everythingBody);
        CHECK(copy->yes);
        CHECK(copy->messages[1].isNull());
    }
    SUBCASE("a body that is cut short at any byte throws")
    {
        const std::string body = bodyOf(*everything);
        for (std::size_t size = 0; size < body.size(); ++size) {
            CAPTURE(size);
            InputStream stream(ByteIO::create(body.substr(0, size)));
            CHECK_THROWS_AS(Everything::createInstance()->importFrom(stream), Exception);
        }
    }
    SUBCASE("an output that refuses bytes throws")
    {
        const std::string body = bodyOf(*everything);
        for (std::size_t room = 0; room < body.size(); ++room) {
            CAPTURE(room);
            const Handle_T<FaultyIO> full = FaultyIO::create();
            full->room = static_cast<int>(room);
            OutputStream stream(full);
            CHECK_THROWS_AS(everything->exportTo(stream), Exception);
        }
    }
}

TEST_CASE("a count of elements that cannot be there takes no memory")
{
    for (const char* count :
         {"FE FF FF FF 0F", "01", "06 00 00"}) { // 2^31 - 1, -1, and 3 with two bytes behind
        CAPTURE(count);
        InputStream stream(ByteIO::create(bytesOf(count)));
        std::vector<bool> flags;
        CHECK_THROWS_AS(orvi::messaging::readMember(stream, flags), Exception);
    }
}

TEST_CASE("a class may write its body by hand, lie behind another base, or have none")
{
    const Handle_T<ByHand> byHand = ByHand::createInstance();
    byHand->number = 7;
    byHand->onlyJson = 8;
    const Handle_T<ByHand> copy = byHand->clone();
    CHECK(copy->number == 7);
    CHECK(copy->onlyJson == 0);

    const Handle_T<Mixed> mixed = Mixed::createInstance();
    CHECK(hexOf(bodyOf(*mixed)) == "03 00 00 00 04 00 00 00");
    CHECK_FALSE(Handle_T<Mixed>(mixed->clone()).isNull());

    const Handle_T<Message> plain = Message::createInstance();
    CHECK(hexOf(packageOf(*plain)) == "52 59 4B D4");
    CHECK(plain->clone()->getClassName() == L"Message");
    CHECK(Greeting::createMessage_()->getClassName() == L"Greeting");
    CHECK(Toast::createMessage_()->getClassId() == Toast::getClassId_());
    CHECK(Unknown::RtFactory::createClassInstance(L"Toast")->getClassId() == Toast::getClassId_());
}

TEST_CASE("a member table serves a structure that is no class of the registry")
{
    struct Place {
        int floor;
        String room;
        std::vector<int> desks;
    };
    const orvi::Mtbl table[] = {
        orvi::mtblRow<int>(offsetof(Place, floor)),
        orvi::mtblRow<String>(offsetof(Place, room)),
        orvi::mtblRow<std::vector<int>>(offsetof(Place, desks)),
        orvi::mtblEnd,
    };
    const Handle_T<ByteIO> bytes = ByteIO::create();
    OutputStream output(bytes);
    CHECK(&writeMtbl(output, Place{2, L"x", {5}}, table) == &output);
    CHECK(hexOf(bytes->bytes) == "02 00 00 00 02 78 02 05 00 00 00");

    Place place{};
    InputStream input(bytes);
    CHECK(&readMtbl(input, place, table) == &input);
    CHECK(place.floor == 2);
    CHECK(place.room == L"x");
    CHECK(place.desks == std::vector{5});
    CHECK_THROWS_AS(readMtbl(input, place, table), Exception);
    CHECK(&readMtbl(input, place, &table[3]) == &input); // an empty table reads nothing
}

TEST_CASE("a reader hands each message of a stream to the handler of its class")
{
    heard.clear();
    Room room{L"hall"};
    MessageReader reader;
    reader += onToast;
    reader += {&room, &Room::onMixed};
    reader += [](ByHand* message) { heard.push_back(message->number == 7 ? L"by hand" : L"wrong"); };
    reader += onGreeting;
    CHECK(reader.getMessageParserCount() == 4);

    const Handle_T<ByHand> byHand = ByHand::createInstance();
    byHand->number = 7;
    const Handle_T<ByteIO> bytes = ByteIO::create(
        packageOf(*makeGreeting(L"a")) + packageOf(*makeGreeting(L"b", 2)) +
        packageOf(*Toast::createInstance()) + packageOf(*Mixed::createInstance()) + packageOf(*byHand));
    InputStream stream(bytes);
    CHECK(reader.analyse(stream));
    CHECK(heard == std::vector<String>{L"a*1", L"b*2", L"*1", L"quiet", L"mixed", L"by hand"});
    CHECK(reader.analyse(stream)); // nothing there
    CHECK(heard.size() == 6);
}

TEST_CASE("a reader has one parser for a class, which can be replaced and found again")
{
    heard.clear();
    const Room hall{L"hall"};
    Room cellar{L"cellar"};
    MessageReader reader;
    reader += MessageParser(&hall, &Room::onGreeting);
    reader += MessageParser(&cellar, &Room::onGreeting);
    CHECK(reader.getMessageParserCount() == 1);
    InputStream stream(ByteIO::create(packageOf(*makeGreeting(L"a"))));
    CHECK(reader.analyse(stream));
    CHECK(heard == std::vector<String>{L"cellar:a"});

    const MessageParser parser(&cellar, &Room::onGreeting);
    CHECK(reader.getMessageParser(Greeting::getClassId_()) == parser);
    CHECK(parser != MessageParser(&hall, &Room::onGreeting));
    CHECK(parser != MessageParser(onGreeting));
    CHECK(MessageParser(onGreeting) == MessageParser(onGreeting));
    const bool isOwnCreator = parser.getCreator() == &Greeting::createMessage_;
    CHECK(isOwnCreator);

    reader -= MessageParser(onGreeting); // the class alone decides
    CHECK(reader.getMessageParserCount() == 0);
    reader.uninstallMessageParser(17);
    CHECK(reader.getMessageParser(17).isNull());
    CHECK(reader.getMessageParser(17).getCallbackHandler().isNull());
    InputStream empty(ByteIO::create());
    CHECK_THROWS_AS(MessageParser().parser(empty), Exception);
}

TEST_CASE("a package of unknown class ends the reading, unless a handler takes it")
{
    heard.clear();
    const RecordingLog log;
    MessageReader reader;
    reader += onGreeting;
    const std::string unknown = bytesOf("01 02 00 00");
    const Handle_T<ByteIO> bytes = ByteIO::create(unknown + packageOf(*makeGreeting(L"a")));
    InputStream stream(bytes);

    SUBCASE("no handler")
    {
        CHECK_FALSE(reader.analyse(stream));
        CHECK(log.errors() == std::vector<String>{L"Unknown message(513)."});
        CHECK(log.count(Level::Debug, L"Call Stack:") == 1);
        CHECK(bytes->unread() == packageOf(*makeGreeting(L"a")));
        CHECK(heard.empty());
        CHECK(reader.analyse(stream)); // what is behind it is whole
        CHECK(heard.size() == 1);
    }
    SUBCASE("a handler that does not take it")
    {
        reader.setUnknownPackageHandler(+[](const MessageReader::MessagePackage&) { return false; });
        CHECK_FALSE(reader.analyse(stream));
        CHECK(log.errors().size() == 1);
    }
    SUBCASE("a handler that takes it")
    {
        reader.setUnknownPackageHandler(+[](const MessageReader::MessagePackage& package) {
            CHECK(package.classId == 513);
            return true;
        });
        CHECK(reader.analyse(stream));
        CHECK(heard.size() == 1);
        CHECK(log.lines().empty());
        reader.clearMessageParser();
        CHECK(reader.getMessageParserCount() == 0);
        CHECK(reader.getUnknownPackageHandler().isNull());
    }
    SUBCASE("one package alone")
    {
        CHECK_FALSE(reader.analyse(MessageReader::MessagePackage{513, stream}));
        unsigned int id = 0;
        stream >> id >> id;
        CHECK(reader.analyse(MessageReader::MessagePackage{id, stream}));
        CHECK(heard.size() == 1);
    }
}

TEST_CASE("failures of a stream and of handlers leave analyse as they are")
{
    heard.clear();
    MessageReader reader;
    reader += onGreeting;
    const std::string package = packageOf(*makeGreeting(L"abc"));
    for (std::size_t size = 1; size < package.size(); ++size) {
        CAPTURE(size);
        InputStream stream(ByteIO::create(package.substr(0, size)));
        CHECK_THROWS_AS(reader.analyse(stream), Exception);
    }
    CHECK(heard.empty());

    InputStream shortId(ByteIO::create("abc"));
    String description;
    try {
        reader.analyse(shortId);
    } catch (const Exception& exception) {
        description = exception.description();
    }
    CHECK(description == L"orvi::InputStream& operator>>(orvi::InputStream &is,uint32_t &i)");

    reader += [](Toast*) { throw 5; };
    InputStream toast(ByteIO::create(packageOf(*Toast::createInstance()) + package));
    CHECK_THROWS_AS(reader.analyse(toast), int);
    CHECK(reader.analyse(toast)); // goes on behind it
    CHECK(heard.size() == 1);
}

TEST_CASE("a handler may keep its message, and take itself out")
{
    static MessageReader reader;
    static Handle_T<Greeting> kept;
    reader += [](Greeting* greeting) {
        kept = greeting;
        reader.uninstallMessageParser(Greeting::getClassId_());
    };
    InputStream stream(ByteIO::create(packageOf(*makeGreeting(L"a", 5))));
    CHECK(reader.analyse(stream));
    CHECK(reader.getMessageParserCount() == 0);
    CHECK(kept->times == 5);
    CHECK(kept->getReferenceCount() == 1);
    kept.setNull();

    // Nor does a callback of a kind of its own die under its own feet.
    static bool isThere = true;
    class Leaver : public orvi::CallbackBase<void, Message*> {
    public:
        explicit Leaver(std::function<void()> leave)
            : _leave(std::move(leave))
        {}
        ~Leaver() override { isThere = false; }
        void operator()(Message*) override
        {
            isThere = true;
            _leave();
            CHECK(isThere);
        }
        String getKey() override { return L"leaver"; }

    private:
        std::function<void()> _leave;
    };
    const auto id = Greeting::getClassId_();
    orvi::MessageDispenser<void> dispenser;
    dispenser +=
        {id, orvi::CallbackHandler<void, Message*>(new Leaver([&] { dispenser.clearMessageHandler(); }))};
    dispenser.dispatchMessage(makeGreeting(L"a"));
    CHECK_FALSE(isThere);
    reader += {id, [] { return Handle_T<Message>(Greeting::createInstance()); },
               orvi::CallbackHandler<void, Message*>(new Leaver([] { reader.clearMessageParser(); }))};
    InputStream other(ByteIO::create(packageOf(*makeGreeting(L"a"))));
    CHECK(reader.analyse(other));
    CHECK_FALSE(isThere);
}

TEST_CASE("pop takes one message of any class, and never throws")
{
    const RecordingLog log;
    const Handle_T<ByteIO> bytes = ByteIO::create(packageOf(*makeGreeting(L"a", 2)) + bytesOf("01 02 00 00"));
    InputStream stream(bytes);
    const Handle_T<Greeting> greeting = MessageReader::pop(stream);
    REQUIRE_FALSE(greeting.isNull());
    CHECK(greeting->times == 2);
    CHECK(log.lines().empty());

    CHECK(MessageReader::pop(stream).isNull());
    CHECK(log.errors() == std::vector<String>{L"Error ClassId! 513"});
    log.clear();
    CHECK(MessageReader::pop(stream).isNull()); // the end
    CHECK(log.errors() ==
          std::vector<String>{L"orvi::InputStream& operator>>(orvi::InputStream &is,uint32_t &i)"});
    log.clear();

    const Handle_T<orvi::MemoryStream> noMessage = orvi::MemoryStream::createInstance();
    OutputStream output(noMessage);
    output << noMessage->getClassId();
    stream.attach(noMessage);
    CHECK(MessageReader::pop(stream).isNull());
    CHECK(log.count(Level::Error, L"Error ClassId! ") == 1);

    const std::string package = packageOf(*makeGreeting(L"abc"));
    for (std::size_t size = 0; size < package.size(); ++size) {
        CAPTURE(size);
        stream.attach(ByteIO::create(package.substr(0, size)));
        log.clear();
        CHECK(MessageReader::pop(stream).isNull());
        CHECK(log.errors().size() == 1);
    }
}

TEST_CASE("a dispenser calls the handler of the exact class and gives its result")
{
    struct Judge {
        int onGreeting(Greeting* greeting) { return greeting->times; }
    } judge;
    orvi::MessageDispenser<int> dispenser;
    dispenser += {&judge, &Judge::onGreeting};
    dispenser += [](const Mixed& mixed) { return mixed.weight; };
    CHECK(dispenser.getMessageHandlerCount() == 2);
    CHECK(dispenser.dispatchMessage(makeGreeting(L"a", 6)) == 6);
    CHECK(dispenser.dispatchMessage(Mixed::createInstance()) == 3);

    const auto refusalOf = [&](Message* message) {
        try {
            dispenser.dispatchMessage(message);
        } catch (const Exception& exception) {
            return String(exception.description());
        }
        return String();
    };
    CHECK(refusalOf(Toast::createInstance()) ==
          L"int MessageHandler::dispatchMessage( (anonymous namespace)::Toast )");
    CHECK(refusalOf(nullptr) == L"int MessageHandler::dispatchMessage( null )");

    dispenser -= {&judge, &Judge::onGreeting};
    CHECK(refusalOf(makeGreeting(L"a")) ==
          L"int MessageHandler::dispatchMessage( (anonymous namespace)::Greeting )");
    CHECK(dispenser.getMessageHandler(Greeting::getClassId_()).isNull());

    SUBCASE("an object with the id of the handler's class that is none")
    {
        class Impostor : public Message {
        public:
            unsigned int getClassId() const override { return Mixed::getClassId_(); }
        };
        const Handle_T<Message> impostor = new Impostor;
        CHECK(refusalOf(impostor).find(L"MessageHandler: ") == 0);
    }
    SUBCASE("an object of a derived class without a declaration of its own")
    {
        class Heavier : public Mixed {
        public:
            Heavier() { weight = 9; }
        };
        const Handle_T<Message> heavier = new Heavier;
        CHECK(dispenser.dispatchMessage(heavier) == 9);
    }
}
