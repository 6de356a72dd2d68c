#include <orvi/core/PropertyAttribute.h>

#include <orvi/core/Exception.h>
#include <orvi/core/Log.h>

#include "base/WholeTexts.h"
#include "objects/Registration.h"

namespace orvi {

namespace {

/** `format` takes the two addresses and the two names. */
String describe(const wchar_t* format, const IPropertyAttribute& attribute, const void* target,
                const IPropertyConverter* converter)
{
    String text;
    text.format(format, target, static_cast<const void*>(converter), attribute.getRttiClassName().getBuffer(),
                attribute.getPropertyRawName().getBuffer());
    return text;
}

/** A document may name any converter: one that would write another type over the member is out. */
bool serves(const IPropertyConverter& converter, const IPropertyAttribute& attribute)
{
    if (converter.isUnitProperty() != attribute.isUnitProperty())
        return false;
    return !attribute.isUnitProperty() || converter.getRttiClassName() == attribute.getRttiClassName();
}

} // namespace

const String IPropertyAttribute::_nullString;

IPropertyConverter* IPropertyAttribute::getPropertyConverter() const
{
    return PropertyFactory::getPropertyConverterByRttiClassName(_rttiClassName);
}

const String& IPropertyAttribute::getPropertyType() const
{
    const IPropertyConverter* converter = getPropertyConverter();
    return converter != nullptr ? converter->getPropertyType() : _nullString;
}

void PropertyAttributeHelper::registerPropertyAttribute(PropertyAttributes& attributes,
                                                        IPropertyAttribute* attribute)
{
    attributes.insert_or_assign(attribute->getPropertyName(), attribute);
}

void PropertyAttributeHelper::mergePropertyAttribute(PropertyAttributes& target,
                                                     const PropertyAttributes& source)
{
    target.insert(source.begin(), source.end());
}

void PropertyAttribute_set(IPropertyAttribute* attribute, Void* target, IPropertyConverter* converter,
                           const JsonValue& value)
{
    if (converter == nullptr)
        property::refuseSet(*attribute, target, converter);
    if (!serves(*converter, *attribute))
        property::refuseType(*attribute, target, converter);
    converter->set(target, value);
}

void PropertyAttribute_get(IPropertyAttribute* attribute, const Void* target, IPropertyConverter* converter,
                           JsonValue& value)
{
    if (converter == nullptr)
        property::refuseGet(*attribute, target, converter);
    converter->get(target, value);
}

void ProcessPropertyAttribute_set(IPropertyAttribute* attribute, const String& rttiClassName, Void* target,
                                  const JsonValue& value)
{
    IPropertyConverter* converter = PropertyFactory::getPropertyConverterByRttiClassName(rttiClassName);
    if (converter == nullptr)
        THROW_EXCEPTION(
            -1, describe(L"void ProcessPropertyAttribute::set(%p, %p) @ %s %s", *attribute, target, nullptr));
    converter->set(target, value);
}

void ProcessPropertyAttribute_get(IPropertyAttribute* attribute, const String& rttiClassName,
                                  const Void* target, JsonValue& value)
{
    IPropertyConverter* converter = PropertyFactory::getPropertyConverterByRttiClassName(rttiClassName);
    if (converter == nullptr)
        THROW_EXCEPTION(
            -1, describe(L"void ProcessPropertyAttribute::get(%p, %p) @ %s %s", *attribute, target, nullptr));
    converter->get(target, value);
}

void property::refuseSet(const IPropertyAttribute& attribute, const void* target,
                         const IPropertyConverter* converter)
{
    THROW_EXCEPTION(-1,
                    describe(L"void PropertyAttribute::set(%p, %p) @ %s %s", attribute, target, converter));
}

void property::refuseGet(const IPropertyAttribute& attribute, const void* target,
                         const IPropertyConverter* converter)
{
    THROW_EXCEPTION(-1,
                    describe(L"void PropertyAttribute::get(%p, %p) @ %s %s", attribute, target, converter));
}

void property::refuseType(const IPropertyAttribute& attribute, const void* target,
                          const IPropertyConverter* converter)
{
    Log::error(L"Error attribute implement. %s %s", attribute.getRttiClassName().getBuffer(),
               attribute.getPropertyRawName().getBuffer());
    refuseSet(attribute, target, converter);
}

/** All of them, or none. */
static void fillOnce(PropertyAttributes& own, property::Fill fill)
{
    if (!own.empty())
        return;
    const WholeTexts texts;
    PropertyAttributes attributes;
    fill(attributes);
    texts.check();
    own.swap(attributes);
}

bool property::fillAtLoad(PropertyAttributes& own, Fill fill, Mutex& mutex)
{
    try {
        const MutexGuard guard(mutex);
        fillOnce(own, fill);
        return true;
    } catch (const std::bad_alloc&) {
        missRegistration(L"Properties:");
    }
    return false;
}

void property::mergeOnce(PropertyAttributes& own, Fill fill, Mutex& mutex, std::atomic<int>& isMerged,
                         const PropertyAttributes& base)
{
    const MutexGuard guard(mutex);
    if (isMerged.load(std::memory_order_relaxed) != 0)
        return;
    fillOnce(own, fill);
    PropertyAttributeHelper::mergePropertyAttribute(own, base);
    isMerged.store(1, std::memory_order_release);
}

} // namespace orvi
