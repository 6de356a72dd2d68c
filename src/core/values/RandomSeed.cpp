#include "RandomSeed.h"

#include <orvi/core/Time.h>

#include <cstdlib>
#include <cstring>

namespace orvi {

unsigned int seedFromUuid(const Uuid& uuid, long long now)
{
    unsigned char bytes[sizeof uuid];
    std::memcpy(bytes, &uuid, sizeof bytes);
    unsigned int sum = 0;
    for (unsigned int i = 0; i < sizeof bytes; ++i)
        sum += static_cast<unsigned int>(bytes[i]) << (5 * (i % 3));
    if (sum == 0)
        return 0xFFFF;
    const unsigned int seed = sum & 0xFFFF;
    return seed != 0 ? seed : static_cast<unsigned int>(now);
}

void seedRandom() { std::srand(seedFromUuid(Uuid::create(), time(nullptr))); }

} // namespace orvi
