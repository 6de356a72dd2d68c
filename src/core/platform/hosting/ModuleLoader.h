#pragma once
#include <orvi/core/String.h>

namespace orvi::platform {

/** Loads a dynamic library with all that it needs, and binds all its symbols. Null on failure, and then the
    system's reason in `reason`. A name without a slash is looked for where the system keeps its libraries. */
void* loadModule(const String& fileName, String& reason);
void unloadModule(void* module);
/** What the module, or one that it is linked to, exports under this name, in UTF-8. Null, with the reason,
    when there is nothing. */
void* findInModule(void* module, const char* name, String& reason);

} // namespace orvi::platform
