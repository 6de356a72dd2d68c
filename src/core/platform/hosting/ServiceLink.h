#pragma once
#include "ServiceManager.h"

namespace orvi::platform {

struct ServiceReport {
    ServiceState state;
    unsigned int controlsAccepted; // for a manager that asks first; others send what they have
    unsigned long exitCode;        // errno or a number of the program's own; 0 is success
    unsigned int checkPoint;       // the step of a start or stop
    unsigned int waitHintMs;       // the next report may take so long
};

/** The line from this process to the service manager that started it.

    The first call takes what the manager left in the environment out of there, so that other programs which
    this one starts do not speak for it. So make it before threads read the environment. */
class ServiceLink {
public:
    ServiceLink() = delete;

    /** False when no service manager started this process. */
    static bool isOpen();
    /** Waits no more than a second or two. On failure the last error has the reason. */
    static bool report(const ServiceReport& report);

    /** The manager ends a process that gives no sign of life for so long; 0 when it does not watch. */
    static unsigned int watchdogMs();
    /** Never waits; a sign that finds no room is left out. */
    static void giveSignOfLife();
};

} // namespace orvi::platform
