#pragma once
#include <orvi/core/App.h>

#include <chrono>
#include <string>

namespace service {

/** One connection: lines "APPLICATION COMMAND..." come in, and each is answered by the lines of the application
    and "ok" or "failed". The line "quit" ends the program. One command at a time; who neither sends nor reads
    for half a minute is sent away. */
class Visitor {
public:
    /** Takes the socket over. */
    explicit Visitor(int socket);
    ~Visitor();
    Visitor(const Visitor&) = delete;
    Visitor& operator=(const Visitor&) = delete;

    int getSocket() const { return _socket; }
    /** What to wait for, as poll takes it; what an application says comes without notice. */
    short wishes() const;
    bool awaitsAnswer() const { return !_app.isNull(); }

    /** Does what can be done without waiting. */
    void turn();
    bool isDone() const;

private:
    void receive();
    void obey();
    void obeyLine(const std::string& line);
    void collectAnswer();
    void answer(const orvi::String& text);
    void send();

    using Clock = std::chrono::steady_clock;

    int _socket;
    std::string _input;
    std::string _output;
    bool _ended = false;            // nothing more comes
    bool _broken = false;           // nobody reads
    orvi::Handle_T<orvi::App> _app; // that is at work
    Clock::time_point _lastMove = Clock::now();
};

} // namespace service
