#pragma once
#include <orvi/core/Callback.h>
#include <orvi/core/CallbackList.h>
#include <orvi/core/System.h>

namespace orvi {

/** A task that calls a list of handlers, each with the milliseconds since the last call: periodic work
    without a class of its own.

        auto tick = Tick::createInstance();
        tick->setTickTime(1000);
        tick->addTickHandler(&onSecond);
        tick->start(system);

    A handler that throws keeps those behind it from that call. During a call a handler may add others, which
    are called in the same walk, and remove any. */
class ORVI_API Tick : public System::Task {
public:
    using Handler = CallbackHandler<void, unsigned int>;

    static Unknown::Handle_T<Tick> createInstance();

    /** Appends the handler unless an equal one is there; always true. */
    bool addTickHandler(const Handler& handler);
    bool addTickHandler(void (*function)(unsigned int)) { return addTickHandler(Handler(function)); }
    void removeTickHandler(const Handler& handler);
    void removeTickHandler(void (*function)(unsigned int)) { removeTickHandler(Handler(function)); }
    void clearAllTickHandler();

    void onTick(unsigned int elapsedMs) override;

protected:
    Tick() = default;
    ~Tick() override = default;

private:
    CallbackList<void, unsigned int> _handlers;
};

/** A task that lets its loop rest: between two passes the run thread sleeps until something is due, and not a moment
    longer. That is: a task by its tick time, its sleep or a signal, a posted closure, waken, shutdown, a descriptor that
    a Watch watches, a message in a port that the system serves; in an application a text in a pipe, or a pipe that
    joins or leaves. With nothing due it sleeps without a limit.

        Rest::createInstance()->start(system);

    A task without a tick time is due each millisecond, and so is a pipe on streams of the program's own, which tell nobody
    that a text is there. It has no turn itself. Where a task or an override of run turns the loop by tick, each tick
    sleeps first, and comes back with the pass done: what that pass has brought can be looked at before the next one. Who
    waits so for another thread's doing lets that call waken. */
class ORVI_API Rest final : public System::Task {
public:
    static Unknown::Handle_T<Rest> createInstance();

private:
    Rest() = default;
    ~Rest() override = default;
};

/** A task that puts the run thread to sleep at each of its turns, and so gives time back to the system. waken
    and shutdown do not shorten it. */
class ORVI_API Yield : public System::Task {
public:
    /** Sleeps 1 ms, or `time` ms; 0 gives up the rest of the time slice. */
    static Unknown::Handle_T<Yield> createInstance();
    static Unknown::Handle_T<Yield> createInstance(unsigned int time);

    void onTick(unsigned int elapsedMs) override;

protected:
    explicit Yield(unsigned int time)
        : _time(time)
    {}
    ~Yield() override = default;

private:
    unsigned int _time;
};

} // namespace orvi
