#pragma once
#include "FileCacheStore.h"

#include <orvi/core/MemoryStream.h>

#include <atomic>

namespace orvi {

/** A link in the chain of pages of a stream. It holds a reference on the next one and is born with one
    reference, its maker's. Streams that are copies of each other hold the same pages. */
class StreamPage {
public:
    static constexpr int pageSize = FileCacheStore::pageSize;

    StreamPage(const StreamPage&) = delete;
    StreamPage& operator=(const StreamPage&) = delete;

    bool isInMemory() const noexcept { return _isInMemory; }
    /** Copies up to `size` bytes, above 0; negative on failure. */
    virtual int peek(void* buffer, int size) const = 0;
    int read(void* buffer, int size)
    {
        const int count = peek(buffer, size);
        if (count > 0)
            _readPos += count;
        return count;
    }
    int available() const noexcept { return _writePos - _readPos; }

    StreamPage* next() const noexcept { return _next; }
    /** Takes over the caller's reference on `page`; the one on the old next page becomes the caller's. */
    StreamPage* link(StreamPage* page) noexcept { return std::exchange(_next, page); }

    void addReference() noexcept { _references.fetch_add(1, std::memory_order_relaxed); }
    bool isShared() const noexcept { return _references.load(std::memory_order_acquire) > 1; }
    /** Drops a reference; a page that nobody holds any more goes, and so on down the chain. */
    static void release(StreamPage* page) noexcept;

protected:
    enum class Place : bool { Store, Memory };
    explicit StreamPage(Place place) noexcept
        : _isInMemory(place == Place::Memory)
    {}
    virtual ~StreamPage() = default;

    int _readPos = 0; // offsets in the page: 0 <= read <= write <= its size
    int _writePos = 0;

private:
    std::atomic<unsigned int> _references = 1;
    const bool _isInMemory;
    StreamPage* _next = nullptr;
};

/** A page in memory: written once from front to back, read once, and dropped. */
class MemoryPage final : public StreamPage {
public:
    MemoryPage() noexcept
        : StreamPage(Place::Memory)
    {}

    int peek(void* buffer, int size) const override
    {
        const int count = std::min(size, available());
        if (count > 0)
            std::memcpy(buffer, unread(), static_cast<std::size_t>(count));
        return count;
    }
    /** As read, for no more than is there. */
    void take(void* buffer, int size) noexcept
    {
        std::memcpy(buffer, unread(), static_cast<std::size_t>(size));
        _readPos += size;
    }
    void skip(int size) noexcept { _readPos += size; }
    int getFreeSize() const noexcept { return pageSize - _writePos; }
    /** Copies up to `size` bytes, as many as there is room for. */
    int write(const void* data, int size) noexcept
    {
        const int count = std::min(size, getFreeSize());
        std::memcpy(_block.getBytes() + _writePos, data, static_cast<std::size_t>(count));
        _writePos += count;
        return count;
    }
    /** Fills the page from a source with `read(buffer, size)`, by at most `size` bytes; gives its answer. */
    template <class Source>
    int fill(Source& source, int size)
    {
        const int count = source.read(_block.getBytes() + _writePos, std::min(size, getFreeSize()));
        if (count > 0)
            _writePos += count;
        return count;
    }

    const unsigned char* unread() const noexcept { return _block.getBytes() + _readPos; }
    int getWrittenSize() const noexcept { return _writePos; }
    /** For a page whose bytes are gone. */
    void reset() noexcept { _readPos = _writePos = 0; }

private:
    MemoryBlock<pageSize> _block;
};

/** A full page in the store. Its place there is free again when it goes. */
class FilePage final : public StreamPage {
public:
    /** Null when the page could not be stored. */
    static FilePage* store(const MemoryPage& page);

    int peek(void* buffer, int size) const override;

private:
    FilePage() noexcept
        : StreamPage(Place::Store)
    {}
    ~FilePage() override;

    FileCacheStore::Place _place;
};

} // namespace orvi
