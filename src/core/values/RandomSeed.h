#pragma once
#include <orvi/core/Uuid.h>

namespace orvi {

/** A seed for srand out of the uuid's bytes. Where they make 0, `now`, a time of orvi::time, steps in. */
unsigned int seedFromUuid(const Uuid& uuid, long long now);

/** Seeds the process's rand from a fresh uuid. */
void seedRandom();

} // namespace orvi
