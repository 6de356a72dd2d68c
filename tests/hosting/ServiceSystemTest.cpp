#include "ServiceProcess.h"
#include "TextPrinting.h"

#include "RecordingLog.h"

#include <orvi/core/ServiceSystem.h>
#include <orvi/core/Tick.h>

#include <functional>
#include <iterator>

using namespace orvi;

namespace {

/** A system with one task that does what the test wants at each of its turns. */
class TestSystem final : public ServiceSystem {
public:
    explicit TestSystem(std::function<void(TestSystem&)> onTurn)
        : _onTurn(std::move(onTurn))
    {}

    bool init() override
    {
        const auto task = Tick::createInstance();
        task->addTickHandler({this, &TestSystem::turn});
        return ServiceSystem::init() && task->start(this) && Yield::createInstance()->start(this);
    }

    int turns = 0;

private:
    void turn(unsigned int)
    {
        ++turns;
        _onTurn(*this);
    }

    std::function<void(TestSystem&)> _onTurn;
};

int launchPlain(const Handle_T<ServiceSystem>& system)
{
    const char* argv[] = {"program", "port=99", "xpath=1", "path=\xC3\xBC b",
                          "path=2",  "flag",    "empty=",  nullptr};
    return ServiceSystem::launch(static_cast<int>(std::size(argv)) - 1, argv, system, L"1.2");
}
int launchPlain(std::function<void(TestSystem&)> onTurn) { return launchPlain(new TestSystem(onTurn)); }

} // namespace

TEST_CASE("a request to end shuts the launched system down")
{
    for (const int signal : {SIGINT, SIGTERM}) {
        CAPTURE(signal);
        const Bell running;
        ServiceProcess program("", [&] {
            const RecordingLog log;
            const int result = launchPlain([&](TestSystem& self) {
                if (self.turns == 1)
                    running.ring();
                if (ServiceSystem::getSystem() != &self)
                    abort();
            });
            return result == 0 && ServiceSystem::getSystem().isNull() && log.warnings().size() == 1 ? 0 : 1;
        });
        REQUIRE(running.wait());
        program.kill(signal);
        CHECK(program.wait() == 0);
    }
}

TEST_CASE("a system that ends by itself leaves the signals as they were, and can be launched again")
{
    ServiceProcess program("", [] {
        const Handle_T<TestSystem> system = new TestSystem([](TestSystem& self) { self.shutdown(); });
        if (launchPlain(system) != 0 || launchPlain(system) != 0)
            return 1;
        raise(SIGTERM);
        return 2;
    });
    CHECK(program.wait() == -SIGTERM);
}

TEST_CASE("a launched system is a service when a manager has started it")
{
    const NotifySocket manager;
    for (const bool endsItself : {false, true}) {
        CAPTURE(endsItself);
        const Bell endNow;
        ServiceProcess program(manager.address(), [&] {
            ServiceSystem::setSystemName(L"greeter");
            return launchPlain([&](TestSystem& self) {
                if (endsItself && endNow.wait())
                    self.shutdown();
            });
        });
        CHECK(manager.hears("READY=1\nSTATUS=Running"));
        if (endsItself)
            endNow.ring();
        else
            program.kill(SIGTERM);
        CHECK(manager.next() == std::string("STOPPING=1\nSTATUS=Stopping\nEXTEND_TIMEOUT_USEC=") +
                                    (endsItself ? "60000000" : "86400000000"));
        CHECK(program.wait() == 0);
        CHECK(manager.hears("STATUS=Stopped"));
    }
}

TEST_CASE("the loop gives the watchdog its signs of life, unless it hangs")
{
    const NotifySocket manager;
    const Bell hanging, goOn;
    constexpr int intervalMs = 100;
    ServiceProcess program(manager.address(), [&] {
        setenv("WATCHDOG_USEC", std::to_string(intervalMs * 1000).c_str(), 1);
        setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
        return launchPlain([&](TestSystem& self) {
            if (self.turns != 200)
                return;
            if (getenv("WATCHDOG_USEC") != nullptr || getenv("WATCHDOG_PID") != nullptr)
                abort();
            hanging.ring();
            goOn.wait();
        });
    });
    CHECK(manager.hears("WATCHDOG=1"));
    CHECK(manager.hears("WATCHDOG=1"));
    REQUIRE(hanging.wait());
    while (manager.next(0) != "(none)") {
    }
    CHECK(manager.next(4 * intervalMs) == "(none)");
    goOn.ring();
    CHECK(manager.hears("WATCHDOG=1"));
}

TEST_CASE("the watchdog of another process, or one that is deaf, does not hold the loop up")
{
    const NotifySocket manager;
    for (const bool isDeaf : {false, true}) {
        CAPTURE(isDeaf);
        const Bell goOn, isThrough;
        ServiceProcess program(manager.address(), [&] {
            setenv("WATCHDOG_USEC", "2000", 1);
            setenv("WATCHDOG_PID", isDeaf ? "" : "1", 1);
            return launchPlain([&](TestSystem& self) {
                if (isDeaf && self.turns == 1 && goOn.wait())
                    manager.fill();
                if (self.turns == 100) { // each would wait for two seconds
                    isThrough.ring();
                    self.shutdown();
                }
            });
        });
        CHECK(manager.hears("READY=1\nSTATUS=Running")); // else it would stop
        goOn.ring();
        CHECK(isThrough.wait());
        for (std::string message; !isDeaf && message.find("STOPPING") != 0; message = manager.next())
            CHECK(message.find("WATCHDOG") == std::string::npos);
    }
}

// In this process itself, and so last: it asks for its service manager once, and children would know the answer.

TEST_CASE("arguments are found by name, and a signal is logged with its meaning")
{
    CHECK(launchPlain(Handle_T<ServiceSystem>()) == 1); // nothing to run, but the rest stands
    CHECK(ServiceSystem::argc() == 7);
    CHECK(ServiceSystem::argv()[7] == nullptr);
    CHECK(ServiceSystem::getVersion() == L"1.2");
    const auto argument = [](const wchar_t* name) { return ServiceSystem::getArguments(name, L"default"); };
    CHECK((argument(L"port") == L"99" && argument(L"path") == L"\u00FC b" && argument(L"empty").isEmpty()));
    for (const wchar_t* none : {L"flag", L"pat", L"program"})
        CHECK(argument(none) == L"default");
    const RecordingLog log;
    for (const int code : {15, 2, 22, 99})
        ServiceSystem::signal(code);
    CHECK(log.warnings() == std::vector<String>{L"Termination request.", L"CTRL+C signal.",
                                                L"Abnormal termination.", L"Unknown signal."});
    CHECK(ServiceSystem::shutdownSystem()); // nothing to shut down, and nothing to wait for
}
