#include "ServiceProcess.h"

#include <orvi/core/FileMutex.h>
#include <orvi/core/Mutex.h>
#include <orvi/core/Semaphore.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <thread>
#include <vector>

#include <sys/stat.h>

namespace fs = std::filesystem;
using namespace orvi;
using namespace std::chrono;

namespace {

using Clock = steady_clock;

constexpr unsigned int endless = Semaphore::endless;

template <class Body>
std::vector<std::jthread> startThreads(int count, Body body)
{
    std::vector<std::jthread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back(body);
    return threads;
}

Handle_T<FileMutex> makeMutex(const fs::path& path)
{
    return FileMutex::createInstance(StringHelper::utf8ToWide(path.c_str()));
}

} // namespace

TEST_CASE("a thread may lock a Mutex again, and others wait")
{
    Mutex mutex;
    int counter = 0;
    auto threads = startThreads(4, [&] {
        for (int i = 0; i < 2000; ++i) {
            const MutexGuard outer(mutex);
            const MutexGuard inner(mutex);
            ++counter;
        }
    });
    threads.clear();
    CHECK(counter == 8000);
}

TEST_CASE("a Semaphore counts signals, and a wait takes one, all, or none when its time is up")
{
    const Handle_T<Semaphore> semaphore = Semaphore::createInstance();
    for (const bool all : {false, true}) {
        CHECK_FALSE(semaphore->wait(0, all));
        for (int i = 0; i < 3; ++i)
            semaphore->signal();
        for (int i = 0; i < (all ? 1 : 3); ++i)
            CHECK(semaphore->wait(endless, all));
        CHECK_FALSE(semaphore->wait(0, false));
    }
    const auto start = Clock::now();
    CHECK_FALSE(semaphore->wait(50, false));
    CHECK(Clock::now() - start >= milliseconds(50));
    semaphore->signal();
    CHECK(semaphore->wait(0, false));
}

TEST_CASE("a waiter that is beaten to a signal waits its whole time again")
{
    constexpr milliseconds timeout{200};
    const Handle_T<Semaphore> semaphore = Semaphore::createInstance();
    for (bool isSeen = false; !isSeen;) {
        bool isTaken = false;
        Clock::time_point end;
        const auto start = Clock::now();
        auto waiter = startThreads(1, [&] {
            isTaken = semaphore->wait(timeout.count(), false);
            end = Clock::now();
        });
        std::this_thread::sleep_for(timeout / 2); // so that a whole time and the rest of one differ
        const auto signalled = Clock::now();
        semaphore->signal();
        semaphore->wait(0, false);
        isSeen = Clock::now() - start < timeout; // else the wait may have been over before
        waiter.clear();
        isSeen = isSeen && !isTaken;
        CHECK((!isSeen || end - signalled >= timeout));
    }
}

TEST_CASE("every signal finds a waiter")
{
    constexpr int threads = 8, rounds = 3000;
    const Handle_T<Semaphore> semaphore = Semaphore::createInstance();
    for (const unsigned int timeout : {endless, 60000u}) {
        std::atomic<int> taken = 0;
        auto waiters = startThreads(threads, [&] {
            for (int i = 0; i < rounds; ++i)
                taken += semaphore->wait(timeout, false) ? 1 : 0;
        });
        auto signallers = startThreads(threads, [&] {
            for (int i = 0; i < rounds; ++i)
                semaphore->signal();
        });
        waiters.clear();
        CHECK(taken == threads * rounds);
        CHECK_FALSE(semaphore->wait(0, false));
    }
}

TEST_CASE("two threads hand over to each other")
{
    const Handle_T<Semaphore> ping = Semaphore::createInstance(), pong = Semaphore::createInstance();
    int value = 0; // guarded by the hand-over
    const std::jthread other([&] {
        for (int i = 0; i < 1000; ++i) {
            ping->wait(endless, false);
            ++value;
            pong->signal();
        }
    });
    for (int i = 0; i < 1000; ++i) {
        ping->signal();
        pong->wait(endless, true);
        REQUIRE(value == i + 1);
    }
}

TEST_CASE("sync waits until few enough signals are left")
{
    const Handle_T<Semaphore> semaphore = Semaphore::createInstance();
    semaphore->sync(0);
    for (int i = 0; i < 3; ++i)
        semaphore->signal();
    semaphore->sync(3);

    std::atomic<int> released = 0;
    const auto sync = [&](int level) {
        return startThreads(3, [&, level] {
            semaphore->sync(level);
            ++released;
        });
    };
    auto levelTwo = sync(2), levelZero = sync(0);
    CHECK(released == 0);
    CHECK(semaphore->wait(0, false));
    levelTwo.clear();
    CHECK(released == 3);
    CHECK(semaphore->wait(0, true));
    levelZero.clear();
    CHECK(released == 6);
}

TEST_CASE("a FileMutex excludes other objects and leaves no file behind")
{
    const TempDirectory directory;
    const auto path = directory / "lock";
    const Handle_T<FileMutex> first = makeMutex(path);
    Handle_T<FileMutex> second = makeMutex(path);
    CHECK_FALSE(fs::exists(path));

    CHECK(first->lock(0));
    CHECK(first->lock(0));
    CHECK(fs::exists(path));
    CHECK_FALSE(second->lock(0));
    const auto start = Clock::now();
    CHECK_FALSE(second->lock(30));
    CHECK(Clock::now() - start >= milliseconds(30));
    CHECK_FALSE(second->isLocked());

    first->unlock();
    CHECK_FALSE(first->isLocked());
    CHECK_FALSE(fs::exists(path));
    CHECK(second->lock(endless));
    second.setNull();
    CHECK_FALSE(fs::exists(path));
}

TEST_CASE("a file that nobody holds blocks nobody, and one with another name at its place stays")
{
    const TempDirectory directory;
    const auto path = directory / "lock";
    std::ofstream(path) << "left behind";
    const Handle_T<FileMutex> mutex = makeMutex(path);
    REQUIRE(mutex->lock(0));
    fs::rename(path, directory / "moved");
    std::ofstream(path) << "somebody else's";
    mutex->unlock();
    CHECK(fs::exists(path));
}

TEST_CASE("what cannot be locked counts as held")
{
    const TempDirectory directory;
    REQUIRE(mkfifo((directory / "fifo").c_str(), 0600) == 0);
    const fs::path rows[] = {directory.path(), directory / "fifo", "/dev/null", directory / "missing/lock",
                             ""};
    for (const auto& path : rows) {
        CAPTURE(path.string());
        const bool existed = fs::exists(path);
        const Handle_T<FileMutex> mutex = makeMutex(path);
        CHECK_FALSE(mutex->lock(0));
        CHECK_FALSE(mutex->lock(25));
        mutex->unlock();
        CHECK(fs::exists(path) == existed);
    }
}

TEST_CASE("the lock of a killed process is free again")
{
    const TempDirectory directory;
    const auto path = directory / "lock";
    const Bell held;
    ServiceProcess holder("", [&] {
        const Handle_T<FileMutex> mutex = makeMutex(path);
        if (mutex->lock(0))
            held.ring();
        for (;;)
            pause();
        return 0;
    });
    REQUIRE(held.wait());
    const Handle_T<FileMutex> mutex = makeMutex(path);
    CHECK_FALSE(mutex->lock(0));
    const auto waiter = startThreads(1, [&] { CHECK(mutex->lock(endless)); });
    holder.kill(SIGKILL);
}

TEST_CASE("a fork does not hold the lock of its parent, nor remove its file")
{
    const TempDirectory directory;
    const auto path = directory / "lock";
    Handle_T<FileMutex> mutex = makeMutex(path);
    REQUIRE(mutex->lock(0));
    ServiceProcess child("", [&] {
        const bool held = mutex->isLocked() || mutex->lock(0);
        mutex.setNull();
        return held ? 1 : 0;
    });
    CHECK(child.wait() == 0);
    CHECK(fs::exists(path));
    CHECK_FALSE(makeMutex(path)->lock(0));
    CHECK(mutex->isLocked());
}

TEST_CASE("of many processes and threads never two hold one lock")
{
    const TempDirectory directory;
    const auto path = directory / "lock", inside = directory / "inside";
    const auto compete = [&] {
        const Handle_T<FileMutex> mutex = makeMutex(path);
        int violations = 0;
        for (int i = 0; i < 400; ++i) {
            while (!mutex->lock(0)) // without the pauses between looks there is more of a race
                std::this_thread::yield();
            violations += mkdir(inside.c_str(), 0700) != 0;
            if (i % 4 == 0)
                std::this_thread::yield();
            rmdir(inside.c_str());
            mutex->unlock();
        }
        return violations != 0;
    };
    std::vector<std::unique_ptr<ServiceProcess>> children;
    for (int i = 0; i < 5; ++i)
        children.push_back(std::make_unique<ServiceProcess>("", compete));
    auto threads = startThreads(2, [&] { CHECK_FALSE(compete()); });
    threads.clear();
    for (const auto& child : children)
        CHECK(child->wait() == 0);
    CHECK_FALSE(fs::exists(path));
}
