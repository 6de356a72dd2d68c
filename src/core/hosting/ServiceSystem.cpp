#include <orvi/core/ServiceSystem.h>

#include <orvi/core/Encoding.h>
#include <orvi/core/Log.h>
#include <orvi/core/Semaphore.h>
#include <orvi/core/Service.h>

#include "platform/hosting/ServiceLink.h"
#include "platform/hosting/SignalWatch.h"

#include <algorithm>
#include <csignal>
#include <new>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace orvi {

int ServiceSystem::_argc = 0;
const wchar_t* const* ServiceSystem::_argv = nullptr;
Unknown::Handle_T<ServiceSystem> ServiceSystem::_hSystem;
std::atomic<int> ServiceSystem::_launch_flag = 0;
Mutex ServiceSystem::_mutex;
String ServiceSystem::_systemName;
String ServiceSystem::_version;

namespace {

enum LaunchFlag { undecided = 0, systemReady = 1, noSystem = 2 };

/** The arguments as wide texts. A program may keep pointers to them, so that they are replaced by the next
    launch only. */
class Arguments {
public:
    Arguments() = default;
    Arguments(int argc, const char* const* argv)
    {
        for (int i = 0; i < argc; ++i) {
            _texts.push_back(StringHelper::utf8ToWide(argv[i]));
            if (_texts.back().isEmpty() && *argv[i] != 0)
                throw std::bad_alloc();
        }
        for (const String& text : _texts)
            _pointers.push_back(text);
        _pointers.push_back(nullptr);
    }
    const wchar_t* const* pointers() const { return _pointers.data(); }

private:
    std::vector<String> _texts;
    std::vector<const wchar_t*> _pointers;
};

Arguments& arguments()
{
    static Arguments kept;
    return kept;
}

platform::SignalWatch g_endRequests;

/** Tells the service manager that the loop turns. */
class LifeSign final : public System::Task {
public:
    explicit LifeSign(unsigned int intervalMs) { setTickTime(std::max(intervalMs, 1U)); }
    void onTick(unsigned int) override { platform::ServiceLink::giveSignOfLife(); }
};

/** Shuts the system down when the service is to stop. */
class StopWatch {
public:
    StopWatch()
        : _stop(Semaphore::createInstance())
        , _thread([this] {
            _stop->wait(Semaphore::endless, true);
            ServiceSystem::shutdownSystem();
        })
    {
        setShutdownEvent(static_cast<Semaphore*>(_stop));
    }
    ~StopWatch()
    {
        setShutdownEvent(nullptr);
        _stop->signal();
        _thread.join();
    }
    StopWatch(const StopWatch&) = delete;
    StopWatch& operator=(const StopWatch&) = delete;

private:
    Unknown::Handle_T<Semaphore> _stop;
    std::thread _thread;
};

const wchar_t* meaningOf(int code)
{
    switch (code) {
    case SIGABRT:
    case 22: // as elsewhere
        return L"Abnormal termination.";
    case SIGTERM:
        return L"Termination request.";
    case SIGINT:
        return L"CTRL+C signal.";
    case SIGILL:
        return L"Illegal instruction.";
    case SIGFPE:
        return L"Floating-point error.";
    case 21: // as elsewhere
        return L"Ctrl-Break sequence";
    case SIGSEGV:
        return L"Illegal storage access.";
    default:
        return L"Unknown signal.";
    }
}

void decide(std::atomic<int>& flag, LaunchFlag decision)
{
    flag = decision;
    flag.notify_all();
}

} // namespace

const wchar_t* ServiceSystem::getClassTimestamp() const { return Unknown::getClassTimestamp(); }

/** The end of a launch, also of one that an exception ends on its way: then the system has not run. */
struct ServiceSystem::Launched {
    const Handle_T<ServiceSystem>& system;
    bool isLoaded = false;
    bool isWatching = false;

    ~Launched()
    {
        if (isLoaded) {
            system->unreserve();
            system->unload();
        }
        decide(_launch_flag, noSystem);
        if (isWatching)
            g_endRequests.stop();
        Handle_T<ServiceSystem> last;
        const MutexGuard guard(_mutex);
        last = std::move(_hSystem);
    } // the system goes without the lock
};

int ServiceSystem::launch(int argc, const char* const* argv, const Handle_T<ServiceSystem>& system,
                          const String& version)
{
    const bool isHosted = platform::ServiceLink::isOpen(); // also clears the environment, before any thread
    Arguments given(argc, argv);
    _launch_flag = undecided;
    arguments() = std::move(given); // the texts stay where they are
    _argc = argc;
    _argv = arguments().pointers();
    _version = version;
    {
        const MutexGuard guard(_mutex);
        _hSystem = system;
    }
    Launched launched{system};
    launched.isLoaded = system != nullptr && system->load();
    launched.isWatching = g_endRequests.start({SIGINT, SIGTERM}, &ServiceSystem::signal);
    decide(_launch_flag, launched.isLoaded ? systemReady : noSystem);
    if (!launched.isLoaded)
        return 1;
    bool hosted = false;
    if (isHosted) {
        try {
            const StopWatch stop;
            hosted = serviceInitialize(_systemName, reinterpret_cast<void*>(+[](void*) {
                                           runSystem();
                                           stopService(); // also when it ended by itself
                                       })) != 0;
        } catch (const std::system_error& error) {
            Log::error(L"A service needs a thread: %S", error.what());
            return 1;
        }
    }
    if (!hosted)
        runSystem();
    return 0;
}

void ServiceSystem::runSystem() { getSystem()->start(); }

bool ServiceSystem::init()
{
    if (!System::init())
        return false;
    // Half the time, so that a sign that comes a little late is not too late.
    const unsigned int watchdogMs = platform::ServiceLink::watchdogMs();
    if (watchdogMs > 0 && getSystem() == this)
        return Handle_T<LifeSign>(new LifeSign(watchdogMs / 2))->start(this);
    return true;
}

bool ServiceSystem::shutdownSystem()
{
    _launch_flag.wait(undecided);
    if (_launch_flag > systemReady)
        return true;
    if (const Handle_T<ServiceSystem> system = getSystem())
        system->shutdown();
    return true;
}

void ServiceSystem::signal(int code)
{
    try {
        Log::warning(L"%s", meaningOf(code));
    } catch (const std::bad_alloc&) {
        // The request counts, also without its line.
    }
    shutdownSystem();
}

Unknown::Handle_T<ServiceSystem> ServiceSystem::getSystem()
{
    const MutexGuard guard(_mutex);
    return _hSystem;
}

void ServiceSystem::setSystemName(String name) { _systemName = std::move(name); }

String ServiceSystem::getArguments(const String& name, const String& defaultValue)
{
    for (int i = 1; i < _argc; ++i) {
        const wchar_t* rest = _argv[i];
        const wchar_t* wanted = name;
        while (*wanted != 0 && *rest == *wanted) {
            ++rest;
            ++wanted;
        }
        if (*wanted == 0 && *rest == L'=')
            return rest + 1;
    }
    return defaultValue;
}

} // namespace orvi
