#include <orvi/core/Unknown.h>

#include <orvi/core/Encoding.h>
#include <orvi/core/Log.h>

#include "Registration.h"
#include "base/Immortal.h"
#include "base/WholeTexts.h"
#include "diagnostics/Notice.h"
#include "platform/base/CodePage.h"

#include <atomic>
#include <cstdlib>
#include <cxxabi.h>
#include <map>
#include <memory>
#include <mutex>

namespace orvi {

namespace {

using Creator = Unknown::RtFactory::Creator;

struct Registry {
    std::recursive_mutex mutex; // recursive for the sample that a creator makes during registration
    std::map<String, Creator> names;
    std::map<unsigned int, Creator> ids;
};

Registry& registry()
{
    // Classes of other modules join before our own statics and leave after them: never destroyed.
    static Immortal<Registry> registry;
    return *registry;
}

/** Two builds of one class met: the same creator, registered twice. */
void reportSecondSetup(const Unknown& first, const Unknown& second)
{
    const String firstType = typeName(typeid(first));
    const String secondType = typeName(typeid(second));
    if (firstType != secondType) {
        Log::error(L"RTTI: (%s) setup collision! has setup(%s)", firstType.getBuffer(),
                   secondType.getBuffer());
    } else if (String(first.getClassTimestamp()) != second.getClassTimestamp()) {
        printNotice(L"\nRTTI: (%s) has been setup!", first.getClassName());
    }
}

template <class Map, class Key>
Handle_T<Unknown> create(const Map& map, const Key& key)
{
    Registry& classes = registry();
    Creator creator = nullptr;
    {
        const std::lock_guard guard(classes.mutex);
        const auto found = map.find(key);
        if (found == map.end())
            return {};
        creator = found->second;
    }
    return creator();
}

/** setupCreator, but for what throws. */
bool join(Creator creator)
{
    Registry& classes = registry();
    std::unique_lock lock(classes.mutex);
    const Handle_T<Unknown> sample = creator();
    const String name = sample->getClassName();
    const unsigned int id = sample->getClassId();
    const auto named = classes.names.find(name);
    const auto identified = classes.ids.find(id);
    const bool nameIsNew = named == classes.names.end();
    const bool idIsNew = identified == classes.ids.end();
    if (nameIsNew && idIsNew) {
        std::map<String, Creator> freshName{{name, creator}};
        std::map<unsigned int, Creator> freshId{{id, creator}};
        classes.names.merge(freshName); // both or none: this needs no memory
        classes.ids.merge(freshId);
        return true;
    }
    const bool isKnown = !nameIsNew && !idIsNew && named->second == creator && identified->second == creator;

    // A listener of the log may use the registry, and is called with the log's lock held.
    lock.unlock();
    if (isKnown)
        reportSecondSetup(*sample, *creator());
    else if (nameIsNew)
        Log::error(L"RTTI: (%s) setup error! ClassId(%d)", name.getBuffer(), id);
    else
        Log::error(L"RTTI: (%s) setup error!", name.getBuffer());
    return false;
}

std::atomic<unsigned int> missed = 0;

/** The id of a class name, of which no copy is made: a class leaves also when there is no memory. */
unsigned int classIdOf(const wchar_t* name)
{
    ClassIdSum sum;
    while (*name != 0) {
        const std::size_t units = (name[0] & 0xFC00) == 0xD800 && (name[1] & 0xFC00) == 0xDC00 ? 2 : 1;
        char bytes[5] = {};
        platform::wideToCodePage(platform::utf8CodePage, name, units, bytes, sizeof bytes - 1);
        name += units;
        for (const char* byte = bytes; *byte != 0; ++byte)
            sum.add(*byte);
    }
    return sum.id();
}

} // namespace

unsigned int missedRegistrations() noexcept { return missed; }

void missRegistration(const wchar_t* what)
{
    ++missed;
    Log::error(L"%s setup error! Out of memory", what);
}

bool Unknown::RtFactory::setupCreator(Creator creator)
{
    try {
        return join(creator);
    } catch (const std::bad_alloc&) {
        missRegistration(L"RTTI:");
    }
    return false;
}

void Unknown::RtFactory::unsetupCreator(const String& name)
{
    Registry& classes = registry();
    const std::lock_guard guard(classes.mutex);
    classes.names.erase(name);
    classes.ids.erase(classIdOf(name));
}

bool joinRegistry(bool hasExit, Unknown::RtFactory::Creator creator)
{
    if (!hasExit)
        missRegistration(L"RTTI:");
    return hasExit && Unknown::RtFactory::setupCreator(creator);
}

void leaveRegistry(Unknown::RtFactory::Creator creator) noexcept
{
    Registry& classes = registry();
    const std::lock_guard guard(classes.mutex);
    const auto isOurs = [creator](const auto& entry) { return entry.second == creator; };
    std::erase_if(classes.names, isOurs);
    std::erase_if(classes.ids, isOurs);
}

String className(const wchar_t* name)
{
    String text(name);
    if (text.isEmpty())
        throw std::bad_alloc();
    return text;
}

String classNameAtLoad(const String& (*getName)())
{
    try {
        return getName();
    } catch (const std::bad_alloc&) {
        return String();
    }
}

Unknown::Handle_T<Unknown> Unknown::RtFactory::createClassInstance(const String& name)
{
    return create(registry().names, name);
}

Unknown::Handle_T<Unknown> Unknown::RtFactory::createClassInstance(unsigned int id)
{
    return create(registry().ids, id);
}

void Unknown::RtFactory::getRtClassNames(std::vector<String>& names)
{
    Registry& classes = registry();
    const std::lock_guard guard(classes.mutex);
    names.clear();
    names.reserve(classes.names.size());
    for (const auto& entry : classes.names)
        names.push_back(entry.first);
}

Unknown::ClassType::ClassType(const String& name)
    : _name(name)
    , _id(classIdOf(name))
{}

void Unknown::ClassType::setClass(const Unknown* object)
{
    _name = object != nullptr ? object->getClassName() : String();
    _id = object != nullptr ? object->getClassId() : 0;
}

Unknown::Handle_T<Unknown> Unknown::ClassType::createInstance() const
{
    return RtFactory::createClassInstance(_name);
}

String typeName(const std::type_info& type)
{
    constexpr int withoutMemory = -1;
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> readable(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
    if (status == withoutMemory)
        throw std::bad_alloc();
    return StringHelper::utf8ToWide(status == 0 ? readable.get() : type.name());
}

} // namespace orvi
