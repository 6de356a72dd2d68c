#include <orvi/core/RunQueue.h>
#include <orvi/core/Thread.h>
#include <orvi/core/Tick.h>
#include <orvi/core/Watch.h>

#include <doctest/doctest.h>

#include <atomic>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using orvi::Handle_T;
using orvi::Rest;
using orvi::System;
using orvi::Watch;

namespace {

/** Two ends of a connection; what is written to one is read from the other. */
struct Ends {
    Ends() { CHECK(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, both) == 0); }
    ~Ends()
    {
        for (const int end : both)
            shut(end);
    }
    static void shut(int end)
    {
        if (end >= 0)
            ::close(end);
    }
    int both[2] = {-1, -1};
    int& mine = both[0];
    int& other = both[1];
};

/** Gathers what a watch tells, and does what the case wants at each call. */
struct Heard {
    Heard() { reading = this; }
    static void onReady(unsigned int ready)
    {
        ++reading->calls;
        reading->last = ready;
        if (reading->act != nullptr)
            reading->act(*reading);
    }
    static inline Heard* reading = nullptr;
    int calls = 0;
    unsigned int last = 99;
    void (*act)(Heard&) = nullptr;
    Handle_T<Watch> watch, later; // for what it does
};

/** Turned by hand, pass by pass. */
struct Turned {
    Turned()
    {
        CHECK(system->load());
        CHECK(system->begin());
    }
    ~Turned()
    {
        system->shutdown();
        system->finish();
    }
    unsigned int pass() const
    {
        unsigned int ms = 99;
        CHECK(system->turn(ms));
        return ms;
    }
    bool isReady() const
    {
        pollfd ready{system->getWaitDescriptor(), POLLIN, 0};
        return ::poll(&ready, 1, 0) == 1;
    }
    class Plain final : public System {};
    const Handle_T<System> system = new Plain;
};

/** With a watch for reading, which has been started. */
struct Watched : Turned {
    Watched() { CHECK(watch->start(system)); }
    Ends ends;
    Heard heard;
    const Handle_T<Watch> watch = Watch::createInstance(ends.mine, Watch::READABLE, &Heard::onReady);
};

constexpr unsigned int quiet = 3'000'000'000; // longer than any time that a case sets

void say(int descriptor) { CHECK(::write(descriptor, "x", 1) == 1); }
void hear(int descriptor)
{
    char byte = 0;
    CHECK(::read(descriptor, &byte, 1) == 1);
}

} // namespace

TEST_CASE("watch: a handler hears what a descriptor is ready for, and of its end")
{
    Watched turned;
    Heard& heard = turned.heard;
    Ends& ends = turned.ends;
    const auto second = Watch::createInstance(ends.mine, Watch::READABLE, &Heard::onReady);
    CHECK(!second->start(turned.system)); // one for each file
    turned.pass();
    CHECK(turned.pass() > quiet);
    CHECK(heard.calls == 0);
    CHECK(!turned.isReady());

    say(ends.other);
    CHECK(turned.isReady());
    turned.pass();
    turned.pass();
    CHECK(heard.calls == 2); // as long as it is ready
    CHECK(heard.last == Watch::READABLE);
    CHECK(turned.watch->setReadiness(Watch::WRITABLE));
    turned.pass();
    CHECK(heard.last == Watch::WRITABLE);
    CHECK(turned.watch->setReadiness(0));
    Ends::shut(std::exchange(ends.other, -1));
    turned.pass();
    CHECK(heard.calls == 3);
    CHECK(!turned.isReady());
    hear(ends.mine);
    CHECK(turned.watch->setReadiness(Watch::READABLE));
    turned.pass();
    CHECK(heard.last == (Watch::READABLE | Watch::BROKEN));

    turned.watch->stop();
    CHECK(second->start(turned.system));
    CHECK(!Watch::createInstance(-1, Watch::READABLE, &Heard::onReady)->start(turned.system));
    const int file = ::open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
    CHECK(!Watch::createInstance(file, Watch::READABLE, &Heard::onReady)->start(turned.system));
    ::close(file);
}

TEST_CASE("watch: a handler may let go of its watch, and take from another what that is due for")
{
    const Turned turned;
    Ends ends, others;
    Heard heard;
    heard.watch = Watch::createInstance(ends.mine, Watch::READABLE, &Heard::onReady);
    heard.later = Watch::createInstance(others.mine, Watch::READABLE, &Heard::onReady);
    heard.act = [](Heard& self) {
        self.later->setReadiness(0);
        self.watch->stop();
        self.watch.setNull();
    };
    CHECK(heard.watch->start(turned.system));
    CHECK(heard.later->start(turned.system));
    turned.pass();
    say(ends.other);
    say(others.other);
    turned.pass();
    turned.pass();
    CHECK(heard.calls == 1);
    heard.act = nullptr;
    CHECK(heard.later->setReadiness(Watch::READABLE));
    turned.pass();
    CHECK(heard.calls == 2);
}

TEST_CASE("watch: one that is stopped between the rest and the pass hears nothing")
{
    class Stopping final : public System {
    public:
        bool init() override
        {
            return System::init() && Rest::createInstance()->start(this) && watch->start(this);
        }
        void run() override
        {
            tick();
            say(ends.other);
            tick();
            isOver = passes == 2; // without a fault
        }
        void onTick(unsigned int deltaMs) override
        {
            if (++passes == 2)
                watch->stop();
            System::onTick(deltaMs);
        }
        Ends ends;
        const Handle_T<Watch> watch = Watch::createInstance(ends.mine, Watch::READABLE, &Heard::onReady);
        int passes = 0;
        bool isOver = false;
    };
    Heard heard;
    const Handle_T<Stopping> system = new Stopping;
    CHECK(system->load());
    system->start();
    CHECK(system->isOver);
    CHECK(heard.calls == 0);
}

TEST_CASE("watch: a tick time limits the wait, and readiness ends a sleep")
{
    Watched turned;
    turned.watch->setTickTime(5);
    while (turned.heard.calls == 0)
        turned.pass();
    CHECK(turned.heard.last == 0);
    CHECK(turned.watch->sleep(3'600'000));
    say(turned.ends.other);
    turned.pass();
    CHECK(turned.heard.last == Watch::READABLE);
}

TEST_CASE("watch: a descriptor that is closed under it is told of no more, and its number is another's")
{
    const Turned turned;
    Ends ends, others;
    Heard heard;
    const auto watch = Watch::createInstance(ends.mine, Watch::READABLE, &Heard::onReady);
    CHECK(watch->start(turned.system));
    const int copy = ::fcntl(ends.mine, F_DUPFD_CLOEXEC, 0); // the system goes on telling of it
    CHECK(::dup3(others.mine, ends.mine, O_CLOEXEC) == ends.mine);
    const auto fresh = Watch::createInstance(ends.mine, Watch::READABLE, &Heard::onReady);
    CHECK(fresh->start(turned.system));
    turned.pass();
    say(ends.other);
    turned.pass();
    CHECK(turned.pass() > quiet);
    CHECK(heard.calls == 0);
    CHECK(!turned.isReady());
    watch->stop();
    say(others.other);
    turned.pass();
    CHECK(heard.calls == 1);
    ::close(copy);
}

TEST_CASE("watch: the child of a fork takes nothing from its parent")
{
    Watched turned;
    Heard& heard = turned.heard;
    Ends& ends = turned.ends;
    turned.pass();
    if (const pid_t child = ::fork(); child == 0) {
        say(ends.other);
        turned.pass();
        const bool isRight = heard.calls == 1;
        turned.watch->stop();
        turned.system->waken();
        ::_exit(isRight ? 0 : 1);
    } else {
        int status = -1;
        CHECK(::waitpid(child, &status, 0) == child);
        CHECK(status == 0);
    }
    turned.pass();
    CHECK(heard.calls == 1);
}

TEST_CASE("watch: a loop inside another one is called for all that is due")
{
    const Turned turned;
    System& system = *turned.system;
    const auto tick = orvi::Tick::createInstance();
    tick->setTickTime(3'600'000);
    CHECK(tick->start(&system));
    turned.pass(); // takes the task in
    const unsigned int left = turned.pass();
    CHECK(left > 3'500'000);
    CHECK(left <= 3'600'000);
    CHECK(!turned.isReady());
    tick->sleep(1); // by a handler of the other loop
    CHECK(turned.isReady());
    tick->waken();
    turned.pass();
    class Inner final : public System {
        void run() override {}
    };
    const Handle_T<Inner> inner = new Inner; // a loop of its own in between: closures wake that
    CHECK(inner->load());
    inner->start();
    CHECK(turned.isReady());

    // Each closure is waited for before the next one is posted: a single lost wake-up would be a hang.
    constexpr int rounds = 20'000;
    std::atomic<int> done = 0;
    const unsigned long id = system.getRunThreadId();
    std::thread producer([&] {
        for (int round = 0; round < rounds; ++round) {
            orvi::postToThread(id, [&] { ++done; });
            while (done <= round)
                std::this_thread::yield();
        }
        system.shutdown();
    });
    int turns = 0;
    unsigned int ms = 0;
    for (pollfd ready{system.getWaitDescriptor(), POLLIN, 0}; system.turn(ms); ++turns) {
        const int found = ::poll(&ready, 1, static_cast<int>(ms));
        CHECK(found >= (ms > 0 ? 1 : 0));
    }
    producer.join();
    CHECK(done == rounds);
    CHECK(turns <= 3 * rounds + 10);
    CHECK(!system.begin());
}
