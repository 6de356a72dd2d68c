#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/JsonValue.h>
#include <orvi/core/PropertyFactory.h>
#include <orvi/core/Unknown.h>

#include <concepts>
#include <cstddef>
#include <list>
#include <type_traits>
#include <vector>

namespace orvi {

class Buffer;
class Property;
class Time;
class TimeSpan;
class Varint;
class Varint64;
struct Quaternion;
struct Uuid;
struct Vector2;
struct Vector3;
struct Vector4;
struct uuid_node_t;
template <class T>
struct Point_T;
template <class T>
struct Rect_T;

// What a value looks like in JSON: one pair of functions for each type,
//
//     void convertPropertyToClass(const JsonValue& value, T& target);   // may throw Exception
//     void convertPropertyToJson(const T& source, JsonValue& value);
//
// Write such a pair in the namespace of a type of your own and register it with PropertyConverters, and it may be
// a property as well.

/** The numbers that have a form. `unsigned long` serves unsigned numbers of 64 bits. */
template <class T>
concept PropertyNumber =
    std::same_as<T, bool> || std::same_as<T, float> || std::same_as<T, double> || std::same_as<T, char> ||
    std::same_as<T, signed char> || std::same_as<T, unsigned char> || std::same_as<T, short> ||
    std::same_as<T, unsigned short> || std::same_as<T, int> || std::same_as<T, unsigned int> ||
    std::same_as<T, long> || std::same_as<T, unsigned long> || std::same_as<T, long long>;

/** Numbers are read as JsonValue converts: what does not fit is cut, and a line in the log. */
template <PropertyNumber T>
void convertPropertyToClass(const JsonValue& value, T& target)
{
    target = static_cast<T>(value);
}
template <PropertyNumber T>
void convertPropertyToJson(const T& source, JsonValue& value)
{
    value = JsonValue(source);
}

ORVI_API void convertPropertyToClass(const JsonValue& value, Varint& target);
ORVI_API void convertPropertyToJson(const Varint& source, JsonValue& value);
ORVI_API void convertPropertyToClass(const JsonValue& value, Varint64& target);
ORVI_API void convertPropertyToJson(const Varint64& source, JsonValue& value);
ORVI_API void convertPropertyToClass(const JsonValue& value, TimeSpan& target);
ORVI_API void convertPropertyToJson(const TimeSpan& source, JsonValue& value);
ORVI_API void convertPropertyToClass(const JsonValue& value, String& target);
ORVI_API void convertPropertyToJson(const String& source, JsonValue& value);

/** These four come from a string in their own form alone. For anything else they throw, with the target empty or
    zero. */
ORVI_API void convertPropertyToClass(const JsonValue& value, Buffer& target); // Base64
ORVI_API void convertPropertyToJson(const Buffer& source, JsonValue& value);
ORVI_API void convertPropertyToClass(const JsonValue& value, Time& target); // in local time
ORVI_API void convertPropertyToJson(const Time& source, JsonValue& value);
ORVI_API void convertPropertyToClass(const JsonValue& value, Uuid& target);
ORVI_API void convertPropertyToJson(const Uuid& source, JsonValue& value);
ORVI_API void convertPropertyToClass(const JsonValue& value, uuid_node_t& target);
ORVI_API void convertPropertyToJson(const uuid_node_t& source, JsonValue& value);

/** Objects with a member for each field; what is missing is 0. */
ORVI_API void convertPropertyToClass(const JsonValue& value, Point_T<int>& target);
ORVI_API void convertPropertyToJson(const Point_T<int>& source, JsonValue& value);
ORVI_API void convertPropertyToClass(const JsonValue& value, Point_T<float>& target);
ORVI_API void convertPropertyToJson(const Point_T<float>& source, JsonValue& value);
ORVI_API void convertPropertyToClass(const JsonValue& value, Rect_T<int>& target);
ORVI_API void convertPropertyToJson(const Rect_T<int>& source, JsonValue& value);
ORVI_API void convertPropertyToClass(const JsonValue& value, Rect_T<float>& target);
ORVI_API void convertPropertyToJson(const Rect_T<float>& source, JsonValue& value);
ORVI_API void convertPropertyToClass(const JsonValue& value, Vector2& target);
ORVI_API void convertPropertyToJson(const Vector2& source, JsonValue& value);
ORVI_API void convertPropertyToClass(const JsonValue& value, Vector3& target);
ORVI_API void convertPropertyToJson(const Vector3& source, JsonValue& value);
ORVI_API void convertPropertyToClass(const JsonValue& value, Vector4& target);
ORVI_API void convertPropertyToJson(const Vector4& source, JsonValue& value);
ORVI_API void convertPropertyToClass(const JsonValue& value, Quaternion& target);
ORVI_API void convertPropertyToJson(const Quaternion& source, JsonValue& value);

/** The untyped halves of what follows; not for callers. */
namespace property {

using Creator = Unknown::Handle_T<Property> (*)();

ORVI_API void setObject(Unknown::Handle_T<Property>& slot, const JsonValue& value, Creator create);
ORVI_API void getObject(const Property* object, JsonValue& value);
ORVI_API Unknown::Handle_T<Property> createObject(const JsonValue& value);

template <class T>
struct Pointee { // of a handle
    using Type = void;
};
template <class T>
struct Pointee<Unknown::Handle_T<T>> {
    using Type = T;
};
template <class T>
struct Element { // of a collection
    using Type = void;
};
template <class T>
struct Element<std::vector<T>> {
    using Type = T;
};
template <class T>
struct Element<std::list<T>> {
    using Type = T;
};
template <class T>
using PointeeOf = typename Pointee<T>::Type;
template <class T>
using ElementOf = typename Element<T>::Type;
template <class T>
inline constexpr bool isHandle = !std::is_void_v<PointeeOf<T>>;
template <class T>
inline constexpr bool isCollection = !std::is_void_v<ElementOf<T>>;

/** Of the class that a converter is about, which tells two builds of it apart. */
template <class T>
const wchar_t* timestampOf()
{
    if constexpr (isCollection<T>)
        return timestampOf<ElementOf<T>>();
    else if constexpr (isHandle<T>)
        return PointeeOf<T>::createInstance()->getClassTimestamp();
    else
        return nullptr;
}

} // namespace property

/** A handle inside a collection: the object is of the class that its document names. Without a name, or of a
    class that is no T, it is null. */
template <class T>
void convertPropertyToClass(const JsonValue& value, Unknown::Handle_T<T>& target)
{
    target = property::createObject(value);
}
template <class T>
void convertPropertyToJson(const Unknown::Handle_T<T>& source, JsonValue& value)
{
    property::getObject(source, value);
}

/** A collection is an array; what is none loads as empty. */
template <class T>
requires property::isCollection<T>
void convertPropertyToClass(const JsonValue& value, T& target)
{
    target.clear();
    if (!value.isArray())
        return;
    target.resize(static_cast<std::size_t>(value.size()));
    int index = 0;
    if constexpr (std::same_as<T, std::vector<bool>>) { // its elements are bits
        for (std::size_t i = 0; i < target.size(); ++i)
            target[i] = value[index++].asBool();
    } else {
        for (auto& element : target)
            convertPropertyToClass(value[index++], element);
    }
}
template <class T>
requires property::isCollection<T>
void convertPropertyToJson(const T& source, JsonValue& value)
{
    JsonValue array(JsonValue::arrayValue);
    int index = 0;
    for (const auto& element : source)
        convertPropertyToJson(static_cast<const property::ElementOf<T>&>(element), array[index++]);
    value.swap(array);
}

/** Whether values of the type have a form: a collection when its elements have one. */
template <class T>
inline constexpr bool hasPropertyForm = requires(const JsonValue& read, JsonValue& written, T& target)
{
    convertPropertyToClass(read, target);
    convertPropertyToJson(static_cast<const T&>(target), written);
};
template <class T>
requires property::isCollection<T>
inline constexpr bool hasPropertyForm<T> = hasPropertyForm<property::ElementOf<T>>;

/** The converter of plain values, and of vectors and lists of values or of handles. */
template <class T>
class PropertyConverterUnit final : public IPropertyConverter {
    static_assert(hasPropertyForm<T>,
                  "this type has no JSON form: write convertPropertyToClass(const JsonValue&, T&) and "
                  "convertPropertyToJson(const T&, JsonValue&) in its namespace");

public:
    explicit PropertyConverterUnit(const String& propertyType)
        : IPropertyConverter(typeName(typeid(T)), propertyType, true)
    {}

    void set(Void* target, const JsonValue& value) override
    {
        convertPropertyToClass(value, *reinterpret_cast<T*>(target));
    }
    void get(const Void* target, JsonValue& value) override
    {
        convertPropertyToJson(*reinterpret_cast<const T*>(target), value);
    }
    const wchar_t* getClassTimestamp() const override
    {
        const wchar_t* timestamp = property::timestampOf<T>();
        return timestamp != nullptr ? timestamp : IPropertyConverter::getClassTimestamp();
    }
};

/** The converter of the property class T. Its `Void` is a `Handle_T<Property>`, whatever T is: a slot that is
    declared for a base class takes the object too. */
template <class T>
class PropertyConverter final : public IPropertyConverter {
    static_assert(std::is_base_of_v<Property, T>, "a class converter is for a class derived from Property");

public:
    explicit PropertyConverter(const String& propertyType)
        : IPropertyConverter(typeName(typeid(T)), propertyType, false)
    {}

    /** A null empties the slot; anything else puts a new T there and imports it. */
    void set(Void* target, const JsonValue& value) override
    {
        property::setObject(*reinterpret_cast<Unknown::Handle_T<Property>*>(target), value,
                            [] { return Unknown::Handle_T<Property>(T::createInstance()); });
    }
    void get(const Void* target, JsonValue& value) override
    {
        property::getObject(*reinterpret_cast<const Unknown::Handle_T<Property>*>(target), value);
    }
    const wchar_t* getClassTimestamp() const override
    {
        return property::timestampOf<Unknown::Handle_T<T>>();
    }
};

/** Registers a type under its public name, and vectors and lists of it under that name with "Array" and "List"
    behind it, for as long as this object lives. For a value type of your own, in one source:

        static const orvi::PropertyConverters<Colour> colourConverters(L"Colour");

    A property class is registered by ORVI_DEFINE_PROPERTY. */
template <class T>
class PropertyConverters {
public:
    explicit PropertyConverters(const String& name)
        : _single(name, L"", make<Single>)
        , _vector(name, L"Array", make<PropertyConverterUnit<std::vector<Item>>>)
        , _list(name, L"List", make<PropertyConverterUnit<std::list<Item>>>)
    {}

    /** Whether the registry took all three: not without memory. */
    bool joined() const noexcept { return _single.joined() && _vector.joined() && _list.joined(); }

    /** At the exit of the module that a property class stands in: the compiler does not look whether there was memory
        to arrange for the destructor, which then never runs. */
    void leave() const noexcept
    {
        for (const PropertyMembership* membership : {&_list, &_vector, &_single})
            membership->leave();
    }
    /** Where that could not be arranged either; false. */
    bool refuse() const
    {
        leave();
        return _single.refuse();
    }

private:
    static constexpr bool isClass = std::is_base_of_v<Unknown, T>;
    using Item = std::conditional_t<isClass, Unknown::Handle_T<T>, T>;
    using Single = std::conditional_t<isClass, PropertyConverter<T>, PropertyConverterUnit<T>>;

    template <class Converter>
    static IPropertyConverter* make(const String& name)
    {
        return new Converter(name);
    }

    PropertyMembership _single;
    PropertyMembership _vector;
    PropertyMembership _list;
};

} // namespace orvi
