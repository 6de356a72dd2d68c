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
        wrote(count);
        total += count;
    }
    return total;
}

int MemoryFile::setPosition(int position)
{
    _position = std::clamp(position, 0, _size);
    return _position;
}

bool MemoryFile::writeAll(Input& source)
{
    constexpr int leastAsked = 8192;    // of a source that announces its bytes one by one
    constexpr int maxEmptyAnswers = 16; // in a row, from a source that goes on announcing bytes
    int emptyAnswers = 0;
    int available = 0;
    while ((available = source.available()) > 0) {
        int rest = std::max(available, leastAsked);
        for (bool isFull = true; isFull && rest > 0;) {
            const Room room = roomToWrite();
            const int wanted = std::min(rest, room.size);
            const int count = wanted > 0 ? source.read(room.bytes, wanted) : -1;
            if (count < 0 || count > wanted)
                return false;
            wrote(count);
            rest -= count;
            emptyAnswers = count == 0 ? emptyAnswers + 1 : 0;
            if (emptyAnswers == maxEmptyAnswers)
                return false;
            isFull = count == wanted;
        }
    }
    return available == 0;
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

void MemoryFile::wrote(int size)
{
    _position += size;
    _size = std::max(_size, _position);
}

} // namespace orvi
