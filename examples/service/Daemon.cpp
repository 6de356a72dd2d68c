#include "Daemon.h"

#include "Boxes.h"
#include "Door.h"

namespace service {

bool Daemon::init()
{
    _failed = !ServiceSystem::init() || !startBoxes() ||
              !orvi::Handle_T<Door>(new Door(getArguments(L"socket", L"service.sock")))->start(this);
    return !_failed;
}

void Daemon::exit()
{
    ServiceSystem::exit(); // visitors leave first
    endBoxes();
}

} // namespace service
