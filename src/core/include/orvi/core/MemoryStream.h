#pragma once
#include <orvi/core/Stream.h>

#include <algorithm>
#include <cstring>

namespace orvi {

class MemoryPage;
class StreamPage;
struct StreamWait;

/** A block of `size` bytes with a position, at first 0. Fresh contents are undefined. */
template <int size>
class MemoryBlock {
public:
    static_assert(size > 0, "a MemoryBlock has room for at least one byte");

    MemoryBlock() noexcept {} // not defaulted: nobody wants the bytes cleared

    int getPosition() const noexcept { return _position; }
    /** Moves to the nearest position in the block. */
    void setPosition(int position) noexcept { _position = std::clamp(position, 0, size); }

    /** Copies at most `count` bytes from the position on and moves it; gives the bytes copied, 0 at the end.
     */
    int read(void* buffer, int count) noexcept
    {
        const int bytes = fit(count);
        if (bytes > 0)
            std::memcpy(buffer, _bytes + _position, static_cast<std::size_t>(bytes));
        _position += bytes;
        return bytes;
    }
    /** Copies at most `count` bytes to the position and moves it; gives the bytes copied, -1 at the end. */
    int write(const void* data, int count) noexcept
    {
        if (count > 0 && _position == size)
            return -1;
        const int bytes = fit(count);
        if (bytes > 0)
            std::memcpy(_bytes + _position, data, static_cast<std::size_t>(bytes));
        _position += bytes;
        return bytes;
    }

    unsigned char* getBytes() noexcept { return _bytes; }
    const unsigned char* getBytes() const noexcept { return _bytes; }

private:
    int fit(int count) const noexcept { return std::clamp(count, 0, size - _position); }

    int _position = 0;
    unsigned char _bytes[size];
};

/** A queue of bytes that grows as it is written and shrinks as it is read: first in, first out.

    The bytes lie in pages of 4096. Up to 2560 pages (10 MiB) of a stream are in memory; what is written
    beyond goes page by page to one nameless temporary file that all streams of the process share, and comes
    back when the reader gets there. Without that file, or with a full disc, the stream goes on in memory. A
    page that is read is given up, but for the last one, so a stream that is read as it is written stays small.
    At most 2^31 - 1 bytes.

    After a fork() both processes go on with what a stream held, each for itself. While there are pages in the
    file each has a new one for what comes then, and its place on the disc is free when both have read the old
    one out. In a process that is copied past the C library, as by _Fork(), a read of stored pages fails.

    Nothing throws but the stream operators: a failure is a line at Log::error and a short count, or -1 when
    nothing went at all. More than 10 pages in memory are worth a warning at every step of a write. One thread
    at a time; any number of streams may spill at once. */
class ORVI_API MemoryStream : public IO {
    ORVI_DECLARE_CLASS(MemoryStream);

public:
    static Handle_T<MemoryStream> createInstance();
    /** The same: `size` has no effect. */
    static Handle_T<MemoryStream> createInstance(int size);

    /** Shares the pages, in which both would read and write: of a stream and its copy, use one and only drop
        the other. clone() makes an independent stream. */
    MemoryStream(const MemoryStream& other) noexcept;
    MemoryStream& operator=(const MemoryStream& other) noexcept;

    int available() const override { return _available; }
    int peek(void* buffer, int size) const override;
    int read(void* buffer, int size) override;
    int write(const void* data, int size) override;

    /** Moves all bytes of `other` behind those of this stream, and many of them without a copy: `other` is empty
        then. False, with both as they were, when one stream cannot hold them all. */
    bool append(MemoryStream& other) noexcept;

    /** A new stream with a copy of the bytes; null, with the reason in the log, when it cannot be made. */
    Handle_T<MemoryStream> clone() const { return Unknown::clone(); }
    void importFrom(InputStream& stream) override;
    void exportTo(OutputStream& stream) const override;

    /** Replaces the contents by a Buffer's worth of bytes. On a failure the target is empty. */
    friend ORVI_API InputStream& operator>>(InputStream& is, MemoryStream& stream);
    /** Writes all available bytes as a Buffer, and leaves them unread. */
    friend ORVI_API OutputStream& operator<<(OutputStream& os, const MemoryStream& stream);

protected:
    explicit MemoryStream(int size = 0x800000) noexcept;
    ~MemoryStream() override;

private:
    MemoryPage* pageToWrite();
    MemoryPage* appendPage();
    bool spillLast();
    void wrote(const MemoryPage& page, int size);
    void swapPages(MemoryStream& other) noexcept;
    void copyFrom(MemoryStream& other) noexcept;
    void linkPages(MemoryStream& other) noexcept;
    void fetchFirst();
    void dropFirst();
    void clear() noexcept;
    bool isSmall() const;
    void writePages(OutputStream& os, int size) const;
    void readPages(InputStream& is, int size);

    // The pages are a chain from the first on, each holding a reference on the next. Whatever leads to a page
    // from further back is a plain pointer.
    StreamPage* _first = nullptr;      // the reader's; a counted reference
    StreamPage* _beforeLast = nullptr; // behind which a spilled page goes; null with fewer than two pages
    MemoryPage* _last = nullptr;       // the writer's
    int _available = 0;
    int _memoryCacheCount = 0; // the pages of the chain that are in memory
    bool _isQuiet =
        false; // for an owner that holds a lock while it writes: listeners of the log are foreign code

    StreamWait* _waits = nullptr; // threads that wait for bytes

    friend struct StreamAccess;
};

} // namespace orvi
