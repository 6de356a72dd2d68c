#include "RecordingLog.h"
#include "TempDirectory.h"
#include "TextPrinting.h"

#include <orvi/core/DllModule.h>

#include <filesystem>

using namespace orvi;

namespace {

const String gadget = StringHelper::utf8ToWide(ORVI_TEST_MODULE);
const String unresolved = StringHelper::utf8ToWide(ORVI_TEST_UNRESOLVED);

Handle_T<DllModule> loadGadget()
{
    const Handle_T<DllModule> module = DllModule::createInstance();
    REQUIRE(module->load(gadget));
    return module;
}

int answerOf(const DllModule& module)
{
    void* const address = module.getProcAddress(L"gadgetAnswer");
    return address != nullptr ? reinterpret_cast<int (*)()>(address)() : 0;
}

void countGoodbyes(const DllModule& module, int& goodbyes)
{
    reinterpret_cast<void (*)(int*)>(module.getProcAddress(L"gadgetCountGoodbyes"))(&goodbyes);
}

} // namespace

TEST_CASE("a module is loaded, asked and unloaded, also where its name is no UTF-8")
{
    const RecordingLog log;
    const TempDirectory place;
    std::filesystem::copy_file(ORVI_TEST_MODULE, place / "gr\xFC\xDF.so");
    const Handle_T<DllModule> module = DllModule::createInstance();
    CHECK(answerOf(*module) == 0);
    module->unload();
    for (const String& name : {gadget, place.name("gr") + L"\xDCFC\xDCDF.so"}) {
        REQUIRE(module->load(name));
        CHECK(module->getFileName() == name);
        CHECK(answerOf(*module) == 42);
        int goodbyes = 0;
        countGoodbyes(*module, goodbyes);
        module->unload();
        CHECK(goodbyes == 1);
        CHECK(module->getFileName().isEmpty());
        CHECK(answerOf(*module) == 0);
    }
    CHECK(setUpWindowsHook());
    tearDownWindowsHook();
    CHECK(log.lines().empty());
}

TEST_CASE("what does not load says why, and the module keeps what it had")
{
    const TempDirectory place;
    const std::pair<String, const wchar_t*> rows[] = {
        // with a part of the reason
        {place.name("missing.so"), L"No such file or directory"},
        {L"no-such-library.so", L"No such file or directory"}, // in the system's places
        {L"", L"No such file or directory"},                   // which the system takes for the program
        {L"/dev/null", L": "},
        {unresolved, L"nobodyHasThis"},
    };
    const Handle_T<DllModule> module = loadGadget();
    for (const auto& row : rows) {
        CAPTURE(row.first);
        const RecordingLog log;
        CHECK_FALSE(module->load(row.first));
        const String line = log.errors().at(0);
        CHECK(line.find(String(L"Unable to load ") + row.first + L".  ") == 0);
        CHECK(line.find(row.second) > 0);
        CHECK(line.find(L'\n') < 0);
        CHECK(module->getFileName() == gadget);
        CHECK(answerOf(*module) == 42);
    }
    module->unload();
}

TEST_CASE("a name that a module does not export is told with both names")
{
    const Handle_T<DllModule> module = loadGadget();
    const RecordingLog log;
    for (const wchar_t* name : {L"größe", L"", static_cast<const wchar_t*>(nullptr)}) {
        CHECK(module->getProcAddress(name) == nullptr);
        const String line = log.errors().back();
        CHECK(line.find(String(L"The procedure entry point ") + name +
                        L" could not be located in the dynamic link library " + gadget + L". ") == 0);
        CHECK(line.find(L"undefined symbol") > 0);
    }
    module->unload();
}

TEST_CASE("a module stays when its object goes, and copies share it")
{
    static int goodbyes = 0;                // the module counts there at the end of the program
    countGoodbyes(*loadGadget(), goodbyes); // the object is gone behind this line
    {
        const Handle_T<DllModule> copy = new DllModule(*loadGadget());
        CHECK(copy->getFileName() == gadget);
        CHECK(answerOf(*copy) == 42);
    }
    loadGadget()->unload(); // the third: the system counts
    CHECK(goodbyes == 0);
}
