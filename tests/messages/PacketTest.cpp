#include "TextPrinting.h"

#include "FaultyIO.h"
#include "RecordingLog.h"

#include <orvi/core/Core.h>

#include <string>

using orvi::Exception;
using orvi::Handle_T;
using orvi::InputStream;
using orvi::PacketReader;
using orvi::PacketWriter;
using orvi::String;

namespace {

InputStream streamOf(const std::string& bytes) { return InputStream(ByteIO::create(bytes)); }

/** What the next packet holds; "(none)" when none is there, "(refused)" when the reader says so. */
std::string next(PacketReader& reader)
{
    InputStream packet = streamOf("old");
    if (!reader.read(packet))
        return "(refused)";
    if (packet.isNull())
        return "(none)";
    std::string text(static_cast<std::size_t>(packet.available()), '\0');
    CHECK(packet.read(text.data(), packet.available()) == static_cast<int>(text.size()));
    return text;
}

template <class Action>
String failureOf(Action action)
{
    try {
        action();
    } catch (const Exception& exception) {
        return exception.description()[0] != 0 ? exception.description() : L"(empty)";
    }
    return L"none";
}

} // namespace

TEST_CASE("packets come back one at a time, and empty ones are passed over")
{
    const Handle_T<ByteIO> bytes = ByteIO::create();
    PacketWriter writer;
    CHECK(writer.attach(bytes));
    InputStream packet = streamOf("abc");
    CHECK(&(writer << packet) == &writer);
    CHECK(packet.available() == 0);
    CHECK(writer.write(packet)); // nothing left: an empty one
    writer << (packet = streamOf("d"));
    CHECK(hexOf(bytes->bytes) == "03 00 00 00 61 62 63 00 00 00 00 01 00 00 00 64");

    PacketReader reader;
    CHECK(reader.attach(bytes));
    CHECK(next(reader) == "abc");
    CHECK(bytes->available() == 9);
    CHECK(next(reader) == "(none)");
    CHECK(next(reader) == "d");
    CHECK(next(reader) == "(none)");
}

TEST_CASE("a packet comes through a source that delivers byte by byte")
{
    const Handle_T<FaultyIO> slow = FaultyIO::create(bytesOf("03 00 00 00 61 62 63"));
    slow->piece = 1;
    slow->emptyAnswers = 1; // nothing, a byte, nothing, a byte
    PacketReader reader;
    reader.attach(slow);
    for (int i = 0; i < 7; ++i)
        CHECK(next(reader) == "(none)");
    CHECK(next(reader) == "abc");
}

TEST_CASE("large packets come back equal")
{
    std::string text;
    for (int i = 0; i < 300000; ++i)
        text += static_cast<char>(i * 7 + (i >> 8));
    for (const std::size_t size : {4095U, 4096U, 4097U, 300000U}) {
        CAPTURE(size);
        const Handle_T<orvi::MemoryStream> wire = orvi::MemoryStream::createInstance();
        PacketWriter writer;
        writer.attach(wire);
        InputStream packet = streamOf(text.substr(0, size));
        writer << packet;
        PacketReader reader;
        reader.attach(wire);
        const bool isEqual = next(reader) == text.substr(0, size); // too long to be shown
        CHECK(isEqual);
        CHECK(wire->available() == 0);
    }
}

TEST_CASE("a negative length is refused and one that is a lie takes no memory")
{
    PacketReader reader;
    const Handle_T<ByteIO> bytes =
        ByteIO::create(bytesOf("FF FF FF FF 00 00 00 80 01 00 00 00 61 FF FF FF 7F 61"));
    reader.attach(bytes);
    CHECK(next(reader) == "(refused)");
    InputStream packet;
    CHECK(failureOf([&] { reader >> packet; }) == L"Invalid packet size");
    CHECK(next(reader) == "a"); // goes on with the next four bytes
    CHECK(next(reader) == "(none)");
    CHECK(next(reader) == "(none)");
    CHECK(bytes->available() == 0);
}

TEST_CASE("a source may fail at every byte, and the packet goes on when it has recovered")
{
    for (int bytes = 0; bytes < 7; ++bytes) {
        CAPTURE(bytes);
        const Handle_T<FaultyIO> source = FaultyIO::create(bytesOf("03 00 00 00 61 62 63"));
        source->readsUntil = bytes;
        PacketReader reader;
        reader.attach(source);
        CHECK(next(reader) == (bytes == 0 ? "(none)" : "(refused)")); // between packets nothing is lost
        InputStream packet;
        CHECK(failureOf([&] { reader >> packet; }) == (bytes == 0 ? L"none" : L"(empty)"));
        source->readsUntil = noLimit;
        CHECK(next(reader) == "abc");
    }
}

TEST_CASE("another input goes on with the packet under way, unless the first was detached")
{
    PacketReader reader;
    reader.attach(ByteIO::create(bytesOf("03 00 00 00 61")));
    CHECK(next(reader) == "(none)");
    reader.attach(ByteIO::create("bc"));
    CHECK(next(reader) == "abc");

    for (const char* begun : {"03 00", "03 00 00 00 61"}) {
        CAPTURE(begun);
        reader.attach(ByteIO::create(bytesOf(begun)));
        CHECK(next(reader) == "(none)");
        CHECK_FALSE(reader.detach().isNull());
        CHECK(reader.isNull());
        reader.attach(ByteIO::create(bytesOf("01 00 00 00 62")));
        CHECK(next(reader) == "b");
    }
}

TEST_CASE("an output that refuses bytes fails the packet")
{
    const struct {
        int room;
        const wchar_t* failure;
    } rows[] = {
        {3, L"orvi::OutputStream& operator<<(orvi::OutputStream &os, const int32_t &i)"},
        {6, L"OutputStream& operator <<(OutputStream &,InputStream &)"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.room);
        const Handle_T<FaultyIO> output = FaultyIO::create();
        output->room = row.room;
        PacketWriter writer;
        writer.attach(output);
        const RecordingLog log;
        InputStream packet = streamOf("abc");
        CHECK_FALSE(writer.write(packet));
        CHECK(log.count(RecordingLog::Level::Error, row.failure) == 1);
        output->bytes.clear();
        packet = streamOf("abc");
        CHECK(failureOf([&] { writer << packet; }) == row.failure);
    }
}
