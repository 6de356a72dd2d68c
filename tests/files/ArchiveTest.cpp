#include "FaultyIO.h"
#include "RecordingLog.h"
#include "TempDirectory.h"
#include "TextPrinting.h"

#include <orvi/core/ArchiveFactory.h>
#include <orvi/core/Digest.h>
#include <orvi/core/Encoding.h>
#include <orvi/core/Exception.h>
#include <orvi/core/File.h>
#include <orvi/core/MemoryFile.h>

#include <fstream>
#include <limits>
#include <random>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using orvi::Archive;
using orvi::ArchiveFactory;
using orvi::File;
using orvi::Handle_T;
using orvi::MD5Checksum;
using orvi::MemoryFile;
using orvi::String;

namespace {

constexpr int maxInt = std::numeric_limits<int>::max();

std::string readAll(Archive& archive)
{
    std::string bytes(static_cast<std::size_t>(std::max(archive.available(), 0)), '\0');
    bytes.resize(
        static_cast<std::size_t>(std::max(archive.read(bytes.data(), static_cast<int>(bytes.size())), 0)));
    return bytes;
}

std::string someBytes(std::size_t count)
{
    std::mt19937 random(5);
    std::string bytes;
    while (bytes.size() < count)
        bytes += static_cast<char>(random());
    return bytes;
}

int writeText(Archive& archive, const std::string& bytes)
{
    return archive.write(bytes.data(), static_cast<int>(bytes.size()));
}

/** An archive whose reading may go wrong. */
class ShakyArchive final : public Archive {
public:
    explicit ShakyArchive(const Handle_T<FaultyIO>& content)
        : io(content)
    {}
    int available() const override { return io->available(); }
    int peek(void* buffer, int size) const override { return io->peek(buffer, size); }
    int read(void* buffer, int size) override
    {
        if (throws)
            THROW_EXCEPTION(-1, L"no reading");
        return io->read(buffer, size);
    }
    int write(const void*, int) override { return -1; }
    int getArchiveSize() const override { return claimedSize; }
    int getPosition() const override { return static_cast<int>(io->position); }
    int setPosition(int position) override
    {
        io->position = static_cast<std::size_t>(position);
        return position;
    }

    Handle_T<FaultyIO> io;
    int claimedSize = static_cast<int>(io->bytes.size());
    bool throws = false;
};

/** Gives out what it is given. */
class FixedFactory final : public ArchiveFactory {
public:
    using ArchiveFactory::ArchiveFactory;
    orvi::Unknown::Handle_T<Archive> open(const String& path) override
    {
        asked = path;
        return archive;
    }
    Handle_T<Archive> archive;
    String asked;
};

} // namespace

TEST_CASE("archives by URL")
{
    const TempDirectory directory;
    const std::string digits = "01234567890123456789";
    std::ofstream(directory / "digits", std::ios::binary) << digits;
    const String path = directory.name("digits");
    const struct {
        const char* what;
        String url;
        int position;
        std::string rest;
    } rows[] = {
        {"a path", path, 0, digits},
        {"the scheme of a path", L"file://" + path, 0, digits},
        {"a position", path + L"?position=10", 10, digits.substr(10)},
        {"a position among arguments", path + L"?a=1 position=10", 10, digits.substr(10)},
        {"a query without one", path + L"?x", 0, digits},
        {"empty memory", L"memory://", 0, ""},
        {"empty memory with a name", L"memory://name?position=3", 0, ""},
        {"a copy", L"memory://<<" + path, 0, digits},
        {"a copy with a position", L"memory://x?position=5<<" + path, 5, digits.substr(5)},
        {"a position past the end", L"memory://x?position=50<<" + path, 20, ""},
        {"a copy of a part", L"memory://<<" + path + L"?position=5", 0, digits.substr(5)},
        {"a copy of a copy", L"memory://<<memory://?position=4<<file://" + path, 0, digits.substr(4)},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        const Handle_T<Archive> archive = ArchiveFactory::openArchive(row.url);
        REQUIRE(!archive.isNull());
        CHECK(archive->getPosition() == row.position);
        CHECK(readAll(*archive) == row.rest);
    }
}

TEST_CASE("URLs that open nothing")
{
    const TempDirectory directory;
    std::ofstream(directory / "short", std::ios::binary) << "abc";
    const struct {
        const char* what;
        String url;
        int errors;
    } rows[] = {
        {"nothing", L"", 0},
        {"an unknown scheme", L"none://x", 0},
        {"a scheme of another case", L"File://" + directory.name("short"), 0},
        {"no scheme", L"://x", 1}, // is a path
        {"a missing file", directory.name("missing"), 1},
        {"a copy of a missing file", L"memory://<<" + directory.name("missing"), 1},
        {"a copy of nothing", L"memory://<<", 0},
        {"a copy from behind the end", L"memory://<<" + directory.name("short") + L"?position=9", 1},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        const RecordingLog log;
        CHECK(ArchiveFactory::openArchive(row.url).isNull());
        CHECK(static_cast<int>(log.errors().size()) == row.errors);
    }
}

TEST_CASE("URLs in each other, without an end")
{
    std::string url;
    for (int i = 0; i < 64; ++i)
        url += i < 63 ? "memory://<<" : "memory://";
    const RecordingLog log;
    CHECK(!ArchiveFactory::openArchive(orvi::StringHelper::utf8ToWide(url.c_str())).isNull());
    CHECK(log.errors().empty());
    for (int i = 0; i < 100000; ++i)
        url += "<<memory://";
    CHECK(ArchiveFactory::openArchive(orvi::StringHelper::utf8ToWide(url.c_str())).isNull());
    CHECK(log.errors().size() == 1);
}

TEST_CASE("a URL is split at the first question mark, into any strings")
{
    String path;
    String query;
    ArchiveFactory::parseUrl(L"a?b?c", path, query);
    CHECK(path == L"a");
    CHECK(query == L"b?c");
    ArchiveFactory::parseUrl(query, query, path);
    CHECK(query == L"b");
    CHECK(path == L"c");
    ArchiveFactory::parseUrl(path, path, query);
    CHECK(path == L"c");
    CHECK(query.isEmpty());
}

TEST_CASE("a later factory hides an earlier one until it is torn down")
{
    ArchiveFactory* const builtIn = ArchiveFactory::getArchiveFactory(L"file");
    REQUIRE(builtIn != nullptr);
    {
        FixedFactory first(L"file");
        FixedFactory second(L"file");
        FixedFactory other(L"other");
        for (ArchiveFactory* factory :
             {static_cast<ArchiveFactory*>(&first), static_cast<ArchiveFactory*>(&other),
              static_cast<ArchiveFactory*>(&second)})
            CHECK(ArchiveFactory::setUpArchiveFactory(factory));
        CHECK(ArchiveFactory::setUpArchiveFactory(&first)); // stays where it is
        CHECK(ArchiveFactory::getArchiveFactory(L"file") == &second);
        second.archive = MemoryFile::createInstance();
        CHECK(ArchiveFactory::openArchive(L"dir/x?y") == second.archive);
        CHECK(second.asked == L"dir/x?y");
        FixedFactory copy = second; // of the scheme alone
        CHECK(copy.getArchiveType() == L"file");
        CHECK(ArchiveFactory::getArchiveFactory(L"file") == &second);
        first = copy;
        CHECK(ArchiveFactory::tearDownArchiveFactory(&second));
        CHECK(ArchiveFactory::tearDownArchiveFactory(&second));
        CHECK(ArchiveFactory::getArchiveFactory(L"file") == &first);
        CHECK(ArchiveFactory::getArchiveFactory(L"other") == &other);
        ArchiveFactory::tearDownArchiveFactory(&first);
        CHECK(ArchiveFactory::getArchiveFactory(L"file") == builtIn);
    }
    CHECK(ArchiveFactory::getArchiveFactory(L"other") == nullptr); // went with its factory
}

TEST_CASE("a copy into memory that fails leaves one line in the log")
{
    FixedFactory factory(L"shaky");
    ArchiveFactory::setUpArchiveFactory(&factory);
    const struct {
        const char* what;
        void (*change)(ShakyArchive&);
    } rows[] = {
        {"a read fails", [](ShakyArchive& archive) { archive.io->readsUntil = 5000; }},
        {"announces more than it has", [](ShakyArchive& archive) { archive.io->claimed = 100; }},
        {"fails to tell", [](ShakyArchive& archive) { archive.io->claimed = -1; }},
        {"throws", [](ShakyArchive& archive) { archive.throws = true; }},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        auto* shaky = new ShakyArchive(FaultyIO::create(someBytes(10000)));
        factory.archive = shaky;
        row.change(*shaky);
        const RecordingLog log;
        CHECK(ArchiveFactory::openArchive(L"memory://<<shaky://").isNull());
        CHECK(log.errors().size() == 1);
    }
    auto* patient = new ShakyArchive(FaultyIO::create(someBytes(10000)));
    factory.archive = patient;
    patient->io->piece = 7;
    patient->io->emptyAnswers = 3;
    const Handle_T<Archive> copy = ArchiveFactory::openArchive(L"memory://<<shaky://");
    REQUIRE(!copy.isNull());
    CHECK(readAll(*copy) == patient->io->bytes);
}

TEST_CASE("a memory file grows at its end and is overwritten inside")
{
    const Handle_T<MemoryFile> file = MemoryFile::createInstance();
    std::string bytes = someBytes(4097);
    char byte = 0;
    CHECK(file->read(&byte, 1) == 0);
    CHECK(file->write(bytes.data(), 4096) == 4096);
    CHECK(file->write(bytes.data() + 4096, 1) == 1);
    CHECK(file->getArchiveSize() == 4097);
    CHECK(file->setPosition(0) == 0);
    CHECK(readAll(*file) == bytes);
    bytes = someBytes(5003).substr(3);
    CHECK(file->setPosition(-1) == 0);
    CHECK(writeText(*file, bytes) == 5000);
    CHECK(file->getArchiveSize() == 5000);
    CHECK(file->setPosition(maxInt) == 5000);
    CHECK(file->setPosition(4090) == 4090);
    char peeked[100] = {};
    CHECK(file->peek(peeked, sizeof peeked) == 100);
    CHECK(std::string(peeked, sizeof peeked) == bytes.substr(4090, 100));
    CHECK(file->getPosition() == 4090);
    CHECK(file->available() == 910);
    CHECK(writeText(*file, "middle of") == 9);
    bytes.replace(4090, 9, "middle of");
    CHECK(file->getArchiveSize() == 5000);
    file->setPosition(0);
    CHECK(readAll(*file) == bytes);
    for (const int nothing : {0, -1, -maxInt - 1}) {
        CHECK(file->write(&byte, nothing) == 0);
        CHECK(file->peek(&byte, nothing) == 0);
        CHECK(file->read(&byte, nothing) == 0);
    }
    CHECK(file->getPosition() == 5000);
}

TEST_CASE("a copy of a memory file shares the pages, with a size and a position of its own")
{
    const Handle_T<MemoryFile> file = MemoryFile::createInstance();
    writeText(*file, "abc");
    const Handle_T<MemoryFile> copy = new MemoryFile(*file);
    CHECK(copy->getReferenceCount() == 1);
    CHECK(writeText(*copy, "def") == 3);
    copy->setPosition(0);
    writeText(*copy, "A");
    file->setPosition(0);
    CHECK(readAll(*file) == "Abc");
    CHECK(copy->getPosition() == 1);
    *file = *copy;
    CHECK(readAll(*file) == "bcdef");
}

TEST_CASE("a memory file without memory keeps what it has")
{
    // In a child: the limit on memory cannot be taken back, and sanitizers need far more.
#if !defined(__SANITIZE_ADDRESS__)
    const pid_t child = fork();
    REQUIRE(child >= 0);
    if (child == 0) {
        constexpr std::size_t pieceSize = 64 << 20;
        const std::string piece(pieceSize, 'x');
        const RecordingLog log;
        const Handle_T<MemoryFile> file = MemoryFile::createInstance();
        const rlimit limit{256 << 20, 256 << 20};
        setrlimit(RLIMIT_AS, &limit);
        int written = 0;
        int count = 0;
        for (int i = 0; i < 8 && (count = writeText(*file, piece)) > 0; ++i)
            written += count;
        const bool kept = written > 0 && file->getArchiveSize() == written && count == -1;
        _exit(kept && log.count(RecordingLog::Level::Error, L"Alloc memory error!") == 2 ? 0 : 1);
    }
    int status = -1;
    REQUIRE(waitpid(child, &status, 0) == child);
    CHECK(status == 0);
#endif
}

TEST_CASE("digests of archives and of files")
{
    const TempDirectory directory;
    for (const std::size_t size : {0u, 1u, 32768u, 100001u}) {
        CAPTURE(size);
        const std::string bytes = someBytes(size).substr(0, size);
        std::ofstream(directory / "bytes", std::ios::binary) << bytes;
        const Handle_T<MemoryFile> file = MemoryFile::createInstance();
        writeText(*file, bytes);
        const int position = file->setPosition(static_cast<int>(size / 2));
        MD5Checksum inMemory;
        MD5Checksum onDisc;
        CHECK(orvi::calcArchiveMd5(file, inMemory));
        CHECK(file->getPosition() == position);
        CHECK(orvi::calcFileMd5(directory.name("bytes"), onDisc));
        CHECK(inMemory.convertToString() == onDisc.convertToString());
        if (size == 0)
            CHECK(inMemory.convertToString() == L"d41d8cd98f00b204e9800998ecf8427e");
    }
}

TEST_CASE("digests that fail")
{
    MD5Checksum checksum;
    CHECK(!orvi::calcArchiveMd5(nullptr, checksum));
    CHECK(!orvi::calcArchiveMd5(File::createInstance(), checksum));
    const TempDirectory directory;
    const RecordingLog log;
    CHECK(!orvi::calcFileMd5(directory.name("missing"), checksum));
    CHECK(log.errors().size() == 1);
    CHECK(!orvi::calcFileMd5(nullptr, checksum));
    const Handle_T<ShakyArchive> archive = new ShakyArchive(FaultyIO::create("0123456789"));
    archive->setPosition(3);
    archive->claimedSize = 11; // cut short
    CHECK(!orvi::calcArchiveMd5(archive, checksum));
    CHECK(archive->getPosition() == 3);
    archive->io->readsUntil = 5;
    CHECK(!orvi::calcArchiveMd5(archive, checksum));
    CHECK(archive->getPosition() == 3);
    archive->claimedSize = -1;
    CHECK(!orvi::calcArchiveMd5(archive, checksum));
}
