#include <orvi/core/ArchiveFactory.h>

#include <orvi/core/Digest.h>
#include <orvi/core/Exception.h>
#include <orvi/core/File.h>
#include <orvi/core/Log.h>
#include <orvi/core/MemoryFile.h>

#include "base/ArgumentTable.h"
#include "base/Immortal.h"
#include "base/WideText.h"

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <new>

namespace orvi {

namespace {

constexpr int readMode = File::permitRead | File::permitWrite;
constexpr int maxDepth = 64; // of URLs in URLs
constinit thread_local int t_depth = 0;

class UrlLevel {
public:
    UrlLevel() noexcept { ++t_depth; }
    ~UrlLevel() { --t_depth; }
    UrlLevel(const UrlLevel&) = delete;
    UrlLevel& operator=(const UrlLevel&) = delete;
    bool isTooDeep() const noexcept { return t_depth > maxDepth; }
};

// A text that cannot be made is empty, and without a part of it a URL is another one: throw std::bad_alloc.

String partOf(const String& url, int from, int count)
{
    String part = url.getSubString(from, count);
    if (part.isEmpty() && count != 0 && url[from] != 0)
        throw std::bad_alloc();
    return part;
}

int queriedPosition(const String& query)
{
    if (query.isEmpty())
        return 0;
    const ArgumentTable arguments(query);
    if (!arguments.isMade())
        throw std::bad_alloc();
    const wchar_t* const value = arguments.find(L"position");
    return value != nullptr ? text::parseInteger<int>(value) : 0;
}

/** What `open` gives; a null handle, and a line in the log, when it runs out of memory. */
template <class Open>
Unknown::Handle_T<Archive> openOrNull(const Open& open)
{
    try {
        return open();
    } catch (const std::bad_alloc&) {
        Log::error(L"Open archive error! Out of memory");
        return {};
    }
}

class OsFileSystemFactory final : public ArchiveFactory {
public:
    OsFileSystemFactory()
        : ArchiveFactory(L"file")
    {}

    Unknown::Handle_T<Archive> open(const String& url) override
    {
        return openOrNull([&] { return openFile(url); });
    }

private:
    static Unknown::Handle_T<Archive> openFile(const String& url)
    {
        String path;
        String query;
        parseUrl(url, path, query);
        const int position = queriedPosition(query);
        const Unknown::Handle_T<File> file = File::createInstance();
        if (!file->open(path, File::readOnly, readMode))
            return {};
        if (!query.isEmpty())
            file->setPosition(position);
        return file;
    }
};

class MemoryFileSystemFactory final : public ArchiveFactory {
public:
    MemoryFileSystemFactory()
        : ArchiveFactory(L"memory")
    {}

    Unknown::Handle_T<Archive> open(const String& url) override
    {
        return openOrNull([&] { return makeFile(url); });
    }

private:
    static Unknown::Handle_T<Archive> makeFile(const String& url)
    {
        constexpr const wchar_t* mark = L"<<";
        constexpr int markLength = 2;
        const Unknown::Handle_T<MemoryFile> file = MemoryFile::createInstance();
        const int at = url.find(mark);
        if (at < 0)
            return file;
        String name;
        String query;
        parseUrl(partOf(url, 0, at), name, query);
        const int position = queriedPosition(query);
        const Unknown::Handle_T<Archive> source = openArchive(partOf(url, at + markLength, -1));
        if (source.isNull() || !copy(*source, *file))
            return {};
        file->setPosition(position);
        return file;
    }

    /** False, with the reason in the log. */
    static bool copy(Archive& source, MemoryFile& target)
    {
        try {
            OutputStream to(&target);
            InputStream from(&source);
            to << from;
            return true;
        } catch (const Exception& failure) {
            failure.report();
            return false;
        }
    }
};

// The list may be used before and after the static objects of the library have their turn: neither of these
// has a constructor or a destructor to run.
constinit std::mutex g_mutex; // guards the list
constinit ArchiveFactory* g_newest = nullptr;

struct BuiltIns {
    OsFileSystemFactory file;
    MemoryFileSystemFactory memory;
};

BuiltIns& builtIns()
{
    static Immortal<BuiltIns> factories; // threads may still be opening when the process ends
    return *factories;
}

const bool g_initialised = !ArchiveFactory::getArchiveFactory(String()); // sets them up at load

} // namespace

ArchiveFactory::ArchiveFactory(const String& archiveType)
    : _archiveType(archiveType)
{}

ArchiveFactory::ArchiveFactory(const ArchiveFactory& other)
    : _archiveType(other._archiveType)
{}

ArchiveFactory& ArchiveFactory::operator=(const ArchiveFactory& other)
{
    _archiveType = other._archiveType; // whatever is set up stays where it is
    return *this;
}

ArchiveFactory::~ArchiveFactory() { tearDownArchiveFactory(this); }

/** Behind all others, however early those come: called in front of every use of the list. */
void ArchiveFactory::setUpBuiltIns()
{
    static const bool done =
        link(builtIns().file) && link(builtIns().memory) && std::atexit(tearDownBuiltIns) == 0;
    static_cast<void>(done);
}

void ArchiveFactory::tearDownBuiltIns()
{
    for (ArchiveFactory* factory :
         {static_cast<ArchiveFactory*>(&builtIns().file), static_cast<ArchiveFactory*>(&builtIns().memory)}) {
        tearDownArchiveFactory(factory);
        factory->_archiveType = String(); // the module may be going, and no destructor runs
    }
}

bool ArchiveFactory::link(ArchiveFactory& factory)
{
    const std::lock_guard guard(g_mutex);
    if (factory._link != nullptr) // a second time would close the list to a ring
        return true;
    factory._next = g_newest;
    if (factory._next != nullptr)
        factory._next->_link = &factory._next;
    factory._link = &g_newest;
    g_newest = &factory;
    return true;
}

bool ArchiveFactory::setUpArchiveFactory(ArchiveFactory* factory)
{
    setUpBuiltIns();
    return factory == nullptr || link(*factory);
}

bool ArchiveFactory::tearDownArchiveFactory(ArchiveFactory* factory)
{
    const std::lock_guard guard(g_mutex);
    if (factory == nullptr || factory->_link == nullptr)
        return true;
    *factory->_link = factory->_next;
    if (factory->_next != nullptr)
        factory->_next->_link = factory->_link;
    factory->_link = nullptr;
    factory->_next = nullptr;
    return true;
}

ArchiveFactory* ArchiveFactory::getArchiveFactory(const String& archiveType)
{
    setUpBuiltIns();
    const std::lock_guard guard(g_mutex);
    ArchiveFactory* factory = g_newest;
    while (factory != nullptr && factory->_archiveType != archiveType)
        factory = factory->_next;
    return factory;
}

Unknown::Handle_T<Archive> ArchiveFactory::openArchive(const String& url)
{
    constexpr const wchar_t* mark = L"://";
    constexpr int markLength = 3;
    const UrlLevel level;
    if (level.isTooDeep()) {
        Log::error(L"Open archive error! URLs more than %d deep in each other", maxDepth);
        return {};
    }
    return openOrNull([&]() -> Unknown::Handle_T<Archive> {
        const int at = url.find(mark);
        const String scheme = at > 0 ? partOf(url, 0, at) : String(L"file");
        if (scheme.isEmpty())
            throw std::bad_alloc();
        ArchiveFactory* factory = getArchiveFactory(scheme);
        if (factory == nullptr)
            return {};
        return factory->open(at > 0 ? partOf(url, at + markLength, -1) : url);
    });
}

void ArchiveFactory::parseUrl(const String& url, String& path, String& query)
{
    const String whole = url; // NOLINT(performance-*): it may be one of the other two
    const int at = whole.find(L'?');
    path = at < 0 ? whole : partOf(whole, 0, at);
    query = at < 0 ? String() : partOf(whole, at + 1, -1);
}

namespace {

/** Digests all bytes from the first on; the position ends anywhere. */
bool digestAll(Archive& archive, MD5Checksum& checksum)
{
    unsigned char piece[32768];
    int rest = archive.setPosition(0) < 0 ? -1 : archive.getArchiveSize();
    if (rest < 0)
        return false;
    MD5Context context;
    MD5Init(&context);
    while (rest > 0) {
        const int wanted = std::min(rest, static_cast<int>(sizeof piece));
        const int count = archive.read(piece, wanted);
        if (count <= 0 || count > wanted) // 0: somebody has cut it short
            return false;
        MD5Update(&context, piece, static_cast<unsigned int>(count));
        rest -= count;
    }
    MD5Final(&checksum, &context);
    return checksum.getBufferSize() > 0;
}

} // namespace

bool calcArchiveMd5(Archive* archive, MD5Checksum& checksum)
{
    const int position = archive != nullptr ? archive->getPosition() : -1;
    if (position < 0)
        return false;
    const bool done = digestAll(*archive, checksum);
    archive->setPosition(position);
    return done;
}

bool calcFileMd5(const wchar_t* path, MD5Checksum& checksum)
{
    const Unknown::Handle_T<File> file = File::createInstance();
    return file->open(path, File::readOnly, readMode) && calcArchiveMd5(file, checksum);
}

} // namespace orvi
