#include "ServiceProcess.h"
#include "TextPrinting.h"

#include "RecordingLog.h"

#include <orvi/core/Core.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <thread>
#include <vector>

using orvi::App;
using orvi::AppBox;
using orvi::AppPipe;
using orvi::Handle_T;
using orvi::String;
using orvi::System;

namespace {

/** Answers to a few commands; gentle with the processor. */
class TestBox : public AppBox {
public:
    static Handle_T<AppBox> create(const wchar_t* appName, const wchar_t* parameters)
    {
        return new TestBox(appName, parameters);
    }

    bool init() override { return AppBox::init() && orvi::Yield::createInstance()->start(this); }

    bool docmd(AppPipe* pipe, wchar_t** argv, int argc) override
    {
        const String command(argv[0]);
        if (command == L"echo") {
            for (int i = 1; i < argc; ++i)
                pipe->write(argv[i]);
            return true;
        }
        if (command == L"parameters")
            return pipe->write(getParameters());
        if (command == L"throw") {
            pipe->write(L"before");
            THROW_EXCEPTION(-1, L"a command failed");
        }
        if (command == L"throw foreign")
            throw std::runtime_error("not one of ours");
        if (command == L"leave") // the command's own pipe, while it is being served
            removePipe(pipe);
        if (command == L"end")
            shutdown();
        return command == L"leave" || command == L"end";
    }

protected:
    using AppBox::AppBox;
};

/** Does what its parameters and its commands tell. */
class OddBox : public AppBox {
public:
    static Handle_T<AppBox> create(const wchar_t* appName, const wchar_t* parameters)
    {
        return new OddBox(appName, parameters);
    }

    bool init() override
    {
        if (getParameters() == L"init throws")
            throw 1;
        return AppBox::init();
    }
    void exit() override
    {
        if (getParameters() == L"exit throws")
            throw 1;
        AppBox::exit();
    }
    bool docmd(AppPipe* pipe, wchar_t** argv, int) override
    {
        commands.push_back(argv[0]);
        if (commands.back() == L"turn")
            onTurn();
        if (commands.back() == L"slow")
            std::this_thread::sleep_for(std::chrono::milliseconds(4));
        if (commands.back() == L"end")
            shutdown();
        return pipe->write(L"done");
    }

    std::vector<String> commands;
    std::function<void()> onTurn;

protected:
    using AppBox::AppBox;
};

Handle_T<AppBox> createPlain(const wchar_t* appName, const wchar_t* parameters)
{
    const Handle_T<AppBox> box = AppBox::createInstance(appName, parameters);
    return box;
}

Handle_T<AppBox> createNone(const wchar_t*, const wchar_t*) { return {}; }

/** Ends within its first pass. */
class ShortBox : public AppBox {
public:
    static Handle_T<AppBox> create(const wchar_t* appName, const wchar_t* parameters)
    {
        return new ShortBox(appName, parameters);
    }
    bool init() override
    {
        shutdown();
        return AppBox::init();
    }

protected:
    using AppBox::AppBox;
};

/** Reads until the text `last` comes, and gives everything up to it. */
std::vector<String> readUntil(App* app, const wchar_t* last)
{
    std::vector<String> texts;
    String text;
    while (texts.empty() || texts.back() != last) {
        if (app->getPipe()->read(text))
            texts.push_back(text);
        else
            std::this_thread::yield();
    }
    return texts;
}

std::vector<String> command(App* app, const wchar_t* line, const wchar_t* last)
{
    app->getPipe()->write(L"$COMMAND " + String(line));
    return readUntil(app, last);
}

using Texts = std::vector<String>;

struct Kinds {
    Kinds()
    {
        orvi::setUpApp(L"test", TestBox::create);
        orvi::setUpApp(L"plain", createPlain);
        orvi::setUpApp(L"none", createNone);
        orvi::setUpApp(L"short", ShortBox::create);
        orvi::setUpApp(L"odd", OddBox::create);
    }
} g_kinds;

} // namespace

TEST_CASE("kinds of applications are registered once for a name")
{
    CHECK(orvi::setUpApp(L"once", TestBox::create));
    CHECK(orvi::setUpApp(L"once", TestBox::create));
    CHECK(!orvi::setUpApp(L"once", createPlain));
    orvi::tearDownApp(L"once");
    orvi::tearDownApp(L"once");
    CHECK(orvi::startApp(L"once", L"x", L"").isNull());
    CHECK(orvi::getApp(L"x").isNull());
    CHECK(orvi::startApp(L"none", L"x", L"").isNull());
    CHECK(orvi::getApp(L"x").isNull());
    orvi::exitApp(nullptr);
}

TEST_CASE("every row of the protocol")
{
    const RecordingLog log;
    const Handle_T<App> app = orvi::startApp(L"test", L"rows", L"a b");
    REQUIRE(!app.isNull());
    CHECK(readUntil(app, L"$HELLO") == Texts{L"$HELLO"});
    CHECK(command(app, L"echo one \"two words\" \\\"", L"$END OK") ==
          Texts{L"$BEGIN echo", L"one", L"two words", L"\"", L"$END OK"});
    CHECK(command(app, L"echo \x0416\xD83D\xDE00", L"$END OK") ==
          Texts{L"$BEGIN echo", L"\x0416\xD83D\xDE00", L"$END OK"});
    CHECK(command(app, L"parameters", L"$END OK") == Texts{L"$BEGIN parameters", L"a b", L"$END OK"});
    CHECK(command(app, L"unknown", L"$NOTHING") == Texts{L"$BEGIN unknown", L"$END FAILED", L"$NOTHING"});
    CHECK(command(app, L"", L"$NOTHING") == Texts{L"$BEGIN ", L"$END FAILED", L"$NOTHING"});
    CHECK(command(app, L"throw", L"$END FAILED") == Texts{L"$BEGIN throw", L"before", L"$END FAILED"});
    CHECK(command(app, L"\"throw foreign\"", L"$END FAILED") ==
          Texts{L"$BEGIN throw foreign", L"$END FAILED"});
    CHECK(log.count(RecordingLog::Level::Error, L"a command failed") == 1);
    for (const wchar_t* text : {L"$COMMAND", L"$command echo", L"anything"}) {
        app->getPipe()->write(text);
        CHECK(readUntil(app, L"$NOTHING") == Texts{L"$NOTHING"});
    }
    orvi::exitApp(app);
    CHECK(readUntil(app, L"$BYE") == Texts{L"$BYE"});
    CHECK(orvi::getApp(L"rows").isNull());
}

TEST_CASE("a plain box fails every command")
{
    const Handle_T<App> app = orvi::startApp(L"plain", L"plain", L"");
    readUntil(app, L"$HELLO");
    CHECK(command(app, L"x", L"$NOTHING") == Texts{L"$BEGIN x", L"$END FAILED", L"$NOTHING"});
    orvi::exitApp(app);
}

TEST_CASE("two clients of one box get their own answers, and both a farewell")
{
    const Handle_T<App> first = orvi::startApp(L"test", L"shared", L"");
    const Handle_T<App> second = orvi::getApp(L"shared");
    REQUIRE(!second.isNull());
    CHECK(second->getAppBox() == first->getAppBox());
    CHECK(second->getPipe() != first->getPipe());
    first->getPipe()->write(L"$COMMAND echo 1");
    second->getPipe()->write(L"$COMMAND echo 2");
    CHECK(readUntil(first, L"$END OK") == Texts{L"$HELLO", L"$BEGIN echo", L"1", L"$END OK"});
    CHECK(readUntil(second, L"$END OK") == Texts{L"$HELLO", L"$BEGIN echo", L"2", L"$END OK"});
    first->getPipe()->write(L"$COMMAND end");
    CHECK(readUntil(second, L"$BYE") == Texts{L"$BYE"});
    CHECK(readUntil(first, L"$BYE") == Texts{L"$BEGIN end", L"$END OK", L"$BYE"});
    orvi::exitApp(first);
}

TEST_CASE("a box lives without its first client, and a client without its box")
{
    {
        const Handle_T<App> vanishing = orvi::startApp(L"test", L"lonely", L"");
        vanishing->getPipe()->write(L"$COMMAND echo nobody reads this");
    }
    Handle_T<App> app = orvi::getApp(L"lonely");
    REQUIRE(!app.isNull());
    CHECK(command(app, L"leave", L"$BYE") == Texts{L"$HELLO", L"$BEGIN leave", L"$END OK", L"$BYE"});
    app = orvi::getApp(L"lonely");
    orvi::exitApp(app);
    CHECK(readUntil(app, L"$BYE") == Texts{L"$HELLO", L"$BYE"});
    app->getPipe()->write(L"$COMMAND echo"); // goes nowhere, harms nobody
}

TEST_CASE("a box that ends by itself leaves no dead entry behind")
{
    for (int round = 0; round < 200; ++round) {
        const Handle_T<App> app = orvi::startApp(L"short", L"brief", L"");
        REQUIRE(!app.isNull());
        CHECK(readUntil(app, L"$BYE") == Texts{L"$HELLO", L"$BYE"});
        app->getThread()->shutdown();
        CHECK(orvi::getApp(L"brief").isNull());
    }
}

TEST_CASE("a box that is started again serves whoever came before its first pass")
{
    const Handle_T<App> first = orvi::startApp(L"test", L"again", L"");
    orvi::exitApp(first);
    const Handle_T<App> early = App::createInstance(first->getThread(), first->getAppBox());
    for (int round = 0; round < 50; ++round) {
        REQUIRE(first->getThread()->start(first->getAppBox()));
        const Handle_T<App> app = App::createInstance(first->getThread(), first->getAppBox());
        app->getPipe()->write(L"$COMMAND leave");
        CHECK(readUntil(app, L"$BYE") == Texts{L"$HELLO", L"$BEGIN leave", L"$END OK", L"$BYE"});
        orvi::exitApp(app);
    }
    CHECK(readUntil(early, L"$BYE") == Texts{L"$HELLO", L"$BYE"});
}

TEST_CASE("a name used twice: the second is found, both run, the first to end frees the name")
{
    const Handle_T<App> first = orvi::startApp(L"test", L"twice", L"1");
    const Handle_T<App> second = orvi::startApp(L"test", L"twice", L"2");
    CHECK(orvi::getApp(L"twice")->getAppBox() == second->getAppBox());
    command(first, L"parameters", L"$END OK");
    orvi::exitApp(first);
    CHECK(orvi::getApp(L"twice").isNull());
    command(second, L"parameters", L"$END OK");
    orvi::exitApp(second);
}

TEST_CASE("what leaves init or exit of a box ends that box alone, in good order")
{
    const RecordingLog log;
    for (const wchar_t* parameters : {L"init throws", L"exit throws"}) {
        const Handle_T<App> app = orvi::startApp(L"odd", L"odd", parameters);
        REQUIRE(!app.isNull());
        readUntil(app, L"$HELLO");
        app->getAppBox()->shutdown();
        CHECK(readUntil(app, L"$BYE") == Texts{L"$BYE"});
        orvi::exitApp(app);
        CHECK(orvi::getApp(L"odd").isNull());
        CHECK(app->getAppBox()->getState() == System::STATE_UNLOADED);
    }
}

TEST_CASE("a box that is shut down before its thread gets to it leaves like any other")
{
    for (int round = 0; round < 100; ++round) {
        const Handle_T<App> app = orvi::startApp(L"plain", L"early", L"");
        app->getAppBox()->shutdown();
        CHECK(readUntil(app, L"$BYE") == Texts{L"$HELLO", L"$BYE"});
        orvi::exitApp(app);
        CHECK(orvi::getApp(L"early").isNull());
    }
}

TEST_CASE("clients are served in turns, and nothing is served behind a shutdown")
{
    const Handle_T<OddBox> box = OddBox::create(L"", L"");
    const auto thread = orvi::Thread::createInstance();
    const Handle_T<App> busy[] = {App::createInstance(thread, box), App::createInstance(thread, box)};
    const Handle_T<App> brief = App::createInstance(thread, box);
    constexpr int mostBefore = 1000;
    for (int i = 0; i < 2 * mostBefore; ++i) {
        for (const auto& app : busy)
            app->getPipe()->write(L"$COMMAND busy");
    }
    brief->getPipe()->write(L"$COMMAND brief");
    brief->getPipe()->write(L"$COMMAND end");
    brief->getPipe()->write(L"$COMMAND late");
    REQUIRE(thread->start(box));
    CHECK(readUntil(brief, L"$BYE") == Texts{L"$HELLO", L"$BEGIN brief", L"done", L"$END OK", L"$BEGIN end",
                                             L"done", L"$END OK", L"$BYE"});
    thread->shutdown();
    CHECK(box->commands.size() < mostBefore);
    CHECK(box->commands.back() == L"end");
}

TEST_CASE("tasks get their turn while texts are left, but for those that only rest")
{
    constexpr int commandCount = 200;
    class BusyBox : public OddBox {
    public:
        BusyBox()
            : OddBox(L"", L"")
        {}
        bool init() override
        {
            constexpr unsigned int oneHourMs = 3'600'000;
            const auto tick = orvi::Tick::createInstance();
            tick->addTickHandler({this, &BusyBox::look});
            return OddBox::init() && tick->start(this) && orvi::Yield::createInstance(oneHourMs)->start(this);
        }
        void look(unsigned int) { looks += commands.size() < commandCount; }
        int looks = 0;
    };
    const Handle_T<BusyBox> box = new BusyBox;
    const auto thread = orvi::Thread::createInstance();
    const Handle_T<App> app = App::createInstance(thread, box);
    for (int i = 1; i < commandCount; ++i)
        app->getPipe()->write(i % 10 == 0 ? L"$COMMAND slow" : L"$COMMAND quick");
    app->getPipe()->write(L"$COMMAND end");
    REQUIRE(thread->start(box));
    CHECK(readUntil(app, L"$BYE").size() == 3 * commandCount + 2);
    thread->shutdown();
    CHECK(box->commands.size() == commandCount);
    CHECK(box->looks > 0);
}

TEST_CASE("a command may turn the loop in which its own client leaves")
{
    const Handle_T<OddBox> box = OddBox::create(L"", L"");
    const auto thread = orvi::Thread::createInstance();
    Handle_T<App> leaving = App::createInstance(thread, box);
    const Handle_T<App> staying = App::createInstance(thread, box);
    leaving->getPipe()->write(L"$COMMAND turn");
    box->onTurn = [&] {
        leaving.setNull();
        staying->getPipe()->write(L"$COMMAND first");
        staying->getPipe()->write(L"$COMMAND end");
        box->tick();
    };
    REQUIRE(thread->start(box));
    CHECK(readUntil(staying, L"$BYE").size() == 8);
    thread->shutdown();
    CHECK(box->commands == Texts{L"turn", L"first", L"end"});
}

TEST_CASE("the end of the process asks all boxes before it waits for one")
{
    class AskedBox : public OddBox {
    public:
        static Handle_T<AppBox> create(const wchar_t* appName, const wchar_t*)
        {
            return new AskedBox(appName);
        }
        bool shutdown() override
        {
            ++asked();
            return OddBox::shutdown();
        }
        void exit() override
        {
            while (asked() < 3)
                std::this_thread::yield();
            OddBox::exit();
        }

    private:
        explicit AskedBox(const wchar_t* appName)
            : OddBox(appName, L"")
        {}
        static std::atomic<int>& asked()
        {
            static std::atomic<int> count = 0;
            return count;
        }
    };
    ServiceProcess program("", [] {
        orvi::setUpApp(L"asked", AskedBox::create);
        for (const wchar_t* name : {L"1", L"2", L"3"})
            readUntil(orvi::startApp(L"asked", name, L""), L"$HELLO");
        std::exit(0);
        return 1;
    });
    CHECK(program.wait() == 0);
}

TEST_CASE("bad bytes on a pipe are reported and do not disturb the box")
{
    using orvi::Mutex;
    using orvi::SharedPtr;
    const RecordingLog log;
    const auto input = orvi::MemoryStream::createInstance();
    const auto output = orvi::MemoryStream::createInstance();
    const SharedPtr<Mutex> inputMutex(new Mutex), outputMutex(new Mutex);
    const auto pipe = AppPipe::createInstance(input, inputMutex, output, outputMutex);
    String text(L"before");
    CHECK(!pipe->read(text));
    const unsigned char hostile[] = {0xFE, 0xFF, 0xFF, 0xFF, 0x0F, 'x'}; // a text of 2147483647 bytes
    input->write(hostile, sizeof hostile);
    CHECK(!pipe->read(text));
    CHECK(text == L"before");
    CHECK(log.lines().size() == 1);
}

TEST_CASE("a thousand applications start, answer and end")
{
    std::vector<Handle_T<App>> apps;
    for (int i = 0; i < 1000; ++i) {
        String name;
        name.format(L"app %d", i);
        apps.push_back(orvi::startApp(L"test", name, name));
        REQUIRE(!apps.back().isNull());
        apps.back()->getPipe()->write(L"$COMMAND parameters");
    }
    for (const auto& app : apps)
        CHECK(readUntil(app, L"$END OK")[2] == app->getAppBox()->getAppName());
    for (const auto& app : apps)
        app->getAppBox()->shutdown();
    for (const auto& app : apps) {
        orvi::exitApp(app);
        CHECK(readUntil(app, L"$BYE").size() == 1);
    }
}

TEST_CASE("many clients on few boxes, coming and going")
{
    const wchar_t* const names[] = {L"busy 0", L"busy 1", L"busy 2"};
    std::vector<Handle_T<App>> boxes;
    for (const wchar_t* name : names)
        boxes.push_back(orvi::startApp(L"test", name, L""));
    std::vector<std::thread> clients;
    for (int client = 0; client < 8; ++client) {
        clients.emplace_back([&, client] {
            for (int visit = 0; visit < 10; ++visit) {
                const Handle_T<App> app = orvi::getApp(names[(client + visit) % 3]);
                String line;
                for (int i = 0; i < 5; ++i) {
                    line.format(L"echo %d-%d-%d", client, visit, i);
                    const Texts texts = command(app, line, L"$END OK");
                    CHECK(texts[texts.size() - 2] == line.getBuffer() + 5);
                }
            }
        });
    }
    for (auto& client : clients)
        client.join();
    for (const auto& box : boxes) {
        orvi::exitApp(box);
        CHECK(readUntil(box, L"$BYE") == Texts{L"$HELLO", L"$BYE"});
    }
}
