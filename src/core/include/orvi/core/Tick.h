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
