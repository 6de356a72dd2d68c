#include "Subject.h"

namespace subject {

static volatile int sink;

// One is needed after the call, one is not, one never has a place.
__attribute__((noinline)) int optimised(int kept, int lost, void (*stop)())
{
    const int constant = 42;
    const int computed = 2 * lost;
    sink = computed;
    stop();
    return kept + constant;
}

void showOptimised(void (*stop)())
{
    sink = optimised(7, 8, stop); // something to do after the call: a jump would leave no frame
}

} // namespace subject
