#include "MemorySweep.h"

#include <cstring>
#include <numeric>

using namespace orvi;
using sweep::Seen;

namespace {

void binary(Seen& seen)
{
    const auto bytes = MemoryStream::createInstance(), inner = MemoryStream::createInstance();
    OutputStream out(bytes);
    Buffer block(5), blockBack;
    Seen::must(block.getBufferSize() == 5 && inner->write("inside", 6) == 6);
    std::memcpy(block.getBuffer(), "12345", 5);
    const String wide(L"w\xEF");
    const String longText = sweep::manyTimes(L"long\xE9");
    const String_T<char> utf8("utf8");
    const String_T<unsigned char> ansi(reinterpret_cast<const unsigned char*>("ansi"));
    Seen::must(!wide.isEmpty() && !utf8.isEmpty() && !ansi.isEmpty()); // no empty texts instead
    out << 1 << 2.5 << Varint(300) << Varint64(1LL << 40) << wide << utf8 << ansi << block << *inner
        << Handle_T<MemoryStream>(inner) << Handle_T<Unknown>() << longText;
    InputStream in(bytes);
    int number = 0;
    double real = 0;
    Varint small;
    Varint64 large;
    String text, longBack;
    String_T<char> text8;
    String_T<unsigned char> textA;
    const auto innerBack = MemoryStream::createInstance();
    Handle_T<MemoryStream> object;
    Handle_T<Unknown> none = inner;
    in >> number >> real >> small >> large >> text >> text8 >> textA >> blockBack >> *innerBack >> object >>
        none >> longBack;
    seen << number << real << int(small) << std::int64_t(large) << text << text8;
    seen.made(textA) << (blockBack == block) << innerBack->available() << object->available() << none.isNull()
                     << longBack;
    InputStream rest(innerBack);
    out << rest;
    seen << bytes->available();
}

/** Pushes numbers through and sees that none is missing, whatever failed on the way. */
void queue(Seen& seen, int pages)
{
    const auto stream = MemoryStream::createInstance();
    static int page[1024];
    int written = 0;
    for (int count = sizeof page; count == sizeof page && written < pages * 1024;) {
        std::iota(std::begin(page), std::end(page), written);
        count = stream->write(page, sizeof page);
        written += std::max(count, 0) / 4;
    }
    seen << (stream->available() == written * 4);
    Seen::must(stream->append(*MemoryStream::createInstance()));
    int expected = 0;
    for (int count = 0; (count = stream->read(page, sizeof page)) > 0;) {
        for (int i = 0; i < count / 4; ++i, ++expected) {
            if (page[i] != expected)
                seen << "a number is wrong" << expected;
        }
    }
    seen << (expected == written);
    Seen::must(written == pages * 1024);
    seen << written;
}

void shortQueue(Seen& seen) { queue(seen, 3); }
void spilledQueue(Seen& seen) { queue(seen, 2600); }

void joined(Seen& seen)
{
    const auto a = MemoryStream::createInstance(), b = MemoryStream::createInstance();
    static const char bytes[6000] = "start";
    Seen::must(a->write(bytes, sizeof bytes) == sizeof bytes &&
               b->write(bytes, sizeof bytes) == sizeof bytes);
    const bool appended = a->append(*b);
    seen << a->available() + b->available();
    Seen::must(appended);
    seen << b->available();
    const auto pipe = Pipe::createInstance(a, b);
    const SharedPtr<Mutex> mutex(new Mutex);
    const auto locked = MutexPipe::createInstance(a, mutex, b, mutex);
    Seen::must(pipe->write("abc", 3) == 3 && locked->write("def", 3) == 3);
    char text[10] = "";
    Seen::must(locked->peek(text, 5) == 5 && b->read(text, 6) == 6);
    const auto copy = b->clone();
    Seen::must(!copy.isNull());
    seen << text << pipe->available() << copy->available();
}

void files(Seen& seen)
{
    const auto file = File::createInstance();
    Seen::must(file->open(L"file", File::readWrite | File::create | File::truncate,
                          File::permitRead | File::permitWrite));
    Seen::must(file->write("0123456789", 10) == 10 && file->setPosition(3) == 3);
    char text[20] = "";
    Seen::must(file->peek(text, 2) == 2 && file->read(text, 20) == 7);
    seen << text << file->getArchiveSize() << file->getPosition() << file->eof() << file->getFileName();
    file->close();
    Time created, modified;
    int size = 0;
    const int told = getFileSize(L"file");
    Seen::must(told >= 0 && getFileInfo(L"file", size, created, modified));
    seen << told << size;
    MD5Checksum checksum;
    Seen::must(calcFileMd5(L"file", checksum));
    seen.made(checksum.convertToString());
    String name;
    {
        const auto temporary = TempFile::createTempFile();
        Seen::must(!temporary.isNull() && temporary->write("abc", 3) == 3);
        name = temporary->getFileName();
        const bool exists = isFileExists(name);
        Seen::must(!name.isEmpty() && (exists || Seen::errors == 0)); // memory's "no" has a line in the log
        seen << exists;
    }
    sweep::Allocator::disarm();
    seen << isFileExists(name);
}

void archives(Seen& seen)
{
    const auto file = File::createInstance();
    Seen::must(file->open(L"url", File::writeOnly | File::create, File::permitRead | File::permitWrite));
    Seen::must(file->write("0123456789", 10) == 10);
    file->close();
    for (const wchar_t* url : {L"url", L"memory://name?position=3<<file://url", L"memory://"}) {
        const String name(url);
        Seen::must(!name.isEmpty());
        const auto archive = ArchiveFactory::openArchive(name);
        Seen::must(!archive.isNull());
        MD5Checksum checksum;
        Seen::must(calcArchiveMd5(archive, checksum));
        seen << archive->getArchiveSize() << archive->getPosition();
        seen.made(checksum.convertToString());
    }
}

void memoryFile(Seen& seen)
{
    const auto file = MemoryFile::createInstance();
    static const char bytes[10000] = "start";
    char text[6] = "";
    const int written = file->write(bytes, sizeof bytes);
    seen << (file->getArchiveSize() == std::max(written, 0));
    Seen::must(written == sizeof bytes && file->setPosition(0) == 0 && file->read(text, 5) == 5);
    const Handle_T<MemoryFile> copy = new MemoryFile(*file);
    Seen::must(copy->setPosition(10000) == 10000 && copy->write(bytes, 5000) == 5000);
    seen << text << file->getArchiveSize() << copy->getArchiveSize();
}

void packets(Seen& seen)
{
    const auto wire = MemoryStream::createInstance();
    PacketWriter writer;
    writer.attach(wire);
    for (const int size : {3, 9000, 1}) {
        static const char bytes[9000] = "packet";
        const auto body = MemoryStream::createInstance();
        Seen::must(body->write(bytes, size) == size);
        InputStream packet(body);
        Seen::must(writer.write(packet));
    }
    PacketReader reader;
    reader.attach(wire);
    for (int i = 0; i < 4; ++i) {
        InputStream packet;
        reader >> packet;
        seen << (packet.isNull() ? -1 : packet.available());
    }
}

void directories(Seen& seen)
{
    const String base(L"base/"), below(L"below/it"), path(L"one/two"), one(L"one/");
    Seen::must(!base.isEmpty() && !below.isEmpty() && !path.isEmpty() && !one.isEmpty());
    createDirectory(below, base);
    seen << isFileExists(L"below");
    createDirectory(path, String()); // what could not be made is not there, and nothing else is
    const auto file = File::createInstance();
    Seen::must(
        file->open(L"one/two/f.txt", File::writeOnly | File::create, File::permitRead | File::permitWrite));
    file->close();
    std::vector<String> names;
    scanDirectories(one, names);
    std::list<String> some;
    const wchar_t* extensions[] = {L"txt", nullptr};
    scanFiles(some, one, extensions, true);
    Seen::mustNotHaveLogged();
    seen << some.size() << names.size();
    for (const String& name : names)
        seen.made(name);
    for (const String& name : some)
        seen.made(name);
    const String here = getCurrentDirectory();
    Seen::must(!here.isEmpty() && setCurrentDirectory(here));
    seen.made(getAppName()).made(getAppPath());
}

const sweep::Scenario scenarios[] = {
    {"binary format", binary},
    {"streams: MemoryStream", shortQueue},
    {"streams: MemoryStream that spills", spilledQueue},
    {"streams: append and pipes", joined},
    {"streams: MemoryFile", memoryFile},
    {"files: File", files},
    {"files: directories", directories},
    {"archives", archives},
    {"packets", packets},
};

} // namespace

const std::span<const sweep::Scenario> sweep::streamScenarios = scenarios;
