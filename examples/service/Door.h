#pragma once
#include "Visitor.h"

#include <orvi/core/System.h>

#include <chrono>
#include <list>

namespace service {

/** Lets visitors in at a socket file, and serves them. Its waiting for them is all the rest that its system's
    loop has. */
class Door final : public orvi::System::Task {
public:
    Door(const orvi::String& path, std::chrono::milliseconds patience);

    /** Refuses, with the reason in the log, when the socket cannot be opened. */
    bool init() override;
    void exit() override;
    void onTick(unsigned int elapsedMs) override;

private:
    void await() const;
    void letIn();

    orvi::String_T<char> _path;
    std::chrono::milliseconds _patience; // with each visitor
    int _socket = -1;
    std::list<Visitor> _visitors;
};

} // namespace service
