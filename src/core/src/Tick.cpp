#include <orvi/core/Tick.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace orvi {

Unknown::Handle_T<Tick> Tick::createInstance() { return new Tick; }

bool Tick::addTickHandler(const Handler& handler)
{
    if (!handler.isNull() && std::find(_handlers.begin(), _handlers.end(), handler) == _handlers.end())
        _handlers.push_back(handler);
    return true;
}

void Tick::removeTickHandler(const Handler& handler)
{
    const auto found = std::find(_handlers.begin(), _handlers.end(), handler);
    if (found == _handlers.end())
        return;
    if (_walks > 0)
        found->setNull();
    else
        _handlers.erase(found);
}

void Tick::clearAllTickHandler()
{
    for (Handler& handler : _handlers)
        handler.setNull();
    if (_walks == 0)
        _handlers.clear();
}

void Tick::onTick(unsigned int elapsedMs)
{
    struct Walk {
        explicit Walk(Tick& tick)
            : _tick(tick)
        {
            ++_tick._walks;
        }
        ~Walk()
        {
            if (--_tick._walks == 0)
                std::erase_if(_tick._handlers, [](const Handler& handler) { return handler.isNull(); });
        }
        Tick& _tick;
    } walk(*this);
    for (std::size_t i = 0; i < _handlers.size(); ++i) {
        const Handler handler = _handlers[i]; // lives through its call, also when it removes itself
        if (!handler.isNull())
            handler(elapsedMs);
    }
}

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
