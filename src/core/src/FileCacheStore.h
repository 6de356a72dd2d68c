#pragma once
#include <orvi/core/File.h>
#include <orvi/core/Mutex.h>
#include <orvi/core/Unknown.h>

#include <vector>

namespace orvi {

/** The one file in which the streams of the process keep pages that are too many for memory.

    The file is made when the first page comes, has no name any more, and goes when the library is unloaded;
    from then on nothing is stored. Any number of threads. */
class FileCacheStore {
public:
    static constexpr int pageSize = 4096;
    static constexpr int noPlace = -1;

    /** Made on first use, and never destroyed: streams may live longer than the library's static objects. */
    static FileCacheStore& instance();

    /** Stores a whole page in a free place, which becomes the caller's; gives its offset in the file, or
        `noPlace`. */
    int put(const void* page);
    /** Copies up to `size` bytes from `offset` on; negative on failure. */
    int get(int offset, void* buffer, int size);
    void giveBack(int place) noexcept;

private:
    bool openOnce();
    int takePlace();
    bool writePage(int place, const void* page);
    void close();

    // Neither lock is held while the other is taken, nor while a line is logged: a listener may keep its
    // lines in a stream.
    Mutex _placesMutex;           // guards the next three
    int _fileSize = 0;            // the offset of the next new place
    std::vector<int> _freePlaces; // has room for all places, so that giving one back cannot fail
    bool _closed = false;

    Mutex _fileMutex; // guards the rest; held for a position and the transfer there
    bool _opened = false;
    Handle_T<File> _file;
};

} // namespace orvi
