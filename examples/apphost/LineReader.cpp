#include "LineReader.h"

#include <orvi/core/Encoding.h>

#include <cerrno>
#include <poll.h>
#include <unistd.h>

namespace apphost {

bool LineReader::isTerminal() const { return isatty(_descriptor) == 1; }

LineReader::Result LineReader::next(orvi::String& line)
{
    Result result = Result::NothingYet;
    if (takeLine(result, line))
        return result;
    pollfd source = {_descriptor, POLLIN, 0};
    const int ready = poll(&source, 1, 0);
    if (ready == 0 || (ready < 0 && errno == EINTR))
        return Result::NothingYet;
    char piece[4096];
    const ssize_t count = ready > 0 ? read(_descriptor, piece, sizeof piece) : -1;
    if (count < 0 && (errno == EINTR || errno == EAGAIN))
        return Result::NothingYet;
    if (count < 0)
        return Result::Failed;
    if (count == 0)
        return takeRest(line);
    _text.append(piece, static_cast<std::size_t>(count));
    takeLine(result, line); // one piece a call: a line without an end shall not keep the caller here
    return result;
}

/** A line out of what has been read; false when none is complete. */
bool LineReader::takeLine(Result& result, orvi::String& line)
{
    const std::size_t end = _text.find('\n', _searched);
    if (end != std::string::npos) {
        result = hand(end - _begin, line);
        _begin = _searched = end + 1;
        return true;
    }
    if (_text.size() - _begin > mostBytes)
        _skipping = true;
    _text.erase(0, _skipping ? _text.size() : _begin);
    _begin = 0;
    _searched = _text.size();
    return false;
}

/** At the end: what stands behind the last line feed is a line as well. */
LineReader::Result LineReader::takeRest(orvi::String& line)
{
    if (_text.empty() && !_skipping)
        return Result::End;
    const Result result = hand(_text.size(), line);
    _text.clear();
    _searched = 0;
    return result;
}

LineReader::Result LineReader::hand(std::size_t length, orvi::String& line)
{
    if (_skipping || length > mostBytes) {
        _skipping = false;
        return Result::TooLong;
    }
    if (length > 0 && _text[_begin + length - 1] == '\r')
        --length;
    line = orvi::StringHelper::utf8ToWide(_text.substr(_begin, length).c_str());
    return Result::Line;
}

} // namespace apphost
