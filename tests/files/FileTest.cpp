#include "ByteIO.h"
#include "ChildProcess.h"
#include "RecordingLog.h"
#include "TempDirectory.h"
#include "TextPrinting.h"

#include <orvi/core/App.h>
#include <orvi/core/File.h>
#include <orvi/core/FileMutex.h>
#include <orvi/core/Time.h>

#include <fcntl.h>
#include <limits>
#include <random>
#include <sys/resource.h>
#include <sys/stat.h>

using namespace orvi;

namespace {

constexpr int maxInt = std::numeric_limits<int>::max();
using Texts = std::vector<String>;

Handle_T<File> openFile(const String& name, int flags, int mode = File::permitRead | File::permitWrite)
{
    const Handle_T<File> file = File::createInstance();
    REQUIRE(file->open(name, flags, mode));
    return file;
}

} // namespace

TEST_CASE("a file has a name while it is open, and without a word gives -1 when it is closed")
{
    const TempDirectory directory;
    const String name = directory.name("Журнал 日本.bin");
    const RecordingLog log;
    const Handle_T<File> file = openFile(name, File::readWrite | File::create);
    CHECK(file->getFileName() == name);
    CHECK(file->write(nullptr, 1) == 0); // from nowhere
    CHECK((file->read(nullptr, 1) == 0 && file->write("x", -1) == 0 && file->write(nullptr, 0) == 0));
    CHECK(log.errors() == Texts{L"Write file error! errno(22) EINVAL: Invalid argument. File:" + name});
    CHECK(put(*file, "hello world") == 11);
    file->close();
    file->close();
    CHECK(directory.read("Журнал 日本.bin") == "hello world");
    CHECK((file->isInvalid() && file->getFileName().isEmpty() && !file->eof()));
    char byte = 0;
    for (const int result :
         {file->available(), file->peek(&byte, 1), file->read(&byte, 1), file->write(&byte, 1),
          file->getArchiveSize(), file->getPosition(), file->setPosition(0)})
        CHECK(result == -1);
    CHECK(log.lines().size() == 1);
}

TEST_CASE("what does not open says why and leaves the file closed")
{
    const TempDirectory directory;
    directory.write("there");
    const String there = directory.name("there");
    const auto check = [&](const String& name, int flags, const String& reason) {
        CAPTURE(name);
        const Handle_T<File> file = openFile(there, File::readOnly);
        const RecordingLog log;
        CHECK((!file->open(name, flags, 0) && file->isInvalid() && file->getFileName().isEmpty()));
        const Texts errors(reason.isEmpty() ? 0 : 1, L"Open file error! " + reason + L" File:" + name);
        CHECK(log.errors() == errors);
    };
    check(L"", File::readOnly, L"");
    check(directory.name("missing"), File::readOnly, L"ENOENT: No such file or directory.");
    check(there, File::readWrite | File::create | File::exclusive, L"EEXIST: File exists.");
    check(directory.name("."), File::readOnly, L"EISDIR: Is a directory.");
    check(there, 3, L"EINVAL: Invalid argument.");
    check(there, File::truncate, L"EINVAL: Invalid argument."); // only to read
    CHECK(directory.read("there") == "x");
}

TEST_CASE("flags choose directions, and what becomes of a file that exists")
{
    const TempDirectory directory;
    const RecordingLog log;
    // What it reads, how much of "XY" it writes then, and what there is in the end.
    const auto check = [&](int flags, const std::string& read, int written, const std::string& left) {
        CAPTURE(flags);
        directory.write("file", "abcd");
        const Handle_T<File> file = openFile(directory.name("file"), flags);
        CHECK((take(*file, 10) == read && put(*file, "XY") == written));
        file->close();
        CHECK(directory.read("file") == left);
    };
    check(File::readOnly, "abcd", 0, "abcd");
    check(File::writeOnly, "", 2, "XYcd");
    check(File::readWrite | File::create, "abcd", 2, "abcdXY");
    check(File::readWrite | File::truncate, "", 2, "XY");
    check(File::readWrite | File::append, "abcd", 2, "abcdXY");
    check(File::writeOnly | File::append, "", 2, "abcdXY");
    check(File::append, "abcd", 0, "abcd");
    check(File::readWrite | 4, "abcd", 0, "abcd"); // an unknown bit among the low ones
    check(File::writeOnly | 4, "", 0, "abcd");
    check(File::readWrite | 0xF0F0, "abcd", 2, "abcdXY"); // text, binary and other bits
    CHECK(log.lines().empty());
}

TEST_CASE("the mode gives permissions to a new file, under the mask of the process")
{
    const TempDirectory directory;
    const mode_t before = umask(027);
    const int expected[] = {0, 0440, 0200, 0640};
    for (int mode = 0; mode < 4; ++mode) {
        const std::string name = std::to_string(mode);
        openFile(directory.name(name.c_str()), File::writeOnly | File::create, mode);
        CHECK(std::filesystem::status(directory.path() / name).permissions() ==
              std::filesystem::perms(expected[mode]));
    }
    umask(before);
}

TEST_CASE("a file agrees with a plain array, whatever the order and the sizes")
{
    const TempDirectory directory;
    for (unsigned int round = 0; round < 40; ++round) {
        std::mt19937 random(round);
        const int append = round % 2 != 0 ? File::append : 0;
        const Handle_T<File> file =
            openFile(directory.name("file"), File::readWrite | File::create | File::truncate | append);
        std::string model;
        std::size_t position = 0;
        for (int step = 0; step < 300; ++step) {
            CAPTURE(round);
            CAPTURE(step);
            const std::string bytes(random() % (step % 3 == 0 ? 10000 : 100) + 1,
                                    static_cast<char>('a' + step % 26));
            const int size = static_cast<int>(bytes.size());
            const std::string next = model.substr(std::min(position, model.size()), bytes.size());
            const auto kind = random() % 5;
            if (kind == 0) {
                REQUIRE((take(*file, size) == next && file->eof() == (next.size() < bytes.size())));
                position += next.size();
            } else if (kind == 1) {
                REQUIRE(look(*file, size) == next);
                REQUIRE_FALSE(file->eof());
            } else if (kind == 2) {
                position = random() % (model.size() + 50);
                REQUIRE(file->setPosition(static_cast<int>(position)) == static_cast<int>(position));
            } else {
                REQUIRE(put(*file, bytes) == size);
                position = append != 0 ? model.size() : position;
                model.resize(std::max(model.size(), position + bytes.size()));
                model.replace(position, bytes.size(), bytes);
                position += bytes.size();
            }
            REQUIRE(file->getPosition() == static_cast<int>(position));
            REQUIRE(file->getArchiveSize() == static_cast<int>(model.size()));
            REQUIRE(file->available() == static_cast<int>(model.size()) - static_cast<int>(position));
        }
        file->close();
        CHECK(directory.read("file") == model);
    }
}

TEST_CASE("bytes that others append are seen at the end")
{
    const TempDirectory directory;
    const String name = directory.name("log");
    const Handle_T<File> writer = openFile(name, File::writeOnly | File::create | File::append);
    const Handle_T<File> reader = openFile(name, File::readOnly);
    CHECK(put(*writer, "one\n") == 4);
    CHECK(put(*openFile(name, File::writeOnly | File::append), "two\n") == 4);
    CHECK((take(*reader, 100) == "two\n" && writer->getArchiveSize() == 8));
    writer->close();
    CHECK((reader->available() == 4 && take(*reader, 100) == "one\n"));
}

TEST_CASE("sizes and positions beyond an int are failures, never other numbers")
{
    const TempDirectory directory;
    const String name = directory.name("big");
    const RecordingLog log;
    const Handle_T<File> file = openFile(name, File::readWrite | File::create);
    CHECK(file->setPosition(maxInt - 5) == maxInt - 5);
    CHECK((put(*file, "1234567890") == 5 && errno == EFBIG));
    CHECK(put(*file, std::string(10000, 'x')) == 0);
    CHECK((file->getPosition() == maxInt && file->getArchiveSize() == maxInt));
    CHECK(file->setPosition(-1) == -1);
    file->close();
    CHECK(getFileSize(name) == maxInt);

    std::filesystem::resize_file(directory / "big", 0x80000000);
    REQUIRE(file->open(name, File::readWrite, 0));
    CHECK(file->getArchiveSize() == -1);
    CHECK(log.errors() == Texts{L"Set file position(-1,0) error! EINVAL: Invalid argument. File:" + name,
                                L"Get file position error! EFBIG: File too large. File:" + name});
    CHECK((file->available() == -1 && file->setPosition(maxInt - 1) == maxInt - 1));
    CHECK((take(*file, 10).size() == 1 && !file->eof()));
    CHECK(put(*openFile(name, File::writeOnly | File::append), "x") == 0);

    int size = 0;
    Time created, modified;
    CHECK((isFileExists(name) && getFileSize(name) == -1));
    CHECK((!getFileInfo(name, size, created, modified) && size == -1));
}

TEST_CASE("a limit on the size of files cuts a write short, loses nothing in front and sends no signal")
{
    const TempDirectory directory;
    const RecordingLog log;
    const Handle_T<File> file = openFile(directory.name("file"), File::readWrite | File::create);
    const std::string direct(9000, 'a'), buffered = std::string(1000, 'b') + std::string(1000, 'c');
    rlimit before{};
    REQUIRE(getrlimit(RLIMIT_FSIZE, &before) == 0);
    const rlimit small{10000, before.rlim_max};
    REQUIRE(setrlimit(RLIMIT_FSIZE, &small) == 0);
    CHECK(put(*file, direct) == 9000);
    CHECK((put(*file, buffered) == 2000 && file->setPosition(0) == -1));
    CHECK(setrlimit(RLIMIT_FSIZE, &before) == 0);
    CHECK(file->setPosition(0) == 0); // the limit is gone: what waited gets its second try
    CHECK(directory.read("file") == direct + buffered);

    const Handle_T<File> full = openFile(L"/dev/full", File::writeOnly);
    CHECK((put(*full, "waits") == 5 && put(*full, std::string(20000, 'x')) < 20000));
    full->close();
    CHECK(full->isInvalid());
    CHECK(log.errors() ==
          Texts{L"Set file position(0,0) error! EFBIG: File too large. File:" + file->getFileName(),
                L"Close file error! ENOSPC: No space left on device. File:/dev/full"});
}

TEST_CASE("with the standard streams closed no file gets their numbers, and what is printed goes into none")
{
    const TempDirectory directory;
    for (const auto& closed : std::initializer_list<std::vector<int>>{{0}, {1}, {2}, {1, 2}, {0, 1, 2}}) {
        CHECK(succeedsInChild([&] {
            for (const int stream : closed)
                close(stream);
            const auto areFree = [&] {
                return std::all_of(closed.begin(), closed.end(),
                                   [](int stream) { return fcntl(stream, F_GETFD) < 0; });
            };
            const Handle_T<File> file = openFile(directory.name("file"), File::readWrite | File::create);
            const Handle_T<TempFile> temporary = TempFile::createTempFile();
            const auto mutex = FileMutex::createInstance(directory.name("mutex"));
            REQUIRE(mutex->lock(0));
            REQUIRE(areFree());
            setUpApp(L"twice", [](auto...) { return Handle_T<AppBox>(); });
            REQUIRE_FALSE(setUpApp(L"twice", nullptr));
            REQUIRE(put(*file, "whole") == 5);
            file->close();
            REQUIRE(areFree());
        }));
        CHECK(directory.read("file") == "whole");
    }
}

TEST_CASE("a pipe opens and is read without waiting, and has no position")
{
    const TempDirectory directory;
    REQUIRE(mkfifo((directory / "pipe").c_str(), 0600) == 0);
    const String name = directory.name("pipe");
    CHECK_FALSE(File::createInstance()->open(name, File::writeOnly, 0)); // nobody reads
    Handle_T<File> reader = openFile(name, File::readOnly);
    const Handle_T<File> writer = openFile(name, File::writeOnly);
    const RecordingLog log;
    CHECK((take(*reader, 1).empty() && !reader->eof()));
    CHECK(put(*writer, "hello") == 5);
    CHECK((take(*reader, 2) == "he" && take(*reader, 100) == "llo"));
    const int room = put(*writer, std::string(1000000, 'x'));
    CHECK((room > 0 && room < 1000000));
    CHECK(log.lines().empty());
    char byte = 0;
    for (const int result : {reader->getPosition(), reader->getArchiveSize(), reader->available(),
                             reader->peek(&byte, 1), reader->setPosition(0)})
        CHECK(result == -1);
    CHECK(log.count(RecordingLog::Level::Error, L"position error! ESPIPE: Invalid seek.") == 4);
    CHECK(log.lines().size() == 5);

    reader.setNull();
    CHECK((put(*writer, "x") == 0 && errno == EPIPE)); // no signal ends the process
}

TEST_CASE("a TempFile takes its file along, unless it was closed")
{
    const RecordingLog log;
    Handle_T<TempFile> file = TempFile::createTempFile();
    const String name = file->getFileName();
    CHECK(put(*file, "abc") == 3);
    CHECK(succeedsInChild([&] { file.setNull(); }));
    CHECK(isFileExists(name)); // it is the parent's
    file.setNull();
    CHECK_FALSE(isFileExists(name));

    file = TempFile::createTempFile();
    const String kept = file->getFileName();
    file->close();
    file.setNull();
    CHECK(std::remove(StringHelper::wideToUtf8(kept)) == 0);
    CHECK(log.lines().empty());

    CHECK(succeedsInChild([&] {
        setenv("TMPDIR", "/no/such/directory", 1);
        REQUIRE(TempFile::createTempFile().isNull());
        REQUIRE((log.errors().size() == 2 && log.errors()[1] == L"Create temp file error!"));
    }));
}

TEST_CASE("questions about a path")
{
    const TempDirectory directory;
    const long long before = orvi::time(nullptr);
    directory.write("file", "12345");
    const RecordingLog log;
    int size = 0;
    Time created, modified;
    CHECK(isFileExists(directory.name("")));
    CHECK((getFileInfo(directory.name("file"), size, created, modified) && size == 5));
    for (const Time& time : {created, modified}) // the clock of the file system is a coarse one
        CHECK((time.getValue() >= before - 2 && time.getValue() <= orvi::time(nullptr)));
    for (const String& missing : {directory.name("missing"), String()}) {
        CHECK((!isFileExists(missing) && !getFileInfo(missing, size, created, modified) && size == -1));
        CHECK((created.getValue() == getTimeBias() && modified.getValue() == getTimeBias()));
    }
    CHECK(log.lines().empty());
    CHECK(getFileSize(nullptr) == -1);
    CHECK(log.errors() == Texts{L"  No such file or directory"});
}

TEST_CASE("the text of an error follows its meaning")
{
    const auto textOf = [](int error) {
        errno = error;
        return String(File::getLastError());
    };
    CHECK(textOf(0).isEmpty());
    CHECK(textOf(26) == L"UNKNOWN: Unknown error(26).");
    CHECK(textOf(EDEADLK) == L"EDEADLK: Resource deadlock would occur."); // the first whose number differs
    CHECK(textOf(EILSEQ) == L"EILSEQ: Illegal byte sequence.");
    CHECK(textOf(80) == L"STRUNCATE: String was truncated");
    for (const int unknown : {ELOOP, -1, 100000})
        CHECK(textOf(unknown) == L"UNKNOWN: Unknown error");
}
