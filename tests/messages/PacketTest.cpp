#include "TextPrinting.h"

#include "FaultyIO.h"
#include "RecordingLog.h"

#include <orvi/core/Core.h>

#include <string>
#include <vector>

using orvi::Exception;
using orvi::Handle_T;
using orvi::InputStream;
using orvi::MemoryStream;
using orvi::OutputStream;
using orvi::PacketReader;
using orvi::PacketWriter;
using orvi::String;

namespace {

InputStream streamOf(const std::string& bytes)
{
    const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
    stream->write(bytes.data(), static_cast<int>(bytes.size()));
    return InputStream(stream);
}

std::string textOf(InputStream& packet)
{
    std::string text(static_cast<std::size_t>(packet.available()), '\0');
    text.resize(static_cast<std::size_t>(packet.read(text.data(), static_cast<int>(text.size()))));
    return text;
}

template <class Action>
String failureOf(Action action)
{
    try {
        action();
    } catch (const Exception& exception) {
        CHECK(exception.code() == -1);
        CHECK(String(exception.file()).find(L"messages/Packet") >= 0);
        return exception.description()[0] != 0 ? exception.description() : L"(empty)";
    }
    return L"none";
}

} // namespace

TEST_CASE("a packet is its length and its bytes, and is consumed")
{
    const Handle_T<ByteIO> bytes = ByteIO::create();
    PacketWriter writer;
    CHECK(writer.isNull());
    CHECK(writer.attach(bytes));
    InputStream packet = streamOf("abc");
    CHECK(&(writer << packet) == &writer);
    CHECK(packet.available() == 0);
    CHECK(writer.write(packet)); // nothing left: an empty one
    CHECK(hexOf(bytes->bytes) == "03 00 00 00 61 62 63 00 00 00 00");
    CHECK(static_cast<orvi::Output*>(writer.detach()) == static_cast<orvi::Output*>(bytes));
    CHECK(writer.isNull());
}

TEST_CASE("packets come one at a time, and empty ones are passed over")
{
    const Handle_T<ByteIO> bytes = ByteIO::create(bytesOf("00 00 00 00 02 00 00 00 61 62 01 00 00 00 63"));
    PacketReader reader;
    CHECK(reader.isNull());
    CHECK(reader.attach(bytes));
    InputStream packet = streamOf("old");
    CHECK(reader.read(packet));
    CHECK(packet.isNull());
    CHECK(reader.read(packet));
    CHECK(textOf(packet) == "ab");
    CHECK(hexOf(bytes->unread()) == "01 00 00 00 63");
    reader >> packet;
    CHECK(textOf(packet) == "c");
    CHECK(reader.read(packet));
    CHECK(packet.isNull());
}

TEST_CASE("a packet comes through a source that delivers byte by byte")
{
    const Handle_T<FaultyIO> slow = FaultyIO::create(bytesOf("03 00 00 00 61 62 63"));
    slow->piece = 1;
    slow->emptyAnswers = 1; // nothing, a byte, nothing, a byte
    PacketReader reader;
    reader.attach(slow);
    InputStream packet;
    for (int i = 0; i < 7; ++i) {
        CHECK(reader.read(packet));
        CHECK(packet.isNull());
    }
    CHECK(reader.read(packet));
    CHECK(textOf(packet) == "abc");
}

TEST_CASE("large packets come back equal")
{
    std::string text;
    for (int i = 0; i < 300000; ++i)
        text += static_cast<char>(i * 7 + (i >> 8));
    const Handle_T<MemoryStream> wire = MemoryStream::createInstance();
    PacketWriter writer;
    writer.attach(wire);
    PacketReader reader;
    reader.attach(wire);
    for (const std::size_t size : {1U, 4095U, 4096U, 4097U, 8192U, 300000U}) {
        InputStream packet = streamOf(text.substr(0, size));
        writer << packet;
    }
    for (const std::size_t size : {1U, 4095U, 4096U, 4097U, 8192U, 300000U}) {
        CAPTURE(size);
        InputStream packet;
        REQUIRE(reader.read(packet));
        REQUIRE_FALSE(packet.isNull());
        CHECK(textOf(packet) == text.substr(0, size));
    }
    CHECK(wire->available() == 0);
}

TEST_CASE("a negative length is refused, and reading goes on with the next four bytes")
{
    const Handle_T<ByteIO> bytes = ByteIO::create(bytesOf("FF FF FF FF 00 00 00 80 01 00 00 00 61"));
    PacketReader reader;
    reader.attach(bytes);
    InputStream packet;
    CHECK_FALSE(reader.read(packet));
    CHECK(packet.isNull());
    CHECK(failureOf([&] { reader >> packet; }) == L"Invalid packet size");
    CHECK(reader.read(packet));
    CHECK(textOf(packet) == "a");
}

TEST_CASE("a source may fail at every byte, and the packet goes on when it has recovered")
{
    const std::string frame = bytesOf("03 00 00 00 61 62 63");
    for (int bytes = 0; bytes < 7; ++bytes) {
        CAPTURE(bytes);
        const Handle_T<FaultyIO> source = FaultyIO::create(frame);
        source->readsUntil = bytes;
        PacketReader reader;
        reader.attach(source);
        InputStream packet = streamOf("old");
        CHECK(reader.read(packet) == (bytes == 0)); // between packets there is nothing to lose
        CHECK(packet.isNull());
        CHECK(failureOf([&] { reader >> packet; }) == (bytes == 0 ? L"none" : L"(empty)"));
        source->readsUntil = noLimit;
        CHECK(reader.read(packet));
        CHECK(textOf(packet) == "abc");
    }
}

TEST_CASE("another input goes on with the packet under way, unless the first was detached")
{
    PacketReader reader;
    InputStream packet;
    reader.attach(ByteIO::create(bytesOf("03 00 00 00 61")));
    CHECK(reader.read(packet));
    reader.attach(ByteIO::create("bc"));
    CHECK(reader.read(packet));
    CHECK(textOf(packet) == "abc");

    reader.attach(ByteIO::create(bytesOf("03 00 00 00 61")));
    CHECK(reader.read(packet));
    CHECK_FALSE(reader.detach().isNull());
    CHECK(reader.isNull());
    reader.attach(ByteIO::create(bytesOf("01 00 00 00 62")));
    CHECK(reader.read(packet));
    CHECK(textOf(packet) == "b");
}

TEST_CASE("a length that is a lie takes no memory")
{
    const Handle_T<ByteIO> bytes = ByteIO::create(bytesOf("FF FF FF 7F 61"));
    PacketReader reader;
    reader.attach(bytes);
    InputStream packet;
    for (int i = 0; i < 3; ++i) {
        CHECK(reader.read(packet));
        CHECK(packet.isNull());
    }
    CHECK(bytes->available() == 0);
}

TEST_CASE("an output that refuses bytes fails the packet")
{
    const struct {
        int room;
        const wchar_t* failure;
    } rows[] = {
        {0, L"orvi::OutputStream& operator<<(orvi::OutputStream &os, const int32_t &i)"},
        {3, L"orvi::OutputStream& operator<<(orvi::OutputStream &os, const int32_t &i)"},
        {4, L"OutputStream& operator <<(OutputStream &,InputStream &)"},
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
        String line;
        line.format(L"PacketWriter::write exception(%s)", row.failure);
        CHECK(log.errors() == std::vector<String>{line});
        output->bytes.clear();
        packet = streamOf("abc");
        String thrown;
        try {
            writer << packet;
        } catch (const Exception& exception) {
            thrown = exception.description();
        }
        CHECK(thrown == row.failure);
    }
}
