#pragma once
#include "Client.h"
#include "Commands.h"
#include "Config.h"
#include "LineReader.h"

#include <list>

namespace apphost {

/** The command line over the applications: starts and ends them, passes lines on to them, prints what comes
    back. */
class Host {
public:
    Host();

    /** Starts every kind of application under its own name. */
    void startAllKinds();
    /** False when one does not start; those before it run. */
    bool startAll(const std::vector<Start>& starts);
    /** Carries out lines until "quit", the end of the input or Ctrl-C, then ends all applications. */
    void run(LineReader& reader);
    /** Whether every command has done what it should. */
    bool allFine() const { return _allFine; }
    void endAll();

private:
    // The commands of the host itself.
    bool listApps(const Call& call);
    bool listKinds(const Call& call);
    bool start(const Call& call);
    bool load(const Call& call);
    bool openClient(const Call& call);
    bool exit(const Call& call);
    bool use(const Call& call);
    bool wait(const Call& call);
    bool quit(const Call& call);

    LineReader::Result awaitLine(LineReader& reader, orvi::String& line);
    bool execute(orvi::String line);
    bool dispatch(const orvi::String& line);
    bool runOwn(const orvi::String& line);
    bool send(Client& client, const orvi::String& commandLine);
    bool startApp(const orvi::String& kind, const orvi::String& name, const orvi::String& parameters);
    bool isFree(const orvi::String& name);
    bool add(const orvi::String& label, const orvi::String& kind, const orvi::Handle_T<orvi::App>& app);
    bool settle(Client& client);
    bool deliver();

    /** Null when there is none. */
    Client* find(const orvi::String& label);
    void forgetEnded();
    orvi::String prompt() const { return _used + L"> "; }

    CommandTable _commands;
    std::vector<orvi::String> _loadedKinds; // as they describe themselves
    std::list<Client> _clients;             // in the order of opening
    orvi::String _used; // the label of the client that gets what is no command of the host's
    bool _quit = false;
    bool _allFine = true;
};

} // namespace apphost
