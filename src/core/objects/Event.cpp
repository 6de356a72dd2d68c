#include <orvi/core/Event.h>

#include <orvi/core/CallbackList.h>

namespace orvi {

ORVI_DEFINE_CLASS(Event);

Unknown::Handle_T<Event> Event::createInstance() { return new Event; }

/** The handlers of one class. */
class EventDispenser::HandlerList : public CallbackList<void, const Event*> {};

bool EventDispenser::addEventHandler(const EventHandler& handler)
{
    const auto found = _lists.find(handler.getClassId());
    // A class without a handler has no entry, also when memory runs out in between.
    const SharedPtr<HandlerList> list =
        found != _lists.end() ? found->second : SharedPtr<HandlerList>(new HandlerList);
    list->add(handler.getCallbackHandler());
    if (found == _lists.end())
        _lists.emplace(handler.getClassId(), list);
    return true;
}

void EventDispenser::removeEventHandler(const EventHandler& handler)
{
    const auto found = _lists.find(handler.getClassId());
    if (found == _lists.end())
        return;
    // Held: a walk may be under way, and a callback that goes may clear this dispenser.
    const SharedPtr<HandlerList> list = found->second;
    list->remove(handler.getCallbackHandler());
    if (list->isEmpty()) // by now or before: a copy of the dispenser may have taken the last one out
        _lists.erase(handler.getClassId());
}

EventDispenser& EventDispenser::operator+=(const EventHandler& handler)
{
    addEventHandler(handler);
    return *this;
}

EventDispenser& EventDispenser::operator-=(const EventHandler& handler)
{
    removeEventHandler(handler);
    return *this;
}

void EventDispenser::sendEvent(const Event* event)
{
    const auto found = _lists.find(event->getClassId());
    if (found == _lists.end())
        return;

    const SharedPtr<HandlerList> list =
        found->second; // lives to the end of the walk, whatever the handlers do
    const HandlerList::Walk walk(*list);
    for (auto place = list->first(); place != list->end();) {
        // Looked up before the call: what the last handler adds has to wait for the next event.
        const auto next = list->next(place);
        const bool isLast = next == list->end();
        place->callback(event);
        if (isLast)
            break;
        place = list->skipRemoved(next);
    }
}

void EventDispenser::clear() { _lists.clear(); }

} // namespace orvi
