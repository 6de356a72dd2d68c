#include <orvi/core/App.h>

#include <orvi/core/Arguments.h>
#include <orvi/core/Encoding.h>
#include <orvi/core/Exception.h>
#include <orvi/core/MemoryStream.h>

#include "AppTables.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

namespace orvi {

namespace {

constexpr wchar_t commandWord[] = L"$COMMAND ";
constexpr int commandWordLength = 9;

bool isCommand(const wchar_t* text)
{
    int matched = 0;
    while (matched < commandWordLength && text[matched] == commandWord[matched])
        ++matched;
    return matched == commandWordLength;
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
        _input >> text;
        return true;
    } catch (const Exception& exception) {
        exception.report();
        return false;
    }
}

bool AppPipe::write(const String& text)
{
    const String_T<char> utf8 = StringHelper::wideToUtf8(text);
    const MutexGuard guard(*_outputMutex);
    try {
        _output << utf8;
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
{}

AppBox::~AppBox() = default;

Unknown::Handle_T<AppBox> AppBox::createInstance(const String& appName, const String& parameters)
{
    return new AppBox(appName, parameters);
}

void AppBox::addPipe(AppPipe* pipe)
{
    const MutexGuard guard(_addMutex);
    _addedPipes.emplace(pipe, pipe);
    _pipesChange = true;
}

void AppBox::removePipe(AppPipe* pipe)
{
    const MutexGuard guard(_removeMutex);
    _removedPipes.emplace(pipe, pipe);
    _pipesChange = true;
}

void AppBox::addPipes()
{
    const MutexGuard guard(_addMutex);
    for (const auto& entry : _addedPipes) {
        _pipes.insert(entry);
        entry.first->write(L"$HELLO");
    }
    _addedPipes.clear();
}

void AppBox::removePipes()
{
    const MutexGuard guard(_removeMutex);
    for (const auto& entry : _removedPipes) {
        if (_pipes.erase(entry.first) > 0)
            entry.first->write(L"$BYE");
    }
    _removedPipes.clear();
}

void AppBox::onTick(unsigned int deltaMs)
{
    if (_pipesChange.exchange(false)) {
        addPipes();
        removePipes();
    }
    String text;
    for (const auto& entry : _pipes) { // does not change here: commands only ask for pipes to come and go
        AppPipe* pipe = entry.first;
        while (pipe->read(text)) {
            if (!dosamething(pipe, text))
                pipe->write(L"$NOTHING");
        }
    }
    System::onTick(deltaMs);
}

bool AppBox::dosamething(AppPipe* pipe, const wchar_t* text)
{
    if (!isCommand(text))
        return false;
    wchar_t** parsed = nullptr;
    int argc = 0;
    parseArguments(text + commandWordLength, parsed, argc);
    if (parsed == nullptr)
        return false;
    const std::unique_ptr<wchar_t*, decltype(&std::free)> argv(parsed, std::free);

    pipe->write(L"$BEGIN " + String(parsed[0]));
    _answering = pipe;
    bool answered = true;
    bool succeeded = false;
    try {
        succeeded = answered = docmd(pipe, parsed, argc);
    } catch (const Exception& exception) {
        exception.report();
    }
    _answering = nullptr;
    pipe->write(succeeded ? L"$END OK" : L"$END FAILED");
    return answered;
}

void AppBox::onException(unsigned long)
{
    // A fault, or what is no Exception, has left the command: its client waits for the end.
    if (AppPipe* pipe = std::exchange(_answering, nullptr))
        pipe->write(L"$END FAILED");
}

bool AppBox::docmd(AppPipe*, wchar_t**, int) { return false; }

void AppBox::exit()
{
    AppTables::leave(this);
    addPipes();
    removePipes();
    for (const auto& entry : _pipes)
        entry.first->write(L"$BYE");
    _pipes.clear();
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
