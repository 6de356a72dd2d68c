#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/JsonValue.h>
#include <orvi/core/Mutex.h>
#include <orvi/core/PropertyFactory.h>
#include <orvi/core/String.h>
#include <orvi/core/Unknown.h>

#include <atomic>
#include <map>

namespace orvi {

class Property;

/** One property of one class: a data member, its JSON key and what kind of converter it wants. */
class ORVI_API IPropertyAttribute : public virtual Unknown {
public:
    /** typeName of the member's type, of a handle that of the class it points to: finds the converter. */
    const String& getRttiClassName() const noexcept { return _rttiClassName; }
    /** typeName of the owning class, "::" and the key. */
    const String& getPropertyRawName() const noexcept { return _rawName; }
    /** The JSON key. */
    const String& getPropertyName() const noexcept { return _name; }
    const String& getDescription() const noexcept { return _description; }
    /** False for a handle to a property class. */
    bool isUnitProperty() const noexcept { return _isUnitProperty; }

    /** Asked of the registry each time; null when nobody registered the type. */
    IPropertyConverter* getPropertyConverter() const;
    /** The converter's public name; empty without one. */
    const String& getPropertyType() const;

    /** Both throw Exception when `object` is null or of another class, and as PropertyAttribute_set and
        PropertyAttribute_get do; then the member keeps its value, but for what the converter did. */
    virtual void set(Property* object, IPropertyConverter* converter, const JsonValue& value) = 0;
    virtual void get(const Property* object, IPropertyConverter* converter, JsonValue& value) = 0;

    static const String _nullString;

protected:
    IPropertyAttribute(const String& rttiClassName, const String& rawName, const String& name,
                       const String& description, bool isUnitProperty)
        : _rttiClassName(rttiClassName)
        , _rawName(rawName)
        , _name(name)
        , _description(description)
        , _isUnitProperty(isUnitProperty)
    {}

private:
    String _rttiClassName;
    String _rawName;
    String _name;
    String _description;
    bool _isUnitProperty;
};

/** The properties of a class by their keys, in the order that they have in a document. */
using PropertyAttributes = std::map<String, Unknown::Handle_T<IPropertyAttribute>, JsonKey::Order>;

class ORVI_API PropertyAttributeHelper {
public:
    PropertyAttributeHelper() = delete;

    /** Adds the attribute under its key, in place of one that is there. */
    static void registerPropertyAttribute(PropertyAttributes& attributes, IPropertyAttribute* attribute);
    /** Adds what `target` lacks: an attribute there hides one of the same key in `source`. */
    static void mergePropertyAttribute(PropertyAttributes& target, const PropertyAttributes& source);
};

/** What attribute classes store and fetch with, after they have found their object's member. They throw Exception
    when `converter` is null or cannot serve the attribute: a value takes the converter of its own type alone, a
    handle any class converter. `target` is what the converter expects, see IPropertyConverter. */
ORVI_API void PropertyAttribute_set(IPropertyAttribute* attribute, Void* target,
                                    IPropertyConverter* converter, const JsonValue& value);
ORVI_API void PropertyAttribute_get(IPropertyAttribute* attribute, const Void* target,
                                    IPropertyConverter* converter, JsonValue& value);

/** The same for an attribute that knows the type of what is at `target`, and not the converter. */
ORVI_API void ProcessPropertyAttribute_set(IPropertyAttribute* attribute, const String& rttiClassName,
                                           Void* target, const JsonValue& value);
ORVI_API void ProcessPropertyAttribute_get(IPropertyAttribute* attribute, const String& rttiClassName,
                                           const Void* target, JsonValue& value);

/** The untyped halves of PropertyAttribute and of the declaration macros; not for callers. */
namespace property {

/** Throws what PropertyAttribute_set and PropertyAttribute_get throw. */
[[noreturn]] ORVI_API void refuseSet(const IPropertyAttribute& attribute, const void* target,
                                     const IPropertyConverter* converter);
[[noreturn]] ORVI_API void refuseGet(const IPropertyAttribute& attribute, const void* target,
                                     const IPropertyConverter* converter);
/** The same, behind a line in the log that says that the converter serves another type. */
[[noreturn]] ORVI_API void refuseType(const IPropertyAttribute& attribute, const void* target,
                                      const IPropertyConverter* converter);

using Fill = void (*)(PropertyAttributes& attributes);

/** Lists the attributes of a class while its module is loaded. False without memory: then mergeOnce does it. */
ORVI_API bool fillAtLoad(PropertyAttributes& own, Fill fill, Mutex& mutex);
/** Adds the base's attributes, unless another thread has done so meanwhile. */
ORVI_API void mergeOnce(PropertyAttributes& own, Fill fill, Mutex& mutex, std::atomic<int>& isMerged,
                        const PropertyAttributes& base);

} // namespace property

} // namespace orvi
