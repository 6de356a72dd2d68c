#pragma once
#include <elfutils/libdwfl.h>

namespace orvi::debug {

/** The program, the libraries and the kernel's page that are loaded now. One thread at a time. */
class LoadedModules {
public:
    constexpr LoadedModules() = default;
    LoadedModules(const LoadedModules&) = delete;
    LoadedModules& operator=(const LoadedModules&) = delete;

    /** Brings the list up to date. Modules that stay keep what was read of their files; what belongs to the
        others is gone. Null when there is no memory or no /proc. */
    Dwfl* current();

private:
    Dwfl* _dwfl = nullptr;
    unsigned long long _loads = 0;
    unsigned long long _unloads = 0;
};

} // namespace orvi::debug
