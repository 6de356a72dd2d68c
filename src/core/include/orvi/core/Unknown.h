#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/String.h>

#include <atomic>
#include <cstdlib>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

namespace orvi {

class InputStream;
class OutputStream;

/** The root of every long-lived object: a reference count, a class identity, and a way onto a byte stream.

    Objects are made by static `createInstance` operations that return a handle, and die with their last
    handle; nobody deletes one. A raw pointer argument is borrowed for the call. Constructors are protected or
    private, and must not let a handle on `this` run out of scope. Where several bases meet, derive virtually.

    The count is atomic: handles on one object may be copied and dropped in any thread. */
class ORVI_API Unknown {
public:
    template <class T>
    class Handle_T;
    class ClassType;
    class RtFactory;

    /** The time stamp of the build, as "Mon Jun 27 09:58:45 2022": the same for all classes of one build. */
    virtual const wchar_t* getClassTimestamp() const;
    /** The plain class name, without a namespace. It goes with the static objects of the class's module. */
    virtual const String& getClassName() const;
    /** The id computed from the class name (ClassType tells how): what streams carry. */
    virtual unsigned int getClassId() const;
    /** A new default-constructed object of the dynamic class. */
    virtual Handle_T<Unknown> rtCreateInstance() const;

protected:
    virtual ~Unknown();

public:
    /** Reads the object's state; throws Exception when the stream fails. Here: nothing. */
    virtual void importFrom(InputStream& stream);
    /** Writes the object's state; throws Exception when the stream fails. Here: nothing. */
    virtual void exportTo(OutputStream& stream) const;

    /** A snapshot: other threads may change the count at once. */
    unsigned int getReferenceCount() const noexcept { return _references.load(); }
    ClassType getClassType() const;

    /** A deep copy through exportTo and importFrom. A null handle, with the reason in the log, when one of
        them fails or when the dynamic class has no rtCreateInstance of its own. */
    Handle_T<Unknown> clone() const;

    static const String& getClassName_();
    static unsigned int getClassId_() { return g_classId_; }
    static const String g_className_;
    static const unsigned int g_classId_;
    static const bool g_setUpCreator_; // whether the registry took the class

protected:
    Unknown() noexcept = default;
    // A copy is a new object: it starts without handles, and assignment leaves both counts alone.
    Unknown(const Unknown&) noexcept {}
    Unknown& operator=(const Unknown&) noexcept { return *this; }

private:
    static Handle_T<Unknown> rtCreateInstance_();

    void addRef() const noexcept { _references.fetch_add(1); }
    void release() const noexcept
    {
        const unsigned int before = _references.fetch_sub(1);
        if (before <= 1)
            lastRelease(before);
    }
    void lastRelease(unsigned int before) const noexcept;

    mutable std::atomic<unsigned int> _references = 0;
};

/** The owner of an object: one pointer that counts. May be null; nothing checks that on access.

    A handle of another class converts: up the class tree at no cost, down or sideways by a checked cast that
    gives a null handle when it fails. Comparison is that of the pointers. One handle variable is for one
    thread at a time. */
template <class T>
class Unknown::Handle_T {
public:
    Handle_T() noexcept = default;
    Handle_T(T* object) noexcept
        : _object(object)
    {
        addRef(_object);
    }
    Handle_T(const Handle_T& other) noexcept
        : Handle_T(other._object)
    {}
    Handle_T(Handle_T&& other) noexcept
        : _object(std::exchange(other._object, nullptr))
    {}
    template <class U>
    Handle_T(const Handle_T<U>& other) noexcept
        : Handle_T(cast(static_cast<U*>(other)))
    {}
    ~Handle_T() { release(_object); }

    // The new object is held before the old one goes: the old one may hold the handle that is assigned.
    Handle_T& operator=(const Handle_T& other) noexcept { return *this = other._object; }
    Handle_T& operator=(Handle_T&& other) noexcept
    {
        Handle_T(std::move(other)).swap(*this);
        return *this;
    }
    Handle_T& operator=(T* object) noexcept
    {
        Handle_T(object).swap(*this);
        return *this;
    }
    template <class U>
    Handle_T& operator=(const Handle_T<U>& other) noexcept
    {
        Handle_T(other).swap(*this);
        return *this;
    }

    T* operator->() const noexcept { return _object; }
    T& operator*() const noexcept { return *_object; }
    operator T*() const noexcept { return _object; }

    bool isNull() const noexcept { return _object == nullptr; }
    void setNull() noexcept { Handle_T().swap(*this); }

private:
    void swap(Handle_T& other) noexcept { std::swap(_object, other._object); }

    static void addRef(const Unknown* object) noexcept
    {
        if (object != nullptr)
            object->addRef();
    }
    static void release(const Unknown* object) noexcept
    {
        if (object != nullptr)
            object->release();
    }
    template <class U>
    static T* cast(U* object) noexcept
    {
        if constexpr (std::is_convertible_v<U*, T*>)
            return object;
        else
            return dynamic_cast<T*>(object);
    }

    T* _object = nullptr;
};

template <class T>
using Handle_T = Unknown::Handle_T<T>;

/** Shared ownership of an object that is no Unknown. The object goes with the last SharedPtr on it. */
template <class T>
class SharedPtr {
public:
    SharedPtr() noexcept = default;
    /** Takes the object over, which goes too where memory runs out here: it must come from `new` and have no owner
        yet. */
    SharedPtr(T* object)
        : _object(object)
        , _reference(own(object))
    {}
    template <class U>
    SharedPtr(const SharedPtr<U>&) = delete; // by way of the plain pointer it would get a second owner

    T* operator->() const noexcept { return _object; }
    T& operator*() const noexcept { return *_object; }
    operator T*() const noexcept { return _object; }
    T* get() const noexcept { return _object; }
    bool isNull() const noexcept { return _object == nullptr; }

private:
    class Reference : public Unknown {
    public:
        explicit Reference(T* object) noexcept
            : _owned(object)
        {}

    protected:
        ~Reference() override { delete _owned; }

    private:
        T* _owned;
    };

    static Reference* own(T* object)
    {
        if (object == nullptr)
            return nullptr;
        try {
            return new Reference(object);
        } catch (...) {
            delete object;
            throw;
        }
    }

    T* _object = nullptr;
    Unknown::Handle_T<Reference> _reference;
};

/** Stands for a value of unknown type where memory is handled by reference and offset. */
struct Void {};

/** The id of a class name: its UTF-8 bytes, each shifted by 5 * (index mod 6), summed modulo 2^32; 0 becomes
    0xFFFFFFFF. A format: it goes over wires. Byte by byte, for a name that does not lie in one piece. */
class ClassIdSum {
public:
    constexpr void add(char utf8Byte) noexcept
    {
        _sum += static_cast<unsigned int>(static_cast<unsigned char>(utf8Byte)) << (5 * (_count++ % 6));
    }
    constexpr unsigned int id() const noexcept { return _sum != 0 ? _sum : 0xFFFFFFFF; }

private:
    unsigned int _sum = 0;
    unsigned int _count = 0;
};

constexpr unsigned int computeClassId(const char* utf8Name)
{
    ClassIdSum sum;
    for (; *utf8Name != 0; ++utf8Name)
        sum.add(*utf8Name);
    return sum.id();
}

/** The identity of a class as a value: its name and its id. 0 is no class. */
class ORVI_API Unknown::ClassType {
public:
    ClassType() noexcept = default;
    ClassType(const Unknown* object) { setClass(object); }
    ClassType(unsigned int id) = delete; // an id does not tell the name: see RtFactory::createClassInstance
    /** Computes the id; the class need not be registered. */
    ClassType(const String& name);

    /** The dynamic class of `object`; null gives no class. */
    void setClass(const Unknown* object);

    const String& getClassName() const noexcept { return _name; }
    unsigned int getClassId() const noexcept { return _id; }
    /** A new object of the class; null when nobody registered the name. */
    Handle_T<Unknown> createInstance() const;

private:
    String _name;
    unsigned int _id = 0;
};

/** The process-wide table that turns a class name or id back into an object. Classes join it through
    ORVI_DEFINE_CLASS. Any thread; creators run without the lock, but for the sample that registration
    makes. */
class ORVI_API Unknown::RtFactory {
public:
    using Creator = Handle_T<Unknown> (*)();

    RtFactory() = delete;

    /** Registers the class of the objects that `creator` makes. False, with the reason in the log, when the
        name or the id is taken, and without memory; false without a word when this creator is registered already. */
    static bool setupCreator(Creator creator);
    /** Takes a class out; an unknown name is no error. */
    static void unsetupCreator(const String& name);
    /** A new object of the class; a null handle when it is not registered. */
    static Handle_T<Unknown> createClassInstance(const String& name);
    static Handle_T<Unknown> createClassInstance(unsigned int id);
    /** Fills `names` with all registered names, sorted. */
    static void getRtClassNames(std::vector<String>& names);
};

/** Registers a class for as long as its module is there: `hasExit` tells that the module's exit will call leave. What joins
    needs memory, and so does what is to be done at the exit: without either the class does not join. */
ORVI_API bool joinRegistry(bool hasExit, Unknown::RtFactory::Creator creator);
/** Takes the class out; in need of no memory. */
ORVI_API void leaveRegistry(Unknown::RtFactory::Creator creator) noexcept;

/** The text as the name of a class; throws std::bad_alloc without memory. */
ORVI_API String className(const wchar_t* name);
/** What `getName` gives, or the empty text without memory: nothing may be thrown while a module is loaded. */
ORVI_API String classNameAtLoad(const String& (*getName)());

/** The name without the namespaces and classes that qualify it. */
template <class C>
constexpr const C* plainClassName(const C* name)
{
    const C* plain = name;
    for (; *name != 0; ++name) {
        if (*name == ':')
            plain = name + 1;
    }
    return plain;
}

/** The language's name of a type, readable where the compiler can make it so; throws std::bad_alloc without memory. */
ORVI_API String typeName(const std::type_info& type);

} // namespace orvi

/** Declares, in the body of a class with an Unknown base and a default constructor, what a registered class
    has. ORVI_DEFINE_CLASS completes it. What follows in the class is private. Expands to

        public:
            static const String g_className_;         // the plain name
            static const unsigned int g_classId_;     // computed from it
            static const bool g_setUpCreator_;        // whether the registry took the class
            static const String& getClassName_();
            static unsigned int getClassId_();
            ... overrides of getClassTimestamp, getClassName, getClassId, rtCreateInstance ...
        private:
            static Handle_T<Unknown> rtCreateInstance_();  */
#define ORVI_DECLARE_CLASS(Class)                                                   \
public:                                                                             \
    static const ::orvi::String g_className_;                                       \
    static const unsigned int g_classId_;                                           \
    static const bool g_setUpCreator_;                                              \
    static const ::orvi::String& getClassName_();                                   \
    static unsigned int getClassId_() { return g_classId_; }                        \
    const wchar_t* getClassTimestamp() const override;                              \
    const ::orvi::String& getClassName() const override { return getClassName_(); } \
    unsigned int getClassId() const override { return g_classId_; }                 \
    ::orvi::Unknown::Handle_T<::orvi::Unknown> rtCreateInstance() const override    \
    {                                                                               \
        return rtCreateInstance_();                                                 \
    }                                                                               \
                                                                                    \
private:                                                                            \
    static ::orvi::Unknown::Handle_T<::orvi::Unknown> rtCreateInstance_()

#ifndef ORVI_CLASS_TIMESTAMP
#define ORVI_CLASS_TIMESTAMP (L"" __TIMESTAMP__)
#endif

/** Completes ORVI_DECLARE_CLASS in one source: registers the class when the module is loaded and takes it out
    when the module goes. `Class` may be qualified, as in Outer::Inner; the registered name is the plain
    one. */
#define ORVI_DEFINE_CLASS(Class)                                                     \
    const wchar_t* Class::getClassTimestamp() const { return ORVI_CLASS_TIMESTAMP; } \
    ORVI_DEFINE_CLASS_IDENTITY(Class)

/** The part of ORVI_DEFINE_CLASS that Unknown itself uses too. */
#define ORVI_DEFINE_CLASS_IDENTITY(Class)                                                                    \
    const ::orvi::String& Class::getClassName_()                                                             \
    {                                                                                                        \
        static const ::orvi::String name = ::orvi::className(                                                \
            ::orvi::plainClassName(L## #Class)); /* may be asked before g_className_ has had its turn */     \
        return name;                                                                                         \
    }                                                                                                        \
    ::orvi::Unknown::Handle_T<::orvi::Unknown> Class::rtCreateInstance_() { return new Class; }              \
    const ::orvi::String Class::g_className_ = ::orvi::classNameAtLoad(getClassName_);                       \
    constinit const unsigned int Class::g_classId_ = ::orvi::computeClassId(::orvi::plainClassName(#Class)); \
    const bool Class::g_setUpCreator_ =                                                                      \
        ::orvi::joinRegistry(std::atexit([] {                                                                \
                                 if (g_setUpCreator_)                                                        \
                                     ::orvi::leaveRegistry(rtCreateInstance_);                               \
                             }) == 0,                                                                        \
                             rtCreateInstance_)
