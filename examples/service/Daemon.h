#pragma once
#include <orvi/core/ServiceSystem.h>

namespace service {

/** Hosts the applications, and answers at the socket that the argument "socket=" names. The argument
    "patience=" is the time, in milliseconds, that a visitor may take for a line. */
class Daemon final : public orvi::ServiceSystem {
public:
    bool init() override;
    void exit() override;

    bool hasFailed() const { return _failed; }

private:
    bool openDoor();

    bool _failed = false;
};

} // namespace service
