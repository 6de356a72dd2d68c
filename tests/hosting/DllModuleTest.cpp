#include "RecordingLog.h"
#include "TempDirectory.h"
#include "TextPrinting.h"

#include <orvi/core/DllModule.h>

#include <filesystem>

using orvi::DllModule;
using orvi::Handle_T;
using orvi::String;

namespace {

const String gadget = orvi::StringHelper::utf8ToWide(ORVI_TEST_MODULE);
const String unresolved = orvi::StringHelper::utf8ToWide(ORVI_TEST_UNRESOLVED);

Handle_T<DllModule> loadGadget()
{
    const Handle_T<DllModule> module = DllModule::createInstance();
    REQUIRE(module->load(gadget));
    return module;
}

template <class Function>
Function* functionOf(const DllModule& module, const wchar_t* name)
{
    void* const address = module.getProcAddress(name);
    REQUIRE(address != nullptr);
    return reinterpret_cast<Function*>(address);
}

void countGoodbyes(const DllModule& module, int& goodbyes)
{
    functionOf<void(int*)>(module, L"gadgetCountGoodbyes")(&goodbyes);
}

} // namespace

TEST_CASE("a module is loaded, asked and unloaded")
{
    const RecordingLog log;
    const Handle_T<DllModule> module = DllModule::createInstance();
    CHECK(module->getFileName().isEmpty());
    CHECK(module->getProcAddress(L"gadgetAnswer") == nullptr);
    module->unload();
    for (int round = 0; round < 2; ++round) {
        REQUIRE(module->load(gadget));
        CHECK(module->getFileName() == gadget);
        CHECK(functionOf<int()>(*module, L"gadgetAnswer")() == 42);
        int goodbyes = 0;
        countGoodbyes(*module, goodbyes);
        module->unload();
        CHECK(goodbyes == 1);
        CHECK(module->getFileName().isEmpty());
        CHECK(module->getProcAddress(L"gadgetAnswer") == nullptr);
    }
    CHECK(log.lines().empty());
}

TEST_CASE("what does not load says why, and the module keeps what it had")
{
    const TempDirectory place;
    const struct {
        const char* what;
        String fileName;
        const wchar_t* reason; // a part of it
    } rows[] = {
        {"missing", place.name("missing.so"), L"No such file or directory"},
        {"missing in the system's places", L"no-such-library.so", L"No such file or directory"},
        {"no name, which the system takes for the program", L"", L"No such file or directory"},
        {"a directory", place.name("."), L": "},
        {"no library", L"/dev/null", L": "},
        {"a symbol that nobody has", unresolved, L"nobodyHasThis"},
    };
    const Handle_T<DllModule> module = loadGadget();
    for (const auto& row : rows) {
        CAPTURE(row.what);
        const RecordingLog log;
        CHECK_FALSE(module->load(row.fileName));
        REQUIRE(log.lines().size() == 1);
        const String line = log.errors().at(0);
        CAPTURE(line);
        CHECK(line.find(String(L"Unable to load ") + row.fileName + L".  ") == 0);
        CHECK(line.find(row.reason) > 0);
        CHECK(line.find(L'\n') < 0);
        CHECK(module->getFileName() == gadget);
        CHECK(module->getProcAddress(L"gadgetAnswer") != nullptr);
    }
    module->unload();
}

TEST_CASE("a name that a module does not export is told with both names")
{
    const Handle_T<DllModule> module = loadGadget();
    const RecordingLog log;
    for (const wchar_t* name : {L"größe", L"", static_cast<const wchar_t*>(nullptr)}) {
        log.clear();
        CHECK(module->getProcAddress(name) == nullptr);
        REQUIRE(log.lines().size() == 1);
        const String line = log.errors().at(0);
        CAPTURE(line);
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
    CHECK(goodbyes == 0);

    {
        const Handle_T<DllModule> copy = new DllModule(*loadGadget());
        CHECK(copy->getFileName() == gadget);
        CHECK(copy->getProcAddress(L"gadgetAnswer") != nullptr);
    }
    CHECK(goodbyes == 0);

    const Handle_T<DllModule> last = loadGadget(); // the third: the system counts
    last->unload();
    CHECK(goodbyes == 0);
}

TEST_CASE("a module lies where its name is no UTF-8")
{
    const TempDirectory place;
    const std::filesystem::path path = place.path() / "gr\xFC\xDF"
                                                      "e.so";
    std::filesystem::copy_file(ORVI_TEST_MODULE, path);
    const Handle_T<DllModule> module = DllModule::createInstance();
    CHECK(module->load(place.name("gr") + L"\xDCFC\xDCDF"
                                          L"e.so"));
    CHECK(module->getProcAddress(L"gadgetAnswer") != nullptr);
    module->unload();
}

TEST_CASE("there are no hooks for input here")
{
    const RecordingLog log;
    orvi::tearDownWindowsHook();
    CHECK(orvi::setUpWindowsHook());
    CHECK(orvi::setUpWindowsHook());
    orvi::tearDownWindowsHook();
    CHECK(log.lines().empty());
}
