#include <orvi/core/Event.h>

#include <algorithm>
#include <vector>

namespace orvi {

ORVI_DEFINE_CLASS(Event);

Unknown::Handle_T<Event> Event::createInstance() { return new Event; }

/** The handlers of one class, in the order of registration. What is removed during a walk stays in its place,
    so that the walk keeps its position, and goes when the outermost walk has ended. */
struct EventDispenser::HandlerList {
    struct Entry {
        EventHandler::Callback callback;
        bool removed = false;
    };

    std::vector<Entry> entries;
    int walks = 0;

    /** The first entry at or behind `index` that still counts; entries.size() when there is none. */
    std::size_t nextLive(std::size_t index) const
    {
        while (index < entries.size() && entries[index].removed)
            ++index;
        return index;
    }

    std::size_t find(const EventHandler::Callback& callback) const
    {
        std::size_t i = nextLive(0);
        while (i < entries.size() && !(entries[i].callback == callback))
            i = nextLive(i + 1);
        return i;
    }

    void remove(std::size_t index)
    {
        entries[index].removed = true;
        purge();
    }

    void purge()
    {
        if (walks == 0)
            std::erase_if(entries, [](const Entry& entry) { return entry.removed; });
    }
};

bool EventDispenser::addEventHandler(const EventHandler& handler)
{
    SharedPtr<HandlerList>& list = _lists[handler.getClassId()];
    if (list.isNull())
        list = SharedPtr<HandlerList>(new HandlerList);
    if (list->find(handler.getCallbackHandler()) == list->entries.size())
        list->entries.push_back({handler.getCallbackHandler()});
    return true;
}

void EventDispenser::removeEventHandler(const EventHandler& handler)
{
    const auto found = _lists.find(handler.getClassId());
    if (found == _lists.end())
        return;
    HandlerList& list = *found->second;
    const std::size_t index = list.find(handler.getCallbackHandler());
    if (index == list.entries.size())
        return;
    list.remove(index);
    if (list.nextLive(0) == list.entries.size())
        _lists.erase(found); // a walk under way holds the list itself
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
    struct Walk {
        explicit Walk(HandlerList& walked)
            : _list(walked)
        {
            ++_list.walks;
        }
        ~Walk()
        {
            --_list.walks;
            _list.purge();
        }
        HandlerList& _list;
    } walk(*list);

    for (std::size_t i = list->nextLive(0); i < list->entries.size();) {
        // Looked up before the call: what the last handler adds has to wait for the next event.
        const std::size_t next = list->nextLive(i + 1);
        const bool isLast = next == list->entries.size();
        list->entries[i].callback(event);
        if (isLast)
            break;
        i = list->nextLive(next);
    }
}

void EventDispenser::clear() { _lists.clear(); }

} // namespace orvi
