#include "TextPrinting.h"

#include "RecordingLog.h"

#include <orvi/core/Core.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace orvi;

namespace {

constexpr unsigned int noLimit = 0xFFFFFFFF;

class Item : public Message {
    ORVI_DECLARE_MESSAGE(Item, Message);

public:
    String text;
    int producer = 0;
    int number = 0;
};
ORVI_DEFINE_MESSAGE(Item)
{
    table.add(L"text", &Item::text); // in front: what is small comes behind what may be large
    table.add(L"producer", &Item::producer);
    table.add(L"number", &Item::number);
}

/** Writes what a test wants, and reads nothing of it; on its way it calls back. */
class Other : public Message {
    ORVI_DECLARE_PROPERTY(Other, Message);

public:
    static Handle_T<Message> createMessage_() { return createInstance(); }
    static Handle_T<Other> create(const std::string& bytes)
    {
        Handle_T<Other> other = createInstance();
        other->bytes = bytes;
        return other;
    }
    void exportTo(OutputStream& stream) const override
    {
        stream.write(bytes.data(), static_cast<int>(bytes.size()));
        onTheWay();
    }
    void importFrom(InputStream&) override { onTheWay(); }

    static inline void (*onTheWay)() = [] {};
    std::string bytes;
};
ORVI_DEFINE_PROPERTY(Other) {}

Handle_T<Item> makeItem(int number, int producer = 0, const String& text = {})
{
    Handle_T<Item> item = Item::createInstance();
    item->producer = producer;
    item->number = number;
    item->text = text;
    return item;
}

String longText()
{
    String text;
    text.format(L"%5000d", 1);
    return text;
}

MessagePort* current = nullptr; // for handlers
std::vector<int> numbers;       // what they have been given
void onItem(Item* item) { numbers.push_back(item->number); }

} // namespace

TEST_CASE("messages come out in order, as objects of their own")
{
    const RecordingLog log; // whose listeners may push, so that nothing is said there
    MessagePipe pipe;
    MessagePort& port = pipe.getServerPort();
    CHECK(port.popMessage().isNull());
    const Handle_T<Item> item = makeItem(1, 0, L"one");
    CHECK(port.pushMessage(item));
    item->number = 2; // of no effect on what was pushed
    port.pushMessage(item);
    port.pushMessage(Other::createInstance());
    port.pushMessage(makeItem(3, 0, longText()));
    CHECK(pipe.getClientPort().popMessage().isNull());

    const Handle_T<Item> first = port.popMessage();
    REQUIRE_FALSE(first.isNull());
    CHECK(static_cast<Item*>(first) != static_cast<Item*>(item));
    CHECK(first->number == 1);
    CHECK(first->text == L"one");
    CHECK(Handle_T<Item>(port.popMessage())->number == 2);
    CHECK_FALSE(Handle_T<Other>(port.popMessage()).isNull());
    CHECK(Handle_T<Item>(port.popMessage())->text == longText());
    CHECK(port.popMessage().isNull());
    CHECK(log.lines().empty());
}

TEST_CASE("handlers are called until the queue is empty, a null handle comes or the time is over")
{
    numbers.clear();
    MessagePort port;
    port.getMessageDispenser() += onItem;
    CHECK(port.procMessage(noLimit) == 0);
    port.pushMessage(makeItem(1));
    CHECK(port.procMessage(0) == 1); // one at least
    port.pushMessage(makeItem(2));
    port.pushMessage({});
    port.pushMessage(makeItem(3));
    port.pushMessage(makeItem(4));
    CHECK(port.procMessage(noLimit) == 1);
    CHECK(port.procMessage(noLimit) == 2);
    CHECK(numbers == std::vector{1, 2, 3, 4});
    port.getMessageDispenser() += [](Item*) {
        for (const unsigned int began = getTimeTick(); getTimeTick() - began < 2;) {
        }
    };
    port.pushMessage(makeItem(5));
    port.pushMessage(makeItem(6));
    CHECK(port.procMessage(1) == 1); // that took too long
}

TEST_CASE("a message without a handler and a handler that fails end the call, and no other is lost")
{
    numbers.clear();
    const RecordingLog log;
    MessagePort port;
    port.getMessageDispenser() += onItem;
    const auto pushThree = [&] {
        port.pushMessage(makeItem(1));
        port.pushMessage(Other::createInstance());
        port.pushMessage(makeItem(2));
    };
    pushThree();
    CHECK(port.procMessage(noLimit) == 1);
    CHECK(log.errors() ==
          std::vector<String>{L"void MessageHandler::dispatchMessage( (anonymous namespace)::Other )"});
    port.getMessageDispenser() += [](Other*) { THROW_EXCEPTION(-1, L"no others"); };
    pushThree();
    CHECK(port.procMessage(noLimit) == 2);
    CHECK(log.errors().back() == L"no others");
    port.getMessageDispenser() += [](Other*) { throw std::runtime_error("other"); };
    pushThree();
    CHECK_THROWS_AS(port.procMessage(noLimit), std::runtime_error);
    std::thread([&] { CHECK(port.procMessage(noLimit) == 1); }).join(); // no lock was left behind
    CHECK(numbers == std::vector{1, 2, 1, 2, 1, 2});
}

TEST_CASE("a handler may push, pop and process on its own port, and change the table")
{
    MessagePort port;
    current = &port;
    numbers.clear();
    port.getMessageDispenser() += [](Item* item) {
        onItem(item);
        if (item->number < 5)
            current->pushMessage(makeItem(item->number + 1));
        if (item->number == 2)
            CHECK(Handle_T<Item>(current->popMessage())->number == 3);
        if (item->number == 7)
            CHECK(current->procMessage(noLimit) == 1);
        if (item->number == 8)
            current->getMessageDispenser().clearMessageHandler();
    };
    port.pushMessage(makeItem(1));
    CHECK(port.procMessage(noLimit) == 2); // 1, 2: the last takes 3 away
    port.pushMessage(makeItem(7));
    port.pushMessage(makeItem(8));
    CHECK(port.procMessage(noLimit) == 1); // 7, with 8 inside
    CHECK(numbers == std::vector{1, 2, 7, 8});
}

TEST_CASE("a message that fails to write itself leaves no trace in the queue")
{
    MessagePort port;
    Other::onTheWay = [] { THROW_EXCEPTION(-1, L"cannot be written"); };
    for (const std::size_t size : {3U, 100000U})
        CHECK_THROWS_AS(port.pushMessage(Other::create(std::string(size, 'x'))), Exception);
    Other::onTheWay = [] {};
    port.pushMessage(makeItem(1));
    CHECK(Handle_T<Item>(port.popMessage())->number == 1);
    CHECK(port.popMessage().isNull());
}

TEST_CASE("bytes that make no sense are reported, and the port goes on")
{
    const struct {
        std::string bytes; // behind a message that reads nothing of them
        const wchar_t* report;
    } rows[] = {
        {"x", L"TyIs& operator >>(TyIs &,orvi::Message::Handle &) Error!"},           // no tag
        {"Oabcd", L"TyIs& operator >>(TyIs &,orvi::Message::Handle &)"},              // no such class
        {"Oab", L"orvi::InputStream& operator>>(orvi::InputStream &is,uint32_t &i)"}, // an id cut short
    };
    for (const auto& row : rows) {
        CAPTURE(row.bytes);
        const RecordingLog log;
        MessagePort port;
        port.pushMessage(Other::create(row.bytes));
        CHECK_FALSE(Handle_T<Other>(port.popMessage()).isNull());
        CHECK(port.popMessage().isNull());
        CHECK(log.errors() == std::vector<String>{row.report});
        port.pushMessage(makeItem(1));
        CHECK(Handle_T<Item>(port.popMessage())->number == 1);
    }
}

TEST_CASE("no lock of the push side is held while a message writes or reads itself")
{
    MessagePort port;
    current = &port;
    Other::onTheWay = [] {
        std::thread([] { current->pushMessage(makeItem(1)); }).join(); // hangs otherwise
    };
    port.pushMessage(Other::createInstance());
    CHECK_FALSE(Handle_T<Item>(port.popMessage()).isNull());
    CHECK_FALSE(Handle_T<Other>(port.popMessage()).isNull());
    Other::onTheWay = [] {};
    CHECK_FALSE(Handle_T<Item>(port.popMessage()).isNull());
}

TEST_CASE("many producers and two consumers: nothing lost, nothing twice, in order for each producer")
{
    constexpr int producers = 4, each = 3000;
    static std::atomic<int> done = 0;
    static std::atomic<bool> inOrder = true;
    static int next[producers] = {}; // the handlers run one at a time
    MessagePort port;
    port.getMessageDispenser() += [](Item* item) {
        inOrder = inOrder && item->number == next[item->producer]++ &&
                  item->text == (item->number % 500 == 0 ? longText() : String(L"t"));
        ++done;
        if (item->number % 100 == 50)
            THROW_EXCEPTION(-1, L"now and then");
    };
    const RecordingLog log; // takes the reports
    const auto consume = [&] {
        while (done < producers * each) {
            port.wait(1);
            port.procMessage(1);
        }
    };
    std::vector<std::jthread> threads;
    for (int producer = 0; producer < producers; ++producer) {
        threads.emplace_back([&port, producer] {
            for (int i = 0; i < each; ++i)
                port.pushMessage(makeItem(i, producer, i % 500 == 0 ? longText() : String(L"t")));
        });
    }
    threads.emplace_back(consume);
    threads.emplace_back(consume);
    threads.clear();
    CHECK(inOrder);
    CHECK(log.count(RecordingLog::Level::Error, L"now and then") == producers * each / 100);
    CHECK(port.popMessage().isNull());
}

TEST_CASE("who waits for messages, a thread or a System, misses none")
{
    constexpr int rounds = 10'000;
    static std::atomic<int> done;
    done = 0;
    MessagePort port;
    port.getMessageDispenser() += [](Item*) { ++done; };
    // Each is waited for before the next: a single lost wake-up would be a hang.
    const auto produce = [&port] {
        for (int i = 0; i < rounds; ++i) {
            port.pushMessage(makeItem(i));
            while (done <= i)
                std::this_thread::yield();
        }
    };
    SUBCASE("a thread")
    {
        CHECK_FALSE(port.wait(0));
        CHECK_FALSE(port.wait(2));
        const std::jthread producer(produce);
        for (int taken = 0; taken < rounds;) {
            CHECK(port.wait(noLimit));
            taken += port.procMessage(noLimit);
        }
        port.pushMessage(makeItem(0));
        port.pushMessage(makeItem(0));
        CHECK_FALSE(port.popMessage().isNull());
        CHECK(port.wait(noLimit)); // what another one has taken over counts
    }
    SUBCASE("a System")
    {
        class Serving final : public System {
        public:
            bool init() override
            {
                return System::init() && Rest::createInstance()->start(this) && port->serveOn(this, 0);
            }
            MessagePort* port = nullptr;
        };
        const Handle_T<Serving> system = new Serving;
        system->port = &port;
        port.pushMessage(makeItem(-1)); // before the service begins
        const Handle_T<Thread> thread = Thread::createInstance();
        CHECK(thread->start(system));
        while (done == 0)
            std::this_thread::yield();
        done = 0;
        produce();

        done = 0;
        port.getMessageDispenser() += [](Other*) { THROW_EXCEPTION(-1, L"ends the call"); };
        const RecordingLog log;
        for (int i = 0; i < 100; ++i) {
            port.pushMessage(Other::create(""));
            port.pushMessage(Handle_T<Message>());
            port.pushMessage(makeItem(i));
        }
        while (done < 100)
            std::this_thread::yield();
        thread->shutdown();
        port.pushMessage(makeItem(0)); // by now it waits for another consumer
        CHECK_FALSE(port.popMessage().isNull());
        CHECK_FALSE(port.serveOn(system));
    }
}
