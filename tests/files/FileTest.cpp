#include "RecordingLog.h"
#include "TempDirectory.h"
#include "TextPrinting.h"

#include <orvi/core/App.h>
#include <orvi/core/File.h>
#include <orvi/core/FileMutex.h>
#include <orvi/core/MemoryStream.h>
#include <orvi/core/Time.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using orvi::File;
using orvi::Handle_T;
using orvi::String;
using orvi::TempFile;
using orvi::Time;

namespace {

constexpr int maxInt = std::numeric_limits<int>::max();
constexpr int all = File::permitRead | File::permitWrite;

void writeWhole(const std::filesystem::path& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string readWhole(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string readUpTo(File& file, int size)
{
    std::string bytes(static_cast<std::size_t>(size), '\0');
    bytes.resize(static_cast<std::size_t>(std::max(file.read(bytes.data(), size), 0)));
    return bytes;
}

int writeText(File& file, const std::string& bytes)
{
    return file.write(bytes.data(), static_cast<int>(bytes.size()));
}

Handle_T<File> openFile(const String& name, int flags)
{
    const Handle_T<File> file = File::createInstance();
    REQUIRE(file->open(name, flags, all));
    return file;
}

/** The descriptor behind an open file; -1 when there is none. */
int descriptorOf(const std::filesystem::path& path)
{
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        if (std::filesystem::read_symlink(entry.path(), error) == path)
            return std::stoi(entry.path().filename().string());
    }
    return -1;
}

} // namespace

TEST_CASE("what is written can be read back, by the same object and by others")
{
    const TempDirectory directory;
    const String name = directory.name("Журнал 日本.bin");
    const RecordingLog log;
    const Handle_T<File> file = openFile(name, File::readWrite | File::create);
    CHECK(file->getFileName() == name);
    CHECK(writeText(*file, "hello world") == 11);
    CHECK(file->getArchiveSize() == 11);
    CHECK(file->available() == 0);
    CHECK(file->setPosition(6) == 6);
    char peeked[5];
    CHECK(file->peek(peeked, 5) == 5);
    CHECK(std::string(peeked, 5) == "world");
    CHECK(file->getPosition() == 6);
    CHECK(file->available() == 5);
    CHECK_FALSE(file->eof());
    CHECK(readUpTo(*file, 100) == "world");
    CHECK(file->eof());
    CHECK(file->read(peeked, 5) == 0);
    CHECK(file->setPosition(20) == 20);
    CHECK_FALSE(file->eof());
    CHECK(file->available() == -9);
    CHECK(file->read(peeked, 5) == 0);
    file->close();
    file->close();
    CHECK(file->isInvalid());
    CHECK(file->getFileName().isEmpty());
    CHECK(readWhole(directory / "Журнал 日本.bin") == "hello world");
    CHECK(log.lines().empty());
}

TEST_CASE("a closed file gives -1 without a word")
{
    const RecordingLog log;
    const Handle_T<File> file = File::createInstance();
    char byte = 0;
    CHECK(file->isInvalid());
    CHECK_FALSE(file->eof());
    CHECK(file->available() == -1);
    CHECK(file->peek(&byte, 1) == -1);
    CHECK(file->read(&byte, 1) == -1);
    CHECK(file->write(&byte, 1) == -1);
    CHECK(file->getArchiveSize() == -1);
    CHECK(file->getPosition() == -1);
    CHECK(file->setPosition(0) == -1);
    CHECK(log.lines().empty());
}

TEST_CASE("what does not open says why and leaves the file closed")
{
    const TempDirectory directory;
    writeWhole(directory / "there", "x");
    const struct {
        const char* what;
        String name;
        int flags;
        const wchar_t* reason;
    } rows[] = {
        {"empty name", L"", File::readOnly, nullptr},
        {"missing", directory.name("missing"), File::readOnly, L"ENOENT: No such file or directory."},
        {"exclusive", directory.name("there"), File::readWrite | File::create | File::exclusive,
         L"EEXIST: File exists."},
        {"a directory", directory.name("."), File::readOnly, L"EISDIR: Is a directory."},
        {"a file as directory", directory.name("there/x"), File::readOnly, L"ENOTDIR: Not a directory."},
        {"no such access", directory.name("there"), 3, L"EINVAL: Invalid argument."},
        {"truncate to read", directory.name("there"), File::truncate, L"EINVAL: Invalid argument."},
        {"long name", directory.name(std::string(300, 'x').c_str()), File::readOnly,
         L"ENAMETOOLONG: Filename too long."},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        const Handle_T<File> file = openFile(directory.name("there"), File::readOnly);
        const RecordingLog log;
        CHECK_FALSE(file->open(row.name, row.flags, all));
        CHECK(file->isInvalid());
        CHECK(file->getFileName().isEmpty());
        if (row.reason == nullptr) {
            CHECK(log.lines().empty());
        } else {
            REQUIRE(log.lines().size() == 1);
            CHECK(log.errors()[0] == String(L"Open file error! ") + row.reason + L" File:" + row.name);
        }
    }
    CHECK(readWhole(directory / "there") == "x");
}

TEST_CASE("flags choose directions, and what becomes of a file that exists")
{
    const TempDirectory directory;
    const struct {
        const char* what;
        int flags;
        std::string read; // at once
        int written;
        std::string left; // after "XY" has been written
    } rows[] = {
        {"read only", File::readOnly, "abcd", 0, "abcd"},
        {"write only", File::writeOnly, "", 2, "XYcd"},
        {"both", File::readWrite, "abcd", 2, "abcdXY"},
        {"both, truncated", File::readWrite | File::truncate, "", 2, "XY"},
        {"create leaves it alone", File::readWrite | File::create, "abcd", 2, "abcdXY"},
        {"append only", File::writeOnly | File::append, "", 2, "abcdXY"},
        {"append and read", File::readWrite | File::append, "abcd", 2, "abcdXY"},
        {"append without writing", File::append, "abcd", 0, "abcd"},
        {"an unknown bit among the low ones", File::readWrite | 4, "abcd", 0, "abcd"},
        {"an unknown bit, and no way to read", File::writeOnly | 4, "", 0, "abcd"},
        {"text, binary and other bits", File::readWrite | 0xF0F0, "abcd", 2, "abcdXY"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        writeWhole(directory / "file", "abcd");
        const RecordingLog log;
        const Handle_T<File> file = openFile(directory.name("file"), row.flags);
        CHECK(readUpTo(*file, 10) == row.read);
        CHECK(writeText(*file, "XY") == row.written);
        file->close();
        CHECK(readWhole(directory / "file") == row.left);
        CHECK(log.lines().empty());
    }
}

TEST_CASE("the mode gives permissions to a new file, under the mask of the process")
{
    const TempDirectory directory;
    const mode_t before = umask(027);
    const mode_t expected[] = {0, 0440, 0200, 0640};
    for (int mode = 0; mode < 4; ++mode) {
        CAPTURE(mode);
        const std::string name = "mode" + std::to_string(mode);
        CHECK(
            File::createInstance()->open(directory.name(name.c_str()), File::readWrite | File::create, mode));
        struct stat status {};
        REQUIRE(stat((directory / name.c_str()).c_str(), &status) == 0);
        CHECK((status.st_mode & 0777) == expected[mode]);
    }
    umask(before);
}

TEST_CASE("a file agrees with a plain array, whatever the order and the sizes")
{
    const TempDirectory directory;
    for (const bool append : {false, true}) {
        for (unsigned int seed = 0; seed < 20; ++seed) {
            CAPTURE(append);
            CAPTURE(seed);
            std::mt19937 random(seed);
            const auto upTo = [&](std::size_t limit) { return static_cast<int>(random() % (limit + 1)); };
            const int flags = File::readWrite | File::create | File::truncate | (append ? File::append : 0);
            const Handle_T<File> file = openFile(directory.name("file"), flags);
            std::string model;
            std::size_t position = 0;
            bool agrees = true;
            for (int step = 0; step < 300 && agrees; ++step) {
                const int size = random() % 3 == 0 ? upTo(10000) : upTo(100);
                const std::size_t left = position < model.size() ? model.size() - position : 0;
                const std::string next =
                    model.substr(std::min(position, model.size()), static_cast<std::size_t>(size));
                std::string bytes(static_cast<std::size_t>(size), static_cast<char>('a' + step % 26));
                switch (random() % 5) {
                case 0:
                    agrees = readUpTo(*file, size) == next &&
                             (size == 0 || file->eof() == (static_cast<std::size_t>(size) > left));
                    position += next.size();
                    break;
                case 1:
                    bytes.resize(static_cast<std::size_t>(file->peek(bytes.data(), size)));
                    agrees = bytes == next && !file->eof();
                    break;
                case 2:
                    position = static_cast<std::size_t>(upTo(model.size() + 50));
                    agrees = file->setPosition(static_cast<int>(position)) == static_cast<int>(position);
                    break;
                default:
                    if (size == 0)
                        break;
                    if (append)
                        position = model.size();
                    if (position + bytes.size() > model.size())
                        model.resize(position + bytes.size(), '\0');
                    model.replace(position, bytes.size(), bytes);
                    position += bytes.size();
                    agrees = writeText(*file, bytes) == size;
                    break;
                }
                agrees = agrees && file->getPosition() == static_cast<int>(position) &&
                         file->getArchiveSize() == static_cast<int>(model.size()) &&
                         file->available() == static_cast<int>(model.size()) - static_cast<int>(position);
                CAPTURE(step);
                REQUIRE(agrees);
            }
            file->close();
            CHECK(readWhole(directory / "file") == model);
        }
    }
}

TEST_CASE("bytes that others append are seen at the end")
{
    const TempDirectory directory;
    const Handle_T<File> writer =
        openFile(directory.name("log"), File::writeOnly | File::create | File::append);
    const Handle_T<File> reader = openFile(directory.name("log"), File::readOnly);
    const Handle_T<File> other = openFile(directory.name("log"), File::writeOnly | File::append);
    CHECK(writeText(*writer, "one\n") == 4);
    writer->close();
    CHECK(readUpTo(*reader, 100) == "one\n");
    CHECK(writeText(*other, "two\n") == 4);
    CHECK(other->getPosition() == 8);
    other->close();
    CHECK(reader->available() == 4);
    CHECK(readUpTo(*reader, 100) == "two\n");
}

TEST_CASE("sizes and positions beyond an int are failures, never other numbers")
{
    const TempDirectory directory;
    const RecordingLog log;
    const Handle_T<File> file = openFile(directory.name("big"), File::readWrite | File::create);
    CHECK(file->setPosition(maxInt - 5) == maxInt - 5);
    CHECK(writeText(*file, "1234567890") == 5);
    CHECK(errno == EFBIG);
    CHECK(writeText(*file, std::string(10000, 'x')) == 0);
    CHECK(file->getPosition() == maxInt);
    CHECK(file->getArchiveSize() == maxInt);
    CHECK(file->setPosition(-1) == -1);
    CHECK(log.errors() ==
          std::vector<String>{L"Set file position(-1,0) error! EINVAL: Invalid argument. File:" +
                              file->getFileName()});
    file->close();
    CHECK(orvi::getFileSize(directory.name("big")) == maxInt);

    const String name = directory.name("big");
    REQUIRE(truncate((directory / "big").c_str(), 0x80000000) == 0);
    log.clear();
    const Handle_T<File> bigger = openFile(name, File::readWrite);
    CHECK(bigger->getArchiveSize() == -1);
    CHECK(log.errors() == std::vector<String>{L"Get file position error! EFBIG: File too large. File:" +
                                              bigger->getFileName()});
    CHECK(bigger->available() == -1);
    CHECK(readUpTo(*bigger, 1).size() == 1);
    CHECK(bigger->setPosition(maxInt - 1) == maxInt - 1);
    CHECK(readUpTo(*bigger, 10).size() == 1);
    CHECK_FALSE(bigger->eof());
    const Handle_T<File> appender = openFile(name, File::writeOnly | File::append);
    CHECK(writeText(*appender, "x") == 0);

    log.clear();
    int size = 0;
    Time created, modified;
    CHECK(orvi::getFileSize(name) == -1);
    CHECK(log.count(RecordingLog::Level::Error, L"  ") == 1);
    CHECK(orvi::isFileExists(name));
    CHECK_FALSE(orvi::getFileInfo(name, size, created, modified));
    CHECK(size == -1);
}

TEST_CASE("a full disc shows when the buffer goes there")
{
    const RecordingLog log;
    const Handle_T<File> file = openFile(L"/dev/full", File::writeOnly);
    CHECK(writeText(*file, "waits") == 5);
    CHECK(writeText(*file, std::string(20000, 'x')) < 20000);
    CHECK(errno == ENOSPC);
    CHECK(file->setPosition(0) == -1);
    file->close();
    CHECK(file->isInvalid());
    CHECK(
        log.errors() ==
        std::vector<String>{L"Set file position(0,0) error! ENOSPC: No space left on device. File:/dev/full",
                            L"Close file error! ENOSPC: No space left on device. File:/dev/full"});
}

TEST_CASE("a limit on the size of files cuts a write short, loses nothing in front and sends no signal")
{
    const TempDirectory directory;
    rlimit before{};
    REQUIRE(getrlimit(RLIMIT_FSIZE, &before) == 0);
    const rlimit small{10000, before.rlim_max};
    REQUIRE(setrlimit(RLIMIT_FSIZE, &small) == 0);
    const Handle_T<File> file = openFile(directory.name("file"), File::readWrite | File::create);
    const int direct = writeText(*file, std::string(9000, 'a'));
    const int buffered = writeText(*file, std::string(2000, 'b'));
    const int position = file->setPosition(0);
    CHECK(setrlimit(RLIMIT_FSIZE, &before) == 0);
    CHECK(direct == 9000);
    CHECK(buffered == 2000);
    CHECK(position == -1);
    CHECK(file->setPosition(0) == 0); // the limit is gone: what waited gets its second try
    file->close();
    CHECK(readWhole(directory / "file") == std::string(9000, 'a') + std::string(2000, 'b'));
}

TEST_CASE("a descriptor that somebody closes is a failure")
{
    const TempDirectory directory;
    const RecordingLog log;
    const Handle_T<File> file = openFile(directory.name("file"), File::readWrite | File::create);
    REQUIRE(close(descriptorOf(directory / "file")) == 0);
    char byte = 0;
    CHECK(file->read(&byte, 1) == 0);
    CHECK_FALSE(file->eof());
    CHECK(file->getArchiveSize() == -1);
    CHECK(file->write(&byte, 1) == 1);
    file->close();
    CHECK(log.errors() ==
          std::vector<String>{L"Set file position(0,2) error! EBADF: Bad file number. File:" +
                                  directory.name("file"),
                              L"Close file error! EBADF: Bad file number. File:" + directory.name("file")});
}

TEST_CASE("with the standard streams closed no file gets their numbers, and what is printed goes into none")
{
    const TempDirectory directory;
    for (const int closed : {1, 2, 4, 6, 7}) { // the bits of the streams
        CAPTURE(closed);
        const pid_t child = fork();
        REQUIRE(child >= 0);
        if (child == 0) {
            for (const int stream : {0, 1, 2})
                if ((closed >> stream & 1) != 0)
                    close(stream);
            const auto areFree = [&] {
                bool result = true;
                for (const int stream : {0, 1, 2})
                    result &= (closed >> stream & 1) == 0 || fcntl(stream, F_GETFD) < 0;
                return result;
            };
            const Handle_T<File> file = openFile(directory.name("file"), File::readWrite | File::create);
            const Handle_T<TempFile> temporary = TempFile::createTempFile();
            const auto mutex = orvi::FileMutex::createInstance(directory.name("mutex"));
            const auto stream = orvi::MemoryStream::createInstance();
            const std::vector<char> much(11 << 20);
            bool good = mutex->lock(0) && !temporary.isNull() && areFree();
            good &= stream->write(much.data(), 11 << 20) == 11 << 20 && areFree();
            orvi::setUpApp(L"twice", [](auto...) { return Handle_T<orvi::AppBox>(); });
            good &= !orvi::setUpApp(L"twice", nullptr) && writeText(*file, "whole") == 5;
            file->close();
            _exit(good && areFree() ? 0 : 1);
        }
        int status = -1;
        REQUIRE(waitpid(child, &status, 0) == child);
        CHECK(status == 0);
        CHECK(readWhole(directory / "file") == "whole");
    }
}

TEST_CASE("a transfer from nowhere is refused")
{
    const TempDirectory directory;
    const RecordingLog log;
    const Handle_T<File> file = openFile(directory.name("file"), File::readWrite | File::create);
    CHECK(file->write(nullptr, 1) == 0);
    CHECK(log.errors() == std::vector<String>{L"Write file error! errno(22) EINVAL: Invalid argument. File:" +
                                              directory.name("file")});
    CHECK(file->read(nullptr, 1) == 0);
    CHECK(file->write("x", -1) == 0);
    CHECK(file->write(nullptr, 0) == 0);
    CHECK(file->getArchiveSize() == 0);
    CHECK(log.lines().size() == 1);
}

TEST_CASE("a pipe opens and is read without waiting, and has no position")
{
    const TempDirectory directory;
    REQUIRE(mkfifo((directory / "pipe").c_str(), 0600) == 0);
    const String name = directory.name("pipe");
    const RecordingLog log;
    CHECK_FALSE(File::createInstance()->open(name, File::writeOnly, all)); // nobody reads
    Handle_T<File> reader = openFile(name, File::readOnly);
    const Handle_T<File> writer = openFile(name, File::writeOnly);
    log.clear();
    char byte = 0;
    CHECK(reader->read(&byte, 1) == 0);
    CHECK_FALSE(reader->eof());
    CHECK(writeText(*writer, "hello") == 5);
    CHECK(readUpTo(*reader, 2) == "he");
    CHECK(readUpTo(*reader, 100) == "llo");
    const int room = writeText(*writer, std::string(1000000, 'x'));
    CHECK(room > 0);
    CHECK(room < 1000000);
    CHECK(log.lines().empty());

    CHECK(reader->getPosition() == -1);
    CHECK(reader->getArchiveSize() == -1);
    CHECK(reader->available() == -1);
    CHECK(reader->peek(&byte, 1) == -1);
    CHECK(log.count(RecordingLog::Level::Error, L"Get file position error! ESPIPE: Invalid seek.") == 4);
    CHECK(reader->setPosition(0) == -1);
    CHECK(log.lines().size() == 5);

    reader.setNull();
    CHECK(writeText(*writer, "x") == 0); // no signal ends the process
    CHECK(errno == EPIPE);
}

TEST_CASE("a TempFile takes its file along, unless it was closed")
{
    const RecordingLog log;
    Handle_T<TempFile> file = TempFile::createTempFile();
    REQUIRE_FALSE(file.isNull());
    const String name = file->getFileName();
    CHECK(writeText(*file, "abc") == 3);
    const pid_t child = fork();
    if (child == 0) {
        file.setNull();
        _exit(0);
    }
    CHECK(waitpid(child, nullptr, 0) == child);
    CHECK(orvi::isFileExists(name)); // it is the parent's
    file.setNull();
    CHECK_FALSE(orvi::isFileExists(name));

    file = TempFile::createTempFile();
    const String kept = file->getFileName();
    CHECK(kept != name);
    file->close();
    file.setNull();
    CHECK(orvi::isFileExists(kept));
    CHECK(std::remove(orvi::StringHelper::wideToUtf8(kept)) == 0);
    CHECK(log.lines().empty());
}

TEST_CASE("without a directory for them there is no TempFile")
{
    const char* before = std::getenv("TMPDIR");
    const std::string kept = before != nullptr ? before : "";
    setenv("TMPDIR", "/no/such/directory", 1);
    const RecordingLog log;
    CHECK(TempFile::createTempFile().isNull());
    if (before != nullptr)
        setenv("TMPDIR", kept.c_str(), 1);
    else
        unsetenv("TMPDIR");
    REQUIRE(log.errors().size() == 2);
    CHECK_FALSE(log.errors()[0].isEmpty());
    CHECK(log.errors()[1] == L"Create temp file error!");
}

TEST_CASE("questions about a path")
{
    const TempDirectory directory;
    const RecordingLog log;
    const long long before = orvi::time(nullptr);
    writeWhole(directory / "file", "12345");
    const String name = directory.name("file");
    CHECK(orvi::getFileSize(name) == 5);
    CHECK(orvi::isFileExists(name));
    CHECK(orvi::isFileExists(directory.name("")));
    CHECK_FALSE(orvi::isFileExists(directory.name("missing")));
    CHECK_FALSE(orvi::isFileExists(nullptr));

    int size = 0;
    Time created, modified;
    CHECK(orvi::getFileInfo(name, size, created, modified));
    CHECK(size == 5);
    CHECK(created.getValue() >= before - 2); // the clock of the file system is a coarse one
    CHECK(created.getValue() <= orvi::time(nullptr));
    CHECK(modified.getValue() >= before - 2);
    CHECK_FALSE(orvi::getFileInfo(directory.name("missing"), size, created, modified));
    CHECK(size == -1);
    CHECK(created.getValue() == orvi::getTimeBias());
    CHECK(modified.getValue() == orvi::getTimeBias());
    CHECK(log.lines().empty());

    CHECK(orvi::getFileSize(directory.name("missing")) == -1);
    CHECK(log.errors() == std::vector<String>{L"  No such file or directory"});
}

TEST_CASE("the text of an error follows its meaning")
{
    const struct {
        int error;
        const wchar_t* text;
    } rows[] = {
        {0, L""},
        {EPERM, L"EPERM: Operation not permitted."},
        {EAGAIN, L"EAGAIN: No more processes or not enough memory or maximum nesting level reached."},
        {15, L"UNKNOWN: Unknown error(15)."},
        {26, L"UNKNOWN: Unknown error(26)."},
        {ERANGE, L"ERANGE: Result too large."},
        {EDEADLK, L"EDEADLK: Resource deadlock would occur."},
        {ENAMETOOLONG, L"ENAMETOOLONG: Filename too long."},
        {ENOLCK, L"ENOLCK: No locks available."},
        {ENOSYS, L"ENOSYS: Function not supported."},
        {ENOTEMPTY, L"ENOTEMPTY: Directory not empty."},
        {EILSEQ, L"EILSEQ: Illegal byte sequence."},
        {ELOOP, L"UNKNOWN: Unknown error"},
        {EOVERFLOW, L"UNKNOWN: Unknown error"},
        {80, L"STRUNCATE: String was truncated"},
        {-1, L"UNKNOWN: Unknown error"},
        {100000, L"UNKNOWN: Unknown error"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.error);
        errno = row.error;
        CHECK(String(File::getLastError()) == row.text);
    }
}
