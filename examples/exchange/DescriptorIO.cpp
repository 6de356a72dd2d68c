#include "DescriptorIO.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace exchange {

namespace {

void setNonBlocking(int descriptor)
{
    const int flags = fcntl(descriptor, F_GETFL);
    if (flags >= 0)
        fcntl(descriptor, F_SETFL, flags | O_NONBLOCK);
}

bool isNothingNow() { return errno == EAGAIN || errno == EWOULDBLOCK; }

} // namespace

orvi::Handle_T<DescriptorIO> DescriptorIO::createInstance(int input, int output, int piece)
{
    return new DescriptorIO(input, output, piece);
}

DescriptorIO::DescriptorIO(int input, int output, int piece)
    : _input(input)
    , _output(output)
    , _piece(piece)
{
    setNonBlocking(_input);
    setNonBlocking(_output);
}

DescriptorIO::~DescriptorIO()
{
    close(_input);
    if (_output != _input)
        close(_output);
}

int DescriptorIO::available() const
{
    fill();
    if (_begin < _end)
        return _end - _begin;
    return _inputState == State::Open ? 0 : -1;
}

int DescriptorIO::peek(void* buffer, int size) const
{
    const int count = std::min(size, available());
    if (count > 0)
        std::memcpy(buffer, _bytes + _begin, static_cast<std::size_t>(count));
    return count;
}

int DescriptorIO::read(void* buffer, int size)
{
    if (_allowance == 0)
        _inputState = State::Exhausted;
    if (_inputState == State::Exhausted)
        return -1;
    const int count = peek(buffer, std::min(size, _allowance));
    if (count > 0) {
        _begin += count;
        _allowance -= count;
    }
    return count;
}

int DescriptorIO::write(const void* data, int size)
{
    if (_outputState != State::Open)
        return -1;
    const auto wanted = static_cast<std::size_t>(std::clamp(size, 0, _piece));
    ssize_t count = 0;
    do {
        count = ::write(_output, data, wanted);
    } while (count < 0 && errno == EINTR);
    if (count >= 0)
        return static_cast<int>(count);
    if (isNothingNow())
        return 0;
    _outputState = judge();
    return -1;
}

void DescriptorIO::wait(bool alsoToWrite) const
{
    // A descriptor below zero is passed over. One without a wish would still report its end, again and again.
    pollfd waiting[] = {{_input, POLLIN, 0}, {alsoToWrite ? _output : -1, POLLOUT, 0}};
    poll(waiting, 2, -1); // whatever it says, the next read and write will tell
}

/** Puts what has arrived into the buffer, when that is empty. */
void DescriptorIO::fill() const
{
    if (_begin < _end || _inputState != State::Open)
        return;
    const auto wanted = static_cast<std::size_t>(std::min(capacity, _piece));
    ssize_t count = 0;
    do {
        count = ::read(_input, _bytes, wanted);
    } while (count < 0 && errno == EINTR);
    if (count > 0) {
        _begin = 0;
        _end = static_cast<int>(count);
    } else if (count == 0) {
        _inputState = State::Ended;
    } else if (!isNothingNow()) {
        _inputState = judge();
    }
}

/** What the failure of a call means: a peer that dies with bytes unread resets a socket. */
DescriptorIO::State DescriptorIO::judge() const
{
    _error = errno;
    return _error == EPIPE || _error == ECONNRESET ? State::Ended : State::Failed;
}

} // namespace exchange
