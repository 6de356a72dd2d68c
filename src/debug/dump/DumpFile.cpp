#include "DumpFile.h"

#include "platform/posix/base/Utf8.h"
#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>
#include <iterator>
#include <limits>
#include <unistd.h>

namespace orvi::debug {

using minidump::Location;
using minidump::StreamType;

std::uint32_t DumpFile::beginBlock()
{
    constexpr std::uint64_t alignment = 8;
    _end = (_end + alignment - 1) / alignment * alignment;
    return static_cast<std::uint32_t>(_end);
}

void DumpFile::extendBlock(const void* bytes, std::size_t size)
{
    if (size > std::numeric_limits<std::uint32_t>::max() - _end) // what a Location can tell
        _failed = true;
    writeAt(_end, bytes, size);
    _end += size;
}

Location DumpFile::endBlock(std::uint32_t offset) const
{
    return {static_cast<std::uint32_t>(_end) - offset, offset};
}

Location DumpFile::addBytes(const void* bytes, std::size_t size)
{
    const std::uint32_t offset = beginBlock();
    extendBlock(bytes, size);
    return endBlock(offset);
}

// The number of bytes, UTF-16, and a 0 that does not count.
std::uint32_t DumpFile::addText(std::string_view utf8)
{
    constexpr std::size_t capacity = PATH_MAX;
    wchar_t text[capacity + 1];
    static_assert(sizeof(wchar_t) == 2);
    const std::size_t full = platform::utf8ToWide(reinterpret_cast<const unsigned char*>(utf8.data()),
                                                  utf8.size(), text, capacity);
    const std::size_t length = std::min(full, capacity);
    text[length] = L'\0';
    const auto size = static_cast<std::uint32_t>(length * sizeof *text);
    const std::uint32_t offset = beginBlock();
    extendBlock(&size, sizeof size);
    extendBlock(text, size + sizeof *text);
    return offset;
}

void DumpFile::addStream(StreamType type, Location location)
{
    if (_streamCount == std::size(_directory))
        _failed = true;
    else
        _directory[_streamCount++] = {type, location};
}

void DumpFile::addFile(StreamType type, ProcFile& source)
{
    constexpr std::uint32_t mostBytes = 16 << 20;
    char part[4096];
    const std::uint32_t offset = beginBlock();
    while (endBlock(offset).size < mostBytes) {
        const std::size_t count = source.read(part);
        if (count == 0)
            break;
        extendBlock(part, count);
    }
    if (endBlock(offset).size != 0)
        addStream(type, endBlock(offset));
}

void DumpFile::addListBytes(StreamType type, std::size_t count, const void* bytes, std::size_t size)
{
    const auto count32 = static_cast<std::uint32_t>(count);
    const std::uint32_t offset = beginBlock();
    extendBlock(&count32, sizeof count32);
    extendBlock(bytes, size);
    addStream(type, endBlock(offset));
}

void DumpFile::writeAt(std::uint64_t offset, const void* bytes, std::size_t size)
{
    for (const auto* from = static_cast<const char*>(bytes); size != 0 && !_failed;) {
        const ssize_t count = pwrite(_file, from, size, static_cast<off_t>(offset));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0) {
            _failed = true;
            break;
        }
        from += count;
        offset += static_cast<std::uint64_t>(count);
        size -= static_cast<std::size_t>(count);
    }
}

bool DumpFile::finish()
{
    const Location directory = addBytes(_directory, _streamCount * sizeof *_directory);
    minidump::Header header{};
    header.signature = minidump::Header::expectedSignature;
    header.version = minidump::Header::expectedVersion;
    header.streamCount = _streamCount;
    header.directoryOffset = directory.offset;
    header.time = static_cast<std::uint32_t>(std::time(nullptr));
    writeAt(0, &header, sizeof header);
    return !_failed;
}

} // namespace orvi::debug
