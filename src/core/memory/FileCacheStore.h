#pragma once
#include "platform/files/FileHandle.h"

#include <atomic>
#include <mutex>
#include <vector>

namespace orvi {

/** The files in which the streams of the process keep pages that are too many for memory: one, as long as the
    process does not fork.

    A file is made when a page comes, and has no name any more. None is made after the clean-ups of the library:
    from then on nothing is stored. Any number of threads.

    A fork leaves both processes with the same open file, and either may hold pages there that the other has
    given up. So from then on it is only read: both store in files of their own, and keep the old one until
    their last page in it is gone. In a copy of the process that nobody has told us of, stored pages cannot be
    read, and nothing is stored. */
class FileCacheStore {
public:
    static constexpr int pageSize = 4096;

    /** A file of pages. */
    struct PageFile {
        platform::FileHandle handle;
        int pages = 0; // that are held; guarded by the store's mutex
    };
    /** Where a page lies. */
    struct Place {
        PageFile* file = nullptr; // none: the page could not be stored
        int offset = 0;
    };

    constexpr FileCacheStore() noexcept = default;

    static FileCacheStore& instance() noexcept;

    /** Stores a whole page in a free place, which becomes the caller's. */
    Place put(const void* page);
    /** Copies up to `size` bytes of a page from `skip` on; negative on failure. */
    int get(const Place& place, int skip, void* buffer, int size) const;
    void giveBack(const Place& place) noexcept;

private:
    bool openOnce();
    Place takePlace();
    PageFile* retire() noexcept;
    void close() noexcept;
    bool isOurs() const noexcept;

    static void beforeFork();
    static void inParent();
    static void inChild();
    static const bool isWatchingForks;

    // Held for no call of the system and no line in the log: a listener may keep its lines in a stream, and a
    // fork waits for it.
    std::mutex _mutex;
    std::atomic<unsigned long> _process =
        0;                     // the one whose copy of the rest this is; 0 before the first page
    PageFile* _file = nullptr; // for new pages; the mutex guards this and what follows
    bool _isOpened = false;    // also without a file, when there was none to be had
    bool _isClosed = false;
    bool _isForking = false;
    int _size = 0;                // the offset of the next new place
    std::vector<int> _freePlaces; // has room for all places, so that giving one back cannot fail
};

} // namespace orvi
