#include "Visitor.h"

#include <orvi/core/Encoding.h>
#include <orvi/core/Semaphore.h>
#include <orvi/core/ServiceSystem.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include <sys/socket.h>
#include <unistd.h>

namespace service {

using orvi::String;
using orvi::StringHelper;
using orvi::Watch;

namespace {

constexpr std::size_t longestLine = 4096;
constexpr std::size_t mostOutput = 65'536; // an application waits with more

bool isLater(ssize_t result) { return result < 0 && (errno == EAGAIN || errno == EINTR); }

} // namespace

Visitor::Visitor(int socket, std::chrono::milliseconds patience, orvi::System* system,
                 std::function<void()> onDone)
    : _socket(socket)
    , _patience(patience)
    , _onDone(std::move(onDone))
    , _watch(Watch::createInstance(socket, Watch::READABLE, {this, &Visitor::onReady}))
{
    _broken = !_watch->start(system);
    awaitNext();
}

Visitor::~Visitor()
{
    _watch->stop();
    if (!_reader.isNull())
        _reader->stop();
    close(_socket);
}

void Visitor::onReady(unsigned int readiness)
{
    receive();
    // Only when told: the socket takes some bytes even if nobody reads them, and the clock would start anew.
    if ((readiness & ~Watch::READABLE) != 0)
        send();
    obey(); // behind send: where it stops for want of room, there is output to wait for
    awaitNext();
}

void Visitor::onText(const String& text)
{
    if (!isTheirTurn())
        restartClock(); // now it is
    collect(text);
    obey();
    awaitNext();
}

void Visitor::sayLastWords()
{
    onReady(0);
    String text;
    while (awaitsAnswer() && hasRoom() && _app->getPipe()->read(text))
        collect(text);
    send();
}

void Visitor::awaitNext()
{
    unsigned int readiness = 0; // else the end of the connection would be told in each pass
    if (wantsInput())
        readiness |= Watch::READABLE;
    if (!_output.empty())
        readiness |= Watch::WRITABLE;
    _broken = !_watch->setReadiness(readiness) || _broken;

    if (awaitsAnswer() && hasRoom())
        _reader->start(_watch->getSystem()); // or goes on
    else if (awaitsAnswer())
        _reader->stop();

    using std::chrono::milliseconds;
    const auto left = std::chrono::ceil<milliseconds>(_turnBegan + _patience - Clock::now());
    _watch->setTickTime(isTheirTurn() ? static_cast<unsigned int>(std::max(left, milliseconds(1)).count())
                                      : orvi::Semaphore::endless);
    if (isDone())
        _onDone();
}

bool Visitor::isDone() const
{
    const bool served = _ended && _input.empty() && _output.empty() && !awaitsAnswer();
    return _broken || served || (isTheirTurn() && Clock::now() - _turnBegan > _patience);
}

void Visitor::restartClock()
{
    _turnBegan = Clock::now();
    _taken = 0;
}

bool Visitor::wantsInput() const { return !_ended && _input.size() <= longestLine; }

bool Visitor::hasRoom() const { return _output.size() <= mostOutput; }

void Visitor::receive()
{
    if (!wantsInput())
        return;
    char bytes[longestLine];
    const ssize_t count = recv(_socket, bytes, sizeof bytes, MSG_DONTWAIT);
    if (isLater(count))
        return;
    if (count > 0)
        _input.append(bytes, static_cast<std::size_t>(count));
    else
        _ended = true;
}

void Visitor::obey()
{
    while (!_input.empty() && !awaitsAnswer() && hasRoom()) {
        const std::size_t end = std::min(_input.find('\n'), _input.size());
        if (end > longestLine) {
            answer(L"a line is too long\nfailed");
            _input.clear();
            _ended = true;
        } else if (end < _input.size() || _ended) { // the last line may lack its end
            const std::string line = _input.substr(0, end);
            _input.erase(0, end + 1);
            obeyLine(line);
        } else {
            return;
        }
    }
}

void Visitor::obeyLine(const std::string& line)
{
    if (line == "quit") {
        answer(L"ok");
        orvi::ServiceSystem::shutdownSystem();
        return;
    }
    const std::size_t nameEnd = std::min(line.find(' '), line.size());
    _app = orvi::getApp(StringHelper::utf8ToWide(line.substr(0, nameEnd).c_str()));
    if (_app.isNull()) {
        answer(L"there is no such application\nfailed");
        return;
    }
    const std::string command = line.substr(std::min(nameEnd + 1, line.size()));
    _reader = orvi::AppReader::createInstance(_app->getPipe(), {this, &Visitor::onText});
    _app->getPipe()->write(L"$COMMAND " + StringHelper::utf8ToWide(command.c_str()));
}

void Visitor::collect(const String& text)
{
    const bool succeeded = text == L"$END OK";
    if (succeeded || text == L"$END FAILED" || text == L"$NOTHING" || text == L"$BYE") {
        answer(succeeded ? L"ok" : L"failed");
        _reader->stop();
        _app.setNull();
    } else if (text != L"$HELLO" && text.find(L"$BEGIN ") != 0) {
        answer(text);
    }
}

void Visitor::answer(const String& text)
{
    _output += StringHelper::wideToUtf8(text).getBuffer();
    _output += '\n';
}

void Visitor::send()
{
    if (_output.empty())
        return;
    const ssize_t count = ::send(_socket, _output.data(), _output.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (isLater(count))
        return;
    _broken = count < 0;
    if (_broken)
        return;
    const auto size = static_cast<std::size_t>(count);
    _output.erase(0, size);
    _taken += size;
    if (_output.empty() || _taken > mostOutput) // byte by byte would take for ever
        restartClock();
}

} // namespace service
