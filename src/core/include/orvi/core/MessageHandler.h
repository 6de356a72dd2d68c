#pragma once
#include <orvi/core/Callback.h>
#include <orvi/core/Export.h>
#include <orvi/core/Message.h>
#include <orvi/core/Unknown.h>

#include <concepts>
#include <type_traits>
#include <typeinfo>

namespace orvi {

/** How the handlers of a client become callbacks on a Message; not for callers. */
namespace messaging {

/** The result and the parameter of what can be called with one argument. */
template <class F>
struct Signature {
    using Result = void;
    using Parameter = void; // of what is no handler
};
template <class R, class P>
struct SignatureOf {
    using Result = R;
    using Parameter = P;
};
template <class R, class P>
struct Signature<R (*)(P)> : SignatureOf<R, P> {};
template <class R, class P>
struct Signature<R (*)(P) noexcept> : SignatureOf<R, P> {};
template <class R, class C, class P>
struct Signature<R (C::*)(P)> : SignatureOf<R, P> {};
template <class R, class C, class P>
struct Signature<R (C::*)(P) noexcept> : SignatureOf<R, P> {};
template <class R, class C, class P>
struct Signature<R (C::*)(P) const> : SignatureOf<R, P> {};
template <class R, class C, class P>
struct Signature<R (C::*)(P) const noexcept> : SignatureOf<R, P> {};
template <class F>
requires requires { &F::operator(); }
struct Signature<F> : Signature<decltype(&F::operator())> {};

/** The class in `M*`, `const M*`, `M&` or `const M&`; void for any other parameter. */
template <class P>
struct ClassIn {
    using Type = void;
};
template <class M>
requires std::is_class_v<M>
struct ClassIn<M*> {
    using Type = std::remove_const_t<M>;
};
template <class M>
requires std::is_class_v<M>
struct ClassIn<M&> {
    using Type = std::remove_const_t<M>;
};

/** Declared as a class itself, not only derived from one that is. */
template <class M>
constexpr bool isDeclared()
{
    constexpr bool isOwn = property::isPropertyClass<M>;
    static_assert(
        isOwn,
        "the class of this handler's message is not declared: give it ORVI_DECLARE_MESSAGE(Class, Base)");
    return isOwn;
}

template <auto function>
struct Function {
}; // to compare functions at compile time: not every setting of every compiler takes `!=` for that

/** With a createMessage_ that is not that of its base. */
template <class M>
constexpr bool hasCreator()
{
    if constexpr (std::is_same_v<M, Message>)
        return true;
    else if constexpr (!std::is_base_of_v<Message, typename M::PropertyBase_>)
        return false;
    else
        return !std::is_same_v<Function<&M::createMessage_>, Function<&M::PropertyBase_::createMessage_>>;
}

/** What a handler is for. A mistake in it gets a word to the compiler's user, and counts as a handler of plain
    Messages to spare them the rest. */
template <class F>
struct HandledBy {
    using Parameter = typename Signature<F>::Parameter;
    using Found = typename ClassIn<Parameter>::Type;

    static constexpr bool isUnary = !std::is_void_v<Parameter>;
    static_assert(isUnary,
                  "this is no message handler: give a function, an object and its method, or a lambda, "
                  "that takes one message, as in void onGreeting(Greeting* greeting)");
    static constexpr bool isKnown()
    {
        constexpr bool isClass = !std::is_void_v<Found>;
        constexpr bool isWhole = !isClass || property::isComplete<Found>;
        static_assert(isWhole,
                      "the class of this handler's message is only declared here: include its header");
        if constexpr (isClass && isWhole) {
            constexpr bool isMessage = std::is_base_of_v<Message, Found>;
            static_assert(
                isMessage,
                "a message handler takes a pointer or a reference to a class derived from orvi::Message");
            if constexpr (isMessage)
                return isDeclared<Found>();
            else
                return false;
        } else {
            static_assert(
                !isUnary || isClass,
                "a message handler takes a pointer or a reference to a class derived from orvi::Message");
            return false;
        }
    }
    static constexpr bool isGood = isKnown();
    using Class = std::conditional_t<isGood, Found, Message>;
};

/** Reports a message that has the id of the handler's class and is none. */
[[noreturn]] ORVI_API void refuseClass(const Message& message, const std::type_info& wanted);

template <class M>
M* castTo(Message* message)
{
    if constexpr (requires { static_cast<M*>(message); }) {
        if (typeid(*message) == typeid(M))
            return static_cast<M*>(message);
    }
    M* object = dynamic_cast<M*>(message);
    if (object == nullptr)
        refuseClass(*message, typeid(M));
    return object;
}

template <class P>
P argumentFor(Message* message)
{
    auto* object = castTo<typename ClassIn<P>::Type>(message);
    if constexpr (std::is_pointer_v<P>)
        return object;
    else
        return *object;
}

/** A function that takes a message of its class. */
template <class R, class P>
class FunctionCallback final : public CallbackBase<R, Message*> {
public:
    explicit FunctionCallback(R (*function)(P)) noexcept
        : _function(function)
    {}

    R operator()(Message* message) override { return _function(argumentFor<P>(message)); }
    String getKey() override { return getAddress().getKey(); }
    CallbackAddress getAddress() const override
    {
        return CallbackAddress(reinterpret_cast<const void*>(_function));
    }

private:
    R (*_function)(P);
};

/** A method of an object, which it borrows. */
template <class R, class Object, class Method>
class MethodCallback final : public CallbackBase<R, Message*> {
public:
    MethodCallback(Object* object, Method method) noexcept
        : _object(object)
        , _method(method)
    {}

    R operator()(Message* message) override
    {
        return (_object->*_method)(argumentFor<typename Signature<Method>::Parameter>(message));
    }
    String getKey() override { return getAddress().getKey(); }
    CallbackAddress getAddress() const override { return {_object, &_method, sizeof _method}; }

private:
    Object* _object;
    Method _method;
};

template <class R>
using Callback = CallbackHandler<R, Message*>;

template <class R, class F>
constexpr bool hasResult()
{
    constexpr bool isSame = std::is_same_v<R, typename Signature<F>::Result>;
    static_assert(isSame,
                  "this handler's result is not that of the table: a MessageParser and a port take handlers "
                  "that return void");
    return isSame;
}

template <class R, class F>
Callback<R> makeCallback(F function)
{
    if constexpr (HandledBy<F>::isGood && hasResult<R, F>()) {
        using P = typename HandledBy<F>::Parameter;
        using Plain = R (*)(P);
        constexpr bool isPlain = std::is_convertible_v<F, Plain>;
        static_assert(isPlain,
                      "a lambda that captures cannot be found again in a table: give an object and its "
                      "method, or a lambda without captures");
        if constexpr (isPlain) {
            const Plain plain = function;
            return plain != nullptr ? Callback<R>(new FunctionCallback<R, P>(plain)) : Callback<R>();
        }
    }
    return {};
}

template <class R, class Object, class Method>
Callback<R> makeCallback(Object* object, Method method)
{
    if constexpr (HandledBy<Method>::isGood && hasResult<R, Method>()) {
        using P = typename HandledBy<Method>::Parameter;
        constexpr bool isCallable = std::is_invocable_v<Method, Object*, P>;
        static_assert(isCallable,
                      "this is no method of the object's class or of a base of it, or it changes an "
                      "object that is const");
        if constexpr (isCallable)
            return Callback<R>(new MethodCallback<R, Object, Method>(object, method));
    }
    return {};
}

} // namespace messaging

/** A callback and the class of messages that it is for, which is exactly the class of its parameter: a pointer or
    a reference to it, const or not.

        MessageHandler<void>(onGreeting)                        // void onGreeting(Greeting* greeting)
        MessageHandler<void>(&room, &Room::onGreeting)          // void Room::onGreeting(const Greeting& greeting)
        MessageHandler<void>([](Greeting* greeting) { ... })    // a lambda without captures

    An object is borrowed: take its handlers out before it goes. The message lives as long as the call, unless the
    handler keeps a handle on it. */
template <class R>
class MessageHandler {
public:
    using Callback = CallbackHandler<R, Message*>;

    MessageHandler() = default;
    MessageHandler(unsigned int classId, const Callback& callback)
        : _classId(classId)
        , _callback(callback)
    {}
    template <class F>
    requires(!std::derived_from<F, MessageHandler>) MessageHandler(F function)
        : _classId(messaging::HandledBy<F>::Class::getClassId_())
        , _callback(messaging::makeCallback<R>(function))
    {}
    template <class Object, class Method>
    requires std::is_member_function_pointer_v<Method> MessageHandler(Object* object, Method method)
        : _classId(messaging::HandledBy<Method>::Class::getClassId_())
        , _callback(messaging::makeCallback<R>(object, method))
    {}

    unsigned int getClassId() const noexcept { return _classId; }
    const Callback& getCallbackHandler() const noexcept { return _callback; }
    R operator()(Message* message) const
    {
        const Callback called = _callback; // which may take this handler out of its table and destroy it
        return called(message);
    }
    /** Without a callback; must not be called. */
    bool isNull() const noexcept { return _callback.isNull(); }

    friend bool operator==(const MessageHandler& a, const MessageHandler& b)
    {
        return a._classId == b._classId && a._callback == b._callback;
    }

private:
    unsigned int _classId = 0;
    Callback _callback;
};

} // namespace orvi
