#pragma once
#include <orvi/core/App.h>

namespace apphost {

/** Prints one line with the name of its origin in front. */
void printLine(const orvi::String& label, const orvi::String& text);

/** A client of a running application, in a loop. It prints every text that it receives, and follows the protocol far
    enough to know whether all its commands are answered. */
class Client {
public:
    /** Counts the texts in `received`. */
    Client(const orvi::String& label, const orvi::String& kind, const orvi::Handle_T<orvi::App>& app,
           int& received);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    bool start(orvi::System* loop) { return _reader->start(loop); }

    const orvi::String& getLabel() const { return _label; }
    const orvi::String& getKind() const { return _kind; }
    const orvi::String& getAppName() const { return _app->getAppBox()->getAppName(); }
    orvi::App* getApp() const { return _app; }

    void send(const orvi::String& commandLine);
    /** Prints what has arrived; the loop does it by itself otherwise. */
    void deliver();

    /** Nothing more is to come before the next command. */
    bool isSettled() const { return _ended || (_greeted && _pending == 0 && !_nothingDue); }
    /** Whether the last command failed; for a settled client. */
    bool hasFailed() const { return _failed || _pending > 0; }
    bool hasEnded() const { return _ended; }

private:
    void onText(const orvi::String& text);

    orvi::String _label;
    orvi::String _kind;
    orvi::Handle_T<orvi::App> _app;
    orvi::Handle_T<orvi::AppReader> _reader;
    int& _received;
    int _pending = 0; // commands that wait for their "$END"
    bool _greeted = false;
    bool _failed = false;
    bool _nothingDue = false; // "$END FAILED" was there, "$NOTHING" is to follow
    bool _ended = false;
};

} // namespace apphost
