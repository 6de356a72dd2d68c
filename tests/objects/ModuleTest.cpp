#include "RecordingLog.h"
#include "TextPrinting.h"

#include <orvi/core/Core.h>

#include <dlfcn.h>

using namespace orvi;

namespace {

using Registry = Unknown::RtFactory;

bool isRegistered(const wchar_t* name) { return !Registry::createClassInstance(name).isNull(); }

/** How many of a type and of its two collections are registered. */
int countOf(const wchar_t* type)
{
    int count = 0;
    for (const wchar_t* sister : {L"", L"Array", L"List"})
        count += PropertyFactory::getPropertyConverter(String(type) + sister) != nullptr ? 1 : 0;
    return count;
}

int foreignCount()
{
    return isRegistered(L"Visitor") + isRegistered(L"Parcel") + countOf(L"Parcel") + countOf(L"Weight");
}

} // namespace

TEST_CASE("a module's classes and converters come and go with it, and the library's stay")
{
    const wchar_t* text =
        L"{\"__class__\":\"Parcel\",\"content\":{\"__class__\":\"PropertyDummy\",\"obj\":null},"
        L"\"parts\":[{\"__class__\":\"Parcel\",\"content\":null,\"parts\":[],\"stamps\":[],"
        L"\"weight\":1}],\"stamps\":[3,4],\"weight\":5}";
    const RecordingLog log;
    for (int round = 0; round < 3; ++round) {
        CHECK(foreignCount() == 0);
        void* module = dlopen(ORVI_TEST_MODULE, RTLD_NOW | RTLD_LOCAL);
        REQUIRE_MESSAGE(module != nullptr, dlerror());
        CHECK(reinterpret_cast<bool (*)()>(dlsym(module, "parcelIsRegistered"))());
        CHECK(foreignCount() == 8);
        CHECK(PropertyHelper::convertToString(PropertyHelper::convertToClass(text), false) == text);
        {
            const Handle_T<Unknown> visitor = Registry::createClassInstance(L"Visitor");
            CHECK(visitor->clone()->getClassId() == visitor->getClassId());
            CHECK(Registry::createClassInstance(visitor->getClassId()) != nullptr);
        }
        CHECK(log.lines().empty());
        CHECK(dlclose(module) == 0);
        CHECK(dlopen(ORVI_TEST_MODULE, RTLD_NOW | RTLD_NOLOAD) == nullptr); // really gone
    }
    CHECK(foreignCount() == 0);
    CHECK(isRegistered(L"Message") + countOf(L"bool") + countOf(L"Message") == 7);
    CHECK(PropertyHelper::convertToClass(text).isNull());
    CHECK(log.lines().size() == 1);
}
