#include <orvi/core/App.h>

#include <orvi/core/Arguments.h>
#include <orvi/core/Encoding.h>
#include <orvi/core/Exception.h>
#include <orvi/core/Log.h>
#include <orvi/core/MemoryStream.h>
#include <orvi/core/Time.h>
#include <orvi/core/Varint.h>

#include "AppClients.h"
#include "AppTables.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

namespace orvi {

namespace {

constexpr wchar_t commandWord[] = L"$COMMAND ";
constexpr int commandWordLength = 9;

constexpr int maxHeadBytes = 5;
constexpr int shortTextBytes = 512; // a text of that size goes in one piece, without a block on the way

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

/** Writes the size of a text as Varint does; gives the number of bytes. */
int writeHead(unsigned char* head, int size)
{
    constexpr unsigned int moreFollows = 0x80;
    int count = 0;
    unsigned int rest = static_cast<unsigned int>(size) << 1;
    for (; rest >= moreFollows; rest >>= 7)
        head[count++] = static_cast<unsigned char>(rest | moreFollows);
    head[count++] = static_cast<unsigned char>(rest);
    return count;
}

void sendAll(OutputStream& output, const void* data, int size)
{
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (int sent = 0, refusals = 0; sent < size;) {
        const int count = output.write(bytes + sent, size - sent);
        if (count > 0)
            sent += count;
        else if (++refusals > 1)
            THROW_EXCEPTION(-1, L"AppPipe: a text finds no way out");
    }
}

} // namespace

// ---- AppPipe

AppPipe::AppPipe(Input* input, const SharedPtr<Mutex>& inputMutex, Output* output,
                 const SharedPtr<Mutex>& outputMutex)
    : _input(input)
    , _inputMutex(inputMutex)
    , _output(output)
    , _outputMutex(outputMutex)
{}

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
        Varint head;
        _input >> head;
        const int size = head;
        if (size < 0 || size > _input.available())
            THROW_EXCEPTION(-1, L"AppPipe: no text");
        readBody(size, text);
        return true;
    } catch (const Exception& exception) {
        exception.report();
        return false;
    }
}

/** Reads the bytes of a text in any case, so that the next one begins behind them. Memory that is not to be had is
    asked for once more. */
void AppPipe::readBody(int size, String& text)
{
    char few[shortTextBytes + 1];
    const std::size_t roomBytes = static_cast<std::size_t>(size) + 1;
    std::unique_ptr<char[]> many;
    for (int i = 0; i < 2 && size > shortTextBytes && many == nullptr; ++i)
        many.reset(new (std::nothrow) char[roomBytes]);
    if (size > shortTextBytes && many == nullptr) {
        for (int left = size; left > 0;) {
            const int count = _input.read(few, std::min(left, shortTextBytes));
            if (count <= 0)
                break;
            left -= count;
        }
        THROW_EXCEPTION(-1, L"AppPipe: no memory for a text");
    }
    char* bytes = many != nullptr ? many.get() : few;
    if (size > 0 && _input.read(bytes, size) != size)
        THROW_EXCEPTION(-1, L"AppPipe: half a text");
    bytes[size] = 0;
    String wide = StringHelper::utf8ToWide(bytes);
    if (wide.isEmpty() && *bytes != 0)
        wide = StringHelper::utf8ToWide(bytes);
    if (wide.isEmpty() && *bytes != 0)
        THROW_EXCEPTION(-1, L"AppPipe: no memory for a text");
    text = std::move(wide);
}

bool AppPipe::write(const String& text)
{
    const String_T<char> utf8 = StringHelper::wideToUtf8(text);
    if (utf8.isEmpty() && !text.isEmpty()) {
        Log::error(L"AppPipe: no memory for a text");
        return false;
    }
    return send(utf8, utf8.getBufferLength() - 1);
}

/** Writes a word of the protocol, which takes no memory but the stream's. */
bool AppPipe::tell(const char* word) { return send(word, static_cast<int>(std::strlen(word))); }

/** Writes a text, head and bytes. Half a text would spoil those behind it, so an output that takes a part gets the rest,
    and one that takes nothing is asked once more. */
bool AppPipe::send(const char* bytes, int size)
{
    unsigned char start[maxHeadBytes + shortTextBytes];
    const int headSize = writeHead(start, size);
    const int startSize = headSize + std::min(size, shortTextBytes);
    std::memcpy(start + headSize, bytes, static_cast<std::size_t>(startSize - headSize));

    const MutexGuard guard(*_outputMutex);
    try {
        sendAll(_output, start, startSize);
        if (size > shortTextBytes)
            sendAll(_output, bytes + shortTextBytes, size - shortTextBytes);
        return true;
    } catch (const Exception& exception) {
        exception.report();
        return false;
    }
}

// ---- AppBox

AppBox::AppBox(const String& appName, const String& parameters)
    : _appName(appName)
    , _parameters(parameters)
    , _clients(std::make_unique<AppClients>())
{
    _exit = [](void* system) { static_cast<AppBox*>(static_cast<System*>(system))->AppBox::exit(); };
}

AppBox::~AppBox() = default;

Unknown::Handle_T<AppBox> AppBox::createInstance(const String& appName, const String& parameters)
{
    return new AppBox(appName, parameters);
}

void AppBox::addPipe(AppPipe* pipe) { _clients->add(pipe); }

void AppBox::removePipe(AppPipe* pipe) { _clients->remove(pipe); }

void AppBox::onTick(unsigned int deltaMs)
{
    if (_clients->isMoveDue())
        _clients->move();
    _hasWorkLeft = serve();
    System::onTick(deltaMs);
}

/** Serves the pipes in turns until all are empty; true when it ends before that. A command may turn the loop itself, in
    which pipes come and go. */
bool AppBox::serve()
{
    if (_commandCount == mostCommands)
        return false;
    unsigned int began = 0;
    bool hasBegun = false;
    String text;
    int silent = 0; // pipes in a row without a text
    while (silent < _clients->count() && getState() != STATE_STOPPING) {
        AppPipe* pipe = _clients->next();
        if (pipe == nullptr || !pipe->read(text)) {
            ++silent;
            continue;
        }
        if (!std::exchange(hasBegun, true))
            began = getTimeTick();
        silent = 0;
        const Handle_T<AppPipe> kept = pipe;
        const unsigned int changes = _clients->changes();
        for (int served = 0; silent == 0 && served < textsPerTurn; ++served) {
            if (!dosamething(pipe, text))
                pipe->tell("$NOTHING");
            if (getTimeTick() - began >= mostMillisToServe)
                return true;
            if (changes != _clients->changes() || getState() == STATE_STOPPING)
                break;
            silent = pipe->read(text) ? 0 : 1;
        }
    }
    return getState() == STATE_STOPPING; // what is left stays, and a rest would only put off the end
}

bool AppBox::dosamething(AppPipe* pipe, const wchar_t* text)
{
    if (!isCommand(text) || _commandCount == mostCommands)
        return false;
    wchar_t** parsed = nullptr;
    int argc = 0;
    parseArguments(text + commandWordLength, parsed, argc);
    if (parsed == nullptr)
        return false;
    const std::unique_ptr<wchar_t*, decltype(&std::free)> argv(parsed, std::free);
    const String word(parsed[0]);
    const String begin = L"$BEGIN " + word;
    if (begin.getBufferLength() <= word.getBufferLength() || word != parsed[0]) // no memory
        return false;

    const int depth = _commandCount++;
    _answering[depth] = pipe;
    bool answered = true;
    bool succeeded = false;
    try {
        pipe->write(begin);
        succeeded = answered = docmd(pipe, parsed, argc);
    } catch (const Exception& exception) {
        exception.report();
    } catch (...) {
        endCommands(depth);
        throw;
    }
    if (_commandCount <= depth) // a nested loop had a fault, and all commands failed
        return true;
    endCommands(depth + 1);
    if (succeeded) {
        _commandCount = depth;
        _answering[depth].setNull();
        pipe->tell("$END OK");
    } else {
        endCommands(depth);
    }
    return answered;
}

/** Tells the clients of the commands from this depth on that they failed. */
void AppBox::endCommands(int depth)
{
    while (_commandCount > depth) {
        const Handle_T<AppPipe> pipe = std::exchange(_answering[--_commandCount], {});
        pipe->tell("$END FAILED");
    }
}

void AppBox::onException(unsigned long)
{
    // A fault has left the command: its client waits for the end.
    endCommands(0);
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
