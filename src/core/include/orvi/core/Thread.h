#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/Mutex.h>
#include <orvi/core/System.h>
#include <orvi/core/Unknown.h>

#include <memory>

namespace orvi {

/** Runs one System on a thread of its own. When the run has ended it is idle again and can start the same or
    another system. It lives through the run, also when nobody else holds it. Any thread may use it. */
class ORVI_API Thread : public virtual Unknown {
public:
    static Unknown::Handle_T<Thread> createInstance();

    /** Starts `system` and returns as soon as its thread runs, whatever state the system has reached by then.
        False when `system` is null or not unloaded, when this thread is busy, when the operating system gives no
        thread, or when memory is short. A system that was loaded for a busy thread, or for one that the operating
        system did not give, stays so; without memory it is left as it was. */
    virtual bool start(System* system);
    /** Shuts the system down and waits for the end of its thread; always true. At once when idle. On the
        thread itself it asks only: that cannot wait for its own end. */
    virtual bool shutdown();

    /** Waits until it is idle, `timeoutMs` milliseconds at most; false when it is not by then, and at once on the
        thread itself. 0xFFFFFFFF has no limit. What was started meanwhile is not waited for. */
    bool waitIdle(unsigned int timeoutMs) const;

    /** Null when idle. */
    Unknown::Handle_T<System> getSystem() const;

    /** The system's id of the calling thread. */
    static unsigned long getCurrentThreadId();

protected:
    Thread();
    ~Thread() override;

private:
    struct Run;

    std::shared_ptr<Run> currentRun() const;
    bool launch(const std::shared_ptr<Run>& run);
    static void main(const std::shared_ptr<Run>& run);

    mutable Mutex _mutex;
    std::shared_ptr<Run> _run; // null when idle
};

} // namespace orvi
