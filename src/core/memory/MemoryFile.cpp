#include <orvi/core/MemoryFile.h>

#include <orvi/core/Log.h>
#include <orvi/core/MemoryStream.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

namespace orvi {

namespace {

constexpr int pageSize = 4096;

} // namespace

class MemoryFile::Cache final : public Unknown, public MemoryBlock<pageSize> {};

/** The rest of a page, at the position. Empty, and a line in the log, when there is none to be had. */
struct MemoryFile::Room {
    unsigned char* bytes;
    int size;
};

Handle_T<MemoryFile> MemoryFile::createInstance() { return new MemoryFile; }

MemoryFile::MemoryFile() noexcept = default;

MemoryFile::~MemoryFile() = default;

MemoryFile::MemoryFile(const MemoryFile& other) = default;

MemoryFile& MemoryFile::operator=(const MemoryFile& other) = default;

int MemoryFile::peek(void* buffer, int size) const
{
    const int wanted = buffer != nullptr ? std::min(size, available()) : 0;
    int total = 0;
    while (total < wanted) {
        const int position = _position + total;
        const int offset = position % pageSize;
        const int count = std::min(wanted - total, pageSize - offset);
        std::memcpy(static_cast<unsigned char*>(buffer) + total,
                    _pages[static_cast<std::size_t>(position / pageSize)]->getBytes() + offset,
                    static_cast<std::size_t>(count));
        total += count;
    }
    return total;
}

int MemoryFile::read(void* buffer, int size)
{
    const int count = peek(buffer, size);
    _position += count;
    return count;
}

int MemoryFile::write(const void* data, int size)
{
    if (data == nullptr)
        return 0;
    int total = 0;
    while (total < size) {
        const Room room = roomToWrite();
        if (room.size == 0)
            return total > 0 ? total : -1;
        const int count = std::min(size - total, room.size);
        std::memcpy(room.bytes, static_cast<const unsigned char*>(data) + total,
                    static_cast<std::size_t>(count));
        _position += count;
        _size = std::max(_size, _position);
        total += count;
    }
    return total;
}

int MemoryFile::setPosition(int position)
{
    _position = std::clamp(position, 0, _size);
    return _position;
}

MemoryFile::Room MemoryFile::roomToWrite()
{
    const auto page = static_cast<std::size_t>(_position / pageSize);
    if (page == _pages.size()) {
        const Handle_T<Cache> fresh = new (std::nothrow) Cache;
        try {
            if (!fresh.isNull())
                _pages.push_back(fresh);
        } catch (const std::bad_alloc&) { // told below
        }
    }
    const int offset = _position % pageSize;
    const int size = std::min(pageSize - offset, std::numeric_limits<int>::max() - _position);
    if (page == _pages.size() || size == 0) {
        Log::error(L"Alloc memory error!");
        return {nullptr, 0};
    }
    return {_pages[page]->getBytes() + offset, size};
}

} // namespace orvi
