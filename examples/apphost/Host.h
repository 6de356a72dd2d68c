#pragma once
#include "Client.h"
#include "Commands.h"
#include "Config.h"
#include "LineReader.h"

#include <orvi/core/Watch.h>

#include <list>
#include <vector>

namespace apphost {

/** The command line over the applications: starts and ends them, passes lines on to them, prints what comes
    back. A loop of its own, which sleeps until a line, a text or Ctrl-C comes. */
class Host final : public orvi::System {
public:
    /** Will start these applications, and take lines from the open file. */
    Host(std::vector<Start> starts, int input);

    bool init() override;
    /** Carries out lines until "quit", the end of the input or Ctrl-C, then ends all applications. */
    void run() override;

    /** Whether all applications have started; no line is carried out otherwise. */
    bool hasStarted() const { return _hasStarted; }
    /** Whether every command has done what it should. */
    bool allFine() const { return _allFine; }

private:
    // The commands of the host itself.
    bool listApps(const Call& call);
    bool listKinds(const Call& call);
    bool open(const Call& call);
    bool bringIn(const Call& call);
    bool openClient(const Call& call);
    bool end(const Call& call);
    bool use(const Call& call);
    bool wait(const Call& call);
    bool quit(const Call& call);

    bool startAll();
    void endAll();
    void carryOutLines();
    LineReader::Result awaitLine(orvi::String& line);
    void awaitInput();
    bool execute(orvi::String line);
    bool dispatch(const orvi::String& line);
    bool runOwn(const orvi::String& line);
    bool send(Client& client, const orvi::String& commandLine);
    bool startApp(const orvi::String& kind, const orvi::String& name, const orvi::String& parameters);
    bool isFree(const orvi::String& name);
    bool add(const orvi::String& label, const orvi::String& kind, const orvi::Handle_T<orvi::App>& app);
    bool settle(Client& client);
    void deliver();

    /** Null when there is none. */
    Client* find(const orvi::String& label);
    void forgetEnded();
    orvi::String prompt() const { return _used + L"> "; }

    const std::vector<Start> _starts;
    LineReader _reader;
    const orvi::Handle_T<orvi::Watch> _input;
    CommandTable _commands;
    std::vector<orvi::String> _loadedKinds; // as they describe themselves
    std::list<Client> _clients;             // in the order of opening
    orvi::String _used; // the label of the client that gets what is no command of the host's
    int _received = 0;  // texts of all clients
    bool _hasStarted = false;
    bool _quit = false;
    bool _allFine = true;
};

} // namespace apphost
