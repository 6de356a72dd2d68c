#include "DebugApi.h"
#include "MappedModules.h"
#include <unistd.h>

void orvi_debug_visit_modules(void (*visit)(void* context, const OrviDebugModule* module), void* context)
{
    orvi::debug::MappedModules modules(gettid());
    while (modules.next()) {
        OrviDebugModule module{
            modules.path(), modules.image().start(), modules.image().end() - modules.image().start(), {}};
        modules.version(module.version);
        visit(context, &module);
    }
}
