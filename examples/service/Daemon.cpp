#include "Daemon.h"

#include "Boxes.h"
#include "Door.h"

#include <Commands.h>
#include <orvi/core/Log.h>
#include <orvi/core/Tick.h>

namespace service {

bool Daemon::init()
{
    _failed =
        !ServiceSystem::init() || !startBoxes() || !orvi::Rest::createInstance()->start(this) || !openDoor();
    return !_failed;
}

bool Daemon::openDoor()
{
    constexpr long long dayMs = 86'400'000;
    const auto patienceMs = apphost::parseNumber(getArguments(L"patience", L"30000"));
    if (!patienceMs || *patienceMs < 1 || *patienceMs > dayMs) {
        orvi::Log::error(L"The argument patience is a number of milliseconds, up to %lld", dayMs);
        return false;
    }
    const std::chrono::milliseconds patience(*patienceMs);
    return orvi::Handle_T<Door>(new Door(getArguments(L"socket", L"service.sock"), patience))->start(this);
}

void Daemon::exit()
{
    ServiceSystem::exit(); // visitors leave first
    endBoxes();
}

} // namespace service
