#include <orvi/core/App.h>

#include <orvi/core/Arguments.h>
#include <orvi/core/Encoding.h>
#include <orvi/core/Exception.h>
#include <orvi/core/Log.h>
#include <orvi/core/MemoryStream.h>
#include <orvi/core/Time.h>

#include "AppClients.h"
#include "AppTables.h"
#include "AppWord.h"
#include "memory/StreamWait.h"
#include "platform/runtime/LoopWait.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>

namespace orvi {

namespace {

constexpr wchar_t commandWord[] = L"$COMMAND ";
constexpr int commandWordLength = 9;

// A client that has thousands of texts waits for the others after so many, and all of them for the tasks after that time:
// a task is late by no more than this and one command, and what the tasks cost does not count beside it.
constexpr int textsPerTurn = 32;
constexpr unsigned int mostMillisToServe = 10;

bool isCommand(const wchar_t* text)
{
    int matched = 0;
    while (matched < commandWordLength && text[matched] == commandWord[matched])
        ++matched;
    return matched == commandWordLength;
}

void drop(MemoryStream& texts)
{
    char piece[512];
    while (texts.read(piece, sizeof piece) > 0) {
    }
}

} // namespace

// ---- AppPipe

AppPipe::AppPipe(Input* input, const SharedPtr<Mutex>& inputMutex, Output* output,
                 const SharedPtr<Mutex>& outputMutex)
    : _input(input)
    , _inputMutex(inputMutex)
    , _source(dynamic_cast<MemoryStream*>(input))
    , _output(output)
    , _outputMutex(outputMutex)
    , _queue(dynamic_cast<MemoryStream*>(output))
    , _draft(MemoryStream::createInstance())
{}

AppPipe::~AppPipe() = default;

Unknown::Handle_T<AppPipe> AppPipe::createInstance(Input* input, const SharedPtr<Mutex>& inputMutex,
                                                   Output* output, const SharedPtr<Mutex>& outputMutex)
{
    return new AppPipe(input, inputMutex, output, outputMutex);
}

bool AppPipe::read(String& text)
{
    const MutexGuard guard(*_inputMutex);
    if (_input.available() <= 0)
        return false;
    try {
        _input >> text;
        return true;
    } catch (const Exception& exception) {
        exception.report();
        return false;
    }
}

bool AppPipe::read(String& text, unsigned int timeoutMs)
{
    return waitForStream(_source, *_inputMutex, timeoutMs, [&] { return read(text); });
}

bool AppPipe::hasText() const
{
    const MutexGuard guard(*_inputMutex);
    return _input.available() > 0;
}

/** Has `wait` woken when a text comes. False when the input is a program's own, which tells nobody. */
bool AppPipe::addWait(StreamWait& wait)
{
    if (_source.isNull())
        return false;
    const MutexGuard guard(*_inputMutex);
    StreamAccess::addWait(*_source, wait);
    return true;
}

void AppPipe::removeWait(StreamWait& wait)
{
    const MutexGuard guard(*_inputMutex);
    StreamAccess::removeWait(*_source, wait);
}

bool AppPipe::write(const String& text)
{
    const String_T<char> utf8 = StringHelper::wideToUtf8(text);
    if (utf8.isEmpty() && !text.isEmpty()) {
        Log::error(L"AppPipe: no memory for a text");
        return false;
    }
    const platform::WakeLater later;
    const MutexGuard guard(*_outputMutex);
    try {
        OutputStream draft(_draft);
        draft << utf8;
        return send(*_draft);
    } catch (const Exception& exception) {
        exception.report();
        drop(*_draft);
        return false;
    }
}

/** Moves the draft to the output, where half a text would spoil those behind it; under the lock of the output. */
bool AppPipe::send(MemoryStream& draft)
{
    try {
        if (_queue.isNull()) {
            InputStream text(&draft);
            _output << text;
        } else if (!_queue->append(draft)) {
            THROW_EXCEPTION(-1, L"AppPipe: too many texts wait");
        } else {
            StreamAccess::wakeWaits(*_queue);
        }
        return true;
    } catch (const Exception& exception) {
        exception.report();
        drop(draft);
        return false;
    }
}

// ---- AppReader

struct AppReader::Place {
    StreamWait wait{};
    bool isTold = false;
};

AppReader::AppReader(AppPipe* pipe, const Handler& handler)
    : _pipe(pipe)
    , _handler(handler)
{}

AppReader::~AppReader() = default;

Unknown::Handle_T<AppReader> AppReader::createInstance(AppPipe* pipe, const Handler& handler)
{
    return new AppReader(pipe, handler);
}

bool AppReader::init()
{
    if (_pipe.isNull() || _handler.isNull())
        return false;
    _place = std::make_unique<Place>();
    _place->wait = {[](void* reader) { static_cast<AppReader*>(reader)->signal(); }, this};
    _place->isTold = _pipe->addWait(_place->wait);
    setTickTime(_place->isTold ? Semaphore::endless : 0); // a program's own stream does not tell
    signal();                                             // for what has come before
    return true;
}

void AppReader::exit()
{
    const std::unique_ptr<Place> place = std::move(_place);
    if (place != nullptr && place->isTold)
        _pipe->removeWait(place->wait);
}

void AppReader::onTick(unsigned int)
{
    struct Turn {
        AppReader& reader;
        ~Turn() // also when the handler throws
        {
            if (reader._place != nullptr && reader._pipe->hasText())
                reader.signal();
        }
    } const turn{*this};
    String text;
    for (int count = 0; count < textsPerTurn && _place != nullptr && _pipe->read(text); ++count)
        _handler(text);
}

// ---- AppBox

/** A command under way, and before that the answers to a text that is going to be read. */
struct AppBox::CommandUnderWay {
    Handle_T<AppPipe> pipe;
    AppWord end;
    AppWord nothing;

    bool reserve() noexcept { return end.reserve() && nothing.reserve(); }
};

AppBox::AppBox(const String& appName, const String& parameters)
    : _appName(appName)
    , _parameters(parameters)
    , _clients(std::make_unique<AppClients>(*_wait))
    , _commands(std::make_unique<CommandUnderWay[]>(mostCommands))
{
    _exit = [](void* system) { static_cast<AppBox*>(static_cast<System*>(system))->AppBox::exit(); };
}

AppBox::~AppBox() = default;

Unknown::Handle_T<AppBox> AppBox::createInstance(const String& appName, const String& parameters)
{
    return new AppBox(appName, parameters);
}

void AppBox::addPipe(AppPipe* pipe)
{
    _clients->add(pipe);
    _wait->wake();
}

void AppBox::removePipe(AppPipe* pipe)
{
    _clients->remove(pipe);
    _wait->wake();
}

void AppBox::onTick(unsigned int deltaMs)
{
    if (_clients->isMoveDue())
        _clients->move();
    _mustLookAgain = _clients->hasSilent();
    _hasWorkLeft = serve() || getState() == STATE_STOPPING; // nobody rests before the end either
    System::onTick(deltaMs);
}

/** Serves the pipes in turns until all are empty; true when the time is over before that. A command may turn the loop
    itself, in which pipes come and go. */
bool AppBox::serve()
{
    if (_commandCount == mostCommands || !_commands[_commandCount].reserve()) {
        _mustLookAgain = true;
        return false;
    }
    CommandUnderWay& command = _commands[_commandCount];
    unsigned int began = 0;
    bool hasBegun = false;
    String text;
    int silent = 0; // pipes in a row without a text
    while (silent < _clients->count() && getState() != STATE_STOPPING) {
        AppPipe* next = _clients->next();
        if (!next->read(text)) {
            ++silent;
            continue;
        }
        silent = 0;
        if (!std::exchange(hasBegun, true))
            began = getTimeTick();
        const Handle_T<AppPipe> pipe = next; // which may leave in a loop that a command turns
        const unsigned int changes = _clients->changes();
        int served = 0;
        do {
            if (!dosamething(pipe, text))
                command.nothing.tell(*pipe, "$NOTHING");
            if (getTimeTick() - began >= mostMillisToServe)
                return true;
            if (!command.reserve()) { // without memory for their answers the texts wait
                _mustLookAgain = true;
                return false;
            }
        } while (changes == _clients->changes() && getState() != STATE_STOPPING && ++served < textsPerTurn &&
                 pipe->read(text));
    }
    return false;
}

bool AppBox::dosamething(AppPipe* pipe, const wchar_t* text)
{
    if (!isCommand(text) || _commandCount == mostCommands)
        return false;
    const auto refuse = [] { // "$NOTHING" alone does not tell why
        Log::error(L"AppBox: no memory for a command");
        return false;
    };
    if (!_commands[_commandCount].end.reserve())
        return refuse();
    wchar_t** parsed = nullptr;
    int argc = 0;
    parseArguments(text + commandWordLength, parsed, argc);
    if (parsed == nullptr)
        return refuse();
    const std::unique_ptr<wchar_t*, decltype(&std::free)> argv(parsed, std::free);
    const String word(parsed[0]);
    const String begin = L"$BEGIN " + word;
    if (begin.getBufferLength() <= word.getBufferLength() || word != parsed[0])
        return refuse();
    if (!pipe->write(begin) &&
        pipe->isQueue()) // no memory either; a client that has gone away does not disturb us
        return false;

    const std::size_t depth = _commandCount++;
    _commands[depth].pipe = pipe;
    bool answered = true;
    bool succeeded = false;
    try {
        succeeded = answered = docmd(pipe, parsed, argc);
    } catch (const Exception& exception) {
        exception.report();
    } catch (...) {
        failCommands(depth);
        throw;
    }
    if (_commandCount <= depth) // a nested loop had a fault, and all commands failed
        return true;
    failCommands(depth + 1);
    endCommand(succeeded ? "$END OK" : "$END FAILED");
    return answered;
}

/** Ends the innermost command. */
void AppBox::endCommand(const char* word)
{
    CommandUnderWay& command = _commands[--_commandCount];
    const Handle_T<AppPipe> pipe = std::move(command.pipe);
    command.end.tell(*pipe, word);
}

/** Tells the clients of the commands from this depth on that they failed. */
void AppBox::failCommands(std::size_t depth)
{
    while (_commandCount > depth)
        endCommand("$END FAILED");
}

void AppBox::onException(unsigned long)
{
    // A fault has left the command: its client waits for the end.
    failCommands(0);
}

bool AppBox::docmd(AppPipe*, wchar_t**, int) { return false; }

void AppBox::exit()
{
    AppTables::leave(this);
    // Each of these may throw, where the program made the streams of the pipe.
    while (!runStep([](void* clients) { static_cast<AppClients*>(clients)->move(); }, _clients.get())) {
    }
    struct Farewell {
        AppClients* clients;
        bool isOver;
    } farewell{_clients.get(), false};
    while (!farewell.isOver) {
        runStep(
            [](void* argument) {
                auto& rest = *static_cast<Farewell*>(argument);
                rest.isOver = !rest.clients->dismissNext();
            },
            &farewell);
    }
    System::exit();
}

// ---- App

App::App(Thread* thread, AppBox* box)
    : _thread(thread)
    , _appBox(box)
{
    // Two one-way channels, each under its own lock: A carries the client's texts, B the box's.
    const SharedPtr<Mutex> mutexA(new Mutex);
    const SharedPtr<Mutex> mutexB(new Mutex);
    const Handle_T<MemoryStream> streamA = MemoryStream::createInstance();
    const Handle_T<MemoryStream> streamB = MemoryStream::createInstance();
    _boxPipe = AppPipe::createInstance(streamA, mutexA, streamB, mutexB);
    _pipe = AppPipe::createInstance(streamB, mutexB, streamA, mutexA);
    box->addPipe(_boxPipe);
}

App::~App() { _appBox->removePipe(_boxPipe); }

Unknown::Handle_T<App> App::createInstance(Thread* thread, AppBox* box) { return new App(thread, box); }

} // namespace orvi
