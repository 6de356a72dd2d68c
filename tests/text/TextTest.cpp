#include "FaultyIO.h"
#include "RecordingLog.h"
#include "TempDirectory.h"
#include "TextPrinting.h"
#include "WideUnits.h"

#include <orvi/core/File.h>
#include <orvi/core/MemoryFile.h>
#include <orvi/core/MemoryStream.h>
#include <orvi/core/Text.h>

#include <random>
#include <string>
#include <vector>

using orvi::Handle_T;
using orvi::Input;
using orvi::String;
using orvi::StringHelper;
using orvi::TextReader;
using orvi::TextWriter;

using Utf8 = orvi::String_T<char>;
using Ansi = orvi::String_T<unsigned char>;

namespace {

/** A source that cannot look ahead. */
class BlindIO final : public ByteIO {
public:
    BlindIO(const std::string& content, int piece)
        : ByteIO(content)
        , _piece(piece)
    {}
    int peek(void*, int) const override { return 0; }
    int read(void* buffer, int size) override { return ByteIO::read(buffer, std::min(size, _piece)); }

private:
    int _piece;
};

class CodePage {
public:
    explicit CodePage(int page) { orvi::setCodePage(page); }
    ~CodePage() { orvi::setCodePage(0); }
    CodePage(const CodePage&) = delete;
    CodePage& operator=(const CodePage&) = delete;
};

template <class T>
std::string hexOfText(const orvi::String_T<T>& text)
{
    return hexOf(std::string(reinterpret_cast<const char*>(text.getBuffer()),
                             static_cast<std::size_t>(text.getBufferLength()) - sizeof(T)));
}

std::string hexOfUnits(const Wide& units)
{
    return hexOf(std::string(reinterpret_cast<const char*>(units.data()), 2 * units.size()));
}

Handle_T<Input> faulty(const std::string& bytes, int piece, int claimed)
{
    const Handle_T<FaultyIO> io = FaultyIO::create(bytes);
    io->piece = piece;
    io->claimed = claimed;
    return io;
}

struct Source {
    const char* what;
    Handle_T<Input> input;
    bool standsBehindLine = false; // so that another reader can go on there
};

/** Ways to offer the same bytes. */
std::vector<Source> sourcesOf(const std::string& bytes)
{
    const Handle_T<orvi::MemoryStream> stream = orvi::MemoryStream::createInstance();
    const Handle_T<orvi::MemoryFile> file = orvi::MemoryFile::createInstance();
    stream->write(bytes.data(), static_cast<int>(bytes.size()));
    file->write(bytes.data(), static_cast<int>(bytes.size()));
    file->setPosition(0);
    return {{"bytes", ByteIO::create(bytes), true},
            {"one byte at a time", faulty(bytes, 1, noLie), true},
            {"three bytes at a time", faulty(bytes, 3, noLie), true},
            {"announces one", faulty(bytes, noLimit, 1)},
            {"announces more than there is", faulty(bytes, noLimit, noLimit)},
            {"cannot peek", new BlindIO(bytes, noLimit)},
            {"cannot peek, two bytes at a time", new BlindIO(bytes, 2)},
            {"stream in memory", stream, true},
            {"file in memory", file, true}};
}

/** All lines; each by a reader of its own if `isFresh`. */
template <class Text>
std::vector<Text> linesOf(Input* input, TextReader::CharacterSet set, bool isFresh = false)
{
    TextReader reader(input, set);
    std::vector<Text> lines;
    for (Text line; lines.size() < 10000 && reader.readLine(line);) {
        lines.push_back(line);
        if (isFresh)
            reader.open(input, set);
    }
    return lines;
}

template <class Text>
void checkLines(const std::string& bytes, TextReader::CharacterSet set)
{
    const Handle_T<Input> byteByByte = new BlindIO(bytes, 1);
    const std::vector<Text> expected = linesOf<Text>(byteByByte, set);
    for (const Source& source : sourcesOf(bytes)) {
        CAPTURE(source.what);
        REQUIRE((linesOf<Text>(source.input, set, source.standsBehindLine) == expected));
    }
}

/** Bytes that mean something to one of the decoders, among runs of plain ones. */
std::string nastyBytes(std::mt19937& random, std::size_t count)
{
    static const std::string alphabet =
        bytesOf("00 09 0A 0A 0D 0E 1B 20 41 7F 80 8A 8D 90 9F A0 BF C0 C1 C3 D8 "
                "DC DF E0 E2 ED EF F0 F0 F1 F4 F4 F5 FF F0 9F 98 80 E2 82 AC");
    std::string bytes;
    for (std::size_t i = 0; i < count; ++i) {
        if (random() % 8 == 0)
            bytes.append(random() % 60, static_cast<char>('a' + random() % 26));
        bytes += alphabet[random() % alphabet.size()];
    }
    return bytes;
}

} // namespace

TEST_CASE("lines of a text")
{
    const auto input = ByteIO::create("a\r\n\nb\rc\n\xEF\xBB\xBF\xC3\xA9\tlast");
    TextReader reader(input, TextReader::UTF8);
    String line;
    REQUIRE(reader.readLine(line));
    CHECK(line == L"a");
    CHECK(input->unread()[0] == '\n'); // nothing behind the line is taken
    TextReader copy = reader;
    CHECK((copy.readLine(line) && line.isEmpty())); // copies go on from one place
    CHECK((reader.readLine(line) && line == L"bc"));
    CHECK((copy.readLine(line) && line == L"\uFEFF\u00E9\tlast"));
    CHECK(!reader.readLine(line));
    CHECK(line == L"\uFEFF\u00E9\tlast"); // stays
    CHECK(reader.read(line));
    CHECK(line.isEmpty());
}

TEST_CASE("readers and writers that are closed, or cannot open, do nothing and hold nothing")
{
    TextReader reader;
    TextWriter writer;
    String text = L"old";
    for (int round = 0; round < 4; ++round) {
        CAPTURE(round);
        CHECK(!reader.read(text));
        CHECK(!reader.readLine(text));
        CHECK(!writer.write(text));
        CHECK(writer.print(L"%d", 1) == -1);
        CHECK(text == L"old");
        const auto io = ByteIO::create("x");
        REQUIRE(reader.open(io, TextReader::WIDE));
        REQUIRE(writer.open(io, TextWriter::WIDE));
        if (round == 2) {
            reader.close();
            writer.close();
        } else {
            Input* const input = round == 0 ? nullptr : io;
            orvi::Output* const output = round == 0 ? nullptr : io;
            CHECK(!reader.open(input, static_cast<TextReader::CharacterSet>(round == 0 ? 0 : 3)));
            CHECK(!writer.open(output, static_cast<TextWriter::CharacterSet>(round == 0 ? 0 : 3)));
        }
        CHECK(io->getReferenceCount() == 1);
    }
}

TEST_CASE("the character sets, read from every kind of source")
{
    const struct {
        TextReader::CharacterSet set;
        int page;
        const char* bytes;
        Wide units;
    } rows[] = {
        {TextReader::WIDE, 1252, "41 00 E9 00 AC 20 42", wide(L"A\u00E9\u20AC")}, // and a loose byte
        {TextReader::WIDE, 1252, "3D D8 00 00 00 DE", wide(L"\U0001F600")},       // a NUL inside a pair
        {TextReader::ANSI, 1252, "E9 61 62", wide(L"\u00E9b")},                   // a high byte takes another
        {TextReader::ANSI, 1252, "61 E9", wide(L"a")},
        {TextReader::ANSI, 932, "82 A0 41", wide(L"\u3042A")},
        {TextReader::ANSI, 12345, "41 82 A0", {}}, // no such page
        {TextReader::UTF8, 1252, "61 0D 0A C3 A9 00 E2 82 AC F0 9F 98 80",
         wide(L"a\r\n\u00E9\u20AC\U0001F600")},
        {TextReader::UTF8, 1252, "F0 8F BF BF C1 81 F4 90 80 80", wide(L"p\x0F??At\x10")},
        {TextReader::UTF8, 1252, "E2 41 E2 82 42 C3 43 F0 9F 44 F1 80 80 F5 E2 82",
         Wide{L'b', 0x82, L'C', L'p', 0x1F, L'D', L'q', L'u', 0x82}}, // leads without the rest
    };
    for (const auto& row : rows) {
        CAPTURE(row.bytes);
        const CodePage page(row.page);
        const std::string bytes = bytesOf(row.bytes);
        for (const Source& source : sourcesOf(bytes)) {
            CAPTURE(source.what);
            String text = L"old";
            CHECK(TextReader(source.input, row.set).read(text));
            CHECK(hexOfText(text) == hexOfUnits(row.units));
        }
        const String text(row.units.data(), static_cast<int>(row.units.size()));
        Utf8 utf8;
        Ansi narrow;
        CHECK(TextReader(ByteIO::create(bytes), row.set).read(utf8));
        CHECK(TextReader(ByteIO::create(bytes), row.set).read(narrow));
        CHECK(utf8 == StringHelper::wideToUtf8(text));
        CHECK(narrow == StringHelper::wideToAnsi(text));
    }
}

TEST_CASE("a lone surrogate keeps its own three bytes, and six bytes may be one character")
{
    Utf8 narrow;
    CHECK(TextReader(ByteIO::create(bytesOf("00 DE 3D D8 41 00")), TextReader::WIDE).read(narrow));
    CHECK(hexOfText(narrow) == "ED B8 80 ED A0 BD 41");
    const auto six = ByteIO::create(bytesOf("ED A0 BD ED B8 80"));
    String text;
    CHECK(TextReader(six, TextReader::UTF8).read(text));
    CHECK(text == L"\U0001F600");
}

TEST_CASE("malformed text comes as byte by byte, from every kind of source")
{
    std::mt19937 random(20261124);
    for (int round = 0; round < 120; ++round) {
        const std::string bytes = nastyBytes(random, random() % (round < 112 ? 30 : 3000));
        CAPTURE(hexOf(bytes));
        checkLines<String>(bytes, TextReader::UTF8);
        checkLines<Utf8>(bytes, TextReader::UTF8);
        checkLines<String>(bytes, TextReader::WIDE);
        checkLines<String>(bytes, TextReader::ANSI);
        const CodePage page(932);
        checkLines<String>(bytes, TextReader::ANSI);
    }
}

TEST_CASE("a long text comes whole, in all sets and widths, whatever stands at the ends of blocks")
{
    std::string bytes;
    for (int i = 0; i < 10000; ++i)
        bytes += i % 7 == 0   ? "\xF0\x9F\x98\x80"
                 : i % 5 == 0 ? "\xE2\x82\xAC"
                 : i % 3 == 0 ? "\xC3\xA9"
                              : "plain text ";
    const Utf8 utf8(bytes.c_str());
    const String all = StringHelper::utf8ToWide(utf8);
    const std::string units(reinterpret_cast<const char*>(all.getBuffer()),
                            static_cast<std::size_t>(all.getBufferLength()) - 2);
    String text;
    Utf8 narrow;
    for (const Source& source : sourcesOf(bytes)) {
        CAPTURE(source.what);
        CHECK((TextReader(source.input, TextReader::UTF8).read(text) && text == all));
    }
    for (const Source& source : sourcesOf(units)) {
        CAPTURE(source.what);
        CHECK((TextReader(source.input, TextReader::WIDE).read(narrow) && narrow == utf8));
    }
    CHECK((TextReader(ByteIO::create(bytes), TextReader::UTF8).readLine(narrow) && narrow == utf8));
    CHECK((TextReader(ByteIO::create(units), TextReader::WIDE).readLine(text) && text == all));
}

TEST_CASE("sources that mislead end a text, and nothing turns for ever")
{
    const auto empty = FaultyIO::create();
    empty->claimed = 100;
    TextReader reader(empty, TextReader::UTF8);
    String text = L"old";
    CHECK(!reader.readLine(text));
    CHECK(text == L"old");
    CHECK(reader.read(text));
    CHECK(text.isEmpty());

    const auto failing = FaultyIO::create("ab\ncd\nef");
    failing->readsUntil = 4;
    CHECK((linesOf<String>(failing, TextReader::UTF8) == std::vector<String>{L"ab", L"c"}));

    for (const int claimed : {0, -1}) {
        reader.open(faulty("ab\ncd", noLimit, claimed), TextReader::UTF8);
        CHECK((reader.read(text) && text.isEmpty()));
        CHECK(!reader.readLine(text));
    }
}

TEST_CASE("lines are written to a file and read again")
{
    const TempDirectory directory;
    const Handle_T<orvi::File> file = orvi::File::createInstance();
    const int both = orvi::File::permitRead | orvi::File::permitWrite;
    REQUIRE(file->open(directory.name("lines"), orvi::File::readWrite | orvi::File::create, both));
    TextWriter writer(file, TextWriter::UTF8);
    for (int i = 0; i < 5000; ++i)
        REQUIRE(writer.print(L"line %d\r\n", i) > 0);
    file->setPosition(0);
    const std::vector<String> lines = linesOf<String>(file, TextReader::UTF8);
    REQUIRE(lines.size() == 5000);
    CHECK(lines.back() == L"line 4999");
}

TEST_CASE("the character sets, written")
{
    const String text = L"A\u00E9\U0001F600";
    const Ansi narrow(reinterpret_cast<const unsigned char*>("A\xE9\n"));
    const struct {
        TextWriter::CharacterSet set;
        const char* bytes;
        const char* ofNarrow; // no line end is changed
        const char* printed;
    } rows[] = {
        {TextWriter::UTF8, "41 C3 A9 F0 9F 98 80", "41 C3 A9 0A", "61 2D 37"},
        {TextWriter::WIDE, "41 00 E9 00 3D D8 00 DE", "41 00 E9 00 0A 00", "61 00 2D 00 37 00"},
        {TextWriter::ANSI, "41 E9 3F 3F", "41 E9 0A", "61 2D 37"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.bytes);
        const auto io = ByteIO::create();
        TextWriter writer(io, row.set);
        const auto written = [&] { return hexOf(std::exchange(io->bytes, {})); };
        CHECK(writer.write(text));
        CHECK(written() == row.bytes);
        CHECK(writer.write(StringHelper::wideToUtf8(text)));
        CHECK(written() == row.bytes);
        CHECK(writer.write(narrow));
        CHECK(written() == row.ofNarrow);
        CHECK(writer.print(L"%s-%d", L"a", 7) == 3);
        CHECK(written() == row.printed);
    }
}

TEST_CASE("what a sink does not take, or a code page cannot say, is a failure")
{
    const auto io = FaultyIO::create();
    io->room = 3;
    TextWriter writer(io, TextWriter::UTF8);
    CHECK(writer.write(String()));
    CHECK(!writer.write(String(L"abcd"))); // what was taken stays
    CHECK(io->bytes == "abc");
    CHECK(writer.print(L"x") == -1);
    CHECK(writer.write(String())); // moves nothing
    io->room = noLimit;
    const CodePage page(12345);
    writer.open(io, TextWriter::ANSI);
    CHECK(!writer.write(String(L"abcd")));
    CHECK(writer.write(String()));
    CHECK(io->bytes == "abc");
}
