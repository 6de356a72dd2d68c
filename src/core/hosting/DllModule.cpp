#include <orvi/core/DllModule.h>

#include <orvi/core/Encoding.h>
#include <orvi/core/Log.h>

#include "objects/Registration.h"
#include "platform/hosting/ModuleLoader.h"

#include <cerrno>

namespace orvi {

Handle_T<DllModule> DllModule::createInstance() { return new DllModule; }

bool DllModule::load(const String& fileName)
{
    String reason;
    const unsigned int missed = missedRegistrations();
    void* module = platform::loadModule(fileName, reason);
    if (module != nullptr && missed != missedRegistrations()) {
        platform::unloadModule(module); // half of its classes would be missing as long as it is there
        module = nullptr;
        reason = getErrorString(ENOMEM);
    }
    if (module == nullptr) {
        Log::error(L"Unable to load %s.  %s", fileName.getBuffer(), reason.getBuffer());
        return false;
    }
    _module = module;
    _fileName = fileName;
    return true;
}

void DllModule::unload()
{
    if (_module == nullptr)
        return;
    platform::unloadModule(_module);
    _module = nullptr;
    _fileName = String();
}

void* DllModule::getProcAddress(const wchar_t* name) const
{
    if (_module == nullptr)
        return nullptr;
    String reason;
    void* address = platform::findInModule(_module, StringHelper::wideToUtf8(name), reason);
    if (address == nullptr)
        Log::error(L"The procedure entry point %s could not be located in the dynamic link library %s. %s",
                   String(name).getBuffer(), _fileName.getBuffer(), reason.getBuffer());
    return address;
}

bool setUpWindowsHook() { return true; }

void tearDownWindowsHook() {}

} // namespace orvi
