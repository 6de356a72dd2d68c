#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/MessageHandler.h>

#include <map>
#include <typeinfo>

namespace orvi {

namespace messaging {

[[noreturn]] ORVI_API void refuseMessage(const Message* message, const std::type_info& result);

} // namespace messaging

/** A table of handlers, at most one for a class of messages, which hands a message to that of its exact class.

        dispenser += onGreeting;
        dispenser += {&room, &Room::onFarewell};

    It has no lock. A handler may change the table that calls it. */
template <class R>
class MessageDispenser {
public:
    /** Sets the handler of its class, in place of a former one; always true. */
    bool installMessageHandler(const MessageHandler<R>& handler)
    {
        _handlers[handler.getClassId()] = handler;
        return true;
    }
    MessageDispenser& operator+=(const MessageHandler<R>& handler)
    {
        installMessageHandler(handler);
        return *this;
    }

    /** Takes out the handler of a class, if there is one. */
    void uninstallMessageHandler(unsigned int classId) { _handlers.erase(classId); }
    /** That of the given handler's class, whatever its callback. */
    void uninstallMessageHandler(const MessageHandler<R>& handler) { _handlers.erase(handler.getClassId()); }
    MessageDispenser& operator-=(const MessageHandler<R>& handler)
    {
        uninstallMessageHandler(handler);
        return *this;
    }
    void clearMessageHandler() { _handlers.clear(); }

    /** The handler of a class; the null handler when there is none. */
    const MessageHandler<R>& getMessageHandler(unsigned int classId) const
    {
        const auto found = _handlers.find(classId);
        return found != _handlers.end() ? found->second : _nullHandler;
    }
    int getMessageHandlerCount() const { return static_cast<int>(_handlers.size()); }

    /** Calls the handler of the message's dynamic class and gives its result. Throws Exception when there is none,
        and lets through what the handler throws. */
    R dispatchMessage(Message* message) const
    {
        const MessageHandler<R>& handler =
            message != nullptr ? getMessageHandler(message->getClassId()) : _nullHandler;
        if (handler.isNull())
            messaging::refuseMessage(message, typeid(R));
        return handler(message);
    }

private:
    std::map<unsigned int, MessageHandler<R>> _handlers;
    MessageHandler<R> _nullHandler;
};

} // namespace orvi
