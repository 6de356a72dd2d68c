#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/JsonValue.h>
#include <orvi/core/PropertyAttribute.h>
#include <orvi/core/PropertyConverter.h>
#include <orvi/core/PropertyTable.h>
#include <orvi/core/String.h>
#include <orvi/core/Unknown.h>

namespace orvi {

/** "__class__": the key under which a document names its class. */
extern ORVI_API const String TEXT_class;

/** The base of objects that can turn themselves into a JsonValue and back.

    A class says once what its properties are, by ORVI_DECLARE_PROPERTY and ORVI_DEFINE_PROPERTY; a document then
    looks like

        {"__class__":"Circle","layer":{"__class__":"Layer","name":"roof"},"radius":2.5}

    Handles lead to nested documents, in which "__class__" decides what class the object has. Objects may nest
    1024 deep. PropertyHelper makes whole objects out of documents, texts and files.

    Nothing of it throws, but for want of memory: what is wrong with one property goes to the log, and the others
    go on. One object is for one thread at a time. */
class ORVI_API Property : public virtual Unknown {
    ORVI_DECLARE_CLASS(Property);
    ORVI_DECLARE_PROPERTY_TABLE(Property);

public:
    static Unknown::Handle_T<Property> createInstance();

    /** Takes over the properties that `value` mentions; the others keep their values. A member of `value` that
        is no property is ignored, as is a value that is no object. The class that it names is not compared. */
    void importProperty(const JsonValue& value);
    /** Replaces `value` by the document of this object. A property that cannot be written is missing there. */
    void exportProperty(JsonValue& value) const;

    /** The properties of the dynamic class, inherited ones included. */
    virtual const PropertyAttributes& getPropertyAttributes() const;
    /** The name of the class's converter, which is the class name. */
    virtual const String& getPropertyType() const;

protected:
    Property() noexcept = default;
};

/** A handle to any object as a property, "obj": what turns a document into an object of the class that it
    names. */
class ORVI_API PropertyDummy : public Property {
    ORVI_DECLARE_PROPERTY(PropertyDummy, Property);

public:
    const Unknown::Handle_T<Property>& getObject() const noexcept { return _object; }
    void setObject(Property* object) noexcept { _object = object; }

private:
    Unknown::Handle_T<Property> _object;
};

} // namespace orvi
