#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/String.h>
#include <orvi/core/Unknown.h>

namespace orvi {

/** A dynamic library that the program loads while it runs.

        const Handle_T<DllModule> module = DllModule::createInstance();
        if (module->load(L"./libplugin.so"))
            if (auto* start = reinterpret_cast<int (*)()>(module->getProcAddress(L"start")))
                start();

    Empty at first. What it has loaded outlives the object: the library goes from the process by unload()
    alone. A copy shares the library and nothing counts that: of all copies only one may unload it. The same
    library loaded by two objects is counted by the system.

    A library that registers classes, archives, converters or applications by static objects does so inside
    load(). Unload it when nothing of it is in use: its code goes. One thread at a time. */
class ORVI_API DllModule : public virtual Unknown {
public:
    static Handle_T<DllModule> createInstance();
    DllModule(const DllModule&) = default;
    DllModule& operator=(const DllModule&) = default;

    /** Loads the library `fileName`: a path, or a name without "/" that is looked for in the system's places.
        All that it needs must be there, to the last symbol, and memory for all that it registers. False, a line in the
        log and the former state on failure. A second load() keeps the former library in the process. */
    virtual bool load(const String& fileName);
    /** Lets go of the library; without one nothing. */
    virtual void unload();

    /** The address of what the library, or one that it is linked to, exports under this name. Null without a
        library, and also null, with a line in the log, when there is no such name. C++ mangles names: declare
        such functions `extern "C"`. */
    void* getProcAddress(const wchar_t* name) const;
    /** The name given to load(); empty while nothing is loaded. */
    const String& getFileName() const noexcept { return _fileName; }

protected:
    DllModule() noexcept = default;
    ~DllModule() override = default; // and the library stays

private:
    void* _module = nullptr;
    String _fileName;
};

/** Keep input that programs make up from the whole desktop. This system has no such hooks: both do nothing,
    and the first gives true. */
ORVI_API bool setUpWindowsHook();
ORVI_API void tearDownWindowsHook();

} // namespace orvi
