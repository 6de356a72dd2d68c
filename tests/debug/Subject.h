#pragma once

/** Functions whose frames and variables the test looks at. All but one are compiled without optimisation, so that
    every variable is there. Each calls `stop` from its innermost frame. */
namespace subject {

struct Point {
    int x;
    int y;
};

/** Where the variables are whose values are shown by their address. */
struct Places {
    const void* point;
    const void* pointerToPointer;
    const void* numbers;
    const void* choice;
    const void* object;
};
extern Places places;

void showValues(void (*stop)());
void showNames(void (*stop)());
void showInlined(void (*stop)());
void showOptimised(void (*stop)());
int recurse(int depth, void (*stop)());

} // namespace subject
