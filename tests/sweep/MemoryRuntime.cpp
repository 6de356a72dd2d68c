#include "MemorySweep.h"

#include <array>
#include <chrono>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>

using namespace orvi;
using sweep::Seen;

namespace {

/** Looks again and again, but not for ever: what did not come because memory failed has left a line in the log. */
template <class Condition>
bool comes(Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        if (Seen::errors > 0 || std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

/** Ends itself after three turns of its tasks; an end that does not come is the test's to notice. */
template <class Base>
class Short : public Base {
public:
    bool init() override
    {
        const auto tick = Tick::createInstance();
        return Base::init() && tick->addTickHandler(Tick::Handler(this, &Short::turn)) && tick->start(this) &&
               Yield::createInstance(0)->start(this);
    }
    int turns = 0;

private:
    void turn(unsigned int)
    {
        if (++turns == 3)
            this->shutdown();
    }
};

void loop(Seen& seen)
{
    const Handle_T<Short<System>> system = new Short<System>;
    seen << system->load();
    system->start();
    seen << (system->getState() == System::STATE_STOPPING);
    system->unload();
    seen << (system->getState() == System::STATE_UNLOADED);
    Seen::must(system->turns > 0 || Seen::errors == 0);
    seen << system->turns;
}

void thread(Seen& seen)
{
    const auto runner = Thread::createInstance();
    const Handle_T<Short<System>> system = new Short<System>;
    const bool started = runner->start(system);
    const bool ended = !started || comes([&] { return runner->getSystem().isNull(); });
    runner->shutdown();
    seen << runner->getSystem().isNull();
    Seen::must(started && ended && (system->turns > 0 || Seen::errors == 0));
    seen << system->turns;
}

class Idle : public System {
public:
    void onTick(unsigned int ms) override
    {
        System::onTick(ms);
        std::this_thread::yield();
    }
};

void closures(Seen& seen)
{
    const auto runner = Thread::createInstance();
    const Handle_T<Idle> system = new Idle;
    Seen::must(runner->start(system));
    std::atomic<int> ran = 0;
    int posted = 0;
    const bool running = comes([&] { return system->getState() == System::STATE_RUNNING; });
    const auto closure = [&ran, one = std::array<int, 10>{1}] {
        ran += one[0];
    }; // too large for a place in line
    try {
        for (int i = 0; running && i < 5; ++i)
            posted += postToThread(system->getRunThreadId(), closure) ? 1 : 0;
    } catch (const std::bad_alloc&) {
    }
    runner->shutdown();
    seen << (ran == posted);
    Seen::must(running && posted == 5);
    seen << ran.load() << postToThread(system->getRunThreadId(), [] {});
}

void locks(Seen& seen)
{
    const auto semaphore = Semaphore::createInstance();
    semaphore->signal();
    seen << semaphore->wait(0, false) << semaphore->wait(0, false);
    const auto first = FileMutex::createInstance(L"lock"), second = FileMutex::createInstance(L"lock");
    Seen::mustNotHaveLogged();
    const bool locked = first->lock(0);
    seen << (!locked || !second->lock(0)) << (first->isLocked() == locked);
    first->unlock();
    second->unlock();
    Seen::must(locked && second->lock(0));
    seen << second->isLocked();
}

class Box : public AppBox {
public:
    static Handle_T<AppBox> create(const wchar_t* appName, const wchar_t* parameters)
    {
        return new Box(appName, parameters);
    }
    bool init() override { return AppBox::init() && Yield::createInstance(0)->start(this); }
    bool docmd(AppPipe* pipe, wchar_t** argv, int argc) override { return pipe->write(argv[argc - 1]); }

protected:
    using AppBox::AppBox;
};

void app(Seen& seen)
{
    struct Kind {
        ~Kind() { tearDownApp(L"kind"); }
    } kind;
    Seen::must(setUpApp(L"kind", Box::create));
    const auto client = startApp(L"kind", L"box", L"parameters");
    if (client.isNull()) {
        if (!getApp(L"box").isNull())
            seen << "a box without a client";
        Seen::must(false);
    }
    struct Ender {
        App* app;
        ~Ender() { exitApp(app); }
    } ender{client};
    const bool isThere = !getApp(L"box").isNull();
    Seen::must(isThere || Seen::errors == 0); // a box that could not begin has left
    seen << isThere;
    Seen::must(client->getPipe()->write(L"$COMMAND echo \"some text\""));
    String text;
    for (const wchar_t* expected : {L"$HELLO", L"$BEGIN echo", L"some text", L"$END OK"}) {
        const bool came = comes([&] { return client->getPipe()->read(text); });
        Seen::mustNotHaveLogged();
        if (!came) {
            seen << "nothing comes";
            break;
        }
        seen << text << expected;
    }
}

/** Waits for a descriptor, a pipe and a port inside the loop of another library. */
class Waiting final : public System {
public:
    explicit Waiting(AppPipe* pipe)
        : _pipe(pipe)
    {}
    ~Waiting() override { ::close(_descriptor); }
    bool init() override
    {
        return System::init() &&
               Watch::createInstance(_descriptor, Watch::READABLE, {this, &Waiting::onReady})->start(this) &&
               AppReader::createInstance(_pipe, {this, &Waiting::onText})->start(this) && _port.serveOn(this);
    }
    bool isReady = false;
    String text;

private:
    void onReady(unsigned int) { isReady = true; }
    void onText(const String& read) { text = read; }

    AppPipe* _pipe;
    MessagePort _port;
    const int _descriptor = ::eventfd(1, EFD_CLOEXEC);
};

void waits(Seen& seen)
{
    const auto stream = MemoryStream::createInstance();
    const SharedPtr<Mutex> mutex(new Mutex);
    const auto pipe = AppPipe::createInstance(stream, mutex, stream, mutex);
    Seen::must(pipe->write(L"some text"));
    const Handle_T<Waiting> system = new Waiting(pipe);
    Seen::must(system->load() && system->begin());
    unsigned int ms = 0;
    for (int turn = 0; turn < 3; ++turn)
        system->turn(ms);
    system->shutdown();
    system->finish();
    Seen::mustNotHaveLogged();
    seen << system->isReady << system->text;
}

class Served : public Short<ServiceSystem> {
public:
    bool init() override
    {
        argument = getArguments(L"port", L"none");
        return Short::init();
    }
    String argument;
};

void serviceSystem(Seen& seen)
{
    const char* argv[] = {"program", "port=99", nullptr};
    const Handle_T<Served> system = new Served;
    ServiceSystem::setSystemName(L"sweep");
    const int result = ServiceSystem::launch(2, argv, system, L"1.0");
    seen << ServiceSystem::getSystem().isNull();
    Seen::must(result == 0);
    Seen::mustNotHaveLogged();
    seen << system->argument << ServiceSystem::getVersion();
}

/** With nobody's rights to install: the answer is no in any case. */
void service(Seen& seen)
{
    seen << isService(L"no such service \x2713")
         << serviceInstall(0, L"a/b", L"", L"relative/program", nullptr, nullptr)
         << serviceRemove(L"no such service") << serviceInitialize(L"name", nullptr);
}

void crashReporter(Seen& seen)
{
    handled_exception_filter("a contact");
    handled_exception_filter(nullptr);
    seen << "prepared";
}

const sweep::Scenario scenarios[] = {
    {"run time: a loop with tasks", loop},
    {"run time: thread", thread},
    {"run time: closures", closures},
    {"run time: Semaphore, FileMutex", locks},
    {"run time: a loop that waits", waits},
    {"hosting: an application", app},
    {"hosting: ServiceSystem", serviceSystem},
    {"hosting: service", service},
    {"diagnostics: crash reporter", crashReporter},
};

} // namespace

const std::span<const sweep::Scenario> sweep::runtimeScenarios = scenarios;
