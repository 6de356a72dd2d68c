#include "TextPrinting.h"

#include "FaultyIO.h"
#include "RecordingLog.h"

#include <orvi/core/Core.h>

using namespace orvi;

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
    packet.read(text.data(), packet.available());
    return text;
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

TEST_CASE("packets come back equal, however large and in whatever pieces")
{
    std::string text;
    for (int i = 0; i < 300000; ++i)
        text += static_cast<char>(i * 7 + (i >> 8));
    for (const std::size_t size : {3U, 4095U, 4096U, 4097U, 300000U}) {
        CAPTURE(size);
        const Handle_T<FaultyIO> slow = FaultyIO::create();
        PacketWriter writer;
        writer.attach(slow);
        InputStream packet = streamOf(text.substr(0, size));
        writer << packet;
        slow->piece = size == 3 ? 1 : 5000;
        slow->emptyAnswers = 1; // nothing, a piece, nothing, a piece
        PacketReader reader;
        reader.attach(slow);
        std::string seen;
        int looks = 1;
        while ((seen = next(reader)) == "(none)")
            ++looks;
        CHECK((size != 3 || looks == 8));                  // a byte each time
        const bool isEqual = seen == text.substr(0, size); // too long to be shown
        CHECK(isEqual);
        CHECK(slow->available() == 0);
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
    CHECK_THROWS_WITH(reader >> packet, "Invalid packet size");
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
        if (bytes != 0)
            CHECK_THROWS_WITH(reader >> packet, "");
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
        const char* failure;
    } rows[] = {
        {3, "orvi::OutputStream& operator<<(orvi::OutputStream &os, const int32_t &i)"},
        {6, "OutputStream& operator <<(OutputStream &,InputStream &)"},
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
        const String failure = StringHelper::utf8ToWide(row.failure);
        CHECK(log.errors().at(0) == L"PacketWriter::write exception(" + failure + L")");
        output->bytes.clear();
        packet = streamOf("abc");
        CHECK_THROWS_WITH(writer << packet, row.failure);
    }
}
