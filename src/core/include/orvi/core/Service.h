#pragma once
#include <orvi/core/Export.h>

namespace orvi {

/** Services: programs that the system starts, watches and stops. A process is one service at most.

    Here the service manager is systemd. ServiceSystem::launch does all of the running for a program that is
    a System; a program with another body of its own says

        void body(void*);  // ends when the event has been signalled

        const auto stop = Semaphore::createInstance();
        setShutdownEvent(static_cast<Semaphore*>(stop));
        if (serviceInitialize(L"greeter", reinterpret_cast<void*>(&body)) == 0)
            body(nullptr); // started by somebody else, from a terminal say

    docs/services.md tells what reaches systemd. */

/** Installs a service: a unit file of systemd, for it to find now or when it starts. 1 on success, else 0 with
    the reason on the standard output, and nothing changed. Wants the administrator's rights.

    `startMode` 1 starts the service with the system, any other value on demand. `name` has up to 256
    characters, any of them but not "." or ".." alone; what cannot stand in the name of a unit stands there
    escaped, as "\x2f". `displayName` is one line for people; null or empty is the name. `binaryPath` is a command
    line as parseArguments splits it: a program by its whole path, in double quotes if it has blanks, and its
    arguments. `account` is a user's name, null or empty for the system's own. `password` is ignored: systemd
    needs none to run a program as another user. Line ends and control characters are refused in all of
    them. */
ORVI_API int serviceInstall(int startMode, const wchar_t* name, const wchar_t* displayName,
                            const wchar_t* binaryPath, const wchar_t* account, const wchar_t* password);

/** Removes a service that does not run. 1 on success, else 0 with the reason on the standard output. */
ORVI_API int serviceRemove(const wchar_t* name);

/** 1 if there is a service of that name, else 0. Prints nothing. */
ORVI_API int isService(const wchar_t* name);

/** Hands the process to the service manager. `threadFunction` is a `void (*)(void*)`: the body, which gets a
    thread of its own and a null argument. Blocks until the service has been told to stop (by the manager's
    SIGTERM or by stopService) and the body has ended by itself; then 1.

    0 at once, with nothing started, when no service manager started this process, when it was a service
    already, or for a name of more than 260 characters, which the log tells. Takes NOTIFY_SOCKET out of the
    environment: call it before threads read that. */
ORVI_API int serviceInitialize(const wchar_t* name, void* threadFunction);

/** What tells the body to stop: a `Semaphore*`, borrowed, which is signalled at least once. Null for none.
    Call it before serviceInitialize. */
ORVI_API void setShutdownEvent(void* event);

/** For a body that stops by itself: reports the stop and lets serviceInitialize return once it has ended. */
ORVI_API void stopService();

/** Makes the body's thread stand still where it is, and go on. Nothing else stands still, and nothing is
    counted. Any locks that the body holds stay taken, and a paused body does not end: resume it before the
    service is to stop. Without a body under way they do nothing. */
ORVI_API void pauseService();
ORVI_API void resumeService();

/** Reports the end of the service with an exit code, 0 for success; what the process gives to the system when
    it ends is the program's own affair. Does nothing in a process that is no service. */
ORVI_API void exitService(unsigned long code);

} // namespace orvi
