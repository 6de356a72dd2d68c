#pragma once
#include <orvi/core/Callback.h>
#include <orvi/core/Export.h>
#include <orvi/core/Unknown.h>

#include <map>

namespace orvi {

/** The base of events. A concrete event is a registered class of its own, and its class id is what handlers
    ask for. */
class ORVI_API Event : public Unknown {
    ORVI_DECLARE_CLASS(Event);

public:
    static Unknown::Handle_T<Event> createInstance();

protected:
    Event() = default;
    ~Event() override = default;
};

/** A callback and the class of events that it wants. */
class ORVI_API EventHandler {
public:
    using Callback = CallbackHandler<void, const Event*>;

    EventHandler() = default;
    EventHandler(unsigned int classId, const Callback& callback)
        : _classId(classId)
        , _callback(callback)
    {}

    /** A handler for the events of class E: a function, or a method of an object, taking `const Event*`.

            dispenser += EventHandler::of<DoorOpened>(&house, &House::onDoorOpened);  */
    template <class E, class... Target>
    static EventHandler of(Target... target)
    {
        static_assert(std::is_base_of_v<Event, E>,
                      "name a class derived from orvi::Event: EventHandler::of<MyEvent>(...)");
        return EventHandler(E::getClassId_(), Callback(target...));
    }

    const unsigned int& getClassId() const noexcept { return _classId; }
    const Callback& getCallbackHandler() const noexcept { return _callback; }
    void operator()(const Event* event) const { _callback(event); }
    bool isNull() const noexcept { return _callback.isNull(); }
    void setNull() noexcept { _callback.setNull(); }

    friend bool operator==(const EventHandler& a, const EventHandler& b)
    {
        return a._classId == b._classId && a._callback == b._callback;
    }
    friend bool operator!=(const EventHandler& a, const EventHandler& b) { return !(a == b); }
    friend bool operator<(const EventHandler& a, const EventHandler& b)
    {
        return a._classId != b._classId ? a._classId < b._classId : a._callback < b._callback;
    }
    friend bool operator>(const EventHandler& a, const EventHandler& b) { return b < a; }
    friend bool operator<=(const EventHandler& a, const EventHandler& b) { return !(b < a); }
    friend bool operator>=(const EventHandler& a, const EventHandler& b) { return !(a < b); }

private:
    unsigned int _classId = 0;
    Callback _callback;
};

/** Hands events to the handlers of their exact class: at once, on the caller's thread, in the order of
    registration. To add or remove a handler takes the same short time, however many there are.

    During sendEvent a handler may remove itself or others and add some: a removed one is not called any more,
    one added by a handler that is not the last is called in that walk. Copies share the lists of the classes
    that they hold at that moment. No lock: a dispenser and its copies are for one thread at a time. */
class ORVI_API EventDispenser {
public:
    EventDispenser() = default;

    /** Adds the handler unless an equal one is there; always true. */
    bool addEventHandler(const EventHandler& handler);
    void removeEventHandler(const EventHandler& handler);
    EventDispenser& operator+=(const EventHandler& handler);
    EventDispenser& operator-=(const EventHandler& handler);

    /** What a handler throws ends the walk and passes to the caller. */
    void sendEvent(const Event* event);

    void clear();

private:
    class HandlerList;
    std::map<unsigned int, SharedPtr<HandlerList>> _lists;
};

} // namespace orvi
