#include "TextPrinting.h"

#include <orvi/core/Core.h>

#include <dlfcn.h>

#include <algorithm>
#include <thread>
#include <vector>

using orvi::Handle_T;
using orvi::String;
using orvi::Unknown;

namespace {

using Registry = Unknown::RtFactory;

bool isRegistered(const wchar_t* name)
{
    std::vector<String> names;
    Registry::getRtClassNames(names);
    return std::count(names.begin(), names.end(), String(name)) == 1;
}

} // namespace

TEST_CASE("the library's own classes are registered at load")
{
    for (const wchar_t* name : {L"Event", L"MemoryStream", L"Unknown"})
        CHECK(isRegistered(name));
}

TEST_CASE("a module's class comes and goes with it")
{
    for (int round = 0; round < 3; ++round) {
        CHECK(!isRegistered(L"Visitor"));
        void* module = dlopen(ORVI_TEST_MODULE, RTLD_NOW | RTLD_LOCAL);
        REQUIRE_MESSAGE(module != nullptr, dlerror());
        CHECK(reinterpret_cast<bool (*)()>(dlsym(module, "visitorIsRegistered"))());
        CHECK(isRegistered(L"Visitor"));
        {
            const Handle_T<Unknown> visitor = Registry::createClassInstance(L"Visitor");
            REQUIRE(!visitor.isNull());
            CHECK(visitor->getClassName() == L"Visitor");
            CHECK(visitor->clone()->getClassId() == visitor->getClassId());
            CHECK(Registry::createClassInstance(visitor->getClassId()) != nullptr);
        }
        CHECK(dlclose(module) == 0);
        CHECK(dlopen(ORVI_TEST_MODULE, RTLD_NOW | RTLD_NOLOAD) == nullptr); // really gone
        CHECK(!isRegistered(L"Visitor"));
        CHECK(Registry::createClassInstance(L"Visitor").isNull());
    }
}
