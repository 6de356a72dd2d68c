#pragma once
#include "Visitor.h"

#include <orvi/core/System.h>
#include <orvi/core/Watch.h>

#include <chrono>
#include <list>

namespace service {

/** Lets visitors in at a socket file, and serves them; has a turn of its own only when one of them is done. */
class Door final : public orvi::System::Task {
public:
    Door(const orvi::String& path, std::chrono::milliseconds patience);

    /** Refuses, with the reason in the log, when the socket cannot be opened. */
    bool init() override;
    void exit() override;
    void onTick(unsigned int elapsedMs) override;

private:
    void onKnock(unsigned int readiness);
    void openOrShut(bool canLetIn);

    orvi::String_T<char> _path;
    std::chrono::milliseconds _patience; // with each visitor
    int _socket = -1;
    orvi::Handle_T<orvi::Watch> _watch;
    std::list<Visitor> _visitors;
};

} // namespace service
