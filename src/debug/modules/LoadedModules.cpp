#include "LoadedModules.h"

#include "DebugFiles.h"
#include "MappedModules.h"
#include <cstddef>
#include <link.h>
#include <unistd.h>

namespace orvi::debug {
namespace {

struct LoadCounts {
    unsigned long long loads = 0;
    unsigned long long unloads = 0;
};

// They count for all namespaces together, and change after the mapping of a module has: whoever reads them
// first and the maps then misses nothing for good.
LoadCounts loadCounts()
{
    LoadCounts counts;
    dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* result) {
            *static_cast<LoadCounts*>(result) = {info->dlpi_adds, info->dlpi_subs};
            return 1; // the first one knows
        },
        &counts);
    return counts;
}

// False when the modules cannot be listed.
bool reportModules(Dwfl* dwfl)
{
    MappedModules modules(gettid());
    bool any = false;
    for (; modules.next(); any = true)
        dwfl_report_module(dwfl, modules.path(), modules.image().start(), modules.image().end());
    return any;
}

} // namespace

Dwfl* LoadedModules::current()
{
    const LoadCounts counts = loadCounts();
    if (_dwfl != nullptr && counts.loads == _loads && counts.unloads == _unloads)
        return _dwfl;

    // Another build of an unloaded file may lie at the same address with the same size, and libdwfl would
    // take it for the old one.
    if (_dwfl != nullptr && counts.unloads != _unloads) {
        dwfl_end(_dwfl);
        _dwfl = nullptr;
    }
    if (_dwfl == nullptr)
        _dwfl = dwfl_begin(&debugFileCallbacks);
    if (_dwfl == nullptr)
        return nullptr;

    dwfl_report_begin(_dwfl);
    const bool read = reportModules(_dwfl);
    dwfl_report_end(_dwfl, nullptr, nullptr);
    if (!read) {
        dwfl_end(_dwfl);
        _dwfl = nullptr;
        return nullptr;
    }
    _loads = counts.loads;
    _unloads = counts.unloads;
    return _dwfl;
}

} // namespace orvi::debug
