#include "ByteIO.h"
#include "RecordingLog.h"
#include "TempDirectory.h"
#include "TextPrinting.h"

#include <orvi/core/Buffer.h>
#include <orvi/core/Exception.h>
#include <orvi/core/MemoryStream.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

using orvi::Handle_T;
using orvi::InputStream;
using orvi::MemoryStream;
using orvi::OutputStream;
using orvi::String;

namespace {

constexpr int pageSize = 4096;
constexpr int limit = 2560 * pageSize; // of what a stream keeps in memory
using Level = RecordingLog::Level;

/** An endless text without a period that pages or pieces could share; the two ends of a stream know it. */
class Sequence {
public:
    explicit Sequence(unsigned int seed = 0)
        : _state(seed)
    {}
    void fill(std::vector<unsigned char>& bytes, int size)
    {
        bytes.resize(static_cast<std::size_t>(size));
        for (unsigned char& byte : bytes) {
            _state = _state * 1664525u + 1013904223u;
            byte = static_cast<unsigned char>(_state >> 24);
        }
    }

private:
    unsigned int _state;
};

/** Writes and reads a stream in pieces, comparing as it goes. */
class Flow {
public:
    explicit Flow(MemoryStream& stream, unsigned int seed = 0)
        : _stream(stream)
        , _written(seed)
        , _read(seed)
    {}

    bool write(int total, int piece)
    {
        for (int size = 0; total > 0; total -= size) {
            size = std::min(total, piece);
            _written.fill(_bytes, size);
            if (_stream.write(_bytes.data(), size) != size)
                return false;
        }
        return true;
    }
    bool read(int total, int piece)
    {
        for (int size = 0; total > 0; total -= size) {
            size = std::min(total, piece);
            _read.fill(_bytes, size);
            _answer.assign(_bytes.size(), 0);
            if (_stream.read(_answer.data(), size) != size || _answer != _bytes)
                return false;
        }
        return true;
    }

private:
    MemoryStream& _stream;
    Sequence _written;
    Sequence _read;
    std::vector<unsigned char> _bytes;
    std::vector<unsigned char> _answer;
};

struct SpillFile {
    int count = 0; // of files
    off_t size = 0;
};

/** The nameless files that a process has open. */
SpillFile spillFileOf(const std::string& process)
{
    SpillFile found;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/" + process + "/fd", error)) {
        const std::string target = std::filesystem::read_symlink(entry.path(), error).string();
        struct stat status {};
        if (target.find("/orvi") == std::string::npos || target.find("(deleted)") == std::string::npos ||
            stat(entry.path().c_str(), &status) != 0)
            continue;
        ++found.count;
        found.size += status.st_size;
    }
    return found;
}

/** Starts this program again for one case, with another directory for temporary files. */
pid_t startCase(const char* name, const std::string& temporaryDirectory)
{
    const pid_t child = fork();
    REQUIRE(child >= 0);
    if (child == 0) {
        setenv("TMPDIR", temporaryDirectory.c_str(), 1);
        const std::string filter = "--test-case=" + std::string(name);
        execl("/proc/self/exe", "child", filter.c_str(), "--no-skip", nullptr);
        _exit(127);
    }
    return child;
}

int writeText(MemoryStream& stream, const std::string& bytes)
{
    return stream.write(bytes.data(), static_cast<int>(bytes.size()));
}

std::string readText(MemoryStream& stream, int size)
{
    std::string bytes(static_cast<std::size_t>(size), '\0');
    bytes.resize(static_cast<std::size_t>(std::max(stream.read(bytes.data(), size), 0)));
    return bytes;
}

std::string failureOf(auto action)
{
    try {
        action();
    } catch (const orvi::Exception& exception) {
        return orvi::StringHelper::wideToUtf8(exception.description()).getBuffer();
    }
    return "none";
}

} // namespace

TEST_CASE("a stream gives back in order what was written, in pieces of any size")
{
    for (const int piece : {1, 7, 4095, 4096, 4097, 10000}) {
        CAPTURE(piece);
        const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
        Flow flow(*stream);
        CHECK(flow.write(10000, 3333));
        CHECK(stream->available() == 10000);
        CHECK(flow.read(10000, piece));
        CHECK(stream->available() == 0);
        char byte;
        CHECK(stream->read(&byte, 1) == 0);
        CHECK(stream->peek(&byte, 1) == 0);
    }
}

TEST_CASE("writing and reading may alternate anywhere in a page, and peek spans pages")
{
    const Handle_T<MemoryStream> stream = MemoryStream::createInstance(1);
    std::mt19937 random(1);
    std::string model;
    for (int step = 0; step < 2000; ++step) {
        const auto size = random() % (step % 10 == 0 ? 9000 : 500);
        const std::string expected = model.substr(0, size);
        std::string bytes(size, static_cast<char>('a' + step % 26));
        switch (random() % 3) {
        case 0:
            REQUIRE(writeText(*stream, bytes) == static_cast<int>(size));
            model += bytes;
            break;
        case 1:
            REQUIRE(readText(*stream, static_cast<int>(size)) == expected);
            model.erase(0, size);
            break;
        default:
            bytes.resize(static_cast<std::size_t>(stream->peek(bytes.data(), static_cast<int>(size))));
            REQUIRE(bytes == expected);
            break;
        }
        REQUIRE(stream->available() == static_cast<int>(model.size()));
    }
}

TEST_CASE("sizes of 0 and less do nothing")
{
    const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
    char byte = 'x';
    for (const int size : {0, -1}) {
        CHECK(stream->write(&byte, size) == 0);
        CHECK(stream->read(&byte, size) == 0);
        CHECK(stream->peek(&byte, size) == 0);
    }
    CHECK(stream->available() == 0);
}

TEST_CASE("from the 11th page on every step of a write is a warning")
{
    const RecordingLog log;
    const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
    CHECK(Flow(*stream).write(10 * pageSize, 10 * pageSize));
    CHECK(log.lines().empty());
    CHECK(Flow(*stream).write(pageSize + 100, 3000));
    CHECK(log.warnings() == std::vector<String>{L"MemoryStream _memoryCacheCount=11, pCache size=3000",
                                                L"MemoryStream _memoryCacheCount=11, pCache size=4096",
                                                L"MemoryStream _memoryCacheCount=12, pCache size=100"});
}

TEST_CASE("beyond 2560 pages a stream spills, its pages come back, and their places are used again")
{
    const RecordingLog log;
    const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
    Flow flow(*stream);
    CHECK(flow.write(limit, 1 << 20));
    CHECK(log.count(Level::Warning, L"writeToFileCache") == 0);
    CHECK(flow.write(1, 1));
    CHECK(log.count(Level::Warning, L"MemoryStream writeToFileCache memCache size=4096") == 1);
    CHECK(flow.write(10 * pageSize, 1000));
    CHECK(log.count(Level::Warning, L"writeToFileCache") == 11);
    CHECK(log.count(Level::Warning, L"_memoryCacheCount=2561") == 0);
    CHECK(stream->available() == limit + 1 + 10 * pageSize);
    CHECK(spillFileOf("self").count == 1);
    const off_t size = spillFileOf("self").size;
    CHECK(size >= 11 * pageSize);

    SUBCASE("read in small pieces, through memory") { CHECK(flow.read(stream->available(), 1000)); }
    SUBCASE("read in large pieces, straight from the file")
    {
        CHECK(flow.read(stream->available(), 1 << 20));
    }
    SUBCASE("written on while it is read")
    {
        CHECK(flow.read(limit, 1 << 20)); // the stored pages come next
        for (int i = 0; i < 20; ++i) {
            CHECK(flow.write(3000, 3000));
            CHECK(flow.read(3500, 1750));
        }
        CHECK(flow.read(stream->available(), 100));
    }
    SUBCASE("dropped unread")
    {
        const Handle_T<MemoryStream> other = MemoryStream::createInstance();
        *stream = *other;
    }
    CHECK(stream->available() == 0);
    char byte;
    CHECK(stream->peek(&byte, 1) == 0);
    CHECK(stream->read(&byte, 1) == 0);

    const Handle_T<MemoryStream> other = MemoryStream::createInstance();
    Flow otherFlow(*other, 5);
    CHECK(otherFlow.write(limit + 11 * pageSize, 1 << 20));
    CHECK(spillFileOf("self").count == 1);
    CHECK(spillFileOf("self").size == size);
    CHECK(otherFlow.read(other->available(), 1 << 20));
    CHECK(log.errors().empty());
}

TEST_CASE("peek sees stored pages and leaves them where they are")
{
    const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
    const int size = limit + 5 * pageSize;
    std::vector<unsigned char> expected;
    Sequence().fill(expected, size);
    REQUIRE(stream->write(expected.data(), size) == size);
    std::vector<unsigned char> peeked(expected.size() + 1);
    CHECK(stream->peek(peeked.data(), size + 1) == size);
    peeked.pop_back();
    CHECK(peeked == expected);
    CHECK(stream->available() == size);

    const Handle_T<MemoryStream> copy = stream->clone();
    REQUIRE_FALSE(copy.isNull());
    CHECK(Flow(*copy).read(size, 7777));
    CHECK(Flow(*stream).read(size, 1 << 20));
}

TEST_CASE("64 MiB go through one stream in odd pieces, within its 10 MiB of memory")
{
    const RecordingLog log;
    const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
    Flow flow(*stream);
    constexpr int total = 64 << 20;
    CHECK(flow.write(total, 30011));
    CHECK(stream->available() == total);
    CHECK(log.count(Level::Warning, L"writeToFileCache") == total / pageSize - 2560);
    CHECK(log.count(Level::Warning, L"_memoryCacheCount=2561") == 0);
    CHECK(flow.read(total, 1237));
    CHECK(stream->available() == 0);
    CHECK(log.errors().empty());
}

TEST_CASE("streams of several threads spill at once and keep their bytes apart")
{
    std::atomic<int> good = 0;
    std::vector<std::thread> threads;
    for (unsigned int seed = 1; seed <= 4; ++seed) {
        threads.emplace_back([seed, &good] {
            const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
            Flow flow(*stream, seed);
            bool ok = flow.write(limit, 1 << 20);
            for (int i = 0; ok && i < 20; ++i)
                ok = flow.write(3 * pageSize, 5000) && flow.read(2 * pageSize, 1500);
            ok = ok && flow.read(limit, 1 << 20); // the rest was stored
            ok = ok && flow.read(stream->available(), 700);
            good += ok;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    CHECK(good == 4);
    CHECK(spillFileOf("self").count == 1);
}

TEST_CASE("child: spills and waits for its end" * doctest::skip())
{
    const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
    REQUIRE(Flow(*stream).write(limit + pageSize, 1 << 20));
    std::ofstream(std::filesystem::temp_directory_path() / "ready");
    for (;;)
        pause();
}

TEST_CASE("the file of a process that is killed is gone")
{
    const TempDirectory directory;
    const pid_t child = startCase("child: spills and waits for its end", directory.path());
    int status = 0;
    while (!std::filesystem::exists(directory / "ready") && waitpid(child, &status, WNOHANG) == 0)
        usleep(1000);
    CHECK(spillFileOf(std::to_string(child)).count == 1);
    CHECK(kill(child, SIGKILL) == 0);
    CHECK(waitpid(child, &status, 0) == child);
    CHECK(WIFSIGNALED(status));
    CHECK(std::filesystem::remove(directory / "ready"));
    CHECK(std::filesystem::is_empty(directory.path()));
}

TEST_CASE("child: has nowhere to spill" * doctest::skip())
{
    const RecordingLog log;
    const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
    Flow flow(*stream);
    CHECK(flow.write(limit + 3 * pageSize, 1 << 20));
    CHECK(log.count(Level::Warning, L"writeToFileCache") == 0);
    CHECK(log.count(Level::Warning, L"_memoryCacheCount=2563") == 1);
    CHECK(log.count(Level::Error, L"Create temp file error!") == 1); // once, not for every page
    CHECK(log.errors().size() == 2);
    CHECK(flow.read(limit + 3 * pageSize, 5000));
}

TEST_CASE("without a directory for its file a stream goes on in memory")
{
    const pid_t child = startCase("child: has nowhere to spill", "/no/such/directory");
    int status = 0;
    CHECK(waitpid(child, &status, 0) == child);
    CHECK(WIFEXITED(status));
    CHECK(WEXITSTATUS(status) == 0);
}

TEST_CASE("child: outlives the library's store" * doctest::skip())
{
    // Both go after the store, which is made last. With the store closed, the late writer finds room in memory only.
    static struct {
        Handle_T<MemoryStream> stream = MemoryStream::createInstance();
    } holder;
    static struct Late {
        ~Late() { Flow(*holder.stream).write(2 * pageSize, pageSize); }
    } late;
    CHECK(Flow(*holder.stream).write(limit + 3 * pageSize, 1 << 20));
}

TEST_CASE("a stream that lives on at the end of the process does no harm")
{
    const TempDirectory directory;
    const pid_t child = startCase("child: outlives the library's store", directory.path());
    int status = 0;
    CHECK(waitpid(child, &status, 0) == child);
    CHECK(WIFEXITED(status));
    CHECK(WEXITSTATUS(status) == 0);
    CHECK(std::filesystem::is_empty(directory.path()));
}

TEST_CASE("child: may not write large files" * doctest::skip())
{
    const rlim_t most = 3 * pageSize + 100;
    const rlimit small{most, most};
    REQUIRE(setrlimit(RLIMIT_FSIZE, &small) == 0);
    const RecordingLog log;
    const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
    Flow flow(*stream);
    CHECK(flow.write(limit + 5 * pageSize, 1 << 20));
    CHECK(log.count(Level::Warning, L"writeToFileCache") == 3);
    CHECK(log.errors() == std::vector<String>{L"Write file cache error!", L"Write file cache error!"});
    CHECK(flow.read(limit + 5 * pageSize, 3000));
}

TEST_CASE("what the disc does not take stays in memory")
{
    const TempDirectory directory;
    const pid_t child = startCase("child: may not write large files", directory.path());
    int status = 0;
    CHECK(waitpid(child, &status, 0) == child);
    CHECK(WIFEXITED(status));
    CHECK(WEXITSTATUS(status) == 0);
}

TEST_CASE("a fork leaves a spilled stream right in both processes, whatever either does with its own")
{
    const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
    Flow flow(*stream);
    REQUIRE(flow.write(limit + (6 << 20), 1 << 20));
    int turn[2], answer[2]; // a byte in one hands over to the other
    REQUIRE(pipe(turn) == 0);
    REQUIRE(pipe(answer) == 0);
    char byte = 0;
    const auto spillAnother = [](int seed) {
        const Handle_T<MemoryStream> other = MemoryStream::createInstance();
        Flow own(*other, static_cast<unsigned int>(seed));
        return own.write(limit + (7 << 20), 1 << 20) && own.read(limit + (7 << 20), 1 << 16);
    };
    // A fork that goes past the C library leaves no word of it: there the stored pages are out of reach.
    const pid_t unheard = _Fork();
    if (unheard == 0) {
        std::vector<unsigned char> bytes(limit + (6 << 20));
        const int most = stream->read(bytes.data(), static_cast<int>(bytes.size()));
        const Handle_T<MemoryStream> other = MemoryStream::createInstance();
        _exit(most == limit - pageSize && stream->read(bytes.data(), 1) == -1 && spillAnother(3) ? 0 : 1);
    }
    const pid_t child = fork();
    if (child == 0) {
        bool good = flow.read(limit + (2 << 20), 5000) && spillAnother(1) && write(answer[1], "", 1) == 1;
        good = good && read(turn[0], &byte, 1) == 1 && flow.read(4 << 20, 5000) && stream->available() == 0;
        _exit(good && spillAnother(2) ? 0 : 1);
    }
    close(answer[1]);
    CHECK(read(answer[0], &byte, 1) == 1);
    CHECK(flow.read(limit + (4 << 20), 5000)); // more than the child has read so far
    CHECK(spillAnother(4));
    CHECK(write(turn[1], "", 1) == 1);
    CHECK(flow.read(2 << 20, 5000));
    for (const pid_t process : {unheard, child}) {
        int status = -1;
        REQUIRE(waitpid(process, &status, 0) == process);
        CHECK(status == 0);
    }
    for (const int end : {turn[0], turn[1], answer[0]})
        close(end);
    CHECK(spillAnother(5));
    CHECK(spillFileOf("self").count == 1); // the one from before the fork went with its pages
}

TEST_CASE("append hands bytes over in order, from streams that were read in part and that spilled")
{
    std::minstd_rand random(5);
    const auto upTo = [&](int most) {
        return static_cast<int>(random() % static_cast<unsigned int>(most + 1));
    };
    const Handle_T<MemoryStream> queue = MemoryStream::createInstance();
    Sequence written;
    Sequence expected;
    std::vector<unsigned char> bytes;
    std::vector<unsigned char> answer;
    const auto readQueue = [&](int most) {
        const int size = std::min(queue->available(), most);
        expected.fill(bytes, size);
        answer.assign(bytes.size(), 0);
        REQUIRE(queue->read(answer.data(), size) == size);
        REQUIRE(answer == bytes);
    };
    const int sizes[] = {0, 1, 100, pageSize - 1, pageSize, 3 * pageSize + 5, limit + 3 * pageSize};
    for (int round = 0; round < 60; ++round) {
        const Handle_T<MemoryStream> incoming = MemoryStream::createInstance();
        const int dropped = upTo(2 * pageSize); // so that its first page has a hole in front
        answer.assign(static_cast<std::size_t>(dropped), 7);
        incoming->write(answer.data(), dropped);
        written.fill(bytes, round == 30 ? sizes[6] : sizes[round % 6]);
        incoming->write(bytes.data(), static_cast<int>(bytes.size()));
        REQUIRE(incoming->read(answer.data(), dropped) == dropped);

        const int before = queue->available();
        REQUIRE(queue->append(*incoming));
        CHECK(queue->available() == before + static_cast<int>(bytes.size()));
        CHECK(incoming->available() == 0);
        if (round % 3 == 0) { // both can go on being written
            written.fill(bytes, upTo(pageSize));
            queue->write(bytes.data(), static_cast<int>(bytes.size()));
            CHECK(incoming->write("x", 1) == 1);
        }
        if (round < 28 || round > 32)
            readQueue(upTo(4 * pageSize));
    }
    written.fill(bytes, limit); // the pages at the end spill in their turn
    CHECK(queue->write(bytes.data(), limit) == limit);
    while (queue->available() > 0)
        readQueue(50000);
    CHECK_FALSE(queue->append(*queue));
}

TEST_CASE("what is appended spills as what is written does")
{
    for (const int size : {600, 10 * pageSize}) {
        CAPTURE(size);
        const off_t before = spillFileOf("self").size;
        const Handle_T<MemoryStream> queue = MemoryStream::createInstance();
        Flow(*queue, 1).write(pageSize, pageSize);
        const std::vector<unsigned char> bytes(static_cast<std::size_t>(size), 7);
        constexpr int total = 3 * limit;
        for (int done = 0; done < total; done += size) {
            const Handle_T<MemoryStream> incoming = MemoryStream::createInstance();
            incoming->write(bytes.data(), size);
            REQUIRE(queue->append(*incoming));
        }
        CHECK(spillFileOf("self").size >= std::max<off_t>(before, limit));
        CHECK(Flow(*queue, 1).read(pageSize, pageSize));
        std::vector<unsigned char> answer(bytes.size());
        for (int done = 0; done < total; done += size) {
            REQUIRE(queue->read(answer.data(), size) == size);
            REQUIRE(answer == bytes);
        }
        CHECK(queue->available() == 0);
    }
}

TEST_CASE("a copy shares the pages, and either may go first")
{
    const int size = 100 * pageSize + 5;
    Handle_T<MemoryStream> stream = MemoryStream::createInstance();
    CHECK(Flow(*stream).write(size, 1 << 20));
    Handle_T<MemoryStream> copy = new MemoryStream(*stream);
    CHECK(copy->available() == size);
    SUBCASE("the source goes") { stream.setNull(); }
    SUBCASE("the copy goes")
    {
        std::swap(stream, copy);
        stream.setNull();
    }
    SUBCASE("the source is assigned something else") { *stream = *MemoryStream::createInstance(); }
    SUBCASE("assignment to itself")
    {
        const MemoryStream& same = *copy;
        *copy = same;
    }
    Flow flow(*copy);
    CHECK(flow.read(size - 5, 999));
    CHECK(writeText(*copy, "more") == 4);
    CHECK(flow.read(5, 5));
    CHECK(readText(*copy, 10) == "more");
}

TEST_CASE("on a stream it has the form of a Buffer")
{
    const Handle_T<ByteIO> bytes = ByteIO::create();
    const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
    OutputStream output(bytes);
    InputStream input(bytes);
    output << *stream;
    CHECK(hexOf(bytes->unread()) == "00");
    CHECK(writeText(*stream, "?abc") == 4);
    CHECK(readText(*stream, 1) == "?");
    output << *stream;
    CHECK(hexOf(bytes->unread()) == "00 06 61 62 63");
    CHECK(stream->available() == 3);

    const Handle_T<MemoryStream> target = MemoryStream::createInstance();
    CHECK(writeText(*target, std::string(10000, 'x')) == 10000);
    input >> *target;
    CHECK(target->available() == 0);
    CHECK(writeText(*target, "old") == 3);
    input >> *target;
    CHECK(readText(*target, 10) == "abc");

    const int size = limit + 2 * pageSize; // stored pages too
    CHECK(Flow(*target).write(size, size));
    output << *target;
    orvi::Buffer buffer;
    input >> buffer;
    CHECK(buffer.getBufferSize() == size);
    output << buffer;
    input >> *stream;
    CHECK(Flow(*stream).read(size, 9999));
    CHECK(Flow(*target).read(size, 9999));

    CHECK(writeText(*target, "itself") == 6);
    OutputStream toItself(target);
    toItself << *target;
    CHECK(readText(*target, 100) == "itself\x0Citself");
}

TEST_CASE("a value that does not arrive or is not taken is an Exception, and the target is empty")
{
    const struct {
        const char* what;
        const char* bytes;
        const char* failure;
    } rows[] = {
        {"no count", "", "orvi::InputStream& operator>>(orvi::InputStream &is,uint8_t &i)"},
        {"negative count", "01 61", "TyIs& operator >>(TyIs &, Buffer &)"},
        {"missing bytes", "06 61 62", "TyIs& operator >>(TyIs &, Buffer &)"},
        {"a count of 2 GiB", "FE FF FF FF 0F 61", "TyIs& operator >>(TyIs &, Buffer &)"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
        CHECK(writeText(*stream, "old") == 3);
        InputStream input(ByteIO::create(bytesOf(row.bytes)));
        CHECK(failureOf([&] { input >> *stream; }) == row.failure);
        CHECK(stream->available() == 0);
    }

    class Full : public ByteIO {
    public:
        Full()
            : ByteIO({})
        {}
        int write(const void* data, int size) override
        {
            return bytes.empty() ? ByteIO::write(data, size) : size - 1;
        }
    };
    const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
    CHECK(writeText(*stream, "abc") == 3);
    OutputStream output(Handle_T<Full>(new Full));
    CHECK(failureOf([&] { output << *stream; }) == "TyOs& operator <<(TyOs &, const Buffer &)");
    CHECK(stream->available() == 3);
}

TEST_CASE("a MemoryBlock keeps to its size")
{
    orvi::MemoryBlock<8> block;
    char bytes[8] = {};
    CHECK(block.write("12345", 5) == 5);
    CHECK(block.write("6789", 4) == 3);
    CHECK(block.write("x", 1) == -1);
    CHECK(block.write("x", 0) == 0);
    CHECK(block.read(bytes, 1) == 0);
    block.setPosition(-3);
    CHECK(block.getPosition() == 0);
    CHECK(block.read(bytes, -1) == 0);
    CHECK(block.read(bytes, 100) == 8);
    CHECK(std::string(bytes, 8) == "12345678");
    block.setPosition(100);
    CHECK(block.getPosition() == 8);
}
