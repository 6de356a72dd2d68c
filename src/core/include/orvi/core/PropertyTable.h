#pragma once
#include <orvi/core/Mutex.h>
#include <orvi/core/PropertyAttribute.h>
#include <orvi/core/PropertyConverter.h>
#include <orvi/core/String.h>
#include <orvi/core/Unknown.h>

#include <atomic>
#include <cstdlib>
#include <type_traits>
#include <typeinfo>

namespace orvi {

namespace property {

template <class T>
using Named = std::conditional_t<isHandle<T>, PointeeOf<T>, T>;

template <class T>
inline constexpr bool isComplete = requires
{
    sizeof(T);
};

/** Declared as one itself: a class that only inherits the declaration has no converter. */
template <class T>
inline constexpr bool isPropertyClass = requires
{
    requires std::is_base_of_v<Property, T>;
    requires std::is_same_v<decltype(T::createInstance()), Unknown::Handle_T<T>>;
};

template <class Class, class DirectBase>
const PropertyAttributes& attributesOfBase(const Class& object)
{
    constexpr bool isBase = std::is_convertible_v<Class*, DirectBase*> &&
                            std::is_base_of_v<Property, DirectBase> && !std::is_same_v<Class, DirectBase>;
    static_assert(
        isBase,
        "ORVI_DECLARE_PROPERTY(Class, Base): write the class's direct base there, which is Property or "
        "derived from it, and derive publicly");
    if constexpr (isBase) {
        const DirectBase& base = object;
        return base.DirectBase::getPropertyAttributes(); // not of the dynamic class
    }
}

} // namespace property

/** A data member of type T of the class C as a property. */
template <class C, class T>
class PropertyAttribute final : public IPropertyAttribute {
public:
    PropertyAttribute(const String& name, T C::*member, const String& description)
        : IPropertyAttribute(typeName(typeid(property::Named<T>)), typeName(typeid(C)) + L"::" + name, name,
                             description, !property::isHandle<T>)
        , _member(member)
    {}

    void set(Property* object, IPropertyConverter* converter, const JsonValue& value) override
    {
        auto* owner = dynamic_cast<C*>(object);
        if (owner == nullptr)
            property::refuseSet(*this, owner, converter);
        T& member = owner->*_member;
        if constexpr (property::isHandle<T>) {
            // The old object goes only when the new one stands, and stays when it does not.
            Unknown::Handle_T<Property> made;
            PropertyAttribute_set(this, reinterpret_cast<Void*>(&made), converter, value);
            T fresh = made;
            if (fresh.isNull() && !made.isNull())
                property::refuseType(*this, &member, converter);
            member = std::move(fresh);
        } else {
            PropertyAttribute_set(this, reinterpret_cast<Void*>(&member), converter, value);
        }
    }

    void get(const Property* object, IPropertyConverter* converter, JsonValue& value) override
    {
        const auto* owner = dynamic_cast<const C*>(object);
        if (owner == nullptr)
            property::refuseGet(*this, owner, converter);
        const T& member = owner->*_member;
        if constexpr (property::isHandle<T>) {
            const Unknown::Handle_T<Property> view = member;
            PropertyAttribute_get(this, reinterpret_cast<const Void*>(&view), converter, value);
        } else {
            PropertyAttribute_get(this, reinterpret_cast<const Void*>(&member), converter, value);
        }
    }

private:
    T C::*_member;
};

/** What ORVI_DEFINE_PROPERTY fills with the properties of the class C. */
template <class C>
class PropertyTable {
public:
    explicit PropertyTable(PropertyAttributes& attributes)
        : _attributes(attributes)
    {}

    /** Adds a data member of C, or of a base of it, under a JSON key:

            table.add(L"radius", &Circle::_radius, L"in millimetres");  */
    template <class Key, class Member>
    void add(const Key& key, Member member, const wchar_t* description = L"")
    {
        static_assert(std::is_convertible_v<const Key&, const wchar_t*>,
                      "the key of a property is wide text: write L\"key\"");
        static_assert(std::is_member_object_pointer_v<Member>,
                      "a property is the address of a data member: write &Class::member");
        if constexpr (std::is_convertible_v<const Key&, const wchar_t*> &&
                      std::is_member_object_pointer_v<Member>)
            addMember(key, member, description);
    }

private:
    template <class Owner, class T>
    void addMember(const wchar_t* key, T Owner::*member, const wchar_t* description)
    {
        constexpr bool isOwn = std::is_convertible_v<T Owner::*, T C::*>;
        static_assert(
            isOwn, "this member belongs to another class: a table lists members of its own class and of its "
                   "bases, virtual ones excepted");
        if constexpr (isOwn && checkType<T>()) {
            const Unknown::Handle_T<IPropertyAttribute> attribute =
                new PropertyAttribute<C, T>(key, member, description);
            PropertyAttributeHelper::registerPropertyAttribute(_attributes, attribute);
        }
    }

    template <class T>
    static constexpr bool checkType()
    {
        if constexpr (property::isHandle<T>)
            return checkPointee<property::PointeeOf<T>>();
        else if constexpr (property::isCollection<T>)
            return checkElement<property::ElementOf<T>>();
        else
            return checkValue<T>();
    }

    template <class T>
    static constexpr bool checkValue()
    {
        static_assert(!std::is_pointer_v<T>,
                      "a plain pointer has no owner: write Handle_T<Class> for a nested object");
        static_assert(!std::is_const_v<T>, "a property is read from documents: its member cannot be const");
        static_assert(!std::is_same_v<T, unsigned long long>,
                      "unsigned long long has no JSON form: write unsigned long, which has 64 bits");
        constexpr bool isRefused =
            std::is_pointer_v<T> || std::is_const_v<T> || std::is_same_v<T, unsigned long long>;
        static_assert(
            isRefused || hasPropertyForm<T>,
            "this member's type has no JSON form: take one of those in PropertyConverter.h, or write "
            "convertPropertyToClass and convertPropertyToJson for it and register it with "
            "PropertyConverters");
        return !isRefused && hasPropertyForm<T>;
    }

    template <class T>
    static constexpr bool checkElement()
    {
        static_assert(!std::is_pointer_v<T>,
                      "a collection of pointers owns nothing: write std::vector<Handle_T<Class>>");
        if constexpr (!std::is_pointer_v<T>)
            return checkType<T>();
        else
            return false;
    }

    template <class T>
    static constexpr bool checkPointee()
    {
        static_assert(property::isComplete<T>,
                      "the class of this handle is only declared here: include its header");
        if constexpr (property::isComplete<T>) {
            constexpr bool isProperty = property::isPropertyClass<T>;
            static_assert(isProperty,
                          "this handle's class is no property class: derive it from Property and give it "
                          "ORVI_DECLARE_PROPERTY; a handle to an abstract class is a Handle_T<Property>");
            return isProperty;
        } else {
            return false;
        }
    }

    PropertyAttributes& _attributes;
};

namespace property {

template <class C>
void fill(PropertyAttributes& attributes, void (*list)(PropertyTable<C>&))
{
    static_assert(!std::is_abstract_v<C>,
                  "a property class makes objects of itself when a document names it: this one is "
                  "abstract, leave ORVI_DECLARE_PROPERTY to the classes derived from it");
    PropertyTable<C> table(attributes);
    list(table);
}

} // namespace property

} // namespace orvi

/** Declares, in the body of a class derived from Property, a registered class (see ORVI_DECLARE_CLASS) with
    properties. `Base`, the last argument, is its direct base. The class needs a default constructor.
    ORVI_DEFINE_PROPERTY completes it. What follows in the class is private.

        class Circle : public Shape {
            ORVI_DECLARE_PROPERTY(Circle, Shape);
            float _radius = 0;
        };

        ORVI_DEFINE_PROPERTY(Circle) // in one source; no semicolon
        {
            table.add(L"radius", &Circle::_radius, L"in millimetres");
        }

    The first expands to

        ORVI_DECLARE_CLASS(Circle);
        public:
            using PropertyBase_ = Shape;
            static Handle_T<Circle> createInstance();
            ... overrides of getPropertyAttributes and getPropertyType
            static const String g_propertyType;                // the class name
        private:
            static PropertyAttributes& g_propertyAttributes_;  // its own properties, later also the inherited ones
            static Mutex g_classProperties_mutex_;             // for adding those
            static std::atomic<int> g_classProperties_flag_;   // 1 once that is done
            static const bool g_registerProperty_;             // what registerProperty_, run at load, gives
            static bool registerProperty_();                   // lists the properties; false without memory: on first use
            static void listProperties_(PropertyTable<Circle>& table);
            static void fillProperties_(PropertyAttributes& attributes); // by that list
            static PropertyAttributes& propertyAttributes_();  // g_propertyAttributes_, made on first use
            static const PropertyConverters<Circle> g_propertyConverters_; // of Circle, vectors and lists of it
            static const bool g_propertyExit_;                 // whether they leave with the module: else they did not join  */
#define ORVI_DECLARE_PROPERTY(Class, ...)                                                                 \
    ORVI_DECLARE_CLASS(Class);                                                                            \
                                                                                                          \
public:                                                                                                   \
    using PropertyBase_ = __VA_ARGS__;                                                                    \
    static ::orvi::Unknown::Handle_T<Class> createInstance();                                             \
    const ::orvi::PropertyAttributes& getPropertyAttributes() const override                              \
    {                                                                                                     \
        if (g_classProperties_flag_.load(std::memory_order_acquire) == 0)                                 \
            ::orvi::property::mergeOnce(propertyAttributes_(), fillProperties_, g_classProperties_mutex_, \
                                        g_classProperties_flag_,                                          \
                                        ::orvi::property::attributesOfBase<Class, __VA_ARGS__>(*this));   \
        return propertyAttributes_();                                                                     \
    }                                                                                                     \
    const ::orvi::String& getPropertyType() const override { return getClassName_(); }                    \
    ORVI_DECLARE_PROPERTY_TABLE(Class)

/** The part of ORVI_DECLARE_PROPERTY that Property itself uses too. */
#define ORVI_DECLARE_PROPERTY_TABLE(Class)                                \
public:                                                                   \
    static const ::orvi::String g_propertyType;                           \
                                                                          \
private:                                                                  \
    static ::orvi::PropertyAttributes& g_propertyAttributes_;             \
    static ::orvi::Mutex g_classProperties_mutex_;                        \
    static std::atomic<int> g_classProperties_flag_;                      \
    static const bool g_registerProperty_;                                \
    static bool registerProperty_();                                      \
    static void listProperties_(::orvi::PropertyTable<Class>& table);     \
    static void fillProperties_(::orvi::PropertyAttributes& attributes);  \
    static ::orvi::PropertyAttributes& propertyAttributes_();             \
    static const ::orvi::PropertyConverters<Class> g_propertyConverters_; \
    static const bool g_propertyExit_

/** Completes ORVI_DECLARE_PROPERTY in one source, as ORVI_DEFINE_CLASS does, and begins the function that lists
    the properties: write its body behind, `{}` when there are none. */
#define ORVI_DEFINE_PROPERTY(Class)                                                                \
    ORVI_DEFINE_CLASS(Class);                                                                      \
    ::orvi::PropertyAttributes& Class::propertyAttributes_()                                       \
    {                                                                                              \
        static ::orvi::PropertyAttributes                                                          \
            attributes_; /* may be asked before g_propertyAttributes_ has had its turn */          \
        return attributes_;                                                                        \
    }                                                                                              \
    void Class::fillProperties_(::orvi::PropertyAttributes& attributes)                            \
    {                                                                                              \
        ::orvi::property::fill<Class>(attributes, listProperties_);                                \
    }                                                                                              \
    bool Class::registerProperty_()                                                                \
    {                                                                                              \
        return ::orvi::property::fillAtLoad(propertyAttributes_(), fillProperties_,                \
                                            g_classProperties_mutex_);                             \
    }                                                                                              \
    ::orvi::Unknown::Handle_T<Class> Class::createInstance() { return new Class; }                 \
    const ::orvi::String Class::g_propertyType = ::orvi::classNameAtLoad(getClassName_);           \
    ::orvi::PropertyAttributes& Class::g_propertyAttributes_ = propertyAttributes_();              \
    constinit ::orvi::Mutex Class::g_classProperties_mutex_;                                       \
    constinit std::atomic<int> Class::g_classProperties_flag_ = 0;                                 \
    const bool Class::g_registerProperty_ = registerProperty_();                                   \
    const ::orvi::PropertyConverters<Class> Class::g_propertyConverters_(g_propertyType);          \
    const bool Class::g_propertyExit_ =                                                            \
        std::atexit([] { g_propertyConverters_.leave(); }) == 0 || g_propertyConverters_.refuse(); \
    void Class::listProperties_([[maybe_unused]] ::orvi::PropertyTable<Class>& table)
