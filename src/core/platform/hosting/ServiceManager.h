#pragma once
#include <orvi/core/String.h>

#include <vector>

namespace orvi::platform {

/** Also the numbers by which the states are known. */
enum class ServiceState : unsigned int {
    Unknown = 0,
    Stopped = 1,
    StartPending = 2,
    StopPending = 3,
    Running = 4
};

/** A service to be installed. */
struct ServiceEntry {
    String_T<char> name;
    String_T<char> displayName;
    std::vector<String_T<char>> command; // the program with its whole path, and its arguments
    String_T<char> account;              // empty for the system's own
    bool automatic = false;              // started with the system, else on demand
};

/** The system's table of services. Texts are UTF-8, names mean the same in any call and may hold any
    character. A service manager that does not answer is waited for a few seconds only. */
class ServiceManager {
public:
    ServiceManager() = delete;

    /** Whether this process may change the table. */
    enum class Access { Granted, Denied, Unavailable };
    static Access tryAccess();
    static bool isAdministrator();

    static bool exists(const String_T<char>& name);
    /** How an existing service is started; empty when that cannot be told. */
    static String_T<char> commandLineOf(const String_T<char>& name);
    /** Of an existing service. Unknown when the manager gives no answer, or none that makes sense. */
    static ServiceState queryState(const String_T<char>& name);

    /** Enters the service as a whole or not at all; never in place of another one. */
    static bool create(const ServiceEntry& entry);
    /** False for a service that others have put where only they may remove it. */
    static bool isRemovable(const String_T<char>& name);
    static bool remove(const String_T<char>& name);
};

} // namespace orvi::platform
