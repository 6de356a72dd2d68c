#include "FileCacheStore.h"

#include "Immortal.h"
#include "platform/FilePath.h"

#include <orvi/core/Log.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <new>

namespace orvi {

namespace {

/** A temporary file without a name: it is gone with the process, however that ends. Null on failure. */
Handle_T<File> openNamelessFile()
{
    try {
        const Handle_T<File> file = File::createInstance();
        const String name = TempFile::getTempFileName();
        const bool opened =
            file->open(name, File::readWrite | File::create, File::permitRead | File::permitWrite);
        std::remove(platform::bytesFromPath(name));
        if (opened)
            return file;
    } catch (const std::bad_alloc&) {
        // A stream that is short of memory gets here too, and must not throw.
    }
    Log::error(L"Create temp file error!");
    return Handle_T<File>();
}

} // namespace

FileCacheStore& FileCacheStore::instance()
{
    static Immortal<FileCacheStore> store;
    static const bool registered = std::atexit([] { instance().close(); }) == 0;
    static_cast<void>(registered);
    return *store;
}

int FileCacheStore::put(const void* page)
{
    if (!openOnce())
        return noPlace;
    const int place = takePlace();
    if (place == noPlace)
        return noPlace;
    // A whole page goes past the file's buffer, so what is not on the disc is known now.
    if (writePage(place, page))
        return place;
    giveBack(place);
    Log::error(L"Write file cache error!");
    return noPlace;
}

int FileCacheStore::get(int offset, void* buffer, int size)
{
    const MutexGuard guard(_fileMutex);
    if (_file.isNull() || _file->setPosition(offset) != offset)
        return -1;
    return _file->read(buffer, size);
}

void FileCacheStore::giveBack(int place) noexcept
{
    const MutexGuard guard(_placesMutex);
    if (!_closed)
        _freePlaces.push_back(place);
}

/** Makes the file the first time; false without one. */
bool FileCacheStore::openOnce()
{
    {
        const MutexGuard guard(_fileMutex);
        if (_opened)
            return !_file.isNull();
    }
    Handle_T<File> file = openNamelessFile();
    const MutexGuard guard(_fileMutex);
    if (!_opened) // else another thread was faster, and this file goes again
        _file = file;
    _opened = true; // without a file too: another try would only log the failure again, for every page
    return !_file.isNull();
}

/** A free place, or a new one at the end of the file. */
int FileCacheStore::takePlace()
{
    const MutexGuard guard(_placesMutex);
    if (!_freePlaces.empty()) {
        const int place = _freePlaces.back();
        _freePlaces.pop_back();
        return place;
    }
    if (_closed || _fileSize > std::numeric_limits<int>::max() - pageSize)
        return noPlace;
    const auto places = static_cast<std::size_t>(_fileSize / pageSize) + 1;
    try {
        if (_freePlaces.capacity() < places)
            _freePlaces.reserve(std::max<std::size_t>(64, 2 * places));
    } catch (const std::bad_alloc&) {
        return noPlace;
    }
    _fileSize += pageSize;
    return _fileSize - pageSize;
}

bool FileCacheStore::writePage(int place, const void* page)
{
    const MutexGuard guard(_fileMutex);
    return !_file.isNull() && _file->setPosition(place) == place && _file->write(page, pageSize) == pageSize;
}

void FileCacheStore::close()
{
    {
        const MutexGuard guard(_placesMutex);
        _closed = true;
        _freePlaces = {};
    }
    const MutexGuard guard(_fileMutex);
    _opened = true;
    _file.setNull();
}

} // namespace orvi
