#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/Mutex.h>
#include <orvi/core/String.h>
#include <orvi/core/System.h>

#include <atomic>

namespace orvi {

/** The main System of a process, with the process's name, version and arguments; requests to end the process
    shut it down in good order. Derive your own and launch it:

        int main(int argc, char** argv)
        {
            ServiceSystem::setSystemName(L"greeter");
            return ServiceSystem::launch(argc, argv, new Greeter, L"1.0");
        }

    The same program runs in a terminal and as a service, see Service.h. An override of init calls
    ServiceSystem::init first. */
class ORVI_API ServiceSystem : public System {
public:
    ServiceSystem() = default;

    const wchar_t* getClassTimestamp() const override;

    /** Runs `system` on this thread, or, where a service manager started the process, as the service of the
        system's name on a thread of the service's own. Until it has ended, SIGINT and SIGTERM go to `signal`,
        or to the service. 0 when the system has run, 1 when there was none or it could not be loaded. Throws
        std::bad_alloc, with the system as it was, when memory is short.

        For the start of main, on its thread and once at a time. `argv` is UTF-8. The loop itself keeps the
        service manager's watchdog content, where there is one: a loop that hangs does not. */
    static int launch(int argc, const char* const* argv, const Handle_T<ServiceSystem>& system,
                      const String& version = String());

    /** Asks the system to end, without waiting for that; always true. Waits until launch has the system
        ready, or has found that there is none. Any thread. */
    static bool shutdownSystem();
    /** Logs what the signal `code` means, and calls shutdownSystem. Not for a signal handler itself. */
    static void signal(int code);

    /** Null before launch and after it. Any thread. */
    static Handle_T<ServiceSystem> getSystem();
    /** Set before launch: other threads read it. */
    static void setSystemName(String name);
    static const String& getSystemName() { return _systemName; }
    static const String& getVersion() { return _version; }

    /** The arguments of the process from launch on; the first one is the program. */
    static int argc() { return _argc; }
    static const wchar_t* const* argv() { return _argv; }
    /** The text behind "name=" in the first argument that begins so, or `defaultValue`. */
    static String getArguments(const String& name, const String& defaultValue);

    bool init() override;

protected:
    ~ServiceSystem() override = default;

private:
    struct Launched;

    static void runSystem();

    static int _argc;
    static const wchar_t* const* _argv;
    static Handle_T<ServiceSystem> _hSystem;
    static std::atomic<int> _launch_flag; // 0 until decided, 1 with a system to shut down, 2 without
    static Mutex _mutex;                  // guards _hSystem; the last one: nothing is taken under it
    static String _systemName;
    static String _version;
};

} // namespace orvi
