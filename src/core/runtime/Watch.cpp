#include <orvi/core/Watch.h>

#include "platform/runtime/LoopWait.h"

#include <limits>
#include <utility>

namespace orvi {

static_assert(Watch::READABLE == platform::LoopWait::readable &&
              Watch::WRITABLE == platform::LoopWait::writable && Watch::BROKEN == platform::LoopWait::broken);

Watch::Watch(int descriptor, unsigned int readiness, const Handler& handler)
    : _descriptor(descriptor)
    , _readiness(readiness)
    , _handler(handler)
{
    setTickTime(std::numeric_limits<unsigned int>::max());
}

Watch::~Watch() = default;

Unknown::Handle_T<Watch> Watch::createInstance(int descriptor, unsigned int readiness, const Handler& handler)
{
    return new Watch(descriptor, readiness, handler);
}

bool Watch::init()
{
    _isTold = false;
    return setReadiness(_readiness);
}

void Watch::exit()
{
    if (System* system = getSystem())
        system->_wait->unwatch(_descriptor, this);
}

bool Watch::setReadiness(unsigned int readiness)
{
    _readiness = readiness;
    _ready &= readiness != 0 ? readiness | BROKEN : 0U;
    System* system = getSystem();
    if (system == nullptr)
        return true;
    if (readiness != 0 && system->_wait->watch(_descriptor, readiness, this))
        return true;
    system->_wait->unwatch(_descriptor, this);
    return readiness == 0;
}

void Watch::take(unsigned int ready) noexcept
{
    _ready = ready;
    _isTold = true;
}

void Watch::onTick(unsigned int)
{
    const unsigned int ready = std::exchange(_ready, 0U);
    if (std::exchange(_isTold, false) && ready == 0)
        return;
    if (!_handler.isNull())
        _handler(ready);
}

} // namespace orvi
