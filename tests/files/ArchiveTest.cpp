#include "FaultyIO.h"
#include "RecordingLog.h"
#include "TempDirectory.h"
#include "TextPrinting.h"

#include <orvi/core/ArchiveFactory.h>
#include <orvi/core/Digest.h>
#include <orvi/core/Exception.h>
#include <orvi/core/File.h>
#include <orvi/core/MemoryFile.h>

#include <limits>
#include <random>

using namespace orvi;

namespace {

constexpr int maxInt = std::numeric_limits<int>::max();

std::string someBytes(std::size_t count)
{
    std::string bytes(count, '\0');
    std::generate(bytes.begin(), bytes.end(), std::mt19937(5));
    return bytes;
}

/** A file of bytes whose reading may go wrong. */
class ShakyFile final : public MemoryFile {
public:
    explicit ShakyFile(const std::string& bytes)
    {
        put(*this, bytes);
        setPosition(0);
    }
    int available() const override { return getPosition() < readsUntil ? MemoryFile::available() : claimed; }
    int read(void* buffer, int size) override
    {
        if (throws)
            THROW_EXCEPTION(-1, L"no reading");
        return getPosition() < readsUntil ? MemoryFile::read(buffer, std::min(size, 7)) : -1;
    }
    int getArchiveSize() const override { return MemoryFile::getArchiveSize() + more; }

    int readsUntil = noLimit; // the position at which reading fails
    int claimed = 1;          // of what is left there
    int more = 0;             // bytes than there are
    bool throws = false;
};

/** Gives out what it is given. */
struct FixedFactory final : ArchiveFactory {
    using ArchiveFactory::ArchiveFactory;
    Unknown::Handle_T<Archive> open(const String& path) override
    {
        asked = path;
        return archive;
    }
    Handle_T<Archive> archive;
    String asked;
};

} // namespace

TEST_CASE("archives by URL, and URLs that open nothing")
{
    const TempDirectory directory;
    const std::string digits = "01234567890123456789";
    directory.write("digits", digits);
    const String path = directory.name("digits");
    const auto check = [](const String& url, int position, const std::string& rest) {
        CAPTURE(url);
        const Handle_T<Archive> archive = ArchiveFactory::openArchive(url);
        REQUIRE(!archive.isNull());
        CHECK((archive->getPosition() == position && take(*archive, archive->available()) == rest));
    };
    check(L"file://" + path, 0, digits);
    check(path + L"?a=1 position=10", 10, digits.substr(10));
    check(path + L"?x", 0, digits);
    check(L"memory://name?position=3", 0, "");
    check(L"memory://x?position=5<<" + path, 5, digits.substr(5));
    check(L"memory://x?position=50<<" + path, 20, "");
    check(L"memory://<<memory://?position=4<<file://" + path, 0, digits.substr(4));

    const auto checkNone = [](const String& url, std::size_t errors) {
        CAPTURE(url);
        const RecordingLog log;
        CHECK((ArchiveFactory::openArchive(url).isNull() && log.errors().size() == errors));
    };
    checkNone(L"", 0);
    checkNone(L"none://x", 0);
    checkNone(L"File://" + path, 0);
    checkNone(L"://x", 1); // is a path
    checkNone(L"memory://<<" + directory.name("missing"), 1);
    checkNone(L"memory://<<", 0);
    checkNone(L"memory://<<" + path + L"?position=90", 1);
    String deep; // in each other, without an end
    for (int i = 0; i < 63; ++i)
        deep += L"memory://<<";
    CHECK(!ArchiveFactory::openArchive(deep + L"memory://").isNull());
    checkNone(deep + L"memory://<<memory://", 1);

    String url = L"a?b?c", other; // either may be the text that is split
    ArchiveFactory::parseUrl(url, other, url);
    CHECK((other == L"a" && url == L"b?c"));
    ArchiveFactory::parseUrl(url, url, other);
    CHECK((url == L"b" && other == L"c"));
}

TEST_CASE("a later factory hides an earlier one until it is torn down")
{
    const auto find = [](const wchar_t* type) { return ArchiveFactory::getArchiveFactory(type); };
    ArchiveFactory* const builtIn = find(L"file");
    REQUIRE(builtIn != nullptr);
    {
        FixedFactory first(L"file");
        FixedFactory second(L"file");
        FixedFactory other(L"other");
        for (FixedFactory* factory : {&first, &other, &second, &first}) // which stays where it is
            CHECK(ArchiveFactory::setUpArchiveFactory(factory));
        CHECK(find(L"file") == &second);
        second.archive = MemoryFile::createInstance();
        CHECK((ArchiveFactory::openArchive(L"dir/x?y") == second.archive && second.asked == L"dir/x?y"));
        const FixedFactory copy = second; // of the scheme alone
        first = copy;
        CHECK(find(L"file") == &second);
        for (int i = 0; i < 2; ++i)
            CHECK(ArchiveFactory::tearDownArchiveFactory(&second));
        CHECK((find(L"file") == &first && find(L"other") == &other));
        ArchiveFactory::tearDownArchiveFactory(&first);
        CHECK(find(L"file") == builtIn);
    }
    CHECK(find(L"other") == nullptr); // went with its factory
}

TEST_CASE("a copy into memory that fails leaves one line in the log")
{
    FixedFactory factory(L"shaky");
    ArchiveFactory::setUpArchiveFactory(&factory);
    const RecordingLog log;
    const auto copyOf = [&](void (*change)(ShakyFile & source)) {
        const Handle_T<ShakyFile> source = new ShakyFile(someBytes(10000));
        change(*source);
        factory.archive = source;
        log.clear();
        return ArchiveFactory::openArchive(L"memory://<<shaky://");
    };
    const Handle_T<Archive> copy = copyOf([](ShakyFile&) {});
    REQUIRE(!copy.isNull());
    CHECK(take(*copy, 20000) == someBytes(10000));
    const auto fails = [&](void (*change)(ShakyFile & source)) {
        return copyOf(change).isNull() && log.lines().size() == 1;
    };
    CHECK(fails([](ShakyFile& source) { source.readsUntil = 5000; }));
    CHECK(fails([](ShakyFile& source) { source.more = source.readsUntil = source.claimed = -1; }));
    CHECK(fails([](ShakyFile& source) { source.throws = true; }));
}

TEST_CASE("a memory file grows at its end and is overwritten inside")
{
    const Handle_T<MemoryFile> file = MemoryFile::createInstance();
    std::string bytes = someBytes(5000);
    CHECK(take(*file, 1).empty());
    CHECK((put(*file, bytes.substr(0, 4096)) == 4096 && put(*file, bytes.substr(4096)) == 904));
    CHECK((file->setPosition(maxInt) == 5000 && file->setPosition(-1) == 0));
    CHECK(take(*file, 9999) == bytes);
    CHECK((file->setPosition(4090) == 4090 && look(*file, 100) == bytes.substr(4090, 100)));
    CHECK((file->available() == 910 && put(*file, "middle of") == 9));
    bytes.replace(4090, 9, "middle of");
    CHECK(file->getArchiveSize() == 5000);
    char byte = 0;
    CHECK((file->write(&byte, -maxInt - 1) == 0 && file->read(&byte, -maxInt - 1) == 0));
    file->setPosition(5000);
    const Handle_T<MemoryFile> copy =
        new MemoryFile(*file); // shares the pages, not the size and the position
    CHECK(put(*copy, "more") == 4);
    copy->setPosition(0);
    put(*copy, "A");
    CHECK(file->setPosition(0) == 0);
    CHECK(take(*file, 9999) == "A" + bytes.substr(1));
    *file = *copy;
    CHECK(take(*file, 9999) == bytes.substr(1) + "more");
}

TEST_CASE("digests of archives and of files")
{
    const TempDirectory directory;
    const String name = directory.name("bytes");
    MD5Checksum inMemory, onDisc;
    for (const std::size_t size : {0u, 1u, 32768u, 100001u}) {
        CAPTURE(size);
        directory.write("bytes", someBytes(size));
        const Handle_T<Archive> file = new ShakyFile(someBytes(size));
        const int position = file->setPosition(static_cast<int>(size / 2));
        CHECK((calcArchiveMd5(file, inMemory) && file->getPosition() == position));
        CHECK((calcFileMd5(name, onDisc) && inMemory == onDisc));
        CHECK((inMemory.convertToString() == L"d41d8cd98f00b204e9800998ecf8427e") == (size == 0));
    }
    const RecordingLog log;
    CHECK((!calcArchiveMd5(nullptr, inMemory) && !calcArchiveMd5(File::createInstance(), inMemory)));
    CHECK((!calcFileMd5(nullptr, inMemory) && !calcFileMd5(directory.name("missing"), inMemory)));
    CHECK(log.errors().size() == 1);
    for (const auto& [readsUntil, more] :
         {std::pair(noLimit, 1), {5, 0}, {noLimit, -11}}) { // short, broken, unknown
        const Handle_T<ShakyFile> file = new ShakyFile("0123456789");
        file->setPosition(3);
        file->readsUntil = readsUntil;
        file->more = more;
        CHECK((!calcArchiveMd5(file, inMemory) && file->getPosition() == 3));
    }
}
