#pragma once
#include <orvi/core/App.h>
#include <orvi/core/System.h>
#include <orvi/core/Watch.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

namespace service {

/** One connection: lines "APPLICATION COMMAND..." come in, and each is answered by the lines of the application
    and "ok" or "failed". The line "quit" ends the program. One command at a time. It waits in the
    loop of its system, whose run thread alone may call it.

    Who keeps others waiting is sent away: what is left of a line, and the reading of what lies ready, may take
    `patience`, however many bytes move meanwhile. */
class Visitor {
public:
    using Clock = std::chrono::steady_clock;

    /** Takes the socket over. Calls `onDone` when it is done, in the middle of its own work: destroy it later. */
    Visitor(int socket, std::chrono::milliseconds patience, orvi::System* system,
            std::function<void()> onDone);
    ~Visitor();
    Visitor(const Visitor&) = delete;
    Visitor& operator=(const Visitor&) = delete;

    bool isDone() const;
    /** For the end of the system: does what can be done without waiting. */
    void sayLastWords();

private:
    void onReady(unsigned int readiness);
    void onText(const orvi::String& text);
    void awaitNext();
    void receive();
    void obey();
    void obeyLine(const std::string& line);
    void collect(const orvi::String& text);
    void answer(const orvi::String& text);
    void send();

    bool awaitsAnswer() const { return !_app.isNull(); }
    bool wantsInput() const;
    bool hasRoom() const; // for more output
    /** Whether it is the visitor who has to do something next. */
    bool isTheirTurn() const { return !awaitsAnswer() || !_output.empty(); }
    void restartClock();

    int _socket;
    std::chrono::milliseconds _patience;
    std::function<void()> _onDone;
    orvi::Handle_T<orvi::Watch> _watch;
    std::string _input;
    std::string _output;
    bool _ended = false;            // nothing more comes
    bool _broken = false;           // nobody reads
    orvi::Handle_T<orvi::App> _app; // that is at work
    orvi::Handle_T<orvi::AppReader> _reader;
    Clock::time_point _turnBegan = Clock::now();
    std::size_t _taken = 0; // of the output, since then
};

} // namespace service
