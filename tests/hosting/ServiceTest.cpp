#include "ServiceProcess.h"
#include "TextPrinting.h"

#include "RecordingLog.h"
#include "hosting/ServiceControl.h"
#include "platform/posix/hosting/ServicePlaces.h"
#include "platform/posix/hosting/ServiceUnit.h"

#include <orvi/core/Semaphore.h>
#include <orvi/core/Service.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <thread>

#include <sys/stat.h>

using namespace orvi;
using namespace orvi::platform;
namespace fs = std::filesystem;

namespace {

/** Directories for units and a systemctl of the test's own. */
class Places {
public:
    Places()
    {
        fs::create_directory(own());
        fs::create_directory(others());
        servicePlaces().unitDirectories = {own(), others()};
        servicePlaces().runningMark = own();
        servicePlaces().command = directory / "systemctl";
        servicePlaces().commandLimitMs = servicePatienceMs;
        setSystemctl("echo inactive");
    }
    ~Places() { servicePlaces() = {}; }

    fs::path own() const { return directory / "own"; }
    fs::path others() const { return directory / "others"; }
    fs::path wants() const { return own() / "multi-user.target.wants"; }

    /** What the stand-in does when it is asked for a state. */
    void setSystemctl(const std::string& show, const std::string& reload = "true") const
    {
        const fs::path command = directory / "systemctl";
        std::ofstream(command) << "#!/bin/sh\necho \"$@\" >> '" << (directory / "calls").string()
                               << "'\ncase $2 in\nshow) " << show << " ;;\n*) " << reload << " ;;\nesac\n";
        chmod(command.c_str(), 0755);
    }

    /** The function's result, and what it prints to the standard output. */
    template <class Function>
    std::string answer(Function function) const
    {
        std::fflush(stdout);
        const int before = dup(1);
        const int file = open((directory / "printed").c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
        REQUIRE(file >= 0);
        dup2(file, 1);
        const int result = function();
        std::fflush(stdout);
        dup2(before, 1);
        close(before);
        close(file);
        return std::to_string(result) + ": " + directory.read("printed");
    }
    std::string install(const wchar_t* name, int mode = 1) const
    {
        constexpr wchar_t command[] = L"\"/opt/a b/greeter\" run port=80";
        return answer([=] { return serviceInstall(mode, name, L"A greeter", command, L"nobody", nullptr); });
    }
    std::string remove(const wchar_t* name) const
    {
        return answer([=] { return serviceRemove(name); });
    }

    TempDirectory directory;
};

constexpr char installed[] = "1: Service successfully installed.\n";
constexpr char notInstalled[] = "0: Failed to install the service (Couldn't create service)\n";
constexpr char removed[] = "1: Service successfully removed.\n";
const std::string alreadyThere = "0: The service already exists!\nThe current server installed: ";

// A body that waits for the stop, as programs have it. It is for a child process, which has one body.
Handle_T<Semaphore> g_stop;

void waitForStop(void*) { g_stop->wait(Semaphore::endless, true); }

int host(void (*body)(void*))
{
    g_stop = Semaphore::createInstance();
    setShutdownEvent(static_cast<Semaphore*>(g_stop));
    return serviceInitialize(L"greeter", reinterpret_cast<void*>(body));
}

void checkStart(const NotifySocket& manager)
{
    CHECK(manager.next() == "STATUS=Starting, step 1\nEXTEND_TIMEOUT_USEC=8000000");
    CHECK(manager.next() == "STATUS=Starting, step 3\nEXTEND_TIMEOUT_USEC=15000000");
    CHECK(manager.next() == "READY=1\nSTATUS=Running");
}

} // namespace

// ---- Installing and removing

TEST_CASE("a service is installed, found and removed, with nothing left behind")
{
    const Places places;
    CHECK(isService(L"greeter") == 0);
    CHECK(places.install(L"greeter") == installed);
    CHECK(isService(L"greeter") == 1);
    CHECK(places.directory.read("own/greeter.service") == "[Unit]\nDescription=A greeter\n\n"
                                                          "[Service]\nType=notify\n"
                                                          "ExecStart=:\"/opt/a b/greeter\" run port=80\n"
                                                          "User=nobody\n\n"
                                                          "[Install]\nWantedBy=multi-user.target\n");
    CHECK(fs::equivalent(places.wants() / "greeter.service", places.own() / "greeter.service"));
    CHECK(places.directory.read("calls") == "--no-ask-password daemon-reload\n");

    CHECK(places.install(L"greeter") == alreadyThere + "\"/opt/a b/greeter\" run port=80\n");
    CHECK(places.remove(L"greeter") == removed);
    CHECK(isService(L"greeter") == 0);
    CHECK(places.remove(L"greeter") == "0: The service doesn't exist!\n");

    servicePlaces().runningMark = servicePlaces().command = "/nowhere"; // then nothing is asked
    CHECK(places.install(L"greeter", 0) == installed);
    CHECK(fs::exists(places.own() / "greeter.service"));
    CHECK_FALSE(fs::is_symlink(places.wants() / "greeter.service")); // on demand
    CHECK(places.remove(L"greeter") == removed);
    for (const auto& entry : fs::recursive_directory_iterator(places.own()))
        CHECK(entry.is_directory());
}

TEST_CASE("removal goes by what systemd says")
{
    const char running[] = "0: Failed to remove the service because the service is running\n"
                           "Stop the service and try again\n";
    const char stopping[] = "0: Failed to remove the service because the service is in stop pending state!\n"
                            "Wait 30 seconds and try again.\n"
                            "If this condition persist, reboot the machine and try again\n";
    const char unknown[] = "0: ";
    const struct {
        const char* show;
        const char* expected;
        int limitMs = servicePatienceMs;
    } rows[] = {
        {"echo active", running},
        {"echo deactivating", stopping},
        {"echo activating", removed},
        {"echo failed", removed},
        {"printf 'in\\000active\\377'", unknown},
        {"echo inactive; kill -9 $$", unknown},
        {"yes", unknown},
        {"echo inactive; exec sleep 1000 >&-", unknown, 200}, // hangs
        {"echo inactive; sleep 1000 &", unknown, 200},        // a child keeps the output
    };
    for (const auto& row : rows) {
        CAPTURE(row.show);
        const Places places;
        REQUIRE(places.install(L"greeter") == installed);
        places.setSystemctl(row.show);
        servicePlaces().commandLimitMs = row.limitMs;
        CHECK(places.remove(L"greeter") == row.expected);
        CHECK(isService(L"greeter") == (row.expected == removed ? 0 : 1));
    }
}

TEST_CASE("an installation that fails leaves nothing")
{
    void (*const preparations[])(const Places&) = {
        [](const Places& places) { places.setSystemctl("true", "exit 1"); },
        [](const Places&) { servicePlaces().command = "/nowhere"; },
        [](const Places& places) { std::ofstream(places.wants()) << ""; }, // no place for the link
    };
    for (auto* prepare : preparations) {
        const Places places;
        prepare(places);
        CHECK(places.install(L"greeter") == notInstalled);
        CHECK(isService(L"greeter") == 0);
        for (const auto& entry : fs::recursive_directory_iterator(places.own()))
            CHECK(entry.path() == places.wants());
    }
}

TEST_CASE("a service of others is seen, but not ours to replace or remove")
{
    const Places places;
    std::ofstream(places.others() / "greeter.service") << "[Service]\nExecStart=/usr/bin/other 100%%\n";
    CHECK(isService(L"greeter") == 1);
    CHECK(places.install(L"greeter") == alreadyThere + "/usr/bin/other 100%\n");
    CHECK(places.remove(L"greeter") == "0: Failed to remove the service (Couldn't open the service)\n");
    CHECK(fs::exists(places.others() / "greeter.service"));

    // The mark for a service that shall not be started leads to a device.
    fs::create_symlink("/dev/null", places.own() / "masked.service");
    CHECK(places.install(L"masked") == alreadyThere + "\n");
}

TEST_CASE("without the right or the place nothing is tried")
{
    const Places places;
    servicePlaces().unitDirectories = {(places.directory / "missing").string()};
    const char problem[] = "0: There is a problem for to open the Service Control Dictionary!\n";
    CHECK(places.install(L"a") == problem);
    CHECK(places.remove(L"a") == problem);

    servicePlaces().unitDirectories = {places.own().string()};
    chmod(places.own().c_str(), 0555);
    const auto installAsAnybody = [] {
        const bool isAnybody = geteuid() != 0 || seteuid(65534) == 0;
        const int result = isAnybody ? serviceInstall(1, L"a", L"", L"/bin/x", L"", nullptr) : 2;
        std::fflush(stdout);
        return result;
    };
    CHECK(places.answer([&] { return ServiceProcess("", installAsAnybody).wait(); }) ==
          "0: Install/remove of the Service Denied!\n"
          "That operation should be made by an user with Administrator privileges!\n");
    chmod(places.own().c_str(), 0755);
}

TEST_CASE("every name has a unit file of its own, inside the directory")
{
    const std::string longest(255 - 8, 'n');
    const std::pair<std::string, std::string> rows[] = {
        // an empty one for a refusal
        {"my-greeter_2.0:x", "my-greeter_2.0:x.service"},
        {"../../etc/passwd", "\\x2e.\\x2f..\\x2fetc\\x2fpasswd.service"},
        {"a\\x2fb", "a\\x5cx2fb.service"},
        {"template@x y", "template\\x40x\\x20y.service"},
        {"line\nend", "line\\x0aend.service"},
        {"gr\xC3\xBC\xC3\x9F", "gr\\xc3\\xbc\\xc3\\x9f.service"},
        {"", ""},
        {"..", ""},
        {longest, longest + ".service"},
        {longest + "n", ""},
    };
    for (const auto& row : rows) {
        CAPTURE(row.first);
        CHECK(unitFileName(row.first.c_str()).value_or("") == row.second);
    }
    const Places places;
    CHECK(places.install(L"..") == notInstalled);
    CHECK(places.install(nullptr) == notInstalled);
    CHECK(isService(nullptr) == 0);
}

TEST_CASE("no text of a service says more than itself in the unit")
{
    const struct {
        ServiceEntry entry;
        const char* lines; // some of the unit's; none for a refusal
        const char* shown = "/bin/x";
    } rows[] = {
        {{"x", "Say 100% hello", {"/bin/x"}, "www-data", true}, "\nDescription=Say 100%% hello\n"},
        {{"x", "", {"/bin/x"}, "", true}, "\nDescription=x\n\n[Service]\nType=notify\nExecStart=:/bin/x\n\n"},
        {{"x", "", {"/a b/x", "", ";", "50%n", "$HOME", "\"q\"", "end\\"}, "", true},
         R"(ExecStart=:"/a b/x" "" ";" "50%%n" "$HOME" "\"q\"" "end\\")",
         R"("/a b/x" "" ";" "50%n" "$HOME" "\"q\"" "end\")"},
        {{"x", "", {"/bin/x", "a\nUser=root"}, "", true}, nullptr},
        {{"x", "", {"bin/x"}, "", true}, nullptr},
        {{"x", "", {}, "", true}, nullptr},
        {{"x", "two\n[Service]\nExecStart=/bin/sh", {"/bin/x"}, "", true}, nullptr},
        {{"x", "draws the next line in\\", {"/bin/x"}, "", true}, nullptr},
        {{"x", "", {"/bin/x"}, "a\nb", true}, nullptr},
        {{"x", "", {"/bin/x"}, "%n", true}, nullptr},
    };
    for (const auto& row : rows) {
        const auto text = unitText(row.entry);
        CAPTURE(text.value_or(row.entry.displayName.getBuffer()));
        REQUIRE(text.has_value() == (row.lines != nullptr));
        if (text) {
            CHECK(text->find(row.lines) != std::string::npos);
            CHECK(commandLineIn(*text) == row.shown);
        }
    }
}

// ---- Running

TEST_CASE("a service says that it is ready, stops once on request and ends when its body has ended")
{
    for (const std::string& address : {std::string(), "@orvi-test-" + std::to_string(getpid())}) {
        CAPTURE(address);
        const NotifySocket manager(address);
        static const Bell* stopped;
        const Bell bell;
        stopped = &bell;
        ServiceProcess service(manager.address(), [] {
            const int result = host([](void*) {
                if (getenv("NOTIFY_SOCKET") != nullptr)
                    abort();
                waitForStop(nullptr);
                stopped->wait();
            });
            return result == 1 && host(waitForStop) == 0 ? 0 : 1; // a process is a service once
        });
        checkStart(manager);
        service.kill(SIGTERM);
        CHECK(manager.next() == "STOPPING=1\nSTATUS=Stopping\nEXTEND_TIMEOUT_USEC=86400000000");
        service.kill(SIGTERM);
        CHECK(manager.next() == "STATUS=Stopping\nEXTEND_TIMEOUT_USEC=86400000000");
        bell.ring();
        CHECK(manager.next() == "STATUS=Stopped");
        CHECK(service.wait() == 0);
    }
}

TEST_CASE("a body stops the service by itself, answers and tells an error")
{
    const NotifySocket manager;
    static const Bell ready;
    const auto body = [](void*) {
        ready.wait();            // it starts before the service says that it is ready
        handleServiceControl(4); // a control that changes nothing
        exitService(7);
        stopService();
    };
    ServiceProcess service(manager.address(), [&] { return host(body) - 1; });
    checkStart(manager);
    ready.ring();
    CHECK(manager.next() == "READY=1\nSTATUS=Running");
    CHECK(manager.next() == "STATUS=Stopped, error\nERRNO=7");
    CHECK(manager.next() == "STOPPING=1\nSTATUS=Stopping\nEXTEND_TIMEOUT_USEC=60000000");
    CHECK(manager.next() == "STATUS=Stopped\nEXTEND_TIMEOUT_USEC=1000000");
    CHECK(manager.next() == "STATUS=Stopped");
    CHECK(service.wait() == 0);
}

TEST_CASE("without a service manager that listens the body does not start")
{
    const auto neverRun = [](void*) { abort(); };
    ServiceProcess alone("", [&] {
        RecordingLog log;
        const String longest(std::vector<wchar_t>(260, L'n').data(), 260);
        if (serviceInitialize(longest, reinterpret_cast<void*>(+neverRun)) != 0 || !log.errors().empty())
            return 1;
        const bool refused = serviceInitialize(longest + L"n", reinterpret_cast<void*>(+neverRun)) == 0;
        // All of these are for services alone.
        exitService(1);
        pauseService();
        resumeService();
        return refused && log.errors().size() == 1 ? 0 : 2;
    });
    CHECK(alone.wait() == 0);

    const NotifySocket deaf;
    deaf.fill();
    for (const std::string& address : {deaf.address(), deaf.address() + "x", std::string("@"),
                                       "/" + std::string(200, 'x'), std::string("vsock:1")}) {
        CAPTURE(address);
        ServiceProcess service(address, [&] { return host(neverRun) - 1; });
        CHECK(service.wait() == 0);
    }
}

TEST_CASE("a manager that dies stops the service, at the stop or when the state is asked for")
{
    static const Bell dead;
    const auto ask = [](void*) {
        dead.wait();
        handleServiceControl(4);
        waitForStop(nullptr);
    };
    for (const bool isAsked : {false, true}) {
        CAPTURE(isAsked);
        NotifySocket manager;
        ServiceProcess service(manager.address(), [&] {
            manager.close(); // the copy that it has inherited
            return host(isAsked ? ask : waitForStop) - 1;
        });
        checkStart(manager);
        manager.close();
        if (isAsked)
            dead.ring();
        else
            service.kill(SIGTERM);
        CHECK(service.wait() == 0);
    }
}

TEST_CASE("pausing stops the body where it stands, and nothing else")
{
    const NotifySocket manager;
    static std::atomic<long> turns = 0;
    static std::atomic<bool> awake = false;
    const auto body = [](void*) {
        while (!g_stop->wait(1, true))
            ++turns;
        std::thread resumer([] {
            while (!awake)
                resumeService();
        });
        pauseService(); // itself
        awake = true;
        resumer.join();
        stopService();
    };
    ServiceProcess service(manager.address(), [&] {
        std::thread watcher([] {
            const auto awaitTurn = [] {
                for (const long before = turns; turns == before;)
                    usleep(1000);
            };
            awaitTurn();
            pauseService();
            pauseService();
            for (long seen = -1, still = 0; still < 30; usleep(1000)) {
                still = seen == turns ? still + 1 : 0;
                seen = turns;
            }
            resumeService(); // once is enough
            awaitTurn();
            resumeService();
            for (int i = 0; i < 10'000; ++i) { // as fast as it goes: no signal may get lost
                pauseService();
                resumeService();
            }
            awaitTurn();
            g_stop->signal();
        });
        const int result = host(body);
        watcher.join();
        pauseService(); // nobody
        return result - 1;
    });
    checkStart(manager);
    CHECK(service.wait() == 0);
}
