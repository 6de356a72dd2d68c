#include "StreamPage.h"

#include <new>

namespace orvi {

void StreamPage::release(StreamPage* page) noexcept
{
    // A loop, since a chain may have half a million pages.
    while (page != nullptr && page->_references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        StreamPage* next = page->_next;
        delete page;
        page = next;
    }
}

FilePage* FilePage::store(const MemoryPage& page)
{
    auto* stored = new (std::nothrow) FilePage;
    if (stored == nullptr)
        return nullptr;
    stored->_place = FileCacheStore::instance().put(page.unread());
    if (stored->_place.file == nullptr) {
        release(stored);
        return nullptr;
    }
    stored->_writePos = pageSize;
    return stored;
}

int FilePage::peek(void* buffer, int size) const
{
    if (available() <= 0)
        return -1;
    return FileCacheStore::instance().get(_place, _readPos, buffer, std::min(size, available()));
}

FilePage::~FilePage()
{
    if (_place.file != nullptr)
        FileCacheStore::instance().giveBack(_place);
}

} // namespace orvi
