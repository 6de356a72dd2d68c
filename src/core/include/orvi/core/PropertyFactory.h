#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/String.h>
#include <orvi/core/Unknown.h>

namespace orvi {

class JsonValue;

/** Carries the values of one type to and from JSON; see PropertyConverter.h for those that there are. It is
    found by the type's public name, which stands in documents under "__class__", and by the language's name of
    the type. One object serves all threads at once. */
class ORVI_API IPropertyConverter : public virtual Unknown {
public:
    /** typeName of the type that it serves, for a class converter of the class. */
    const String& getRttiClassName() const noexcept { return _rttiClassName; }
    const String& getPropertyType() const noexcept { return _propertyType; }
    /** Whether it serves plain values: then `Void` below is a value of the type. For a class converter it is a
        `Handle_T<Property>`. */
    bool isUnitProperty() const noexcept { return _isUnitProperty; }

    /** Stores `value` into the value at `target`; throws Exception for what makes no sense. */
    virtual void set(Void* target, const JsonValue& value) = 0;
    /** Replaces `value` by the form of the value at `target`. */
    virtual void get(const Void* target, JsonValue& value) = 0;

protected:
    IPropertyConverter(const String& rttiClassName, const String& propertyType, bool isUnitProperty)
        : _rttiClassName(rttiClassName)
        , _propertyType(propertyType)
        , _isUnitProperty(isUnitProperty)
    {}

private:
    String _rttiClassName;
    String _propertyType;
    bool _isUnitProperty;
};

/** The process-wide registry of converters. Any thread, at any time, also before and after the static objects
    of the library have their turn. A converter that was found stays alive while it is registered: do not use it
    while its module is unloaded. */
class ORVI_API PropertyFactory {
public:
    PropertyFactory() = delete;

    /** Registers a converter and holds it. False, with the reason in the log, when one of its two names is taken
        by itself; false when both belong to another one already, with a notice on the console when that one
        comes from another build. */
    static bool setUpPropertyConverter(IPropertyConverter* converter);
    /** Takes a converter out; an unknown name is no error. */
    static void tearDownPropertyConverter(const String& propertyType);

    /** Null when nobody registered the name. */
    static IPropertyConverter* getPropertyConverter(const String& propertyType);
    static IPropertyConverter* getPropertyConverterByRttiClassName(const String& rttiClassName);
};

/** The membership of one converter in the registry: ends with the module that it stands in. */
class ORVI_API PropertyMembership {
public:
    explicit PropertyMembership(IPropertyConverter* converter);
    /** Of the converter that `make` makes for the type `name` with `suffix` behind it. */
    PropertyMembership(const String& name, const wchar_t* suffix, IPropertyConverter* (*make)(const String&));
    ~PropertyMembership();
    PropertyMembership(const PropertyMembership&) = delete;
    PropertyMembership& operator=(const PropertyMembership&) = delete;

    /** Whether the registry took the converter: not without memory. */
    bool joined() const noexcept { return _joined; }
    /** Ends the membership now. */
    void leave() const noexcept;
    /** The same, for want of memory; false. */
    bool refuse() const;

private:
    void join(IPropertyConverter* converter);

    String _propertyType;
    mutable bool _joined = false;
};

} // namespace orvi
