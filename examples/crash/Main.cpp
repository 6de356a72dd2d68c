#include "Ways.h"

#include <orvi/core/Core.h>

#include <cstdio>
#include <cstring>

// Ends in a way of your choice, so that you can see what a report on it looks like.

namespace {

/** Turns a loop that crashes three times, and tells what the loop hears of it. */
class Sea : public orvi::System {
public:
    explicit Sea(const Way& way)
        : _way(way)
    {}

    void onTick(unsigned int) override
    {
        if (_crashes == 3) {
            std::printf("the loop has gone on\n");
            shutdown();
            return;
        }
        ++_crashes;
        _way.go(_crashes);
    }
    void onException(unsigned long code) override
    {
        std::printf("exception 0x%08lX\n", code);
        std::fflush(stdout);
    }

private:
    const Way& _way;
    int _crashes = 0;
};

int usage()
{
    std::printf(
        "usage: crash [--loop] WAY\n"
        "Ends in a way of your choice; with --loop, in the loop of a system, which goes on where it can.\n"
        "The report lies beside the program. Ways:\n");
    printWays();
    return 64;
}

} // namespace

int main(int argc, char** argv)
{
    const bool inLoop = argc == 3 && std::strcmp(argv[1], "--loop") == 0;
    const Way* way = argc == 2 || inLoop ? findWay(argv[argc - 1]) : nullptr;
    if (way == nullptr)
        return usage();
    orvi::handled_exception_filter("the captain");
    if (inLoop) {
        const orvi::Handle_T<orvi::System> sea = new Sea(*way);
        sea->load();
        sea->start();
        sea->unload();
    } else {
        way->go(1);
    }
    return 0;
}
