#include "BufferedFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

namespace orvi {

namespace {

/** `size`, or less where it would pass the largest offset. */
int clampToLimit(std::int64_t position, int size)
{
    return static_cast<int>(std::clamp<std::int64_t>(BufferedFile::maxSize - position, 0, size));
}

} // namespace

bool BufferedFile::open(const char* path, const platform::FileHandle::OpenOptions& options,
                        Directions directions)
{
    using Access = platform::FileHandle::Access;
    _mayRead = directions.read && options.access != Access::Write;
    _mayWrite = directions.write && options.access != Access::Read;
    _append = options.append;
    return _handle.open(path, options);
}

bool BufferedFile::close()
{
    const bool flushed = !hasPending() || flush();
    const int error = errno;
    const bool closed = _handle.close();
    if (!flushed)
        errno = error; // the first failure is the one that lost data
    return flushed && closed;
}

int BufferedFile::read(void* buffer, int size)
{
    if (!_mayRead) {
        errno = EBADF;
        return 0;
    }
    if (!beginReading())
        return 0;
    auto* target = static_cast<unsigned char*>(buffer);
    if (!_handle.isSeekable())
        return readDirect(target, size);
    const int allowed = clampToLimit(_position, size);
    const int count = readBuffered(target, allowed);
    if (count == allowed && allowed < size)
        errno = EFBIG;
    return count;
}

int BufferedFile::peek(void* buffer, int size)
{
    if (!beginReading())
        return 0;
    const std::int64_t position = _position;
    const int count = read(buffer, size);
    _position = position;
    _eof = false;
    return count;
}

int BufferedFile::write(const void* data, int size)
{
    if (!_mayWrite) {
        errno = EBADF;
        return 0;
    }
    const auto* source = static_cast<const unsigned char*>(data);
    if (!_handle.isSeekable())
        return writeDirect(source, size);
    if (!beginWriting())
        return 0;
    const int allowed = clampToLimit(_position, size);
    const int count = writeBuffered(source, allowed);
    if (count == allowed && allowed < size)
        errno = EFBIG;
    return count;
}

std::int64_t BufferedFile::position() const
{
    if (!_handle.isSeekable()) {
        errno = ESPIPE;
        return -1;
    }
    return _position;
}

std::int64_t BufferedFile::size() const
{
    const std::int64_t stored = _handle.size();
    if (stored < 0 || !hasPending())
        return stored;
    return _append ? stored + _bufferSize : std::max(stored, _bufferStart + _bufferSize);
}

int BufferedFile::setPosition(int position)
{
    if (position < 0 || !_handle.isSeekable()) {
        errno = position < 0 ? EINVAL : ESPIPE;
        return -1;
    }
    if (hasPending() && !flush())
        return -1;
    _position = position;
    _eof = false;
    return position;
}

bool BufferedFile::allocateBuffer()
{
    if (_buffer == nullptr)
        _buffer.reset(new (std::nothrow) unsigned char[bufferCapacity]);
    return _buffer != nullptr;
}

bool BufferedFile::beginReading()
{
    if (!_writing)
        return true;
    if (hasPending() && !flush())
        return false;
    _writing = false;
    return true;
}

bool BufferedFile::beginWriting()
{
    if (hasPending())
        return true;
    if (_append) {
        const std::int64_t end = _handle.size();
        if (end < 0)
            return false;
        _position = end;
    }
    _writing = true;
    _bufferSize = 0; // what was read ahead
    _bufferStart = _position;
    return true;
}

/** One step to the file; `next` becomes the offset behind what was written. */
std::ptrdiff_t BufferedFile::store(std::int64_t offset, const unsigned char* source, int size,
                                   std::int64_t& next)
{
    const auto bytes = static_cast<std::size_t>(size);
    const std::ptrdiff_t count = _append && _handle.isSeekable() ? _handle.append(source, bytes, next)
                                                                 : _handle.write(offset, source, bytes);
    if (count == 0)
        errno = EIO; // a file that takes nothing and says nothing would be asked for ever
    if (count > 0 && !_append)
        next = offset + count;
    return count;
}

bool BufferedFile::flush()
{
    int done = 0;
    while (done < _bufferSize) {
        const std::ptrdiff_t count =
            store(_bufferStart, _buffer.get() + done, _bufferSize - done, _bufferStart);
        if (count <= 0)
            break;
        done += static_cast<int>(count);
    }
    _bufferSize -= done;
    _position = _bufferStart + _bufferSize;
    std::memmove(_buffer.get(), _buffer.get() + done, static_cast<std::size_t>(_bufferSize));
    return _bufferSize == 0;
}

int BufferedFile::readBuffered(unsigned char* target, int size)
{
    int total = 0;
    while (total < size) {
        const std::int64_t ahead = _bufferStart + _bufferSize - _position;
        if (_position >= _bufferStart && ahead > 0) {
            const int count = static_cast<int>(std::min<std::int64_t>(ahead, size - total));
            std::memcpy(target + total, _buffer.get() + (_position - _bufferStart),
                        static_cast<std::size_t>(count));
            _position += count;
            total += count;
            continue;
        }
        if (size - total >= directSize || !allocateBuffer())
            return total + readDirect(target + total, size - total);
        const std::ptrdiff_t count = _handle.read(_position, _buffer.get(), bufferCapacity);
        _bufferStart = _position;
        _bufferSize = static_cast<int>(std::max<std::ptrdiff_t>(count, 0));
        if (count <= 0) {
            _eof = count == 0;
            break;
        }
    }
    return total;
}

int BufferedFile::readDirect(unsigned char* target, int size)
{
    int total = 0;
    while (total < size) {
        const std::ptrdiff_t count =
            _handle.read(_position, target + total, static_cast<std::size_t>(size - total));
        if (count <= 0) {
            _eof = count == 0;
            break;
        }
        total += static_cast<int>(count);
        if (_handle.isSeekable())
            _position += count;
    }
    return total;
}

int BufferedFile::writeBuffered(const unsigned char* source, int size)
{
    int total = 0;
    while (total < size) {
        const int rest = size - total;
        if (!hasPending() && (rest >= directSize || !allocateBuffer()))
            return total + writeDirect(source + total, rest);
        if (_bufferSize == bufferCapacity && !flush())
            break;
        const int count = std::min(rest, bufferCapacity - _bufferSize);
        std::memcpy(_buffer.get() + _bufferSize, source + total, static_cast<std::size_t>(count));
        _bufferSize += count;
        _position += count;
        total += count;
    }
    return total;
}

int BufferedFile::writeDirect(const unsigned char* source, int size)
{
    int total = 0;
    while (total < size) {
        std::int64_t next = _position;
        const std::ptrdiff_t count = store(_position, source + total, size - total, next);
        if (count <= 0)
            break;
        total += static_cast<int>(count);
        if (_handle.isSeekable())
            _position = _bufferStart = next;
    }
    return total;
}

} // namespace orvi
