#pragma once
#include <orvi/core/Callback.h>
#include <orvi/core/Export.h>
#include <orvi/core/MessageHandler.h>
#include <orvi/core/Stream.h>

#include <concepts>
#include <map>
#include <type_traits>

namespace orvi {

/** What makes a message of one class out of a stream and hands it to a callback: a value, made of a handler as a
    MessageHandler is.

        reader += onGreeting; // void onGreeting(Greeting* greeting)  */
class ORVI_API MessageParser {
public:
    using Creator = Unknown::Handle_T<Message> (*)();
    using Callback = CallbackHandler<void, Message*>;

    MessageParser() = default;
    MessageParser(unsigned int classId, Creator creator, const Callback& callback)
        : _classId(classId)
        , _creator(creator)
        , _callback(callback)
    {}
    template <class F>
    requires(!std::derived_from<F, MessageParser>) MessageParser(F function)
        : MessageParser(
              makeParser<typename messaging::HandledBy<F>::Class>(messaging::makeCallback<void>(function)))
    {}
    template <class Object, class Method>
    requires std::is_member_function_pointer_v<Method> MessageParser(Object* object, Method method)
        : MessageParser(makeParser<typename messaging::HandledBy<Method>::Class>(
              messaging::makeCallback<void>(object, method)))
    {}

    unsigned int getClassId() const noexcept { return _classId; }
    Creator getCreator() const noexcept { return _creator; }
    const Callback& getCallbackHandler() const noexcept { return _callback; }
    /** Without a creator or a callback. */
    bool isNull() const noexcept { return _creator == nullptr || _callback.isNull(); }

    /** Makes a message, lets it read itself by importFrom and calls the callback. What these throw passes through;
        throws Exception when the parser is null. */
    void parser(InputStream& stream) const;

    friend bool operator==(const MessageParser& a, const MessageParser& b)
    {
        return a._classId == b._classId && a._creator == b._creator && a._callback == b._callback;
    }

private:
    template <class M>
    static MessageParser makeParser(const Callback& callback)
    {
        static_assert(
            messaging::hasCreator<M>(),
            "nothing says how to make a message of this class: give it ORVI_DECLARE_MESSAGE(Class, Base), "
            "or a static createMessage_() of its own");
        return MessageParser(M::getClassId_(), &M::createMessage_, callback);
    }

    unsigned int _classId = 0;
    Creator _creator = nullptr;
    Callback _callback;
};

/** Takes a stream of messages apart. Each is a package: its class id in four bytes, little-endian, and its body,
    without a length. Such a package is written by

        stream << message->getClassId();
        message->exportTo(stream);

    A package of unknown class cannot be skipped, and only whole packages can be read. One thread at a time. */
class ORVI_API MessageReader {
public:
    /** A package whose id has been read. */
    struct MessagePackage {
        unsigned int classId;
        InputStream& stream; // stands at the first byte of the body
    };
    /** Reads the body of a package that no parser is for; true when that is done. */
    using UnknownPackageHandler = CallbackHandler<bool, const MessagePackage&>;

    /** Sets the parser of its class, in place of a former one; always true. */
    bool installMessageParser(const MessageParser& parser);
    MessageReader& operator+=(const MessageParser& parser);
    /** Takes out the parser of a class, if there is one. */
    void uninstallMessageParser(unsigned int classId);
    /** That of the given parser's class, whatever else it is. */
    void uninstallMessageParser(const MessageParser& parser);
    MessageReader& operator-=(const MessageParser& parser);
    /** Takes out all parsers and the handler of unknown packages. */
    void clearMessageParser();

    /** The parser of a class; the null parser when there is none. */
    const MessageParser& getMessageParser(const unsigned int& classId) const;
    int getMessageParserCount() const { return static_cast<int>(_parsers.size()); }

    /** A null handler switches it off. */
    void setUnknownPackageHandler(const UnknownPackageHandler& handler) { _unknownPackageHandler = handler; }
    const UnknownPackageHandler& getUnknownPackageHandler() const noexcept { return _unknownPackageHandler; }

    /** Reads all packages that are there and calls their parsers. False at one that neither a parser nor the
        handler took, with its id and the call stack in the log, and its body unread. Throws Exception at an id
        that is cut short, and lets through what importFrom and the callbacks throw. */
    bool analyse(InputStream& stream);
    /** The same for the one package. */
    bool analyse(const MessagePackage& package);

    /** Takes one message off the stream, of any class that is registered. Null, with the reason in the log, when
        there is none or it cannot be read. */
    static Unknown::Handle_T<Message> pop(InputStream& stream);

private:
    std::map<unsigned int, MessageParser> _parsers;
    MessageParser _nullParser;
    UnknownPackageHandler _unknownPackageHandler;
};

} // namespace orvi
