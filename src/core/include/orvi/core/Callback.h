#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/String.h>
#include <orvi/core/Unknown.h>

#include <type_traits>

namespace orvi {

/** What a CallbackHandler holds: something to call that has an identity. */
template <class R, class A>
class CallbackBase : public virtual Unknown {
public:
    virtual R operator()(A argument) = 0;
    /** The target's addresses as text: equal for equal targets, within one process. */
    virtual String getKey() = 0;
};

/** Formats the addresses of a callback's target; `method` is null for a plain function. */
ORVI_API String makeCallbackKey(const void* target, const void* method, unsigned int methodSize);

/** A plain function. Its parameter type F may differ from A, as long as A converts to it. */
template <class R, class A, class F>
class CallbackFunction : public CallbackBase<R, A> {
public:
    explicit CallbackFunction(R (*function)(F)) noexcept
        : _function(function)
    {}

    R operator()(A argument) override { return _function(argument); }
    String getKey() override
    {
        if (_key.isEmpty())
            _key = makeCallbackKey(reinterpret_cast<const void*>(_function), nullptr, 0);
        return _key;
    }

private:
    R (*_function)(F);
    String _key;
};

/** A method of an object, which it borrows: remove the callback before the object goes. */
template <class R, class A, class C, class F>
class CallbackClassReference : public CallbackBase<R, A> {
public:
    CallbackClassReference(C* object, R (C::*method)(F)) noexcept
        : _object(object)
        , _method(method)
    {}

    R operator()(A argument) override { return (_object->*_method)(argument); }
    String getKey() override
    {
        if (_key.isEmpty())
            _key = makeCallbackKey(_object, &_method, sizeof _method);
        return _key;
    }

private:
    String _key;
    C* _object;
    R (C::*_method)(F);
};

/** A copyable callback on a function or a method, with one argument, that can be compared: two handlers are
    equal when they have the same function, or the same object and the same method. So a list can refuse a
    duplicate and find again what was added. Copies share the callback. Calling a null handler is an error
    that nothing checks.

        CallbackHandler<void, unsigned> handler(&clock, &Clock::advance);

    Two threads may not compare the same fresh handler at the same time: the key is made on first use. */
template <class R, class A>
class CallbackHandler {
public:
    CallbackHandler() noexcept = default;
    template <class F>
    CallbackHandler(R (*function)(F))
    {
        if (function != nullptr)
            _callback = new CallbackFunction<R, A, F>(function);
    }
    /** Takes a callback of a kind of its own. */
    explicit CallbackHandler(CallbackBase<R, A>* callback)
        : _callback(callback)
    {}
    /** The method may be one of a base of the object's class. */
    template <class Object, class C, class F>
    CallbackHandler(Object* object, R (C::*method)(F))
        : _callback(new CallbackClassReference<R, A, C, F>(object, method))
    {
        static_assert(std::is_base_of_v<C, Object>,
                      "the method must belong to the object's class or a base of it");
    }

    R operator()(A argument) const { return (*_callback)(argument); }

    bool isNull() const noexcept { return _callback.isNull(); }
    void setNull() noexcept { _callback.setNull(); }

    friend bool operator==(const CallbackHandler& a, const CallbackHandler& b)
    {
        return static_cast<CallbackBase<R, A>*>(a._callback) ==
                   static_cast<CallbackBase<R, A>*>(b._callback) ||
               a.key() == b.key();
    }
    friend bool operator!=(const CallbackHandler& a, const CallbackHandler& b) { return !(a == b); }
    friend bool operator<(const CallbackHandler& a, const CallbackHandler& b) { return a.key() < b.key(); }
    friend bool operator>(const CallbackHandler& a, const CallbackHandler& b) { return b.key() < a.key(); }

private:
    String key() const { return _callback.isNull() ? String() : _callback->getKey(); }

    Unknown::Handle_T<CallbackBase<R, A>> _callback;
};

} // namespace orvi
