#include "FileCacheStore.h"

#include "base/TempPath.h"
#include "platform/base/Entropy.h"
#include "platform/base/ForkWatch.h"

#include <orvi/core/Log.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <utility>

namespace orvi {

namespace {

using PageFile = FileCacheStore::PageFile;

/** A temporary file without a name: it is gone with the process, however that ends. Null on failure. */
std::unique_ptr<PageFile> openNamelessFile()
{
    try {
        std::unique_ptr<PageFile> file(new PageFile); // first: nothing may throw while the file has a name
        std::string path;
        const bool made = !makeTempFile(path).isEmpty();
        const bool opened =
            made && file->handle.open(path.c_str(), {.access = platform::FileHandle::Access::ReadWrite});
        if (made)
            std::remove(path.c_str());
        if (opened)
            return file;
    } catch (const std::bad_alloc&) {
        // A stream that is short of memory gets here too, and must not throw.
    }
    Log::error(L"Create temp file error!");
    return nullptr;
}

bool writePage(const FileCacheStore::Place& place, const void* page)
{
    const auto* bytes = static_cast<const unsigned char*>(page);
    int done = 0;
    while (done < FileCacheStore::pageSize) {
        const std::ptrdiff_t count = place.file->handle.write(
            place.offset + done, bytes + done, static_cast<std::size_t>(FileCacheStore::pageSize - done));
        if (count <= 0)
            return false;
        done += static_cast<int>(count);
    }
    return true;
}

/** Ready before any code runs, and never destroyed: streams may be older and live longer than what else is
    static. */
union Store {
    constexpr Store() noexcept
        : store()
    {}
    ~Store() {} // NOLINT(modernize-use-equals-default): which would be deleted
    FileCacheStore store;
};
constinit Store g_store;

} // namespace

// At load: whatever comes to the store before has to stay in memory. No thread can be forked in the middle of it.
const bool FileCacheStore::isWatchingForks = platform::watchForks(beforeFork, inParent, inChild);

FileCacheStore& FileCacheStore::instance() noexcept { return g_store.store; }

FileCacheStore::Place FileCacheStore::put(const void* page)
{
    if (!isWatchingForks || !openOnce())
        return {};
    const Place place = takePlace();
    if (place.file == nullptr || writePage(place, page))
        return place;
    giveBack(place);
    Log::error(L"Write file cache error!");
    return {};
}

int FileCacheStore::get(const Place& place, int skip, void* buffer, int size) const
{
    if (!isOurs())
        return -1;
    const std::ptrdiff_t count =
        place.file->handle.read(place.offset + skip, buffer, static_cast<std::size_t>(size));
    return count > 0 ? static_cast<int>(count) : -1; // a page always has what is asked for
}

void FileCacheStore::giveBack(const Place& place) noexcept
{
    if (!isOurs())
        return;
    std::unique_ptr<PageFile> gone; // is closed behind the lock
    const std::lock_guard guard(_mutex);
    --place.file->pages;
    if (place.file == _file)
        _freePlaces.push_back(place.offset);
    else if (place.file->pages == 0)
        gone.reset(place.file);
}

/** Whether this is the process that the store knows of. Elsewhere the mutex may be locked by nobody. */
bool FileCacheStore::isOurs() const noexcept { return _process == platform::currentProcessId(); }

/** Makes a file for new pages, the first time; false without one. */
bool FileCacheStore::openOnce()
{
    unsigned long none = 0;
    if (_process.compare_exchange_strong(none, platform::currentProcessId()))
        std::atexit([] { instance().close(); });
    else if (!isOurs())
        return false;
    {
        const std::lock_guard guard(_mutex);
        if (_isOpened || _isClosed)
            return _file != nullptr;
    }
    std::unique_ptr<PageFile> file = openNamelessFile();
    const std::lock_guard guard(_mutex);
    if (!_isOpened && !_isClosed) // else another thread was faster, and this file goes again
        _file = file.release();
    _isOpened = true; // without a file too: another try would only log the failure again, for every page
    return _file != nullptr;
}

/** A free place, or a new one at the end of the file. */
FileCacheStore::Place FileCacheStore::takePlace()
{
    const std::lock_guard guard(_mutex);
    if (_file == nullptr) // there was a fork just now
        return {};
    int offset = _size;
    if (!_freePlaces.empty()) {
        offset = _freePlaces.back();
        _freePlaces.pop_back();
    } else {
        if (_size > std::numeric_limits<int>::max() - pageSize)
            return {};
        const auto places = static_cast<std::size_t>(_size / pageSize) + 1;
        try {
            if (_freePlaces.capacity() < places)
                _freePlaces.reserve(std::max<std::size_t>(64, 2 * places));
        } catch (const std::bad_alloc&) {
            return {};
        }
        _size += pageSize;
    }
    ++_file->pages;
    return {_file, offset};
}

/** Has new pages go to another file; gives this one where nobody holds a page of it. Under the mutex. */
FileCacheStore::PageFile* FileCacheStore::retire() noexcept
{
    PageFile* file = std::exchange(_file, nullptr);
    _isOpened = false;
    _size = 0;
    _freePlaces.clear();
    return file != nullptr && file->pages == 0 ? file : nullptr;
}

void FileCacheStore::close() noexcept
{
    if (!isOurs())
        return;
    std::unique_ptr<PageFile> gone;
    const std::lock_guard guard(_mutex);
    gone.reset(retire());
    _isClosed = true;
    _freePlaces = {};
}

void FileCacheStore::beforeFork()
{
    FileCacheStore& store = instance();
    if (store._process != 0 && !store.isOurs())
        return;
    store._mutex.lock();
    store._isForking = true;
}

void FileCacheStore::inParent()
{
    FileCacheStore& store = instance();
    if (!store._isForking)
        return;
    if (store._file != nullptr && store._file->pages > 0) // else the child has nothing there
        store.retire();
    store._isForking = false;
    store._mutex.unlock();
}

void FileCacheStore::inChild()
{
    FileCacheStore& store = instance();
    if (!store._isForking)
        return;
    const std::unique_ptr<PageFile> gone(store.retire());
    if (store._process != 0)
        store._process = platform::currentProcessId();
    store._isForking = false;
    store._mutex.unlock();
}

} // namespace orvi
