#include "platform/hosting/ModuleLoader.h"

#include "platform/files/FilePath.h"

#include <orvi/core/Encoding.h>

#include <cerrno>
#include <dlfcn.h>

namespace orvi::platform {

namespace {

// The loader keeps its text per thread.
String lastReason() { return StringHelper::utf8ToWide(dlerror()).trimRight(); }

} // namespace

void* loadModule(const String& fileName, String& reason)
{
    if (fileName.isEmpty()) { // to the loader it is the program itself
        reason = getErrorString(ENOENT);
        return nullptr;
    }
    const String_T<char> path = bytesFromPath(fileName);
    if (path.isEmpty()) {
        reason = getErrorString(ENOMEM);
        return nullptr;
    }
    void* module = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr)
        reason = lastReason();
    return module;
}

void unloadModule(void* module) { dlclose(module); }

void* findInModule(void* module, const char* name, String& reason)
{
    dlerror(); // an older failure is none of ours
    void* symbol = dlsym(module, name);
    if (symbol == nullptr)
        reason = lastReason();
    return symbol;
}

} // namespace orvi::platform
