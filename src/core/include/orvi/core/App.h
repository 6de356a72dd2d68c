#pragma once
#include <orvi/core/Callback.h>
#include <orvi/core/Export.h>
#include <orvi/core/Mutex.h>
#include <orvi/core/Stream.h>
#include <orvi/core/String.h>
#include <orvi/core/System.h>
#include <orvi/core/Thread.h>

#include <cstddef>
#include <memory>

namespace orvi {

class App;
class AppClients;
class AppWord;
class MemoryStream;
struct StreamWait;

/** One end of a two-way channel of texts. On the wire a text is UTF-8 in the binary form of a string. Each
    read and each write moves a whole text under the lock of its side. */
class ORVI_API AppPipe : public Unknown {
public:
    static Unknown::Handle_T<AppPipe> createInstance(Input* input, const SharedPtr<Mutex>& inputMutex,
                                                     Output* output, const SharedPtr<Mutex>& outputMutex);

    /** One text, if one is there. False, with a failure in the log, also for bytes that are none, and for a text
        that finds no memory: that text is lost, those behind it are whole. */
    bool read(String& text);
    /** The same, but waits for a text until it comes or `timeoutMs` milliseconds are over; 0xFFFFFFFF has no
        limit. Any number of threads may wait. Behind "$BYE" nothing comes. */
    bool read(String& text, unsigned int timeoutMs);
    /** False, with a failure in the log, when the output does not take the text or memory is short. A MemoryStream
        takes a text whole or not at all. */
    bool write(const String& text);

private:
    friend class AppBox;
    friend class AppClients;
    friend class AppReader;
    friend class AppWord;

    bool isQueue() const noexcept { return !_queue.isNull(); }
    bool send(MemoryStream& draft);
    bool hasText() const;
    bool addWait(StreamWait& wait);
    void removeWait(StreamWait& wait);

    AppPipe(Input* input, const SharedPtr<Mutex>& inputMutex, Output* output,
            const SharedPtr<Mutex>& outputMutex);
    ~AppPipe() override;

    InputStream _input;
    SharedPtr<Mutex> _inputMutex;
    Unknown::Handle_T<MemoryStream> _source; // the input, where it is one: it tells those who wait
    OutputStream _output;
    SharedPtr<Mutex> _outputMutex;
    Unknown::Handle_T<MemoryStream>
        _queue; // the output, where it is one: it takes drafts over without memory
    Unknown::Handle_T<MemoryStream> _draft; // of what is being written; under the lock of the output
};

/** A task that hands each text of a pipe to a handler, on the run thread of its system: for a client that has a loop of its
    own, which it wakes where that rests.

        AppReader::createInstance(app->getPipe(), AppReader::Handler(this, &Window::onText))->start(system);

    It does not stop by itself behind "$BYE". The handler may stop it and drop its handle. */
class ORVI_API AppReader final : public System::Task {
public:
    using Handler = CallbackHandler<void, const String&>;

    static Unknown::Handle_T<AppReader> createInstance(AppPipe* pipe, const Handler& handler);

    bool init() override;
    void exit() override;
    void onTick(unsigned int elapsedMs) override;

private:
    struct Place;

    AppReader(AppPipe* pipe, const Handler& handler);
    ~AppReader() override;

    const Unknown::Handle_T<AppPipe> _pipe;
    const Handler _handler;
    std::unique_ptr<Place> _place; // in the pipe, between start and stop
};

/** A named application inside the process: a System that answers text commands. Override docmd.

    The protocol, text by text, all words case-sensitive:

        box     $HELLO                  the client's pipe has joined; always the first text
        client  $COMMAND <command line>
        box     $BEGIN <command word>   then whatever docmd writes to the pipe
        box     $END OK                 docmd gave true
        box     $END FAILED             docmd gave false ("$NOTHING" follows) or threw an exception
        box     $NOTHING                the text was no command
        box     $BYE                    the pipe has left or the box ends; always the last

    A text is answered in the box's next pass, so the latency is that of its loop; a box that rests is woken.
    Pipes that have many texts are served in turns. A pass serves for some 10 ms at most, then the tasks get
    their turn; where texts are left the next pass comes at once, and a Yield waits until there are none. A
    shutdown ends the serving: what waits behind it is not answered.

    A command may turn the loop itself, in which further commands are served, its own client's too; 16 deep. */
class ORVI_API AppBox : public System {
public:
    static Unknown::Handle_T<AppBox> createInstance(const String& appName, const String& parameters);

    const String& getAppName() const noexcept { return _appName; }
    /** The text given to startApp; its meaning is the application's own. */
    const String& getParameters() const noexcept { return _parameters; }

    /** Ask for a pipe to be served, and no longer. Any thread; carried out at the start of the next pass, or
        at the end of the box. A pipe added after that waits until the box is started again. addPipe takes what
        memory it needs or throws std::bad_alloc; removePipe takes none. */
    void addPipe(AppPipe* pipe);
    void removePipe(AppPipe* pipe);

    void exit() override;
    void onTick(unsigned int deltaMs) override;
    /** Tells a client whose command had a fault that it failed; an override calls this. */
    void onException(unsigned long code) override;
    /** Handles one text of a client; false makes the box answer "$NOTHING". */
    virtual bool dosamething(AppPipe* pipe, const wchar_t* text);
    /** Runs one command, on the run thread. `argv[0]` is the command word; the strings are writable and live
        for the call. What is written to `pipe` reaches the client between "$BEGIN" and "$END". */
    virtual bool docmd(AppPipe* pipe, wchar_t** argv, int argc);

protected:
    AppBox(const String& appName, const String& parameters);
    ~AppBox() override;

private:
    static constexpr std::size_t mostCommands = 16;

    struct CommandUnderWay;

    bool serve();
    void endCommand(const char* word);
    void failCommands(std::size_t depth);

    String _appName;
    String _parameters;
    std::unique_ptr<AppClients> _clients;
    std::unique_ptr<CommandUnderWay[]> _commands; // under way are the first of them, the innermost last
    std::size_t _commandCount = 0;
};

/** A client's ticket to a box: a pair of pipes of its own. It may outlive the box. */
class ORVI_API App : public Unknown {
public:
    static Unknown::Handle_T<App> createInstance(Thread* thread, AppBox* box);

    Thread* getThread() const noexcept { return _thread; }
    AppBox* getAppBox() const noexcept { return _appBox; }
    /** The client's end. */
    AppPipe* getPipe() const noexcept { return _pipe; }

private:
    App(Thread* thread, AppBox* box);
    ~App() override;

    Unknown::Handle_T<Thread> _thread;
    Unknown::Handle_T<AppBox> _appBox;
    Unknown::Handle_T<AppPipe> _boxPipe;
    Unknown::Handle_T<AppPipe> _pipe;
};

/** Makes a box for an application of this name; null means that it cannot. */
using AppFactory = Unknown::Handle_T<AppBox> (*)(const wchar_t* appName, const wchar_t* parameters);

/** Registers a kind of application. True also for the same pair again; false, with a line on the console,
    when the name has another factory, which stays. */
ORVI_API bool setUpApp(const wchar_t* name, AppFactory factory);
/** Forgets a kind of application; those that run go on. */
ORVI_API void tearDownApp(const wchar_t* name);

/** Makes a box with the factory `factoryName`, starts it on a thread of its own and enters it under its name,
    in place of an earlier one of that name, which goes on running. Gives a client of the box, which lives on
    without it; null on failure, also for want of memory, and then nothing is left of it. */
ORVI_API Unknown::Handle_T<App> startApp(const wchar_t* factoryName, const wchar_t* appName,
                                         const wchar_t* parameters);
/** A new client of the running box `appName`; null when there is none. */
ORVI_API Unknown::Handle_T<App> getApp(const wchar_t* appName);
/** Stops the box and waits for its thread. Not for the box's own thread: it calls its shutdown. Null does
    nothing. */
ORVI_API void exitApp(App* app);

// At the end of the process every box that still runs is shut down: all are asked, then each is waited for.

} // namespace orvi
