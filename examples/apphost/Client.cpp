#include "Client.h"

#include <orvi/core/Console.h>

namespace apphost {

using orvi::String;

void printLine(const String& label, const String& text)
{
    orvi::Console::output(L"%-9s %s\n", label.getBuffer(), text.getBuffer());
}

Client::Client(const String& label, const String& kind, const orvi::Handle_T<orvi::App>& app)
    : _label(label)
    , _kind(kind)
    , _app(app)
{}

void Client::send(const String& commandLine)
{
    _failed = false;
    ++_pending;
    _app->getPipe()->write(L"$COMMAND " + commandLine);
}

bool Client::deliver()
{
    bool any = false;
    for (String text; _app->getPipe()->read(text); any = true) {
        printLine(_label, text);
        follow(text);
    }
    return any;
}

void Client::follow(const String& text)
{
    const bool failed = text == L"$END FAILED";
    if (failed || text == L"$END OK") {
        --_pending;
        _failed = failed;
        _nothingDue = failed; // a CommandBox lets no Exception out, behind which it would not come
    } else if (text == L"$NOTHING") {
        _nothingDue = false;
    } else if (text == L"$HELLO") {
        _greeted = true;
    } else if (text == L"$BYE") {
        _ended = true;
    }
}

} // namespace apphost
