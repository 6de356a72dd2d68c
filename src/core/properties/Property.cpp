#include <orvi/core/Property.h>

#include <orvi/core/Exception.h>

#include "base/WholeTexts.h"

namespace orvi {

namespace {

// Each nested object is a call in a call: without a bound, a document of some kilobytes or two objects that hold
// each other would eat the stack.
constexpr int maxNesting = 1024;

/** The objects of this thread that are being imported or exported inside each other. */
class Nesting {
public:
    Nesting() noexcept
        : Nesting(nullptr)
    {}
    explicit Nesting(const Property* exported) noexcept
        : _exported(exported)
        , _outer(t_innermost)
        , _depth(_outer != nullptr ? _outer->_depth + 1 : 1)
    {
        t_innermost = this;
    }
    ~Nesting() { t_innermost = _outer; }
    Nesting(const Nesting&) = delete;
    Nesting& operator=(const Nesting&) = delete;

    bool isTooDeep() const noexcept { return _depth > maxNesting; }
    bool isCycle() const noexcept
    {
        const Nesting* outer = _outer;
        while (outer != nullptr && outer->_exported != _exported)
            outer = outer->_outer;
        return outer != nullptr;
    }

private:
    static constinit thread_local const Nesting* t_innermost;

    const Property* _exported;
    const Nesting* _outer;
    int _depth;
};
constinit thread_local const Nesting* Nesting::t_innermost = nullptr;

/** Takes one member of a document over into the property of its name. */
void importMember(Property& object, IPropertyAttribute& attribute, const JsonValue& value)
{
    const JsonValue& className = value[TEXT_class];
    const String propertyType = className.isNull() ? String() : className.asString();
    try {
        if (!propertyType.isEmpty()) // it outranks what the class declares
            attribute.set(&object, PropertyFactory::getPropertyConverter(propertyType), value);
        else if (attribute.isUnitProperty())
            attribute.set(&object, attribute.getPropertyConverter(), value);
    } catch (const Exception& exception) {
        exception.report();
    }
}

} // namespace

const String TEXT_class(L"__class__");

void Property::importProperty(const JsonValue& value)
{
    if (!value.isObject())
        return;
    const Nesting nesting;
    if (nesting.isTooDeep())
        THROW_EXCEPTION(-1, L"void Property::importProperty(JsonValue const &) Nested too deep!");
    const PropertyAttributes& attributes = getPropertyAttributes();
    const WholeTexts texts;
    for (const auto& [key, member] : value.getMembers()) {
        const auto found = attributes.find(key);
        if (found != attributes.end() && key != TEXT_class)
            importMember(*this, *found->second, member);
    }
    texts.check();
}

void Property::exportProperty(JsonValue& value) const
{
    const Nesting nesting(this);
    if (nesting.isCycle())
        THROW_EXCEPTION(-1, L"void Property::exportProperty(JsonValue &) An object holds itself!");
    if (nesting.isTooDeep())
        THROW_EXCEPTION(-1, L"void Property::exportProperty(JsonValue &) Nested too deep!");
    const WholeTexts texts;
    JsonValue document;
    document[TEXT_class] = getClassName();
    for (const auto& [key, attribute] : getPropertyAttributes()) {
        try {
            JsonValue member;
            attribute->get(this, attribute->getPropertyConverter(), member);
            document[key].swap(member);
        } catch (const Exception& exception) {
            exception.report();
        }
    }
    texts.check();
    value.swap(document);
}

void property::setObject(Handle_T<Property>& slot, const JsonValue& value, Creator create)
{
    if (value.isNull()) {
        slot.setNull();
        return;
    }
    slot = create();
    slot->importProperty(value);
}

void property::getObject(const Property* object, JsonValue& value)
{
    if (object != nullptr)
        object->exportProperty(value);
    else
        value.clear();
}

Handle_T<Property> property::createObject(const JsonValue& value)
{
    if (!value.isObject())
        return {};
    const Handle_T<PropertyDummy> holder = PropertyDummy::createInstance();
    importMember(*holder, *holder->getPropertyAttributes().begin()->second, value);
    return holder->getObject();
}

const PropertyAttributes& Property::getPropertyAttributes() const { return propertyAttributes_(); }

const String& Property::getPropertyType() const { return getClassName_(); }

ORVI_DEFINE_PROPERTY(Property) {}

// The time stamp of all classes of the library is that of Unknown.
ORVI_DEFINE_PROPERTY(PropertyDummy) // NOLINT(bugprone-parent-virtual-call)
{
    table.add(L"obj", &PropertyDummy::_object, L"Object");
}

} // namespace orvi
