#pragma once
#include <doctest/doctest.h>

#include <iostream>
#include <sys/wait.h>
#include <unistd.h>

/** Whether the process ends by itself, with success. */
inline bool endsWell(pid_t process)
{
    int status = -1;
    REQUIRE(waitpid(process, &status, 0) == process);
    return status == 0;
}

/** Whether the action comes to its end in a child of this process, whose settings it may change. There only
    REQUIRE counts. */
template <class Action>
bool succeedsInChild(Action action)
{
    std::cout.flush(); // else the child would print it again
    const pid_t child = fork();
    REQUIRE(child >= 0);
    if (child == 0) {
        bool good = false;
        try {
            action();
            good = true;
        } catch (...) { // else the child would go on with the other cases
            std::cout.flush();
        }
        _exit(good ? 0 : 1);
    }
    return endsWell(child);
}
