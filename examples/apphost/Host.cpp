#include "Host.h"

#include "Apps.h"
#include "Interrupt.h"

#include <orvi/core/Arguments.h>
#include <orvi/core/Console.h>
#include <orvi/core/Directory.h>
#include <orvi/core/DllModule.h>
#include <orvi/core/Encoding.h>
#include <orvi/core/Tick.h>
#include <orvi/core/Time.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>

namespace apphost {

using orvi::App;
using orvi::Console;
using orvi::DllModule;
using orvi::Handle_T;
using orvi::String;

namespace {

const wchar_t ownLabel[] = L"host";
constexpr unsigned int answerLimitMs = 30'000; // without any text
constexpr long long longestWaitMs = 3'600'000; // an hour

void say(const String& text) { printLine(ownLabel, text); }

bool fail(const String& text)
{
    say(text);
    return false;
}

/** A time that runs out; the loop comes round then at the latest. */
class Limit {
public:
    Limit(orvi::System* loop, unsigned int ms)
        : _ms(ms)
    {
        _tick->setTickTime(ms);
        _tick->start(loop);
    }
    ~Limit() { _tick->stop(); }
    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;

    bool isOver() const { return orvi::getTimeTick() - _begin >= _ms; }
    void beginAnew() { _begin = orvi::getTimeTick(); }

private:
    const Handle_T<orvi::Tick> _tick = orvi::Tick::createInstance();
    const unsigned int _ms;
    unsigned int _begin = orvi::getTimeTick();
};

} // namespace

Host::Host(std::vector<Start> starts, int input)
    : _starts(std::move(starts))
    , _reader(input)
    , _input(orvi::Watch::createInstance(input, 0, {}))
    , _commands(
          {
              {L"apps", L"", L"the applications that run", 0, 0, method(this, &Host::listApps)},
              {L"kinds", L"", L"the kinds that can be started", 0, 0, method(this, &Host::listKinds)},
              {L"start", L"KIND [NAME [PARAMETERS]]", L"start an application", 1, 3,
               method(this, &Host::open)},
              {L"load", L"MODULE", L"bring in more kinds, from beside this program or from a path", 1, 1,
               method(this, &Host::bringIn)},
              {L"client", L"NAME", L"open one more client of an application", 1, 1,
               method(this, &Host::openClient)},
              {L"exit", L"NAME", L"end an application", 1, 1, method(this, &Host::end)},
              {L"use", L"[NAME]", L"send it all lines that are no commands here", 0, 1,
               method(this, &Host::use)},
              {L"wait", L"MS", L"let the applications work for so many milliseconds", 1, 1,
               method(this, &Host::wait)},
              {L"quit", L"", L"end all applications and this program", 0, 0, method(this, &Host::quit)},
          },
          {
              L"NAME COMMAND...                  send a command: time now",
              L"NAME: COMMAND...                 the same; without NAME, to the one in use",
              L"! LINE                           a line that shall fail",
              L"# ...                            a comment",
          })
{}

bool Host::init()
{
    return System::init() && orvi::Rest::createInstance()->start(this) && _input->start(this) &&
           orvi::Watch::createInstance(interruptDescriptor(), orvi::Watch::READABLE, {})->start(this);
}

void Host::run()
{
    _hasStarted = startAll();
    if (_hasStarted)
        carryOutLines();
    endAll();
}

// ---- Lines

void Host::carryOutLines()
{
    if (_reader.isTerminal())
        say(L"try: apps, help, NAME help; Ctrl-D or quit ends");
    String line;
    while (!_quit && !interrupted()) {
        switch (awaitLine(line)) {
        case LineReader::Result::Line:
            _allFine = execute(line) && _allFine;
            break;
        case LineReader::Result::TooLong:
            _allFine = fail(L"a line is too long");
            break;
        case LineReader::Result::Failed:
            _allFine = fail(L"cannot read on: " + orvi::getLastErrorString());
            _quit = true;
            break;
        case LineReader::Result::NothingYet: // Ctrl-C
            break;
        case LineReader::Result::End:
            if (_reader.isTerminal()) // Ctrl-D leaves the prompt on the line
                Console::output(L"\n");
            _quit = true;
        }
    }
    if (interrupted()) {
        if (_reader.isTerminal())
            Console::output(L"\n");
        say(L"interrupted");
    }
}

/** Waits for a line, and prints the texts that arrive meanwhile. Ctrl-C ends the wait with NothingYet. */
LineReader::Result Host::awaitLine(String& line)
{
    using Result = LineReader::Result;
    const bool typed = _reader.isTerminal();
    bool prompting = typed;
    Result result = Result::NothingYet;
    while (!interrupted() && result == Result::NothingYet) {
        if (prompting)
            Console::output(L"%s", prompt().getBuffer());
        const int received = _received;
        result = _reader.next(line);
        if (result == Result::NothingYet)
            awaitInput();
        deliver();
        prompting = typed && _received != received;
    }
    if (result == Result::Line && !typed) { // the transcript shall look as if somebody had typed it
        const bool plain = line.isEmpty() || line[0] == L'#';
        Console::output(L"%s%s\n", plain ? L"" : prompt().getBuffer(), line.getBuffer());
    }
    return result;
}

/** Comes back when the input can be read, a text has come, or Ctrl-C. */
void Host::awaitInput()
{
    if (!_input->setReadiness(orvi::Watch::READABLE))
        return; // a file on disc can always be read
    tick();
    _input->setReadiness(0); // what waits there would keep the loop awake
}

bool Host::execute(String line)
{
    line.trim();
    if (line.isEmpty() || line[0] == L'#')
        return true;
    if (line[0] != L'!')
        return dispatch(line);
    if (dispatch(line.getSubString(1, -1).trimLeft()))
        return fail(L"this should have failed");
    return true;
}

/** Finds out whom a line is for. */
bool Host::dispatch(const String& line)
{
    forgetEnded();
    const wchar_t* const text = line;
    int length = 0;
    while (text[length] != 0 && text[length] != L' ' && text[length] != L'\t' && text[length] != L':')
        ++length;
    const String word = line.getSubString(0, length);
    const bool addressed = text[length] == L':';
    if (!addressed && _commands.contains(word))
        return runOwn(line);

    String rest = line.getSubString(addressed ? length + 1 : length, -1);
    rest.trimLeft();
    if (Client* client = find(word.isEmpty() ? _used : word))
        return send(*client, rest);
    Client* used = find(_used);
    if (used != nullptr && !addressed)
        return send(*used, line);
    if (word.isEmpty())
        return fail(L"no application is in use");
    return fail(L"'" + word + L"' is neither a command nor an application: help and apps list them");
}

bool Host::runOwn(const String& line)
{
    wchar_t** parsed = nullptr;
    int count = 0;
    orvi::parseArguments(line, parsed, count);
    const std::unique_ptr<wchar_t*, decltype(&std::free)> words(parsed, std::free);
    return words != nullptr && _commands.run(Call(parsed, count, line, say));
}

bool Host::send(Client& client, const String& commandLine)
{
    client.send(commandLine);
    return settle(client) && !client.hasFailed();
}

// ---- Clients

Client* Host::find(const String& label)
{
    for (Client& client : _clients) {
        if (client.getLabel() == label)
            return &client;
    }
    return nullptr;
}

/** Prints what all clients receive until this one has its answers. False when they do not come. */
bool Host::settle(Client& client)
{
    Limit limit(this, answerLimitMs);
    while (!client.isSettled()) {
        if (interrupted())
            return false;
        const int received = _received;
        tick();
        if (_received != received)
            limit.beginAnew();
        else if (limit.isOver())
            return fail(client.getLabel() + L" does not answer");
    }
    return true;
}

/** Prints what all clients have received. */
void Host::deliver()
{
    for (Client& client : _clients)
        client.deliver();
}

void Host::forgetEnded()
{
    _clients.remove_if([](const Client& client) { return client.hasEnded(); });
    if (find(_used) == nullptr)
        _used = String();
}

void Host::endAll()
{
    for (const Client& client : _clients) {
        orvi::exitApp(client.getApp());
        deliver();
    }
}

// ---- The host's own commands

bool Host::listApps(const Call& call)
{
    for (const Client& client : _clients)
        call.say(L"%s, kind %s", client.getLabel().getBuffer(), client.getKind().getBuffer());
    return true;
}

bool Host::listKinds(const Call& call)
{
    for (const AppKind& kind : appKinds())
        call.say(*kind.parameters != 0 ? L"%s; PARAMETERS: %s" : L"%s", kind.name, kind.parameters);
    for (const String& kind : _loadedKinds)
        call.say(L"%s", kind.getBuffer());
    return true;
}

/** A module registers its kind while it is loaded. It stays to the end: its code may be running. */
bool Host::bringIn(const Call& call)
{
    const String name = call[1];
    const Handle_T<DllModule> module = DllModule::createInstance();
    if (!module->load(name.find(L'/') < 0 ? orvi::getAppPath() + name : name))
        return call.fail(L"'%s' does not load: the log has the reason, see --log", call[1]);
    using Describe = const wchar_t* (*)();
    const auto describe = reinterpret_cast<Describe>(module->getProcAddress(L"apphostDescribeKind"));
    if (describe == nullptr) {
        module->unload();
        return call.fail(L"'%s' is no module for this program", call[1]);
    }
    const String kind = describe();
    if (std::find(_loadedKinds.begin(), _loadedKinds.end(), kind) == _loadedKinds.end())
        _loadedKinds.push_back(kind);
    call.say(L"%s", kind.getBuffer());
    return true;
}

bool Host::open(const Call& call)
{
    const String kind = call[1];
    const String name = call.arguments() >= 2 ? call[2] : call[1];
    return isFree(name) && startApp(kind, name, call.arguments() >= 3 ? call[3] : L"");
}

bool Host::isFree(const String& name)
{
    if (name.isEmpty() || name == ownLabel || _commands.contains(name))
        return fail(L"'" + name + L"' has a meaning here: choose another name");
    for (const wchar_t* p = name; *p != 0; ++p) {
        if (*p <= L' ' || *p == L':' || *p == L'#' || *p == L'!')
            return fail(L"a name has no blank and none of : # !");
    }
    if (find(name) != nullptr)
        return fail(L"there is an application '" + name + L"' already");
    return true;
}

bool Host::startApp(const String& kind, const String& name, const String& parameters)
{
    const Handle_T<App> app = orvi::startApp(kind, name, parameters);
    if (app.isNull())
        return fail(L"no application of the kind '" + kind +
                    L"' with these parameters: kinds tells what there is");
    return add(name, kind, app);
}

bool Host::add(const String& label, const String& kind, const Handle_T<App>& app)
{
    Client& client = _clients.emplace_back(label, kind, app, _received);
    return client.start(this) && settle(client);
}

bool Host::startAll()
{
    return std::all_of(_starts.begin(), _starts.end(), [this](const Start& start) {
        return isFree(start.name) && startApp(start.kind, start.name, start.parameters);
    });
}

bool Host::openClient(const Call& call)
{
    const Client* first = find(call[1]);
    const Handle_T<App> app = first != nullptr ? orvi::getApp(first->getAppName()) : Handle_T<App>();
    if (app.isNull())
        return call.fail(L"no application '%s': apps lists them", call[1]);
    const String name = first->getAppName();
    const auto others = std::count_if(_clients.begin(), _clients.end(),
                                      [&name](const Client& client) { return client.getAppName() == name; });
    return add(name + L"#" + orvi::convertToString(others + 1), first->getKind(), app);
}

bool Host::end(const Call& call)
{
    const Client* client = find(call[1]);
    if (client == nullptr)
        return call.fail(L"no application '%s': apps lists them", call[1]);
    orvi::exitApp(client->getApp()); // waits for the end of its thread: all its clients have their "$BYE"
    deliver();
    return true;
}

bool Host::wait(const Call& call)
{
    const auto ms = parseNumber(call[1]);
    if (!ms || *ms < 0 || *ms > longestWaitMs)
        return call.fail(L"'%s' is no number of milliseconds from 0 to %I64d", call[1], longestWaitMs);
    const Limit limit(this, static_cast<unsigned int>(*ms));
    while (!interrupted() && !limit.isOver())
        tick();
    return !interrupted();
}

bool Host::quit(const Call&)
{
    _quit = true;
    return true;
}

bool Host::use(const Call& call)
{
    const String label = call.arguments() == 1 ? call[1] : L"";
    if (!label.isEmpty() && find(label) == nullptr)
        return call.fail(L"no application '%s': apps lists them", label.getBuffer());
    _used = label;
    return true;
}

} // namespace apphost
