#pragma once
#include <orvi/core/Archive.h>

#include <vector>

namespace orvi {

/** A file in memory, in pages of 4096 bytes: at most 2^31 - 1 bytes.

    The position is always inside of it: a write in the middle overwrites, one at the end extends. Nothing
    throws: without memory for a page a write logs a line and comes up short. A copy has a size and a position
    of its own but shares the pages, so that what one of the two writes there shows in the other. One thread
    at a time, copies included. */
class ORVI_API MemoryFile : public Archive {
public:
    /** An empty file. */
    static Handle_T<MemoryFile> createInstance();
    MemoryFile(const MemoryFile& other);
    MemoryFile& operator=(const MemoryFile& other);

    int available() const override { return _size - _position; }
    int peek(void* buffer, int size) const override;
    /** 0 at the end. */
    int read(void* buffer, int size) override;
    /** The count so far, or -1 when there was none, without memory and at the largest size. */
    int write(const void* data, int size) override;
    int getArchiveSize() const override { return _size; }
    int getPosition() const override { return _position; }
    /** Moves to the nearest position in the file, and gives that. */
    int setPosition(int position) override;

protected:
    MemoryFile() noexcept;
    ~MemoryFile() override;

private:
    class Cache;
    struct Room;

    Room roomToWrite();

    std::vector<Handle_T<Cache>> _pages;
    int _size = 0;
    int _position = 0;
};

} // namespace orvi
