#include <doctest/doctest.h>
#include <orvi/core/Encoding.h>
#include <orvi/core/FileMutex.h>
#include <orvi/core/Mutex.h>
#include <orvi/core/Semaphore.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace std::chrono;
using orvi::FileMutex;
using orvi::Handle_T;
using orvi::Semaphore;
using orvi::String;

namespace {

using Clock = steady_clock;

constexpr unsigned int endless = Semaphore::endless;

template <class Body>
std::vector<std::thread> startThreads(int count, Body body)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back(body);
    return threads;
}

void join(std::vector<std::thread>& threads)
{
    for (std::thread& thread : threads)
        thread.join();
}

/** Steals signals from a waiter. Gives the time from the last of them to the end of the wait; 0 when there
    was nothing to see, as the waiter was quicker, or this thread was held up for longer than the waiter
    waits. */
Clock::duration beatWaiter(milliseconds timeout)
{
    const Handle_T<Semaphore> semaphore = Semaphore::createInstance();
    std::atomic<bool> started = false;
    std::atomic<bool> taken = false;
    Clock::time_point start;
    Clock::time_point end;
    std::thread waiter([&] {
        start = Clock::now();
        started = true;
        taken = semaphore->wait(static_cast<unsigned int>(timeout.count()), false);
        end = Clock::now();
    });
    while (!started)
        std::this_thread::yield();
    Clock::time_point lastSignal;
    for (int i = 0; i < 5 && !taken; ++i) {
        std::this_thread::sleep_for(milliseconds(20));
        lastSignal = Clock::now();
        semaphore->signal();
        semaphore->wait(0, false);
    }
    const Clock::time_point lastStolen = Clock::now();
    waiter.join();
    const bool seen = !taken && lastStolen - start < timeout;
    return seen ? end - lastSignal : Clock::duration::zero();
}

/** A directory of this test's own. */
class TempDirectory {
public:
    TempDirectory()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "orvi-sync-XXXXXX").string();
        REQUIRE(mkdtemp(pattern.data()) != nullptr);
        _path = pattern;
    }
    ~TempDirectory() { std::filesystem::remove_all(_path); }

    std::filesystem::path operator/(const char* name) const { return _path / name; }

private:
    std::filesystem::path _path;
};

Handle_T<FileMutex> makeMutex(const std::filesystem::path& path)
{
    return FileMutex::createInstance(orvi::StringHelper::utf8ToWide(path.c_str()));
}

/** Runs `body` in a fork, whose exit code is the result of it. */
template <class Body>
pid_t startProcess(Body body)
{
    std::fflush(stdout); // what is kept back would come twice
    const pid_t child = fork();
    REQUIRE(child >= 0);
    if (child == 0)
        _exit(body());
    return child;
}

/** The exit code, or -1 for another end. */
int waitForProcess(pid_t child)
{
    int status = 0;
    REQUIRE(waitpid(child, &status, 0) == child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/** Numbers that a process shares with its forks. */
struct SharedCounters {
    std::atomic<int> inside;
    std::atomic<int> violations;
    std::atomic<int> rounds;
    std::atomic<int> ready;
};

class SharedMemory {
public:
    explicit SharedMemory(const std::filesystem::path& path)
    {
        std::ofstream(path).write("", 1);
        std::filesystem::resize_file(path, sizeof(SharedCounters));
        const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
        REQUIRE(file >= 0);
        _memory = mmap(nullptr, sizeof(SharedCounters), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        close(file);
        REQUIRE(_memory != MAP_FAILED);
    }
    ~SharedMemory() { munmap(_memory, sizeof(SharedCounters)); }

    SharedCounters* operator->() const { return static_cast<SharedCounters*>(_memory); }

private:
    void* _memory;
};

} // namespace

TEST_CASE("a thread may lock a Mutex again, and others wait")
{
    orvi::Mutex mutex;
    int counter = 0;
    auto threads = startThreads(4, [&] {
        for (int i = 0; i < 2000; ++i) {
            const orvi::MutexGuard outer(mutex);
            const orvi::MutexGuard inner(mutex);
            ++counter;
        }
    });
    join(threads);
    CHECK(counter == 8000);
}

TEST_CASE("a Semaphore counts signals")
{
    const Handle_T<Semaphore> semaphore = Semaphore::createInstance();
    CHECK_FALSE(semaphore->wait(0, false));
    for (int i = 0; i < 3; ++i)
        semaphore->signal();
    for (int i = 0; i < 3; ++i)
        CHECK(semaphore->wait(0, false));
    CHECK_FALSE(semaphore->wait(0, false));

    for (int i = 0; i < 3; ++i)
        semaphore->signal();
    CHECK(semaphore->wait(endless, true));
    CHECK_FALSE(semaphore->wait(0, false));
    CHECK_FALSE(semaphore->wait(0, true));
}

TEST_CASE("a wait ends when its time is up and takes nothing")
{
    const Handle_T<Semaphore> semaphore = Semaphore::createInstance();
    const auto start = Clock::now();
    CHECK_FALSE(semaphore->wait(50, false));
    CHECK(Clock::now() - start >= milliseconds(50));
    semaphore->signal();
    CHECK(semaphore->wait(0, false));
}

TEST_CASE("a waiter that is beaten to a signal waits its whole time again")
{
    constexpr milliseconds timeout{250};
    Clock::duration waited{};
    for (int attempt = 0; attempt < 20 && waited == Clock::duration::zero(); ++attempt)
        waited = beatWaiter(timeout);
    if (waited != Clock::duration::zero())
        CHECK(waited >= timeout);
}

TEST_CASE("every signal finds a waiter")
{
    constexpr int threads = 8;
    constexpr int rounds = 3000;
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
        join(signallers);
        join(waiters);
        CHECK(taken == threads * rounds);
        CHECK_FALSE(semaphore->wait(0, false));
    }
}

TEST_CASE("signals release as many sleeping waiters as there are signals")
{
    constexpr int sleepers = 6;
    const Handle_T<Semaphore> semaphore = Semaphore::createInstance();
    for (int round = 0; round < 200; ++round) {
        std::atomic<int> awake = 0;
        auto waiters = startThreads(sleepers, [&] {
            semaphore->wait(endless, false);
            ++awake;
        });
        for (int i = 0; i < sleepers; ++i)
            semaphore->signal();
        join(waiters);
        CHECK(awake == sleepers);
    }
}

TEST_CASE("two threads hand over to each other")
{
    const Handle_T<Semaphore> ping = Semaphore::createInstance();
    const Handle_T<Semaphore> pong = Semaphore::createInstance();
    int value = 0; // guarded by the hand-over
    std::thread other([&] {
        for (int i = 0; i < 5000; ++i) {
            ping->wait(endless, false);
            ++value;
            pong->signal();
        }
    });
    for (int i = 0; i < 5000; ++i) {
        ping->signal();
        pong->wait(endless, true);
        REQUIRE(value == i + 1);
    }
    other.join();
}

TEST_CASE("sync waits until few enough signals are left")
{
    const Handle_T<Semaphore> semaphore = Semaphore::createInstance();
    semaphore->sync(0);
    for (int i = 0; i < 3; ++i)
        semaphore->signal();
    semaphore->sync(3);

    std::atomic<int> released = 0;
    auto levelTwo = startThreads(3, [&] {
        semaphore->sync(2);
        ++released;
    });
    auto levelZero = startThreads(3, [&] {
        semaphore->sync(0);
        ++released;
    });
    CHECK(released == 0);
    CHECK(semaphore->wait(0, false));
    join(levelTwo);
    CHECK(released == 3);
    CHECK(semaphore->wait(0, true));
    join(levelZero);
    CHECK(released == 6);
}

TEST_CASE("a FileMutex excludes other objects and leaves no file behind")
{
    const TempDirectory directory;
    const auto path = directory / "lock";
    const Handle_T<FileMutex> first = makeMutex(path);
    Handle_T<FileMutex> second = makeMutex(path);
    CHECK_FALSE(std::filesystem::exists(path));

    CHECK(first->lock(0));
    CHECK(first->lock(0));
    CHECK(first->isLocked());
    CHECK(std::filesystem::exists(path));
    CHECK_FALSE(second->lock(0));
    const auto start = Clock::now();
    CHECK_FALSE(second->lock(30));
    CHECK(Clock::now() - start >= milliseconds(30));
    CHECK_FALSE(second->isLocked());

    first->unlock();
    first->unlock();
    CHECK_FALSE(first->isLocked());
    CHECK_FALSE(std::filesystem::exists(path));
    CHECK(second->lock(FileMutex::endless));
    second.setNull();
    CHECK_FALSE(std::filesystem::exists(path));
    CHECK(first->lock(0));
}

TEST_CASE("a FileMutex that waits gets the lock")
{
    const TempDirectory directory;
    const Handle_T<FileMutex> holder = makeMutex(directory / "lock");
    REQUIRE(holder->lock(0));
    std::thread waiter([&] {
        const Handle_T<FileMutex> mutex = makeMutex(directory / "lock");
        CHECK(mutex->lock(FileMutex::endless));
    });
    holder->unlock();
    waiter.join();
}

TEST_CASE("a file that nobody holds blocks nobody, and one with another name at its place stays")
{
    const TempDirectory directory;
    const auto path = directory / "lock";
    std::ofstream(path) << "left behind";
    const Handle_T<FileMutex> mutex = makeMutex(path);
    REQUIRE(mutex->lock(0));
    std::filesystem::rename(path, directory / "moved");
    std::ofstream(path) << "somebody else's";
    mutex->unlock();
    CHECK(std::filesystem::exists(path));
}

TEST_CASE("what cannot be locked counts as held")
{
    const TempDirectory directory;
    std::filesystem::create_directory(directory / "directory");
    REQUIRE(mkfifo((directory / "fifo").c_str(), 0600) == 0);
    const std::filesystem::path rows[] = {directory / "directory", directory / "fifo", "/dev/null",
                                          directory / "missing/lock", ""};
    for (const auto& path : rows) {
        CAPTURE(path.string());
        const bool existed = std::filesystem::exists(path);
        const Handle_T<FileMutex> mutex = makeMutex(path);
        CHECK_FALSE(mutex->lock(0));
        CHECK_FALSE(mutex->lock(25));
        mutex->unlock();
        CHECK(std::filesystem::exists(path) == existed);
    }
}

TEST_CASE("the lock of a killed process is free again")
{
    const TempDirectory directory;
    const auto path = directory / "lock";
    const SharedMemory shared(directory / "shared");
    const pid_t child = startProcess([&] {
        const Handle_T<FileMutex> mutex = makeMutex(path);
        shared->ready = mutex->lock(0) ? 1 : 2;
        for (;;)
            pause();
        return 0;
    });
    while (shared->ready == 0)
        std::this_thread::yield();
    CHECK(shared->ready == 1);
    const Handle_T<FileMutex> mutex = makeMutex(path);
    CHECK_FALSE(mutex->lock(0));
    REQUIRE(kill(child, SIGKILL) == 0);
    CHECK(mutex->lock(FileMutex::endless));
    CHECK(waitForProcess(child) == -1);
}

TEST_CASE("a fork does not hold the lock of its parent, nor remove its file")
{
    const TempDirectory directory;
    const auto path = directory / "lock";
    Handle_T<FileMutex> mutex = makeMutex(path);
    REQUIRE(mutex->lock(0));
    const pid_t child = startProcess([&] {
        const bool held = mutex->isLocked() || mutex->lock(0);
        mutex.setNull();
        return held ? 1 : 0;
    });
    CHECK(waitForProcess(child) == 0);
    CHECK(std::filesystem::exists(path));
    CHECK_FALSE(makeMutex(path)->lock(0));
    CHECK(mutex->isLocked());
}

TEST_CASE("of many processes and threads never two hold one lock")
{
    constexpr int processes = 5;
    constexpr int rounds = 400;
    const TempDirectory directory;
    const auto path = directory / "lock";
    const SharedMemory shared(directory / "shared");
    const auto compete = [&] {
        const Handle_T<FileMutex> mutex = makeMutex(path);
        for (int i = 0; i < rounds; ++i) {
            while (!mutex->lock(0)) // without the pauses between looks there is more of a race
                std::this_thread::yield();
            if (shared->inside.fetch_add(1) != 0)
                ++shared->violations;
            if (i % 4 == 0)
                std::this_thread::yield();
            ++shared->rounds;
            --shared->inside;
            mutex->unlock();
        }
        return 0;
    };
    std::vector<pid_t> children;
    for (int i = 0; i < processes; ++i)
        children.push_back(startProcess(compete));
    auto threads = startThreads(2, compete);
    join(threads);
    for (const pid_t child : children)
        CHECK(waitForProcess(child) == 0);
    CHECK(shared->violations == 0);
    CHECK(shared->rounds == (processes + 2) * rounds);
    CHECK_FALSE(std::filesystem::exists(path));
}
