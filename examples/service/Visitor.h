#pragma once
#include <orvi/core/App.h>

#include <chrono>
#include <cstddef>
#include <string>

namespace service {

/** One connection: lines "APPLICATION COMMAND..." come in, and each is answered by the lines of the application
    and "ok" or "failed". The line "quit" ends the program. One command at a time.

    Who keeps others waiting is sent away: what is left of a line, and the reading of what lies ready, may take
    `patience`, however many bytes move meanwhile. */
class Visitor {
public:
    using Clock = std::chrono::steady_clock;

    /** Takes the socket over. */
    Visitor(int socket, std::chrono::milliseconds patience);
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

    /** Whether it is the visitor who has to do something next. */
    bool isTheirTurn() const { return !awaitsAnswer() || !_output.empty(); }
    void restartClock();

    int _socket;
    std::chrono::milliseconds _patience;
    std::string _input;
    std::string _output;
    bool _ended = false;            // nothing more comes
    bool _broken = false;           // nobody reads
    orvi::Handle_T<orvi::App> _app; // that is at work
    Clock::time_point _turnBegan = Clock::now();
    std::size_t _taken = 0; // of the output, since then
};

} // namespace service
