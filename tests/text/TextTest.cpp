#include "FaultyIO.h"
#include "RecordingLog.h"
#include "TextPrinting.h"

#include <orvi/core/Text.h>

#include <random>
#include <string>
#include <vector>

using namespace orvi;

using Utf8 = String_T<char>;
using Ansi = String_T<unsigned char>;

namespace {

/** A source that cannot look ahead. */
struct BlindIO final : ByteIO {
    BlindIO(const std::string& content, int aPiece)
        : ByteIO(content)
        , piece(aPiece)
    {}
    int peek(void*, int) const override { return 0; }
    int read(void* buffer, int size) override { return ByteIO::read(buffer, std::min(size, piece)); }
    int piece;
};

struct CodePage {
    explicit CodePage(int page) { setCodePage(page); }
    ~CodePage() { setCodePage(0); }
};

/** The bytes of a text, without a terminator. */
template <class T>
std::string rawBytes(const String_T<T>& text)
{
    return {reinterpret_cast<const char*>(text.getBuffer()),
            static_cast<std::size_t>(text.getBufferLength()) - sizeof(T)};
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
    return {{"bytes", ByteIO::create(bytes), true},
            {"one byte at a time", faulty(bytes, 1, noLie), true},
            {"three bytes at a time", faulty(bytes, 3, noLie), true},
            {"announces one", faulty(bytes, noLimit, 1)},
            {"announces more than there is", faulty(bytes, noLimit, noLimit)},
            {"cannot peek", new BlindIO(bytes, noLimit)},
            {"cannot peek, two bytes at a time", new BlindIO(bytes, 2)}};
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

/** From every kind of source the lines and the whole come as from one that gives a byte at a time. */
template <class Text>
void checkSources(const std::string& bytes, TextReader::CharacterSet set)
{
    const auto byteByByte = [&] { return Handle_T<Input>(new BlindIO(bytes, 1)); };
    const std::vector<Text> lines = linesOf<Text>(byteByByte(), set);
    Text whole, text;
    REQUIRE(TextReader(byteByByte(), set).read(whole));
    for (const Source& source : sourcesOf(bytes)) {
        CAPTURE(source.what);
        REQUIRE((linesOf<Text>(source.input, set, source.standsBehindLine) == lines));
    }
    for (const Source& source : sourcesOf(bytes)) {
        CAPTURE(source.what);
        REQUIRE((TextReader(source.input, set).read(text) && text == whole));
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
    REQUIRE((reader.readLine(line) && line == L"a"));
    CHECK(input->unread()[0] == '\n'); // nothing behind the line is taken
    TextReader copy = reader;
    CHECK((copy.readLine(line) && line.isEmpty())); // copies go on from one place
    CHECK((reader.readLine(line) && line == L"bc"));
    CHECK((copy.readLine(line) && line == L"\uFEFF\u00E9\tlast"));
    CHECK((!reader.readLine(line) && line == L"\uFEFF\u00E9\tlast")); // stays
    CHECK((reader.read(line) && line.isEmpty()));
}

TEST_CASE("readers and writers that are closed, or cannot open, do nothing and hold nothing")
{
    TextReader reader;
    TextWriter writer;
    String text = L"old";
    for (int round = 0; round < 4; ++round) {
        CAPTURE(round);
        CHECK((!reader.read(text) && !reader.readLine(text) && text == L"old"));
        CHECK((!writer.write(text) && writer.print(L"%d", 1) == -1));
        const auto io = ByteIO::create("x");
        REQUIRE((reader.open(io, TextReader::WIDE) && writer.open(io, TextWriter::WIDE)));
        if (round == 2) {
            reader.close();
            writer.close();
        } else {
            ByteIO* const other = round == 0 ? nullptr : io;
            CHECK(!reader.open(other, static_cast<TextReader::CharacterSet>(round == 0 ? 0 : 3)));
            CHECK(!writer.open(other, static_cast<TextWriter::CharacterSet>(round == 0 ? 0 : 3)));
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
        const wchar_t* text;
    } rows[] = {
        {TextReader::WIDE, 1252, "41 00 E9 00 AC 20 42", L"A\u00E9\u20AC"}, // and a loose byte
        {TextReader::WIDE, 1252, "3D D8 00 00 00 DE", L"\U0001F600"},       // a NUL inside a pair
        {TextReader::ANSI, 1252, "E9 61 62", L"\u00E9b"},                   // a high byte takes another
        {TextReader::ANSI, 1252, "61 E9", L"a"},
        {TextReader::ANSI, 932, "82 A0 41", L"\u3042A"},
        {TextReader::ANSI, 12345, "41 82 A0", L""}, // no such page
        {TextReader::UTF8, 1252, "61 0D 0A C3 A9 00 E2 82 AC F0 9F 98 80", L"a\r\n\u00E9\u20AC\U0001F600"},
        {TextReader::UTF8, 1252, "F0 8F BF BF C1 81 F4 90 80 80", L"p\x0F??At\x10"},
        {TextReader::UTF8, 1252, "E2 41 E2 82 42 C3 43 F0 9F 44 F1 80 80 F5 E2 82", // leads without the rest
         L"b\202Cp\037Dqu\202"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.bytes);
        const CodePage page(row.page);
        const std::string bytes = bytesOf(row.bytes);
        for (const Source& source : sourcesOf(bytes)) {
            CAPTURE(source.what);
            String text = L"old";
            CHECK(TextReader(source.input, row.set).read(text));
            CHECK(hexOf(rawBytes(text)) == hexOf(rawBytes(String(row.text))));
        }
        Utf8 utf8;
        Ansi narrow;
        CHECK(TextReader(ByteIO::create(bytes), row.set).read(utf8));
        CHECK(TextReader(ByteIO::create(bytes), row.set).read(narrow));
        CHECK((utf8 == StringHelper::wideToUtf8(row.text) && narrow == StringHelper::wideToAnsi(row.text)));
    }

    // A lone surrogate keeps its own three bytes, and six bytes may be one character.
    Utf8 alone;
    String pair;
    CHECK(TextReader(ByteIO::create(bytesOf("00 DE 3D D8 41 00")), TextReader::WIDE).read(alone));
    CHECK(hexOf(rawBytes(alone)) == "ED B8 80 ED A0 BD 41");
    CHECK(TextReader(ByteIO::create(bytesOf("ED A0 BD ED B8 80")), TextReader::UTF8).read(pair));
    CHECK(pair == L"\U0001F600");
}

TEST_CASE("malformed text comes as byte by byte, from every kind of source")
{
    std::mt19937 random(20261124);
    for (int round = 0; round < 120; ++round) {
        std::string bytes = nastyBytes(random, random() % (round < 112 ? 30 : 10'000));
        if (round >= 116) // one line of several blocks
            std::replace(bytes.begin(), bytes.end(), '\n', 'n');
        CAPTURE(hexOf(bytes));
        checkSources<String>(bytes, TextReader::UTF8);
        checkSources<Utf8>(bytes, TextReader::UTF8);
        checkSources<String>(bytes, TextReader::WIDE);
        checkSources<Utf8>(bytes, TextReader::WIDE);
        checkSources<String>(bytes, TextReader::ANSI);
        const CodePage page(932);
        checkSources<String>(bytes, TextReader::ANSI);
    }
}

TEST_CASE("sources that mislead end a text, and nothing turns for ever")
{
    const auto empty = FaultyIO::create();
    empty->claimed = 100;
    TextReader reader(empty, TextReader::UTF8);
    String text = L"old";
    CHECK((!reader.readLine(text) && text == L"old"));
    CHECK((reader.read(text) && text.isEmpty()));

    const auto failing = FaultyIO::create("ab\ncd\nef");
    failing->readsUntil = 4;
    CHECK((linesOf<String>(failing, TextReader::UTF8) == std::vector<String>{L"ab", L"c"}));

    reader.open(faulty("ab\ncd", noLimit, -1), TextReader::UTF8);
    CHECK((reader.read(text) && text.isEmpty()));
    CHECK(!reader.readLine(text));
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
        const auto io = ByteIO::create();
        TextWriter writer(io, row.set);
        const auto written = [&] { return hexOf(std::exchange(io->bytes, {})); };
        CHECK((writer.write(text) && written() == row.bytes));
        CHECK((writer.write(StringHelper::wideToUtf8(text)) && written() == row.bytes));
        CHECK((writer.write(narrow) && written() == row.ofNarrow));
        CHECK((writer.print(L"%s-%d", L"a", 7) == 3 && written() == row.printed));
    }
}

TEST_CASE("what a sink does not take, or a code page cannot say, is a failure")
{
    const auto io = FaultyIO::create();
    io->room = 3;
    TextWriter writer(io, TextWriter::UTF8);
    CHECK(writer.write(String()));
    CHECK((!writer.write(String(L"abcd")) && io->bytes == "abc")); // what was taken stays
    CHECK(writer.print(L"x") == -1);
    CHECK(writer.write(String())); // moves nothing
    io->room = noLimit;
    const CodePage page(12345);
    writer.open(io, TextWriter::ANSI);
    CHECK(!writer.write(String(L"abcd")));
    CHECK((writer.write(String()) && io->bytes == "abc"));
}
