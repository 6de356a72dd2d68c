#include "TextPrinting.h"

#include "RecordingLog.h"

#include <orvi/core/Core.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using orvi::Exception;
using orvi::Handle_T;
using orvi::InputStream;
using orvi::Message;
using orvi::MessagePipe;
using orvi::MessagePort;
using orvi::OutputStream;
using orvi::String;

namespace {

constexpr unsigned int noLimit = 0xFFFFFFFF;

class Item : public Message {
    ORVI_DECLARE_MESSAGE(Item, Message);

public:
    int producer = 0;
    int number = 0;
    String text;
};
ORVI_DEFINE_MESSAGE(Item)
{
    table.add(L"producer", &Item::producer);
    table.add(L"number", &Item::number);
    table.add(L"text", &Item::text);
}

class Other : public Message {
    ORVI_DECLARE_MESSAGE(Other, Message);
};
ORVI_DEFINE_MESSAGE(Other) {}

/** Writes what a test wants, and reads nothing of it. */
class Raw : public Message {
    ORVI_DECLARE_PROPERTY(Raw, Message);

public:
    static Handle_T<Message> createMessage_() { return createInstance(); }
    static Handle_T<Raw> create(const std::string& bytes)
    {
        Handle_T<Raw> raw = createInstance();
        raw->bytes = bytes;
        return raw;
    }
    void exportTo(OutputStream& stream) const override
    {
        stream.write(bytes.data(), static_cast<int>(bytes.size()));
        if (fails)
            THROW_EXCEPTION(-1, L"Raw fails");
    }

    std::string bytes;
    bool fails = false;
};
ORVI_DEFINE_PROPERTY(Raw) {}

/** Sees on its way in and out whether the port is locked. */
class Prober : public Message {
    ORVI_DECLARE_PROPERTY(Prober, Message);

public:
    static Handle_T<Message> createMessage_() { return createInstance(); }
    void exportTo(OutputStream&) const override { pushFromOutside(); }
    void importFrom(InputStream&) override { pushFromOutside(); }

    /** Comes back only if the push side is free. */
    static void pushFromOutside()
    {
        if (port != nullptr)
            std::thread([] { port->pushMessage(Other::createInstance()); }).join();
    }
    static MessagePort* port;
};
MessagePort* Prober::port = nullptr;
ORVI_DEFINE_PROPERTY(Prober) {}

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

struct Listener {
    explicit Listener(MessagePort& heard)
        : port(heard)
    {
        port.getMessageDispenser() += {this, &Listener::onItem};
    }
    ~Listener() { port.getMessageDispenser() -= {this, &Listener::onItem}; }
    void onItem(Item* item) { numbers.push_back(item->number); }

    MessagePort& port;
    std::vector<int> numbers;
};

} // namespace

TEST_CASE("messages come out in order, as objects of their own")
{
    MessagePort port;
    CHECK(port.popMessage().isNull());
    CHECK(port.procMessage(noLimit) == 0);

    const Handle_T<Item> item = makeItem(1, 0, L"one");
    CHECK(port.pushMessage(item));
    item->number = 2; // of no effect on what was pushed
    port.pushMessage(item);
    port.pushMessage(Other::createInstance());

    const Handle_T<Item> first = port.popMessage();
    REQUIRE_FALSE(first.isNull());
    CHECK(static_cast<Item*>(first) != static_cast<Item*>(item));
    CHECK(first->number == 1);
    CHECK(first->text == L"one");
    CHECK(Handle_T<Item>(port.popMessage())->number == 2);
    CHECK_FALSE(Handle_T<Other>(port.popMessage()).isNull());
    CHECK(port.popMessage().isNull());
}

TEST_CASE("handlers are called until the queue is empty or the time is over")
{
    MessagePort port;
    Listener listener(port);
    for (int i = 0; i < 1000; ++i)
        port.pushMessage(makeItem(i));
    int processed = port.procMessage(0);
    CHECK(processed >= 1);
    processed += port.procMessage(noLimit);
    CHECK(processed == 1000);
    REQUIRE(listener.numbers.size() == 1000);
    for (int i = 0; i < 1000; ++i)
        REQUIRE(listener.numbers[static_cast<std::size_t>(i)] == i);
}

TEST_CASE("a message without a handler and a handler that fails end the call, and no other is lost")
{
    const RecordingLog log;
    MessagePort port;
    Listener listener(port);
    port.pushMessage(makeItem(1));
    port.pushMessage(Other::createInstance());
    port.pushMessage(makeItem(3));

    SUBCASE("no handler")
    {
        CHECK(port.procMessage(noLimit) == 1);
        CHECK(log.errors() ==
              std::vector<String>{L"void MessageHandler::dispatchMessage( (anonymous namespace)::Other )"});
    }
    SUBCASE("an Exception")
    {
        port.getMessageDispenser() += [](Other*) { THROW_EXCEPTION(-1, L"no others"); };
        CHECK(port.procMessage(noLimit) == 1);
        CHECK(log.errors() == std::vector<String>{L"no others"});
    }
    SUBCASE("another exception")
    {
        port.getMessageDispenser() += [](Other*) { throw std::runtime_error("other"); };
        CHECK_THROWS_AS(port.procMessage(noLimit), std::runtime_error);
        std::thread([&] { CHECK(port.procMessage(noLimit) == 1); }).join(); // no lock was left behind
        port.pushMessage(makeItem(4));
    }
    port.procMessage(noLimit);
    CHECK(listener.numbers.size() >= 2);
    CHECK(listener.numbers[1] == 3);
}

TEST_CASE("a null handle ends the call like an empty queue")
{
    MessagePort port;
    Listener listener(port);
    port.pushMessage(makeItem(1));
    port.pushMessage({});
    port.pushMessage(makeItem(2));
    CHECK(port.procMessage(noLimit) == 1);
    CHECK(port.procMessage(noLimit) == 1);
    port.pushMessage({});
    CHECK(port.popMessage().isNull());
    CHECK(listener.numbers == std::vector{1, 2});
}

TEST_CASE("a handler may push, pop and process on its own port, and change the table")
{
    static MessagePort* current = nullptr;
    MessagePort port;
    current = &port;
    static std::vector<int> numbers;
    numbers.clear();
    port.getMessageDispenser() += [](Item* item) {
        numbers.push_back(item->number);
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
    CHECK(port.getMessageDispenser().getMessageHandlerCount() == 0);
}

TEST_CASE("a message that fails to write itself leaves no trace in the queue")
{
    MessagePort port;
    const Handle_T<Raw> raw = Raw::create("abc");
    raw->fails = true;
    CHECK_THROWS_AS(port.pushMessage(raw), Exception);
    raw->bytes = std::string(100000, 'x');
    CHECK_THROWS_AS(port.pushMessage(raw), Exception);
    port.pushMessage(makeItem(1));
    CHECK(Handle_T<Item>(port.popMessage())->number == 1);
    CHECK(port.popMessage().isNull());
}

TEST_CASE("bytes that make no sense are reported, and the port goes on")
{
    const struct {
        const char* what;
        std::string bytes; // behind a message that reads nothing of them
        const wchar_t* report;
    } rows[] = {
        {"no tag", "x", L"TyIs& operator >>(TyIs &,orvi::Message::Handle &) Error!"},
        {"an unknown class", "Oabcd", L"TyIs& operator >>(TyIs &,orvi::Message::Handle &)"},
        {"an id cut short", "Oab", L"orvi::InputStream& operator>>(orvi::InputStream &is,uint32_t &i)"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        const RecordingLog log;
        MessagePort port;
        port.pushMessage(Raw::create(row.bytes));
        CHECK_FALSE(Handle_T<Raw>(port.popMessage()).isNull());
        CHECK(port.popMessage().isNull());
        CHECK(log.errors() == std::vector<String>{row.report});
        CHECK(port.popMessage().isNull());
        port.pushMessage(makeItem(1));
        CHECK(Handle_T<Item>(port.popMessage())->number == 1);
    }
}

TEST_CASE("no lock of the push side is held while a message writes or reads itself")
{
    MessagePort port;
    Prober::port = &port;
    port.pushMessage(Prober::createInstance()); // hangs otherwise
    CHECK_FALSE(Handle_T<Other>(port.popMessage()).isNull());
    CHECK_FALSE(Handle_T<Prober>(port.popMessage()).isNull());
    CHECK_FALSE(Handle_T<Other>(port.popMessage()).isNull());
    CHECK(port.popMessage().isNull());
    Prober::port = nullptr;
}

TEST_CASE("a long queue is no matter for the log, whose listeners may push")
{
    const RecordingLog log;
    MessagePort port;
    const String large = longText();
    for (int i = 0; i < 100; ++i)
        port.pushMessage(makeItem(i, 0, large));
    CHECK(log.lines().empty());
}

TEST_CASE("large messages and long queues keep their order beside small ones")
{
    MessagePort port;
    const String large = longText();
    int pushed = 0;
    int popped = 0;
    for (int round = 0; round < 40; ++round) {
        for (int i = 0; i < 100; ++i, ++pushed)
            port.pushMessage(makeItem(pushed, 0, pushed % 7 == 0 ? large : String(L"small")));
        for (int i = 0; i < 60; ++i, ++popped) {
            const Handle_T<Item> item = port.popMessage();
            REQUIRE_FALSE(item.isNull());
            REQUIRE(item->number == popped);
            REQUIRE(item->text == (popped % 7 == 0 ? large : String(L"small")));
        }
    }
    for (; popped < pushed; ++popped)
        REQUIRE(Handle_T<Item>(port.popMessage())->number == popped);
    CHECK(port.popMessage().isNull());
}

TEST_CASE("the two ports of a pipe are apart")
{
    MessagePipe pipe;
    pipe.getServerPort().pushMessage(makeItem(1));
    CHECK(pipe.getClientPort().popMessage().isNull());
    CHECK(&static_cast<const MessagePipe&>(pipe).getServerPort() == &pipe.getServerPort());
    CHECK(Handle_T<Item>(pipe.getServerPort().popMessage())->number == 1);
}

TEST_CASE("many producers and two consumers: nothing lost, nothing twice, in order for each producer")
{
    constexpr int producers = 4;
    constexpr int each = 3000;
    static std::atomic<MessagePort*> current;
    static std::atomic<int> others;
    static std::atomic<bool> inOrder;
    static int next[producers]; // the handlers run one at a time
    MessagePort port;
    current = &port;
    others = 0;
    inOrder = true;
    std::fill(std::begin(next), std::end(next), 0);
    static std::atomic<int> done;
    done = 0;
    port.getMessageDispenser() += [](Item* item) {
        int& expected = next[item->producer];
        inOrder = inOrder && item->number == expected;
        ++expected;
        ++done;
        if (item->number % 16 == 0)
            current.load()->pushMessage(Other::createInstance());
        if (item->number % 100 == 50)
            THROW_EXCEPTION(-1, L"now and then");
        if (item->number % 100 == 75)
            throw 5;
    };
    port.getMessageDispenser() += [](Other*) { ++others; };

    const RecordingLog log; // takes the reports
    constexpr int wantedOthers = producers * ((each + 15) / 16);
    const auto consume = [&] {
        while (done < producers * each || others < wantedOthers) {
            try {
                if (port.procMessage(1) == 0)
                    std::this_thread::yield();
            } catch (int) {
            }
        }
    };
    std::vector<std::thread> threads;
    for (int producer = 0; producer < producers; ++producer) {
        threads.emplace_back([&port, producer] {
            for (int i = 0; i < each; ++i)
                port.pushMessage(makeItem(i, producer, i % 500 == 0 ? longText() : String(L"t")));
        });
    }
    threads.emplace_back(consume);
    threads.emplace_back(consume);
    for (std::thread& thread : threads)
        thread.join();
    CHECK(inOrder);
    CHECK(others == wantedOthers);
    for (const int count : next)
        CHECK(count == each);
    CHECK(log.count(RecordingLog::Level::Error, L"now and then") == producers * each / 100);
    CHECK(port.popMessage().isNull());
}
