// A module that lacks something that it calls: it must not load.
#include <orvi/core/Export.h>

extern "C" int nobodyHasThis();

extern "C" ORVI_API int callNobody() { return nobodyHasThis(); }
