#include <orvi/core/PropertyFactory.h>

#include <orvi/core/Log.h>

#include "base/Immortal.h"
#include "base/WholeTexts.h"
#include "diagnostics/Notice.h"
#include "objects/Registration.h"

#include <cstring>
#include <map>
#include <mutex>

namespace orvi {

namespace {

using Converter = Handle_T<IPropertyConverter>;

/** Any order that is quick to ask for: names of types are long and begin alike. Each property that is imported or
    exported is a search. */
struct ByLength {
    bool operator()(const String& a, const String& b) const noexcept
    {
        const int length = a.getBufferLength();
        if (length != b.getBufferLength())
            return length < b.getBufferLength();
        return std::memcmp(a.getBuffer(), b.getBuffer(), static_cast<std::size_t>(length)) < 0;
    }
};
using Index = std::map<String, Converter, ByLength>;

struct Registry {
    std::mutex mutex; // nothing foreign runs under it: no converter's code, no log
    Index byPropertyType;
    Index byRttiClassName;
};

Registry& registry()
{
    // Converters of other modules join before our own statics and leave after them: never destroyed.
    static Immortal<Registry> registry;
    return *registry;
}

IPropertyConverter* find(const Index& index, const String& name)
{
    const auto found = index.find(name);
    return found != index.end() ? static_cast<IPropertyConverter*>(found->second) : nullptr;
}

} // namespace

bool PropertyFactory::setUpPropertyConverter(IPropertyConverter* converter)
{
    if (converter == nullptr)
        return false;
    const Converter fresh = converter;
    const String& propertyType = fresh->getPropertyType();
    const String& rttiClassName = fresh->getRttiClassName();
    Converter known;
    Converter other;
    {
        Registry& converters = registry();
        const std::lock_guard guard(converters.mutex);
        known = find(converters.byPropertyType, propertyType);
        other = find(converters.byRttiClassName, rttiClassName);
        if (known.isNull() && other.isNull()) {
            Index freshType{{propertyType, fresh}};
            Index freshClass{{rttiClassName, fresh}};
            converters.byPropertyType.merge(freshType); // both or none: this needs no memory
            converters.byRttiClassName.merge(freshClass);
            return true;
        }
    }
    if (known != other) {
        Log::error(L"Property: (%s) has been setup error! RTTI class name(%s)", propertyType.getBuffer(),
                   rttiClassName.getBuffer());
    } else if (String(known->getClassTimestamp()) != fresh->getClassTimestamp()) {
        printNotice(L"\nProperty: (%s) has been setup!", propertyType);
    }
    return false;
}

void PropertyFactory::tearDownPropertyConverter(const String& propertyType)
{
    Converter leaving; // goes when the lock is left
    Registry& converters = registry();
    const std::lock_guard guard(converters.mutex);
    const auto found = converters.byPropertyType.find(propertyType);
    if (found == converters.byPropertyType.end())
        return;
    leaving = found->second;
    converters.byPropertyType.erase(found);
    converters.byRttiClassName.erase(leaving->getRttiClassName());
}

IPropertyConverter* PropertyFactory::getPropertyConverter(const String& propertyType)
{
    Registry& converters = registry();
    const std::lock_guard guard(converters.mutex);
    return find(converters.byPropertyType, propertyType);
}

IPropertyConverter* PropertyFactory::getPropertyConverterByRttiClassName(const String& rttiClassName)
{
    Registry& converters = registry();
    const std::lock_guard guard(converters.mutex);
    return find(converters.byRttiClassName, rttiClassName);
}

PropertyMembership::PropertyMembership(IPropertyConverter* converter) { join(converter); }

PropertyMembership::PropertyMembership(const String& name, const wchar_t* suffix,
                                       IPropertyConverter* (*make)(const String&))
{
    try {
        const WholeTexts texts;
        const String propertyType = name + suffix;
        const Converter made = make(propertyType);
        if (texts.areAll() && !name.isEmpty()) {
            join(made);
            return;
        }
    } catch (const std::bad_alloc&) { // told below
    }
    missRegistration(L"Property:");
}

void PropertyMembership::join(IPropertyConverter* converter)
{
    const Converter held = converter; // the registry may refuse it
    _propertyType = held->getPropertyType();
    try {
        _joined = PropertyFactory::setUpPropertyConverter(held);
    } catch (const std::bad_alloc&) {
        missRegistration(L"Property:");
    }
}

PropertyMembership::~PropertyMembership() { leave(); }

void PropertyMembership::leave() const noexcept
{
    if (_joined)
        PropertyFactory::tearDownPropertyConverter(_propertyType);
    _joined = false;
}

bool PropertyMembership::refuse() const
{
    leave();
    missRegistration(L"Property:");
    return false;
}

} // namespace orvi
