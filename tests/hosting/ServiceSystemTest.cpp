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

private:
    void turn(unsigned int) { _onTurn(*this); }

    std::function<void(TestSystem&)> _onTurn;
};

int launchPlain(const Handle_T<ServiceSystem>& system)
{
    const char* argv[] = {"program", "port=99", "xpath=1", "path=\xC3\xBC b",
                          "path=2",  "flag",    "empty=",  nullptr};
    return ServiceSystem::launch(static_cast<int>(std::size(argv)) - 1, argv, system, L"1.2");
}

} // namespace

TEST_CASE("a request to end shuts the launched system down")
{
    const struct {
        int signal;
        const wchar_t* text;
    } rows[] = {{SIGINT, L"CTRL+C signal."}, {SIGTERM, L"Termination request."}};
    for (const auto& row : rows) {
        const Bell running;
        ServiceProcess program("", [&] {
            const RecordingLog log;
            bool rung = false;
            const Handle_T<TestSystem> system = new TestSystem([&](TestSystem& self) {
                if (!rung)
                    running.ring();
                rung = true;
                if (ServiceSystem::getSystem() != &self)
                    abort();
            });
            if (launchPlain(system) != 0 || !ServiceSystem::getSystem().isNull())
                return 1;
            return log.warnings() == std::vector<String>{row.text} ? 0 : 2;
        });
        REQUIRE(running.wait());
        program.kill(row.signal);
        CHECK(program.wait() == 0);
    }
    SUBCASE("one that ends by itself leaves the signals as they were, and can be launched again")
    {
        ServiceProcess program("", [] {
            const Handle_T<TestSystem> system = new TestSystem([](TestSystem& self) { self.shutdown(); });
            if (launchPlain(system) != 0 || launchPlain(system) != 0)
                return 1;
            raise(SIGTERM);
            return 2;
        });
        CHECK(program.wait() == -1);
    }
}

TEST_CASE("a launched system is a service when a manager has started it")
{
    const TempDirectory directory;
    const NotifySocket manager((directory / "notify").string());
    for (const bool endsItself : {false, true}) {
        CAPTURE(endsItself);
        const Bell endNow;
        ServiceProcess program(manager.address(), [&] {
            ServiceSystem::setSystemName(L"greeter");
            return launchPlain(new TestSystem([&](TestSystem& self) {
                if (endsItself && endNow.wait())
                    self.shutdown();
            }));
        });
        CHECK(manager.next() == "STATUS=Starting, step 1\nEXTEND_TIMEOUT_USEC=8000000");
        CHECK(manager.next() == "STATUS=Starting, step 3\nEXTEND_TIMEOUT_USEC=15000000");
        CHECK(manager.next() == "READY=1\nSTATUS=Running");
        if (endsItself) {
            endNow.ring();
            CHECK(manager.next() == "STOPPING=1\nSTATUS=Stopping\nEXTEND_TIMEOUT_USEC=60000000");
        } else {
            program.kill(SIGTERM);
            CHECK(manager.next() == "STOPPING=1\nSTATUS=Stopping\nEXTEND_TIMEOUT_USEC=86400000000");
        }
        CHECK(program.wait() == 0);
        std::string last;
        for (std::string message = last; message != "(none)"; message = manager.next(0))
            last = message;
        CHECK(last == "STATUS=Stopped");
    }
}

TEST_CASE("the loop gives the watchdog its signs of life, unless it hangs")
{
    const TempDirectory directory;
    const NotifySocket manager((directory / "notify").string());
    const Bell hanging, goOn;
    constexpr int intervalMs = 100;
    ServiceProcess program(manager.address(), [&] {
        setenv("WATCHDOG_USEC", std::to_string(intervalMs * 1000).c_str(), 1);
        setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
        int turns = 0;
        return launchPlain(new TestSystem([&](TestSystem&) {
            if (++turns != 200)
                return;
            if (getenv("WATCHDOG_USEC") != nullptr || getenv("WATCHDOG_PID") != nullptr)
                abort();
            hanging.ring();
            goOn.wait();
        }));
    });
    const auto awaitSign = [&manager] {
        std::string message;
        do {
            message = manager.next();
        } while (message != "WATCHDOG=1" && message != "(none)");
        return message;
    };
    CHECK(awaitSign() == "WATCHDOG=1");
    CHECK(awaitSign() == "WATCHDOG=1");
    REQUIRE(hanging.wait());
    while (manager.next(0) != "(none)") {
    }
    CHECK(manager.next(4 * intervalMs) == "(none)");
    goOn.ring();
    CHECK(awaitSign() == "WATCHDOG=1");
    program.kill(SIGTERM);
    CHECK(program.wait() == 0);

    SUBCASE("a manager that does not read does not hold the loop up")
    {
        ServiceProcess other(manager.address(), [&] {
            setenv("WATCHDOG_USEC", "2000", 1);
            bool filled = false;
            int turns = 0;
            return launchPlain(new TestSystem([&](TestSystem& self) {
                if (!filled && goOn.wait())
                    manager.fill();
                filled = true;
                if (++turns == 200) { // each would wait for two seconds
                    hanging.ring();
                    self.shutdown();
                }
            }));
        });
        while (manager.next() != "READY=1\nSTATUS=Running") { // without that it would stop
        }
        goOn.ring();
        REQUIRE(hanging.wait());
        CHECK(other.wait() == 0);
    }
    SUBCASE("a watchdog for another process is not ours")
    {
        ServiceProcess other(manager.address(), [] {
            setenv("WATCHDOG_USEC", "2000", 1);
            setenv("WATCHDOG_PID", "1", 1);
            int turns = 0;
            return launchPlain(new TestSystem([&](TestSystem& self) {
                if (++turns == 50)
                    self.shutdown();
            }));
        });
        CHECK(other.wait() == 0);
        for (std::string message; message != "(none)"; message = manager.next(0))
            CHECK(message.find("WATCHDOG") == std::string::npos);
    }
}

// In this process itself, and so last: it asks for its service manager once, and children would know the answer.

TEST_CASE("arguments are found by name")
{
    CHECK(launchPlain({}) == 1); // nothing to run, but the rest stands
    CHECK(ServiceSystem::argc() == 7);
    CHECK(ServiceSystem::argv()[0] == String(L"program"));
    CHECK(ServiceSystem::argv()[7] == nullptr);
    CHECK(ServiceSystem::getVersion() == L"1.2");
    const struct {
        const wchar_t* name;
        const wchar_t* expected;
    } rows[] = {
        {L"port", L"99"},     {L"path", L"\u00FC b"},   {L"flag", L"default"}, {L"empty", L""},
        {L"pat", L"default"}, {L"program", L"default"}, {L"", L"default"},     {L"port=9", L"default"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.name);
        CHECK(ServiceSystem::getArguments(row.name, L"default") == row.expected);
    }
}

TEST_CASE("a signal is logged with its meaning")
{
    launchPlain({});
    const struct {
        int code;
        const wchar_t* text;
    } rows[] = {
        {22, L"Abnormal termination."}, {6, L"Abnormal termination."},    {15, L"Termination request."},
        {2, L"CTRL+C signal."},         {4, L"Illegal instruction."},     {8, L"Floating-point error."},
        {21, L"Ctrl-Break sequence"},   {11, L"Illegal storage access."}, {99, L"Unknown signal."},
        {0, L"Unknown signal."},
    };
    for (const auto& row : rows) {
        CAPTURE(row.code);
        const RecordingLog log;
        ServiceSystem::signal(row.code);
        CHECK(log.lines() == std::vector<RecordingLog::Line>{{RecordingLog::Level::Warning, row.text}});
    }
    CHECK(ServiceSystem::shutdownSystem()); // nothing to shut down, and nothing to wait for
}
