#include "Client.h"

#include <orvi/core/Console.h>

namespace apphost {

using orvi::String;

void printLine(const String& label, const String& text)
{
    orvi::Console::output(L"%-9s %s\n", label.getBuffer(), text.getBuffer());
}

Client::Client(const String& label, const String& kind, const orvi::Handle_T<orvi::App>& app, int& received)
    : _label(label)
    , _kind(kind)
    , _app(app)
    , _reader(orvi::AppReader::createInstance(app->getPipe(), {this, &Client::onText}))
    , _received(received)
{}

Client::~Client() { _reader->stop(); }

void Client::send(const String& commandLine)
{
    _failed = false;
    ++_pending;
    _app->getPipe()->write(L"$COMMAND " + commandLine);
}

void Client::deliver()
{
    for (String text; _app->getPipe()->read(text);)
        onText(text);
}

void Client::onText(const String& text)
{
    ++_received;
    printLine(_label, text);
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
