#include <orvi/core/Service.h>

#include <orvi/core/Arguments.h>
#include <orvi/core/Encoding.h>
#include <orvi/core/Log.h>
#include <orvi/core/Semaphore.h>

#include "ServiceControl.h"
#include "platform/base/ErrorText.h"
#include "platform/hosting/ServiceLink.h"
#include "platform/hosting/ServiceManager.h"
#include "platform/hosting/ServiceThread.h"
#include "platform/hosting/SignalWatch.h"

#include <atomic>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

namespace orvi {

namespace {

using platform::ServiceLink;
using platform::ServiceManager;
using platform::ServiceState;
using platform::ServiceThread;
using Utf8 = String_T<char>;

constexpr int longestInstalledName = 256;
constexpr int longestName = 260;

// ---- Installing and removing

enum class Mode { Install, Remove };

void explainNoAccess(ServiceManager::Access access)
{
    if (access == ServiceManager::Access::Unavailable) {
        std::printf("There is a problem for to open the Service Control Dictionary!\n");
        return;
    }
    std::printf("Install/remove of the Service Denied!\n");
    if (!ServiceManager::isAdministrator())
        std::printf("That operation should be made by an user with Administrator privileges!\n");
}

bool mayInstall(const Utf8& name)
{
    if (!ServiceManager::exists(name))
        return true;
    std::printf("The service already exists!\n");
    std::printf("The current server installed: %s\n", ServiceManager::commandLineOf(name).getBuffer());
    return false;
}

bool mayRemove(const Utf8& name)
{
    if (!ServiceManager::exists(name)) {
        std::printf("The service doesn't exist!\n");
        return false;
    }
    switch (ServiceManager::queryState(name)) {
    case ServiceState::Unknown:
        return false;
    case ServiceState::Running:
        std::printf("Failed to remove the service because the service is running\n"
                    "Stop the service and try again\n");
        return false;
    case ServiceState::StopPending:
        std::printf("Failed to remove the service because the service is in stop pending state!\n"
                    "Wait 30 seconds and try again.\n"
                    "If this condition persist, reboot the machine and try again\n");
        return false;
    default:
        return true;
    }
}

/** Whether the operation may go on; says why not. */
bool check(const Utf8& name, Mode mode)
{
    const ServiceManager::Access access = ServiceManager::tryAccess();
    if (access != ServiceManager::Access::Granted) {
        explainNoAccess(access);
        return false;
    }
    return mode == Mode::Install ? mayInstall(name) : mayRemove(name);
}

bool isAccessible() { return ServiceManager::tryAccess() == ServiceManager::Access::Granted; }

std::vector<Utf8> splitCommandLine(const wchar_t* commandLine)
{
    wchar_t** parsed = nullptr;
    int count = 0;
    parseArguments(commandLine, parsed, count);
    const std::unique_ptr<wchar_t*, decltype(&std::free)> words(parsed, std::free);
    std::vector<Utf8> command;
    command.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
        command.push_back(StringHelper::wideToUtf8(parsed[i]));
    return command;
}

// ---- Running

using Body = void (*)(void*);

/** Is set once, and lets everybody through from then on. */
class LastingEvent {
public:
    void set()
    {
        {
            const std::lock_guard lock(_mutex);
            _isSet = true;
        }
        _change.notify_all();
    }
    void wait()
    {
        std::unique_lock lock(_mutex);
        _change.wait(lock, [this] { return _isSet; });
    }

private:
    std::mutex _mutex;
    std::condition_variable _change;
    bool _isSet = false;
};

constexpr unsigned int allControls = 7; // stop, pause and go on, end of the system

std::atomic<Semaphore*> g_shutdownEvent = nullptr; // the program's own
LastingEvent g_terminate;                          // lets the service end
std::atomic<bool> g_registered = false;            // for controls: reports make sense
std::atomic<bool> g_taken = false;                 // a process is a service once
std::atomic<ServiceState> g_state = ServiceState::Unknown;
platform::SignalWatch g_stopRequests;

bool report(ServiceState state, unsigned int controls, unsigned long exitCode, unsigned int checkPoint,
            unsigned int waitHintMs)
{
    g_state = state;
    try {
        return ServiceLink::report({state, controls, exitCode, checkPoint, waitHintMs});
    } catch (const std::bad_alloc&) { // like a manager that does not hear: the service ends in order
        return false;
    }
}

void setShutdown()
{
    if (Semaphore* event = g_shutdownEvent)
        event->signal();
}

void setBothEvents()
{
    setShutdown();
    g_terminate.set();
}

/** A report on the way down: when nobody hears it, there is no point in going on. */
void reportOrStop(ServiceState state, unsigned int controls, unsigned int checkPoint, unsigned int waitHintMs)
{
    if (!report(state, controls, 0, checkPoint, waitHintMs))
        setBothEvents();
}

void onStopRequest(int) { handleServiceControl(SERVICE_STOP); }

/** From the start to the end of the body; gives the exit code. */
unsigned long runService(Body body)
{
    if (!g_stopRequests.start({SIGTERM}, onStopRequest))
        return static_cast<unsigned long>(platform::lastError());
    g_registered = true;
    bool heard = report(ServiceState::StartPending, 0, 0, 1, 8'000) &&
                 report(ServiceState::StartPending, 0, 0, 3, 15'000);
    bool started = false;
    if (heard) {
        started = ServiceThread::start(body);
        if (!started)
            return static_cast<unsigned long>(platform::lastError());
        heard = report(ServiceState::Running, allControls, 0, 0, 0);
    }
    unsigned long code = 0;
    if (!heard) {
        code = static_cast<unsigned long>(platform::lastError());
        setBothEvents();
    }
    g_terminate.wait();
    if (started)
        ServiceThread::join(); // the body ends by itself; before that the service has not stopped
    return code;
}

int length(const wchar_t* text)
{
    int count = 0;
    while (text != nullptr && text[count] != 0)
        ++count;
    return count;
}

} // namespace

int serviceInstall(int startMode, const wchar_t* name, const wchar_t* displayName, const wchar_t* binaryPath,
                   const wchar_t* account, const wchar_t*)
{
    const Utf8 serviceName = StringHelper::wideToUtf8(name);
    if (!check(serviceName, Mode::Install))
        return 0;
    if (!isAccessible()) {
        std::printf("Failed to install the service (Couldn't open the SCM)\n");
        return 0;
    }
    const platform::ServiceEntry entry{serviceName, StringHelper::wideToUtf8(displayName),
                                       splitCommandLine(binaryPath), StringHelper::wideToUtf8(account),
                                       startMode == 1};
    if (length(name) > longestInstalledName || !ServiceManager::create(entry)) {
        std::printf("Failed to install the service (Couldn't create service)\n");
        return 0;
    }
    std::printf("Service successfully installed.\n");
    return 1;
}

int serviceRemove(const wchar_t* name)
{
    const Utf8 serviceName = StringHelper::wideToUtf8(name);
    if (!check(serviceName, Mode::Remove))
        return 0;
    if (!isAccessible()) {
        std::printf("Failed to remove the service (Couldn't open the SCM)\n");
        return 0;
    }
    if (!ServiceManager::isRemovable(serviceName)) {
        std::printf("Failed to remove the service (Couldn't open the service)\n");
        return 0;
    }
    if (!ServiceManager::remove(serviceName)) {
        std::printf("Failed to remove the service\n");
        return 0;
    }
    std::printf("Service successfully removed.\n");
    return 1;
}

int isService(const wchar_t* name) { return ServiceManager::exists(StringHelper::wideToUtf8(name)) ? 1 : 0; }

int serviceInitialize(const wchar_t* name, void* threadFunction)
{
    if (length(name) > longestName) {
        Log::error(L"The name of the service is longer than %d characters: %s", longestName, name);
        return 0;
    }
    if (threadFunction == nullptr || !ServiceLink::isOpen() || g_taken.exchange(true))
        return 0;
    try {
        exitService(runService(reinterpret_cast<Body>(threadFunction)));
    } catch (const std::bad_alloc&) { // from before the body began
        g_taken = false;
        throw;
    }
    if (g_registered.exchange(false))
        g_stopRequests.stop();
    return 1;
}

void handleServiceControl(unsigned long control)
{
    if (control != SERVICE_STOP && control != SERVICE_SHUTDOWN) {
        const ServiceState state = g_state;
        reportOrStop(state, state == ServiceState::StartPending ? 0 : allControls, 0, 0);
        return;
    }
    constexpr unsigned int oneDayMs = 86'400'000;
    reportOrStop(ServiceState::StopPending, allControls, 1, oneDayMs);
    setBothEvents();
}

void setShutdownEvent(void* event) { g_shutdownEvent = static_cast<Semaphore*>(event); }

void stopService()
{
    reportOrStop(ServiceState::StopPending, allControls, 1, 60'000);
    setBothEvents();
    reportOrStop(ServiceState::Stopped, allControls, 1, 1'000);
}

void pauseService() { ServiceThread::pause(); }

void resumeService() { ServiceThread::resume(); }

void exitService(unsigned long code)
{
    if (g_registered && !report(ServiceState::Stopped, allControls, code, 0, 0))
        setShutdown();
}

} // namespace orvi
