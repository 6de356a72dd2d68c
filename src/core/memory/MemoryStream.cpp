#include <orvi/core/MemoryStream.h>

#include <orvi/core/Buffer.h>
#include <orvi/core/Exception.h>
#include <orvi/core/Log.h>
#include <orvi/core/Varint.h>

#include "StreamPage.h"

#include <limits>
#include <new>

namespace orvi {

namespace {

constexpr int maxMemoryCacheCount = 2560;
constexpr int quietMemoryCacheCount = 10;                // more are worth a warning
constexpr int maxCopiedBytes = 4 * StreamPage::pageSize; // more is linked: half a page is lost on the way
constexpr int maxAvailable = std::numeric_limits<int>::max();

constexpr const wchar_t* readFailure = L"TyIs& operator >>(TyIs &, Buffer &)";
constexpr const wchar_t* writeFailure = L"TyOs& operator <<(TyOs &, const Buffer &)";

unsigned char* advance(void* buffer, int count) { return static_cast<unsigned char*>(buffer) + count; }
const unsigned char* advance(const void* data, int count)
{
    return static_cast<const unsigned char*>(data) + count;
}

} // namespace

Handle_T<MemoryStream> MemoryStream::createInstance() { return new MemoryStream; }

Handle_T<MemoryStream> MemoryStream::createInstance(int size) { return new MemoryStream(size); }

MemoryStream::MemoryStream(int) noexcept {}

MemoryStream::MemoryStream(const MemoryStream& other) noexcept
    : Unknown(other)
    , IO(other)
{
    *this = other;
}

MemoryStream& MemoryStream::operator=(const MemoryStream& other) noexcept
{
    if (other._first != nullptr)
        other._first->addReference();
    StreamPage::release(_first);
    _first = other._first;
    _beforeLast = other._beforeLast;
    _last = other._last;
    _available = other._available;
    _memoryCacheCount = other._memoryCacheCount;
    return *this;
}

MemoryStream::~MemoryStream() { StreamPage::release(_first); }

int MemoryStream::write(const void* data, int size)
{
    int total = 0;
    while (total < size) {
        MemoryPage* page = pageToWrite();
        if (page == nullptr)
            return total > 0 ? total : -1;
        const int count =
            page->write(advance(data, total), std::min(size - total, maxAvailable - _available));
        if (count <= 0) {
            Log::error(L"Write cache error!");
            return total > 0 ? total : -1;
        }
        total += count;
        wrote(*page, count);
    }
    return total;
}

int MemoryStream::read(void* buffer, int size)
{
    if (size > 0 && _first != nullptr && _first->isInMemory() && size < _first->available()) { // mostly
        static_cast<MemoryPage*>(_first)->take(buffer, size);
        _available -= size;
        return size;
    }
    int total = 0;
    while (total < size && _first != nullptr) {
        if (!_first->isInMemory() && _first->available() > size - total)
            fetchFirst();
        const int count = _first->read(advance(buffer, total), size - total);
        if (count == 0)
            break;
        if (count < 0) {
            if (total > 0)
                break;
            Log::error(L"Read cache error!");
            return -1;
        }
        total += count;
        _available -= count;
        if (_first->available() <= 0)
            dropFirst();
    }
    return total;
}

int MemoryStream::peek(void* buffer, int size) const
{
    if (_available == 0) // there may be a page nevertheless: an empty one that a spill left
        return 0;
    int total = 0;
    for (const StreamPage* page = _first; page != nullptr && total < size; page = page->next()) {
        const int count = page->peek(advance(buffer, total), size - total);
        if (count > 0)
            total += count;
        else if (total == 0)
            return -1;
        else if (page->available() > 0)
            break;
    }
    return total;
}

bool MemoryStream::append(MemoryStream& other) noexcept
{
    if (&other == this || other._available > maxAvailable - _available)
        return false;
    if (_available == 0) {
        swapPages(other); // an empty page goes back where it will be used
        return true;
    }
    const bool isWorthLinking = other._available > maxCopiedBytes;
    const bool staysInMemory = _memoryCacheCount + other._memoryCacheCount <= maxMemoryCacheCount;
    if (!isWorthLinking || !staysInMemory)
        copyFrom(other);
    if (other._available > 0)
        linkPages(other);
    return true;
}

void MemoryStream::swapPages(MemoryStream& other) noexcept
{
    std::swap(_first, other._first);
    std::swap(_beforeLast, other._beforeLast);
    std::swap(_last, other._last);
    std::swap(_available, other._available);
    std::swap(_memoryCacheCount, other._memoryCacheCount);
}

/** Takes the bytes of `other` one by one, as far as pages can be had. */
void MemoryStream::copyFrom(MemoryStream& other) noexcept
{
    while (other._available > 0) {
        if (!other._first->isInMemory())
            other.fetchFirst();
        if (!other._first->isInMemory())
            return;
        auto& page = static_cast<MemoryPage&>(*other._first);
        const int count = write(page.unread(), page.available());
        if (count <= 0)
            return;
        page.skip(count);
        other._available -= count;
        if (page.available() <= 0)
            other.dropFirst();
    }
}

/** Hangs the pages of `other`, which has some, behind those here. */
void MemoryStream::linkPages(MemoryStream& other) noexcept
{
    StreamPage::release(_last->link(other._first));
    _beforeLast = other._beforeLast != nullptr ? other._beforeLast : _last;
    _last = other._last;
    _available += other._available;
    _memoryCacheCount += other._memoryCacheCount;
    other._first = other._beforeLast = other._last = nullptr;
    other._available = other._memoryCacheCount = 0;
}

/** A page with room at the end of the chain; null, with a line in the log, when there is none to be had. */
MemoryPage* MemoryStream::pageToWrite()
{
    if (_available < maxAvailable) {
        if (_last != nullptr && _last->getFreeSize() > 0)
            return _last;
        const bool full = _memoryCacheCount >= maxMemoryCacheCount;
        if (full && spillLast())
            return _last;
        if (MemoryPage* page = appendPage())
            return page;
        if (!full && spillLast())
            return _last;
    }
    if (!_isQuiet)
        Log::error(L"Create memory cache error!");
    return nullptr;
}

MemoryPage* MemoryStream::appendPage()
{
    auto* page = new (std::nothrow) MemoryPage;
    if (page == nullptr)
        return nullptr;
    if (_first == nullptr) {
        _first = page;
    } else {
        StreamPage::release(_last->link(page)); // a copy may have written, and gone
        _beforeLast = _last;
    }
    _last = page;
    ++_memoryCacheCount;
    return page;
}

/** Moves the full last page to the store and keeps it as an empty one behind the stored one. */
bool MemoryStream::spillLast()
{
    // Neither the only page, which the reader needs, nor one that had been read in part when it was appended.
    if (_beforeLast == nullptr || _last->available() < StreamPage::pageSize)
        return false;
    FilePage* stored = FilePage::store(*_last);
    if (stored == nullptr)
        return false;
    if (!_isQuiet)
        Log::warning(L"MemoryStream writeToFileCache memCache size=%d", _last->available());
    _last->reset();
    stored->link(_beforeLast->link(stored));
    _beforeLast = stored;
    return true;
}

void MemoryStream::wrote(const MemoryPage& page, int size)
{
    _available += size;
    if (_memoryCacheCount > quietMemoryCacheCount && !_isQuiet)
        Log::warning(L"MemoryStream _memoryCacheCount=%d, pCache size=%d", _memoryCacheCount,
                     page.getWrittenSize());
}

/** Puts a page in memory in front of the first one, a stored one, and fills it from there: many small reads
    are one of the file. On failure the stored page stays the first. */
void MemoryStream::fetchFirst()
{
    auto* page = new (std::nothrow) MemoryPage;
    if (page == nullptr) {
        Log::warning(L"Create memory cache fail!");
        return;
    }
    if (page->fill(*_first, StreamPage::pageSize) <= 0) {
        StreamPage::release(page);
        return;
    }
    const bool wasBeforeLast = _first == _beforeLast;
    if (_first->available() <= 0)
        dropFirst();
    page->link(_first);
    _first = page;
    ++_memoryCacheCount;
    if (wasBeforeLast && page->next() == _last)
        _beforeLast = page;
}

void MemoryStream::dropFirst()
{
    StreamPage* page = _first;
    if (page == _last && !page->isShared()) { // kept for the next write
        _last->reset();
        return;
    }
    _first = page->next();
    if (page->isInMemory())
        --_memoryCacheCount;
    if (page == _last)
        _last = nullptr;
    if (page == _beforeLast)
        _beforeLast = nullptr;
    if (_first != nullptr)
        _first->addReference();
    StreamPage::release(page);
}

void MemoryStream::clear() noexcept
{
    StreamPage::release(_first);
    _first = _beforeLast = _last = nullptr;
    _available = _memoryCacheCount = 0;
}

/** Whether all pages are in memory, and will be when the bytes are written to this very stream. */
bool MemoryStream::isSmall() const
{
    if (_memoryCacheCount > maxMemoryCacheCount / 2 - 1)
        return false;
    const StreamPage* page = _first;
    while (page != nullptr && page->isInMemory())
        page = page->next();
    return page == nullptr;
}

void MemoryStream::importFrom(InputStream& stream) { stream >> *this; }

void MemoryStream::exportTo(OutputStream& stream) const { stream << *this; }

InputStream& operator>>(InputStream& is, MemoryStream& stream)
{
    stream.clear();
    Varint size;
    is >> size;
    if (size < 0)
        THROW_EXCEPTION(-1, readFailure);
    stream.readPages(is, size);
    return is;
}

OutputStream& operator<<(OutputStream& os, const MemoryStream& stream)
{
    if (stream.isSmall()) {
        const int size = stream.available();
        os << Varint(size);
        stream.writePages(os, size);
        return os;
    }
    // Stored pages can fail, which has to show before anything is written.
    Buffer buffer(stream.available());
    if (buffer.getBufferSize() != stream.available())
        THROW_EXCEPTION(-1, L"Alloc memory error!");
    if (stream.peek(buffer, buffer.getBufferSize()) != buffer.getBufferSize())
        THROW_EXCEPTION(-1, L"peek data error!");
    return os << buffer;
}

/** Writes the first `size` bytes out of the pages, all in memory, without a copy in between. */
void MemoryStream::writePages(OutputStream& os, int size) const
{
    for (const StreamPage* page = _first; page != nullptr && size > 0; page = page->next()) {
        const auto* memory = static_cast<const MemoryPage*>(page);
        const int count = std::min(size, memory->available());
        if (os.write(memory->unread(), count) != count)
            THROW_EXCEPTION(-1, writeFailure);
        size -= count;
    }
}

/** Reads into the pages themselves, so that no more memory is taken than bytes arrive. */
void MemoryStream::readPages(InputStream& is, int size)
{
    while (_available < size) {
        MemoryPage* page = pageToWrite();
        const int wanted = page != nullptr ? std::min(size - _available, page->getFreeSize()) : 0;
        const int count = page != nullptr ? page->fill(is, wanted) : -1;
        if (count != wanted) {
            clear();
            THROW_EXCEPTION(-1, readFailure);
        }
        wrote(*page, count);
    }
}

ORVI_DEFINE_CLASS(MemoryStream);

} // namespace orvi
