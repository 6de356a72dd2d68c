#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/String.h>
#include <orvi/core/Unknown.h>

#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace orvi {

/** Where a callback leads: to a function, or to a method of an object. Compares as the keys that are made of
    it do, without making them. */
class ORVI_API CallbackAddress {
public:
    /** Leads nowhere that is known. */
    CallbackAddress() noexcept = default;
    explicit CallbackAddress(const void* function) noexcept
        : _target(reinterpret_cast<std::uintptr_t>(function))
        , _kind(Kind::Function)
    {}
    /** `method` points to a pointer to a method, of `methodSize` bytes. */
    CallbackAddress(const void* object, const void* method, unsigned int methodSize) noexcept
        : _target(reinterpret_cast<std::uintptr_t>(object))
        , _kind(Kind::Method)
    {
        std::uintptr_t words[2] = {};
        std::memcpy(words, method, methodSize < sizeof words ? methodSize : sizeof words);
        _method = words[0];
        _adjustment = words[1];
    }

    bool isKnown() const noexcept { return _kind != Kind::Unknown; }
    /** The addresses as text. Throws std::bad_alloc when that cannot be made: all such texts would be equal. */
    String getKey() const;
    std::size_t getHash() const noexcept;

    // NOLINTNEXTLINE(modernize-use-nullptr): it takes the 0 of an ordering for a pointer
    friend auto operator<=>(const CallbackAddress& a, const CallbackAddress& b) noexcept = default;

private:
    enum class Kind : unsigned char { Unknown, Function, Method };

    // In this order they compare as the texts do.
    std::uintptr_t _target = 0;
    Kind _kind = Kind::Unknown;
    std::uintptr_t _method = 0;
    std::uintptr_t _adjustment = 0; // of `this`: a pointer to a method is an address and this
};

/** What a CallbackHandler holds: something to call that has an identity. */
template <class R, class A>
class CallbackBase : public virtual Unknown {
public:
    virtual R operator()(A argument) = 0;
    /** The target's addresses as text: equal for equal targets, within one process. */
    virtual String getKey() = 0;
    /** The same as it stands, equal exactly when the keys are: a kind of callback that tells it is compared and
        found fast. Here it is unknown, and the key counts. */
    virtual CallbackAddress getAddress() const { return {}; }
};

/** Formats the addresses of a callback's target; `method` is null for a plain function. Throws std::bad_alloc
    when there is no memory for the text. */
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
            _key = getAddress().getKey();
        return _key;
    }
    CallbackAddress getAddress() const override
    {
        return CallbackAddress(reinterpret_cast<const void*>(_function));
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
            _key = getAddress().getKey();
        return _key;
    }
    CallbackAddress getAddress() const override { return {_object, &_method, sizeof _method}; }

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

    Two threads may compare the same handler at the same time if its callback tells its address, as those of
    this header do. */
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

    /** Unknown for the null handler, too. */
    CallbackAddress getAddress() const
    {
        return _callback.isNull() ? CallbackAddress() : _callback->getAddress();
    }

    friend bool operator==(const CallbackHandler& a, const CallbackHandler& b)
    {
        return static_cast<CallbackBase<R, A>*>(a._callback) ==
                   static_cast<CallbackBase<R, A>*>(b._callback) ||
               std::is_eq(compare(a, b));
    }
    friend bool operator!=(const CallbackHandler& a, const CallbackHandler& b) { return !(a == b); }
    /** By key: of no meaning, and for this process alone. */
    friend bool operator<(const CallbackHandler& a, const CallbackHandler& b)
    {
        return std::is_lt(compare(a, b));
    }
    friend bool operator>(const CallbackHandler& a, const CallbackHandler& b) { return b < a; }

private:
    static std::strong_ordering compare(const CallbackHandler& a, const CallbackHandler& b)
    {
        const CallbackAddress first = a.getAddress(), second = b.getAddress();
        if (first.isKnown() && second.isKnown())
            return first <=> second;
        return a.key().compare(b.key()) <=> 0;
    }
    String key() const { return _callback.isNull() ? String() : _callback->getKey(); }

    Unknown::Handle_T<CallbackBase<R, A>> _callback;
};

} // namespace orvi
