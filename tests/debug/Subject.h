#pragma once

/** Functions whose frames and variables the test looks at. All but one are compiled without optimisation, so that
    every variable is there. Each calls `stop` from its innermost frame. */
namespace subject {

struct Point {
    int x;
    int y;
};

void showValues(void (*stop)());
void showNames(void (*stop)());
void showInlined(void (*stop)());
void showOptimised(void (*stop)());
int recurse(int depth, void (*stop)());

} // namespace subject
