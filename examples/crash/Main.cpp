#include "Ways.h"

#include <orvi/core/Core.h>

#include <chrono>
#include <cstdio>
#include <string_view>
#include <thread>

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

void crashHere(const Way& way) { way.go(1); }

void crashOnThread(const Way& way)
{
    std::thread([&] {
        const orvi::CrashReportScope reports; // without it a full stack would leave none
        way.go(1);
    }).join();
}

void crashInLoop(const Way& way)
{
    const orvi::Handle_T<orvi::System> sea = new Sea(way);
    sea->load();
    sea->start();
    sea->unload();
}

void crashInLoopOnThread(const Way& way)
{
    const auto thread = orvi::Thread::createInstance();
    const orvi::Handle_T<orvi::System> sea = new Sea(way);
    if (!thread->start(sea))
        return;
    while (thread->getSystem() != nullptr)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

struct Place {
    std::string_view option;
    const char* description;
    void (*crash)(const Way& way);
};

constexpr Place places[] = {
    {"--here", "in main, as without an option", crashHere},
    {"--thread", "on a thread of the program's own", crashOnThread},
    {"--loop", "in the loop of a system, which goes on where it can", crashInLoop},
    {"--loop-thread", "the same, with the loop on a thread of its own", crashInLoopOnThread},
};

const Place* findPlace(std::string_view option)
{
    for (const Place& place : places) {
        if (place.option == option)
            return &place;
    }
    return nullptr;
}

int usage()
{
    std::printf("usage: crash [PLACE] WAY\n"
                "Ends in a way of your choice. The report lies beside the program. Places:\n");
    for (const Place& place : places)
        std::printf("  %-14s %s\n", place.option.data(), place.description);
    std::printf("Ways:\n");
    printWays();
    return 64;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2 && argc != 3)
        return usage();
    const Place* place = findPlace(argc == 3 ? argv[1] : "--here");
    const Way* way = findWay(argv[argc - 1]);
    if (place == nullptr || way == nullptr)
        return usage();
    orvi::handled_exception_filter("the captain");
    place->crash(*way);
    return 0;
}
