#pragma once
#include <orvi/core/Callback.h>
#include <orvi/core/System.h>

namespace orvi {

/** A task that calls a handler, on the run thread, when a descriptor of the system is readable or writable: of a socket, a
    pipe, an inotify, a signalfd, a pidfd.

        const auto watch = Watch::createInstance(socket, Watch::READABLE, Watch::Handler(this, &Server::onSocket));
        watch->start(system);

    The handler gets what the descriptor is ready for, and is called in each pass as long as it is: it reads, or watches
    for something else, or stops the watch, whose handle it may drop. A loop that rests wakes up for it; one that does not
    looks in each pass.

    With a tick time the handler is called with 0, too, when the descriptor has not been ready for as long. (The start
    value is the longest, 49 days.) Readiness ends a sleep.

    The descriptor is borrowed: stop the watch, then close. One that is closed before is not told of any more, and its
    number is free for another Watch at once; to stop the old one does no harm to that. */
class ORVI_API Watch final : public System::Task {
public:
    enum EReadiness : unsigned int {
        READABLE = 1, // or at its end
        WRITABLE = 2,
        BROKEN = 4 // an error, or nobody is on the other side; told whatever is watched for
    };
    /** Gets a set of EReadiness. */
    using Handler = CallbackHandler<void, unsigned int>;

    /** `readiness` is a set of READABLE and WRITABLE, or 0 for later; a null handler only wakes the loop. A start is
        refused, with false, for what is no open descriptor, for one that cannot be waited for (a file on disc), one that
        another Watch of the system watches (a duplicate can be), and where no descriptors are left. */
    static Unknown::Handle_T<Watch> createInstance(int descriptor, unsigned int readiness,
                                                   const Handler& handler);

    int getDescriptor() const noexcept { return _descriptor; }
    /** What is watched for from now on; nothing at all with 0, not even BROKEN. False when a started watch cannot, and then
        nothing is watched for. */
    bool setReadiness(unsigned int readiness);

    bool init() override;
    void exit() override;
    void onTick(unsigned int elapsedMs) override;

private:
    friend class System;

    Watch(int descriptor, unsigned int readiness, const Handler& handler);
    ~Watch() override;

    void take(unsigned int ready) noexcept;

    const int _descriptor;
    unsigned int _readiness;
    const Handler _handler;
    unsigned int _ready = 0;
    bool _isTold = false; // something is ready, or was until somebody changed what is watched for
};

} // namespace orvi
