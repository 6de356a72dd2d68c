#include "ServiceProcess.h"
#include "TextPrinting.h"

#include "RecordingLog.h"

#include <orvi/core/Core.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace orvi;

namespace {

using Texts = std::vector<String>;

/** Does what its parameters and its commands tell. */
class TestBox : public AppBox {
public:
    TestBox(const wchar_t* appName, const wchar_t* parameters)
        : AppBox(appName, parameters)
    {}

    bool init() override
    {
        if (getParameters() == L"init throws")
            throw 1;
        if (getParameters() == L"short") // it ends within its first pass
            shutdown();
        const bool isReady = AppBox::init();
        if (getParameters() == L"quiet") // gentle with the processor
            Yield::createInstance()->start(this);
        if (onInit)
            onInit();
        return isReady;
    }
    bool shutdown() override
    {
        ++asked;
        return AppBox::shutdown();
    }
    void exit() override
    {
        if (getParameters() == L"exit throws")
            throw 1;
        while (getParameters() == L"patient" && asked < 3)
            std::this_thread::yield();
        AppBox::exit();
    }
    bool docmd(AppPipe* pipe, wchar_t** argv, int argc) override
    {
        const String command(argv[0]);
        commands.push_back(command);
        if (command == L"turn")
            onTurn();
        if (command == L"slow")
            std::this_thread::sleep_for(std::chrono::milliseconds(4));
        if (command == L"parameters")
            pipe->write(getParameters());
        for (int i = 1; i < argc; ++i)
            pipe->write(argv[i]);
        if (command == L"throw")
            THROW_EXCEPTION(-1, L"a command failed");
        if (command == L"throw foreign")
            throw std::runtime_error("not one of ours");
        if (command == L"leave") // the command's own pipe, while it is being served
            removePipe(pipe);
        if (command == L"end")
            shutdown();
        return command != L"unknown";
    }

    Texts commands;
    std::function<void()> onInit, onTurn;
    static inline std::atomic<int> asked = 0; // all boxes
};

/** A box that the test starts itself, with clients before that. */
struct OwnBox {
    Handle_T<App> client() const { return App::createInstance(thread, box); }

    Handle_T<TestBox> box = new TestBox(L"", L"");
    Handle_T<Thread> thread = Thread::createInstance();
};

Handle_T<AppBox> create(const wchar_t* name, const wchar_t* parameters)
{
    return new TestBox(name, parameters);
}

Handle_T<App> start(const wchar_t* name, const wchar_t* parameters = L"quiet")
{
    setUpApp(L"test", create);
    return startApp(L"test", name, parameters);
}

/** Reads until the text `last` comes, and gives everything up to it. */
Texts readUntil(App* app, const wchar_t* last)
{
    Texts texts;
    String text;
    while (texts.empty() || texts.back() != last) {
        if (app->getPipe()->read(text))
            texts.push_back(text);
        else
            std::this_thread::yield();
    }
    return texts;
}

Texts command(App* app, const wchar_t* line, const wchar_t* last)
{
    app->getPipe()->write(L"$COMMAND " + String(line));
    return readUntil(app, last);
}

} // namespace

TEST_CASE("kinds of applications are registered once for a name")
{
    const auto createNone = [](const wchar_t*, const wchar_t*) { return Handle_T<AppBox>(); };
    CHECK(setUpApp(L"once", createNone));
    CHECK(setUpApp(L"once", createNone));
    CHECK(!setUpApp(L"once", create));
    CHECK(startApp(L"once", L"x", L"").isNull());
    tearDownApp(L"once");
    tearDownApp(L"once");
    CHECK(setUpApp(L"once", create));
    CHECK(getApp(L"x").isNull());
    exitApp(nullptr);
}

TEST_CASE("every row of the protocol")
{
    const RecordingLog log;
    const Handle_T<App> app = start(L"rows");
    CHECK(readUntil(app, L"$HELLO") == Texts{L"$HELLO"});
    const std::pair<const wchar_t*, Texts> rows[] = {
        {L"$COMMAND echo one \"two words\" \\\"", {L"$BEGIN echo", L"one", L"two words", L"\"", L"$END OK"}},
        {L"$COMMAND echo \x0416\xD83D\xDE00", {L"$BEGIN echo", L"\x0416\xD83D\xDE00", L"$END OK"}},
        {L"$COMMAND parameters", {L"$BEGIN parameters", L"quiet", L"$END OK"}},
        {L"$COMMAND unknown", {L"$BEGIN unknown", L"$END FAILED", L"$NOTHING"}},
        {L"$COMMAND throw before", {L"$BEGIN throw", L"before", L"$END FAILED"}},
        {L"$COMMAND \"throw foreign\"", {L"$BEGIN throw foreign", L"$END FAILED"}},
        {L"$COMMAND ", {L"$BEGIN ", L"$END OK"}},
        {L"$COMMAND", {L"$NOTHING"}},
        {L"$command echo", {L"$NOTHING"}},
    };
    for (const auto& row : rows) {
        CAPTURE(row.first);
        app->getPipe()->write(row.first);
        CHECK(readUntil(app, row.second.back()) == row.second);
    }
    CHECK(log.count(RecordingLog::Level::Error, L"a command failed") == 1);
    exitApp(app);
    CHECK(readUntil(app, L"$BYE") == Texts{L"$BYE"});
    CHECK(getApp(L"rows").isNull());
}

TEST_CASE("a box lives without its first client, and a client without its box")
{
    start(L"lonely")->getPipe()->write(L"$COMMAND echo nobody reads this");
    Handle_T<App> app = getApp(L"lonely");
    REQUIRE(!app.isNull());
    CHECK(command(app, L"leave", L"$BYE") == Texts{L"$HELLO", L"$BEGIN leave", L"$END OK", L"$BYE"});
    app = getApp(L"lonely");
    const Handle_T<App> other = getApp(L"lonely");
    CHECK(command(app, L"end", L"$BYE") == Texts{L"$HELLO", L"$BEGIN end", L"$END OK", L"$BYE"});
    CHECK(readUntil(other, L"$BYE") == Texts{L"$HELLO", L"$BYE"});
    exitApp(app);
    app->getPipe()->write(L"$COMMAND echo"); // goes nowhere, harms nobody
}

TEST_CASE("a box that ends at once, by itself, by others or by a failure, leaves like any other")
{
    const RecordingLog log; // takes the reports
    const wchar_t* const rows[] = {L"", L"short", L"init throws", L"exit throws"};
    for (int round = 0; round < 400; ++round) {
        const String parameters = rows[round % 4];
        CAPTURE(parameters);
        const Handle_T<App> app = start(L"brief", parameters);
        REQUIRE(!app.isNull());
        if (parameters != L"short")
            app->getAppBox()->shutdown();
        CHECK(readUntil(app, L"$BYE") == Texts{L"$HELLO", L"$BYE"});
        exitApp(app);
        CHECK(getApp(L"brief").isNull());
        CHECK(app->getAppBox()->getState() == System::STATE_UNLOADED);
    }
}

TEST_CASE("a box that is started again serves whoever came before its first pass")
{
    const Handle_T<App> first = start(L"again");
    exitApp(first);
    const Handle_T<App> early = App::createInstance(first->getThread(), first->getAppBox());
    for (int round = 0; round < 50; ++round) {
        REQUIRE(first->getThread()->start(first->getAppBox()));
        const Handle_T<App> app = App::createInstance(first->getThread(), first->getAppBox());
        CHECK(command(app, L"leave", L"$BYE") == Texts{L"$HELLO", L"$BEGIN leave", L"$END OK", L"$BYE"});
        exitApp(app);
    }
    CHECK(readUntil(early, L"$BYE") == Texts{L"$HELLO", L"$BYE"});
}

TEST_CASE("a name used twice: the second is found, both run, the first to end frees the name")
{
    const Handle_T<App> first = start(L"twice");
    const Handle_T<App> second = start(L"twice");
    CHECK(getApp(L"twice")->getAppBox() == second->getAppBox());
    command(first, L"parameters", L"$END OK");
    exitApp(first);
    CHECK(getApp(L"twice").isNull());
    command(second, L"parameters", L"$END OK");
    exitApp(second);
}

TEST_CASE("clients are served in turns, and nothing is served behind a shutdown")
{
    const OwnBox own;
    const Handle_T<App> busy[] = {own.client(), own.client()}, brief = own.client();
    constexpr int mostBefore = 1000;
    for (int i = 0; i < 2 * mostBefore; ++i) {
        for (const auto& app : busy)
            app->getPipe()->write(L"$COMMAND busy");
    }
    for (const wchar_t* word : {L"brief", L"end", L"late"})
        brief->getPipe()->write(L"$COMMAND " + String(word));
    REQUIRE(own.thread->start(own.box));
    CHECK(readUntil(brief, L"$BYE") ==
          Texts{L"$HELLO", L"$BEGIN brief", L"$END OK", L"$BEGIN end", L"$END OK", L"$BYE"});
    own.thread->shutdown();
    CHECK(own.box->commands.size() < mostBefore);
    CHECK(own.box->commands.back() == L"end");
}

TEST_CASE("tasks get their turn while texts are left, but for those that only rest")
{
    constexpr int commandCount = 200;
    constexpr unsigned int oneHourMs = 3'600'000;
    struct Task : System::Task {
        void onTick(unsigned int) override { looks += box->commands.size() < commandCount; }
        TestBox* box = nullptr;
        int looks = 0;
    };
    const OwnBox own;
    const Handle_T<Task> task = new Task;
    task->box = own.box;
    own.box->onInit = [&] {
        task->start(own.box);
        Yield::createInstance(oneHourMs)->start(own.box);
    };
    const Handle_T<App> app = own.client();
    for (int i = 1; i < commandCount; ++i)
        app->getPipe()->write(i % 10 == 0 ? L"$COMMAND slow" : L"$COMMAND quick");
    app->getPipe()->write(L"$COMMAND end");
    REQUIRE(own.thread->start(own.box));
    CHECK(readUntil(app, L"$BYE").size() == 2 * commandCount + 2);
    own.thread->shutdown();
    CHECK(own.box->commands.size() == commandCount);
    CHECK(task->looks > 0);
}

TEST_CASE("a command may turn the loop in which its own client leaves")
{
    const OwnBox own;
    Handle_T<App> leaving = own.client();
    const Handle_T<App> staying = own.client();
    leaving->getPipe()->write(L"$COMMAND turn");
    own.box->onTurn = [&] {
        leaving.setNull();
        staying->getPipe()->write(L"$COMMAND first");
        staying->getPipe()->write(L"$COMMAND end");
        own.box->tick();
    };
    REQUIRE(own.thread->start(own.box));
    CHECK(readUntil(staying, L"$BYE").size() == 6);
    own.thread->shutdown();
    CHECK(own.box->commands == Texts{L"turn", L"first", L"end"});
}

TEST_CASE("the end of the process asks all boxes before it waits for one")
{
    ServiceProcess program("", [] {
        for (const wchar_t* name : {L"1", L"2", L"3"})
            readUntil(start(name, L"patient"), L"$HELLO");
        TestBox::asked = 0;
        std::exit(0);
        return 1;
    });
    CHECK(program.wait() == 0);
}

TEST_CASE("bad bytes on a pipe are reported and do not disturb the box")
{
    const RecordingLog log;
    const auto input = MemoryStream::createInstance();
    const SharedPtr<Mutex> mutex(new Mutex);
    const auto pipe = AppPipe::createInstance(input, mutex, MemoryStream::createInstance(), mutex);
    String text(L"before");
    CHECK(!pipe->read(text));
    const unsigned char hostile[] = {0xFE, 0xFF, 0xFF, 0xFF, 0x0F, 'x'}; // a text of 2147483647 bytes
    input->write(hostile, sizeof hostile);
    CHECK(!pipe->read(text));
    CHECK(text == L"before");
    CHECK(log.lines().size() == 1);
}

TEST_CASE("many clients come to a box and go")
{
    const Handle_T<App> box = start(L"busy");
    std::vector<std::jthread> clients;
    for (int client = 0; client < 8; ++client) {
        clients.emplace_back([client] {
            for (int visit = 0; visit < 50; ++visit) {
                String text;
                text.format(L"%d-%d", client, visit);
                const Texts texts = command(getApp(L"busy"), L"echo " + text, L"$END OK");
                CHECK(texts[texts.size() - 2] == text);
            }
        });
    }
    clients.clear();
    exitApp(box);
    CHECK(readUntil(box, L"$BYE") == Texts{L"$HELLO", L"$BYE"});
}
