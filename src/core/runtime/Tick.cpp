#include <orvi/core/Tick.h>

#include <chrono>
#include <thread>

namespace orvi {

Unknown::Handle_T<Tick> Tick::createInstance() { return new Tick; }

bool Tick::addTickHandler(const Handler& handler)
{
    if (!handler.isNull())
        _handlers.add(handler);
    return true;
}

void Tick::removeTickHandler(const Handler& handler) { _handlers.remove(handler); }

void Tick::clearAllTickHandler() { _handlers.clear(); }

void Tick::onTick(unsigned int elapsedMs)
{
    const CallbackList<void, unsigned int>::Walk walk(_handlers);
    for (auto place = _handlers.first(); place != _handlers.end(); place = _handlers.next(place))
        place->callback(elapsedMs);
}

Unknown::Handle_T<Rest> Rest::createInstance() { return new Rest; }

Unknown::Handle_T<Yield> Yield::createInstance() { return createInstance(1); }

Unknown::Handle_T<Yield> Yield::createInstance(unsigned int time) { return new Yield(time); }

void Yield::onTick(unsigned int)
{
    if (_time > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(_time));
    // Behind a sleep too: the scheduler favours whoever has slept, and with hundreds of loops that did, those that
    // work (a thread that starts the next loop, say) got no turn for seconds.
    std::this_thread::yield();
}

} // namespace orvi
