#pragma once

/** One way to end a program. */
struct Way {
    const char* name;
    const char* description;
    void (*go)(int depth);
};

/** The way of that name; null when there is none. */
const Way* findWay(const char* name);

void printWays();
