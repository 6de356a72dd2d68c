#include "ServiceProcess.h"
#include "TextPrinting.h"

#include "RecordingLog.h"
#include "hosting/ServiceControl.h"
#include "platform/posix/hosting/ServicePlaces.h"
#include "platform/posix/hosting/ServiceUnit.h"

#include <orvi/core/Semaphore.h>
#include <orvi/core/Service.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>

using namespace orvi;
using namespace orvi::platform;
namespace fs = std::filesystem;

namespace {

using Utf8 = String_T<char>;

std::string contentOf(const fs::path& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

/** Directories for units and a systemctl of the test's own. */
class Places {
public:
    Places()
    {
        fs::create_directory(own());
        fs::create_directory(others());
        fs::create_directory(directory / "running");
        servicePlaces().unitDirectories = {own(), others()};
        servicePlaces().runningMark = directory / "running";
        servicePlaces().command = directory / "systemctl";
        servicePlaces().commandLimitMs = servicePatienceMs;
        setSystemctl("echo inactive");
    }
    ~Places() { servicePlaces() = {}; }

    fs::path own() const { return directory / "own"; }
    fs::path others() const { return directory / "others"; }
    fs::path unit(const char* name) const { return own() / name; }
    fs::path link(const char* name) const { return own() / "multi-user.target.wants" / name; }
    std::string calls() const { return contentOf(directory / "calls"); }

    /** What the stand-in does when it is asked for a state. */
    void setSystemctl(const std::string& show, const std::string& reload = "true") const
    {
        const fs::path command = directory / "systemctl";
        std::ofstream(command) << "#!/bin/sh\necho \"$@\" >> '" << (directory / "calls").string()
                               << "'\ncase $2 in\nshow) " << show << " ;;\n*) " << reload << " ;;\nesac\n";
        chmod(command.c_str(), 0755);
    }

    TempDirectory directory;
};

/** What the function prints to the standard output. */
template <class Function>
std::string printed(const TempDirectory& directory, Function function)
{
    const std::string path = (directory / "printed").string();
    std::fflush(stdout);
    const int before = dup(1);
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
    REQUIRE(file >= 0);
    dup2(file, 1);
    function();
    std::fflush(stdout);
    dup2(before, 1);
    close(before);
    close(file);
    return contentOf(path);
}

int install(const wchar_t* name, int startMode = 1)
{
    return serviceInstall(startMode, name, L"A greeter", L"\"/opt/a b/greeter\" run port=80", L"nobody",
                          nullptr);
}

constexpr char alreadyThere[] = "The service already exists!\nThe current server installed: ";

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
    CHECK(printed(places.directory, [] { CHECK(install(L"greeter") == 1); }) ==
          "Service successfully installed.\n");
    CHECK(isService(L"greeter") == 1);
    CHECK(contentOf(places.unit("greeter.service")) == "[Unit]\nDescription=A greeter\n\n"
                                                       "[Service]\nType=notify\n"
                                                       "ExecStart=:\"/opt/a b/greeter\" run port=80\n"
                                                       "User=nobody\n\n"
                                                       "[Install]\nWantedBy=multi-user.target\n");
    CHECK(fs::equivalent(places.link("greeter.service"), places.unit("greeter.service")));
    CHECK(places.calls() == "--no-ask-password daemon-reload\n");

    CHECK(printed(places.directory, [] { CHECK(install(L"greeter") == 0); }) ==
          alreadyThere + std::string("\"/opt/a b/greeter\" run port=80\n"));
    CHECK(printed(places.directory, [] { CHECK(serviceRemove(L"greeter") == 1); }) ==
          "Service successfully removed.\n");
    CHECK(isService(L"greeter") == 0);
    CHECK(printed(places.directory, [] { CHECK(serviceRemove(L"greeter") == 0); }) ==
          "The service doesn't exist!\n");

    install(L"greeter", 0);
    CHECK(fs::exists(places.unit("greeter.service")));
    CHECK_FALSE(fs::is_symlink(places.link("greeter.service"))); // on demand
    serviceRemove(L"greeter");
    for (const auto& entry : fs::recursive_directory_iterator(places.own()))
        CHECK(entry.is_directory());
}

TEST_CASE("removal goes by what systemd says")
{
    const char running[] = "Failed to remove the service because the service is running\n"
                           "Stop the service and try again\n";
    const char stopping[] = "Failed to remove the service because the service is in stop pending state!\n"
                            "Wait 30 seconds and try again.\n"
                            "If this condition persist, reboot the machine and try again\n";
    const char removed[] = "Service successfully removed.\n";
    const struct {
        const char* what;
        const char* show;
        const char* expected;
    } rows[] = {
        {"running", "echo active", running},
        {"reading its configuration", "echo reloading", running},
        {"stop pending", "echo deactivating", stopping},
        {"start pending", "echo activating", removed},
        {"stopped", "echo inactive", removed},
        {"ended badly", "echo failed", removed},
        {"garbage", "printf 'in\\000active\\377'", ""},
        {"nothing", "true", ""},
        {"failure", "echo inactive; exit 1", ""},
        {"killed", "echo inactive; kill -9 $$", ""},
        {"endless output", "yes", ""},
        {"hangs", "exec sleep 1000", ""},
        {"hangs behind its answer", "echo inactive; exec sleep 1000 >&-", ""},
        {"leaves a child with its output", "echo inactive; sleep 1000 &", ""},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        const Places places;
        REQUIRE(printed(places.directory, [] { install(L"greeter"); }) ==
                "Service successfully installed.\n");
        places.setSystemctl(row.show);
        if (std::string(row.show).find("sleep") != std::string::npos)
            servicePlaces().commandLimitMs = 300;
        CHECK(printed(places.directory, [] { serviceRemove(L"greeter"); }) == row.expected);
        CHECK(isService(L"greeter") == (row.expected == removed ? 0 : 1));
    }
    SUBCASE("where systemd does not run, nothing is asked")
    {
        const Places places;
        servicePlaces().runningMark = places.directory / "missing";
        servicePlaces().command = places.directory / "missing";
        CHECK(printed(places.directory, [] { CHECK((install(L"a") == 1 && serviceRemove(L"a") == 1)); }) ==
              "Service successfully installed.\nService successfully removed.\n");
    }
}

TEST_CASE("an installation that fails leaves nothing")
{
    const char failed[] = "Failed to install the service (Couldn't create service)\n";
    const Places places;
    SUBCASE("systemd does not read its units") { places.setSystemctl("true", "exit 1"); }
    SUBCASE("there is no systemctl") { servicePlaces().command = "/nowhere"; }
    SUBCASE("there is no place for the link")
    {
        std::ofstream(places.own() / "multi-user.target.wants") << "";
    }
    CHECK(printed(places.directory, [] { CHECK(install(L"greeter") == 0); }) == failed);
    CHECK(isService(L"greeter") == 0);
    CHECK_FALSE(fs::is_symlink(places.link("greeter.service")));
    for (const auto& entry : fs::directory_iterator(places.own()))
        CHECK(entry.path().filename() == "multi-user.target.wants");
}

TEST_CASE("a service of others is seen, but not ours to replace or remove")
{
    const Places places;
    std::ofstream(places.others() / "greeter.service") << "[Service]\nExecStart=/usr/bin/other 100%%\n";
    CHECK(isService(L"greeter") == 1);
    CHECK(printed(places.directory, [] { CHECK(install(L"greeter") == 0); }) ==
          alreadyThere + std::string("/usr/bin/other 100%\n"));
    CHECK(printed(places.directory, [] { CHECK(serviceRemove(L"greeter") == 0); }) ==
          "Failed to remove the service (Couldn't open the service)\n");
    CHECK(fs::exists(places.others() / "greeter.service"));

    // The mark for a service that shall not be started leads to a device.
    fs::create_symlink("/dev/null", places.own() / "masked.service");
    CHECK(printed(places.directory, [] { install(L"masked"); }) == alreadyThere + std::string("\n"));
}

TEST_CASE("without the right or the place nothing is tried")
{
    const Places places;
    servicePlaces().unitDirectories = {(places.directory / "missing").string()};
    const std::string problem = "There is a problem for to open the Service Control Dictionary!\n";
    CHECK(printed(places.directory, [] { CHECK((install(L"a") == 0 && serviceRemove(L"a") == 0)); }) ==
          problem + problem);

    servicePlaces().unitDirectories = {places.own().string()};
    chmod(places.own().c_str(), 0555);
    chmod(places.directory.path().c_str(), 0777);
    const auto asAnybody = [] {
        if (geteuid() == 0 && seteuid(65534) != 0)
            return 2;
        const int result = install(L"a");
        std::fflush(stdout);
        return result;
    };
    CHECK(printed(places.directory,
                  [&] {
                      ServiceProcess process("", asAnybody);
                      CHECK(process.wait() == 0);
                  }) == "Install/remove of the Service Denied!\n"
                        "That operation should be made by an user with Administrator privileges!\n");
    chmod(places.own().c_str(), 0755);
}

TEST_CASE("every name has a unit file of its own, inside the directory")
{
    const std::string longest(255 - 8, 'n');
    const struct {
        std::string name;
        std::string unit; // empty for a refusal
    } rows[] = {
        {"greeter", "greeter.service"},
        {"my-greeter_2.0:x", "my-greeter_2.0:x.service"},
        {"a/b", "a\\x2fb.service"},
        {"../../etc/passwd", "\\x2e.\\x2f..\\x2fetc\\x2fpasswd.service"},
        {"a\\x2fb", "a\\x5cx2fb.service"},
        {"template@x y", "template\\x40x\\x20y.service"},
        {"line\nend", "line\\x0aend.service"},
        {"gr\xC3\xBC\xC3\x9F", "gr\\xc3\\xbc\\xc3\\x9f.service"},
        {"", ""},
        {".", ""},
        {"..", ""},
        {longest, longest + ".service"},
        {longest + "n", ""},
    };
    for (const auto& row : rows) {
        CAPTURE(row.name);
        CHECK(unitFileName(row.name.c_str()).value_or("") == row.unit);
    }
    const Places places;
    const char refused[] = "Failed to install the service (Couldn't create service)\n";
    for (const wchar_t* name : {L"", L".", L".."})
        CHECK(printed(places.directory, [name] { install(name); }) == refused);
    CHECK(printed(places.directory, [] { install(nullptr); }) == refused);
    CHECK(isService(nullptr) == 0);
}

TEST_CASE("no text of a service says more than itself in the unit")
{
    const auto lineOf = [](const ServiceEntry& entry, const std::string& key) {
        const std::string text = unitText(entry).value_or("");
        const std::size_t at = text.find("\n" + key);
        return at == std::string::npos ? "(refused)" : text.substr(at + 1, text.find('\n', at + 1) - at - 1);
    };
    const struct {
        std::vector<Utf8> command;
        const char* line;
        const char* shown;
    } commands[] = {
        {{"/bin/x"}, "ExecStart=:/bin/x", "/bin/x"},
        {{"/a b/x", "", ";", "50%n"}, R"(ExecStart=:"/a b/x" "" ";" "50%%n")", R"("/a b/x" "" ";" "50%n")"},
        {{"/bin/x", "$HOME", "\"q\"", "end\\"},
         R"(ExecStart=:/bin/x "$HOME" "\"q\"" "end\\")",
         R"(/bin/x "$HOME" "\"q\"" "end\")"},
        {{"/bin/x", "a\nUser=root"}, "(refused)", ""},
        {{"/bin/x", "a\rb"}, "(refused)", ""},
        {{"bin/x"}, "(refused)", ""},
        {{"-/bin/x"}, "(refused)", ""},
        {{""}, "(refused)", ""},
        {{}, "(refused)", ""},
    };
    for (const auto& row : commands) {
        const ServiceEntry entry{"x", "", row.command, "", true};
        CHECK(lineOf(entry, "ExecStart") == row.line);
        CHECK(commandLineIn(unitText(entry).value_or("")) == row.shown);
    }
    const struct {
        const char* displayName;
        const char* account;
        const char* description;
        const char* user;
    } texts[] = {
        {"Say 100% hello", "www-data", "Description=Say 100%% hello", "User=www-data"},
        {"", "", "Description=x", "(refused)"}, // no line at all
        {"two\n[Service]\nExecStart=/bin/sh", "", "(refused)", "(refused)"},
        {"draws the next line in\\", "", "(refused)", "(refused)"},
        {"fine", "a\nb", "(refused)", "(refused)"},
        {"fine", "%n", "(refused)", "(refused)"},
        {"fine", "a b", "(refused)", "(refused)"},
    };
    for (const auto& row : texts) {
        CAPTURE(row.displayName);
        const ServiceEntry entry{"x", row.displayName, {"/bin/x"}, row.account, true};
        CHECK(lineOf(entry, "Description") == row.description);
        CHECK(lineOf(entry, "User") == row.user);
    }
}

TEST_CASE("systemd understands the unit")
{
    if (access("/usr/bin/systemd-analyze", X_OK) != 0)
        return;
    const Places places;
    CHECK(printed(places.directory, [] {
              CHECK(serviceInstall(1, L"gr\u00FC\u00DF dich/2", L"100% \"fine\" \\o/",
                                   L"/bin/sh \"a b;\" ; 100% $X \\\"", L"daemon", L"") == 1);
          }) == "Service successfully installed.\n");
    const fs::path unit = places.unit(unitFileName("gr\xC3\xBC\xC3\x9F dich/2").value().c_str());
    const std::string complaints = (places.directory / "complaints").string();
    const std::string command =
        "/usr/bin/systemd-analyze verify --man=no '" + unit.string() + "' > '" + complaints + "' 2>&1";
    const int status = std::system(command.c_str());
    CAPTURE(contentOf(complaints));
    CHECK(status == 0);
    CHECK(contentOf(complaints).find(unit.filename().string()) == std::string::npos);
}

// ---- Running

TEST_CASE("a service says that it is ready, stops once on request and ends when its body has ended")
{
    const TempDirectory directory;
    for (const std::string& address :
         {(directory / "notify").string(), "@orvi-test-" + std::to_string(getpid())}) {
        CAPTURE(address);
        const NotifySocket manager(address);
        const Bell stopped;
        ServiceProcess service(address, [&stopped] {
            static const Bell* bell = &stopped;
            const int result = host([](void*) {
                if (getenv("NOTIFY_SOCKET") != nullptr)
                    abort();
                waitForStop(nullptr);
                bell->wait();
            });
            return result == 1 && host(waitForStop) == 0 ? 0 : 1; // a process is a service once
        });
        checkStart(manager);
        service.kill(SIGTERM);
        CHECK(manager.next() == "STOPPING=1\nSTATUS=Stopping\nEXTEND_TIMEOUT_USEC=86400000000");
        service.kill(SIGTERM);
        CHECK(manager.next() == "STATUS=Stopping\nEXTEND_TIMEOUT_USEC=86400000000");
        stopped.ring();
        CHECK(manager.next() == "STATUS=Stopped");
        CHECK(service.wait() == 0);
    }
}

TEST_CASE("a body stops the service by itself, answers and tells an error")
{
    const TempDirectory directory;
    const NotifySocket manager((directory / "notify").string());
    const Bell ready;
    ServiceProcess service(manager.address(), [&ready] {
        static const Bell* bell = &ready;
        return host([](void*) {
                   bell->wait();            // it starts before the service says that it is ready
                   handleServiceControl(4); // a control that changes nothing
                   exitService(7);
                   stopService();
               }) -
               1;
    });
    checkStart(manager);
    ready.ring();
    CHECK(manager.next() == "READY=1\nSTATUS=Running");
    CHECK(manager.next() == "STATUS=Stopped, error\nERRNO=7");
    CHECK(manager.next() == "STOPPING=1\nSTATUS=Stopping\nEXTEND_TIMEOUT_USEC=60000000");
    CHECK(manager.next() == "STATUS=Stopped\nEXTEND_TIMEOUT_USEC=1000000");
    CHECK(manager.next() == "STATUS=Stopped");
    CHECK(service.wait() == 0);
}

TEST_CASE("without a service manager the body does not start")
{
    const auto neverRun = [](void*) { abort(); };
    const TempDirectory directory;
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

    for (const std::string& address : {(directory / "nobody").string(), std::string("@"),
                                       "/" + std::string(200, 'x'), std::string("vsock:1")}) {
        CAPTURE(address);
        ServiceProcess service(address, [&] { return host(neverRun) - 1; });
        CHECK(service.wait() == 0);
    }
}

TEST_CASE("a manager that is deaf or dies stops the service")
{
    const TempDirectory directory;
    SUBCASE("deaf")
    {
        const NotifySocket manager((directory / "notify").string());
        manager.fill();
        ServiceProcess service(manager.address(), [] { return host([](void*) { abort(); }) - 1; });
        CHECK(service.wait() == 0);
    }
    SUBCASE("dead before the stop")
    {
        NotifySocket manager((directory / "notify").string());
        ServiceProcess service(manager.address(), [&manager] {
            manager.close(); // the copy that it has inherited
            return host(waitForStop) - 1;
        });
        checkStart(manager);
        manager.close();
        service.kill(SIGTERM);
        CHECK(service.wait() == 0);
    }
    SUBCASE("dead when asked for the state")
    {
        NotifySocket manager((directory / "notify").string());
        const Bell dead;
        ServiceProcess service(manager.address(), [&dead, &manager] {
            manager.close();
            static const Bell* bell = &dead;
            return host([](void*) {
                       bell->wait();
                       handleServiceControl(4);
                       waitForStop(nullptr);
                   }) -
                   1;
        });
        checkStart(manager);
        manager.close();
        dead.ring();
        CHECK(service.wait() == 0);
    }
}

TEST_CASE("pausing stops the body where it stands, and nothing else")
{
    const TempDirectory directory;
    const NotifySocket manager((directory / "notify").string());
    ServiceProcess service(manager.address(), [] {
        static std::atomic<long> turns = 0;
        std::thread watcher([] {
            const auto nap = [] { std::this_thread::sleep_for(std::chrono::milliseconds(1)); };
            const auto awaitTurn = [&nap] {
                for (const long before = turns; turns == before;)
                    nap();
            };
            const auto awaitStandstill = [&nap] {
                for (long seen = -1, still = 0; still < 30; ++still, nap()) {
                    if (seen != turns)
                        still = 0;
                    seen = turns;
                }
            };
            awaitTurn();
            for (int round = 0; round < 3; ++round) {
                pauseService();
                pauseService();
                awaitStandstill();
                resumeService(); // once is enough
                awaitTurn();
                resumeService();
            }
            for (int i = 0; i < 10'000; ++i) { // as fast as it goes: no signal may get lost
                pauseService();
                resumeService();
            }
            awaitTurn();
            g_stop->signal();
            g_stop->signal();
        });
        const int result = host([](void*) {
            while (!g_stop->wait(1, true))
                ++turns;
            static std::atomic<bool> awake = false;
            std::thread resumer([] {
                while (!awake)
                    resumeService();
            });
            pauseService(); // itself
            awake = true;
            resumer.join();
            stopService();
        });
        watcher.join();
        pauseService(); // nobody
        return result - 1;
    });
    checkStart(manager);
    CHECK(service.wait() == 0);
}
