#pragma once
#include <cstdint>
#include <ctime>

namespace orvi::debug {

/** For waiting in small steps, which needs neither signals nor locks. Signal-safe. */
class Deadline {
public:
    explicit Deadline(int millis)
        : _end(now() + millis)
    {}
    bool isOver() const { return now() >= _end; }

    static void pause()
    {
        constexpr timespec millisecond{0, 1'000'000};
        nanosleep(&millisecond, nullptr);
    }

private:
    static std::int64_t now()
    {
        timespec time{};
        clock_gettime(CLOCK_MONOTONIC, &time);
        return std::int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
    }

    std::int64_t _end;
};

} // namespace orvi::debug
