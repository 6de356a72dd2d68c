#include <orvi/core/App.h>
#include <orvi/core/MemoryStream.h>
#include <orvi/core/Tick.h>

#include <doctest/doctest.h>

#include <atomic>
#include <cstddef>
#include <thread>
#include <vector>

using orvi::App;
using orvi::AppBox;
using orvi::AppPipe;
using orvi::Handle_T;
using orvi::MemoryStream;
using orvi::Mutex;
using orvi::SharedPtr;
using orvi::String;

namespace {

class RestingBox final : public AppBox {
public:
    RestingBox()
        : AppBox(L"resting", L"")
    {}
    bool init() override { return AppBox::init() && orvi::Rest::createInstance()->start(this); }
    void onTick(unsigned int deltaMs) override
    {
        ++passes;
        AppBox::onTick(deltaMs);
    }
    bool docmd(AppPipe* pipe, wchar_t** argv, int) override { return pipe->write(argv[0]); }

    std::atomic<int> passes = 0;
};

struct RunningBox {
    RunningBox() { CHECK(thread->start(box)); }
    ~RunningBox() { thread->shutdown(); }
    const Handle_T<RestingBox> box = new RestingBox;
    const Handle_T<orvi::Thread> thread = orvi::Thread::createInstance();
};

String next(AppPipe& pipe)
{
    String text;
    CHECK(pipe.read(text, orvi::Semaphore::endless));
    return text;
}

void command(AppPipe& pipe)
{
    CHECK(pipe.write(L"$COMMAND x"));
    for (const wchar_t* expected : {L"$BEGIN x", L"x", L"$END OK"})
        CHECK(next(pipe) == expected);
}

/** Passes the bytes on and hides that they come from a stream of the library. */
class Foreign final : public orvi::IO {
public:
    explicit Foreign(MemoryStream* stream)
        : _stream(stream)
    {}
    int available() const override { return _stream->available(); }
    int peek(void* buffer, int size) const override { return _stream->peek(buffer, size); }
    int read(void* buffer, int size) override { return _stream->read(buffer, size); }
    int write(const void* data, int size) override { return _stream->write(data, size); }

private:
    const Handle_T<MemoryStream> _stream;
};

} // namespace

TEST_CASE("app: a box that rests answers, greets and takes leave, and turns for nothing else")
{
    const RunningBox running;
    constexpr int rounds = 3'000;
    std::vector<std::thread> clients;
    for (int i = 0; i < 2; ++i) {
        clients.emplace_back([&] {
            Handle_T<App> app = App::createInstance(running.thread, running.box);
            AppPipe& pipe = *app->getPipe();
            CHECK(next(pipe) == L"$HELLO");
            for (int round = 0; round < rounds; ++round)
                command(pipe);
        });
    }
    for (std::thread& client : clients)
        client.join();
    CHECK(running.box->passes <= 2 * 2 * rounds + 20);
}

TEST_CASE("app: a box that rests serves a pipe that cannot tell when a text comes")
{
    const RunningBox running;
    const Handle_T<MemoryStream> there = MemoryStream::createInstance(),
                                 back = MemoryStream::createInstance();
    const SharedPtr<Mutex> thereMutex(new Mutex), backMutex(new Mutex);
    const Handle_T<Foreign> foreignThere = new Foreign(there), foreignBack = new Foreign(back);
    const Handle_T<AppPipe> served =
        AppPipe::createInstance(foreignThere, thereMutex, foreignBack, backMutex);
    const Handle_T<AppPipe> mine = AppPipe::createInstance(foreignBack, backMutex, foreignThere, thereMutex);
    running.box->addPipe(served);
    CHECK(next(*mine) == L"$HELLO");
    command(*mine);
    running.box->removePipe(served);
    CHECK(next(*mine) == L"$BYE");
}

TEST_CASE("app: a wait for a text ends with its time, and each text ends one")
{
    const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
    const SharedPtr<Mutex> mutex(new Mutex);
    const Handle_T<AppPipe> pipe = AppPipe::createInstance(stream, mutex, stream, mutex);
    String text(L"as before");
    CHECK(!pipe->read(text, 0));
    CHECK(!pipe->read(text, 5));
    CHECK(text == L"as before");

    std::atomic<int> taken = 0;
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            String mine;
            while (pipe->read(mine, orvi::Semaphore::endless) && mine != L"end")
                ++taken;
        });
    }
    for (int i = 0; i < 1'000; ++i)
        CHECK(pipe->write(L"text"));
    for (std::size_t i = 0; i < readers.size(); ++i)
        CHECK(pipe->write(L"end"));
    for (std::thread& reader : readers)
        reader.join();
    CHECK(taken == 1'000);
}

TEST_CASE("app: a client's loop gets each text of a pipe, and rests in between")
{
    class Client final : public orvi::System {
    public:
        bool init() override
        {
            return System::init() && orvi::Rest::createInstance()->start(this) && reader->start(this);
        }
        void onText(const String& text)
        {
            if (text == L"last")
                reader->stop();
            ++texts;
        }
        Handle_T<orvi::AppReader> reader;
        std::atomic<int> texts = 0;
    };
    const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
    const Handle_T<Foreign> foreign = new Foreign(stream);
    const SharedPtr<Mutex> mutex(new Mutex);
    for (orvi::IO* source : {static_cast<orvi::IO*>(stream), static_cast<orvi::IO*>(foreign)}) {
        const Handle_T<AppPipe> pipe = AppPipe::createInstance(source, mutex, source, mutex);
        const Handle_T<Client> client = new Client;
        client->reader = orvi::AppReader::createInstance(pipe, {&*client, &Client::onText});
        constexpr int before = 100; // more than a turn
        for (int i = 0; i < before; ++i)
            CHECK(pipe->write(L"before the start"));
        const Handle_T<orvi::Thread> thread = orvi::Thread::createInstance();
        CHECK(thread->start(client));
        const int rounds = source == stream ? 5'000 : 50;
        for (int i = 0; i < rounds; ++i) {
            while (client->texts < before + i)
                std::this_thread::yield();
            CHECK(pipe->write(L"one"));
        }
        CHECK(pipe->write(L"last"));
        CHECK(pipe->write(L"for another reader"));
        while (client->texts < before + rounds + 1)
            std::this_thread::yield();
        thread->shutdown();
        CHECK(next(*pipe) == L"for another reader");
    }
}
