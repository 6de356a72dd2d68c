#include "CommandBox.h"

#include <orvi/core/Exception.h>
#include <orvi/core/Tick.h>

#include <utility>

namespace apphost {

using orvi::String;

CommandBox::CommandBox(const String& appName, const String& parameters, std::vector<Command> commands)
    : AppBox(appName, parameters)
    , _commands(std::move(commands))
{}

bool CommandBox::init()
{
    // The loop never blocks by itself: without this task it would keep a processor busy.
    return AppBox::init() && orvi::Rest::createInstance()->start(this);
}

bool CommandBox::dosamething(orvi::AppPipe* pipe, const wchar_t* text)
{
    _text = text;
    _pipe = pipe;
    const bool answered = AppBox::dosamething(pipe, text);
    _pipe = nullptr;
    return answered;
}

void CommandBox::onException(unsigned long code)
{
    AppBox::onException(code);
    // What a failed command is followed by here; a fault has left it before that.
    if (orvi::AppPipe* pipe = std::exchange(_pipe, nullptr))
        pipe->write(L"$NOTHING");
}

bool CommandBox::docmd(orvi::AppPipe* pipe, wchar_t** argv, int argc)
{
    constexpr int behindCommandWord = 9; // "$COMMAND "
    const Call call(argv, argc, _text + behindCommandWord, [pipe](const String& text) { pipe->write(text); });
    try {
        return _commands.run(call);
    } catch (const orvi::Exception& exception) {
        // The box would catch it as well, but only the log would know why the command failed.
        exception.report();
        return call.fail(L"exception: %s", exception.description());
    }
}

} // namespace apphost
