#include "TextPrinting.h"

#include "RecordingLog.h"

#include <orvi/core/Core.h>

#include <dlfcn.h>

#include <vector>

using orvi::Handle_T;
using orvi::PropertyFactory;
using orvi::PropertyHelper;
using orvi::String;

namespace {

constexpr const wchar_t* types[] = {
    L"bool",       L"float",    L"double",        L"char",    L"int8_t",  L"uint8_t", L"int16_t",
    L"uint16_t",   L"int32_t",  L"uint32_t",      L"long",    L"ulong_t", L"int64_t", L"Varint",
    L"Varint64",   L"TimeSpan", L"String",        L"Buffer",  L"Time",    L"Uuid",    L"uuid_node_t",
    L"Point",      L"Pointf",   L"Rect",          L"Rectf",   L"Vector2", L"Vector3", L"Vector4",
    L"Quaternion", L"Property", L"PropertyDummy", L"Message",
};

/** How many of a type and of its two collections are registered. */
int countOf(const wchar_t* type)
{
    int count = 0;
    for (const wchar_t* sister : {L"", L"Array", L"List"})
        count += PropertyFactory::getPropertyConverter(String(type) + sister) != nullptr ? 1 : 0;
    return count;
}

int ownCount()
{
    int count = 0;
    for (const wchar_t* type : types)
        count += countOf(type);
    return count;
}

} // namespace

TEST_CASE("a module's converters come and go with it, and the library's stay")
{
    const wchar_t* text =
        L"{\"__class__\":\"Parcel\",\"content\":{\"__class__\":\"PropertyDummy\",\"obj\":null},"
        L"\"parts\":[{\"__class__\":\"Parcel\",\"content\":null,\"parts\":[],\"stamps\":[],"
        L"\"weight\":1}],\"stamps\":[3,4],\"weight\":5}";
    const RecordingLog log;
    for (int round = 0; round < 3; ++round) {
        CHECK(ownCount() == 96);
        CHECK(countOf(L"Parcel") == 0);
        CHECK(countOf(L"Weight") == 0);
        void* module = dlopen(ORVI_TEST_MODULE, RTLD_NOW | RTLD_LOCAL);
        REQUIRE_MESSAGE(module != nullptr, dlerror());
        CHECK(reinterpret_cast<bool (*)()>(dlsym(module, "parcelIsRegistered"))());
        CHECK(countOf(L"Parcel") == 3);
        CHECK(countOf(L"Weight") == 3);
        CHECK(ownCount() == 96);
        CHECK(PropertyHelper::convertToString(PropertyHelper::convertToClass(text), false) == text);
        CHECK(log.lines().empty());
        CHECK(dlclose(module) == 0);
        CHECK(dlopen(ORVI_TEST_MODULE, RTLD_NOW | RTLD_NOLOAD) == nullptr); // really gone
    }
    CHECK(ownCount() == 96);
    CHECK(countOf(L"Parcel") == 0);
    CHECK(countOf(L"Weight") == 0);
    CHECK(PropertyHelper::convertToClass(text).isNull());
    CHECK(log.lines().size() == 1);
}
