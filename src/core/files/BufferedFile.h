#pragma once
#include "platform/files/FileHandle.h"

#include <limits>
#include <memory>

namespace orvi {

/** An open file with one buffer for both directions, made on first use, and a position of its own.

    Small writes wait in the buffer until it is full, until something is read or the position is set, or until
    close(). What could not be stored stays there and is tried again. Transfers of `directSize` bytes or more
    go past the buffer. Pipes and terminals are never buffered and have no position.

    Counts come up short on failure; the reason is errno then. No offset beyond `maxSize` is read or
    written. */
class BufferedFile {
public:
    static constexpr int directSize = 4096;
    static constexpr std::int64_t maxSize = std::numeric_limits<int>::max();

    struct Directions {
        bool read;
        bool write;
    };

    /** Opens `path`; false on failure. `directions` limits what the access in `options` would allow. */
    bool open(const char* path, const platform::FileHandle::OpenOptions& options, Directions directions);
    /** False when not all of what was written could be stored. */
    bool close();

    int read(void* buffer, int size);
    /** Reads, and puts the position back. */
    int peek(void* buffer, int size);
    int write(const void* data, int size);

    /** Negative on failure, as the next two. */
    std::int64_t position() const;
    std::int64_t size() const;
    int setPosition(int position);

    /** Whether a read met the end since the position was set. */
    bool eof() const noexcept { return _eof; }

private:
    static constexpr int bufferCapacity = 8192;

    bool allocateBuffer();
    bool hasPending() const noexcept { return _writing && _bufferSize > 0; }
    bool beginReading();
    bool beginWriting();
    bool flush();
    int readBuffered(unsigned char* target, int size);
    int readDirect(unsigned char* target, int size);
    int writeBuffered(const unsigned char* source, int size);
    int writeDirect(const unsigned char* source, int size);
    std::ptrdiff_t store(std::int64_t offset, const unsigned char* source, int size, std::int64_t& next);

    platform::FileHandle _handle;
    std::unique_ptr<unsigned char[]> _buffer;
    std::int64_t _position = 0;
    std::int64_t _bufferStart = 0; // the offset in the file of the buffer's first byte
    int _bufferSize = 0;           // bytes read ahead, or, while writing, bytes that wait
    bool _mayRead = false;
    bool _mayWrite = false;
    bool _append = false;
    bool _writing = false;
    bool _eof = false;
};

} // namespace orvi
