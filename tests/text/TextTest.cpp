#include "FaultyIO.h"
#include "RecordingLog.h"
#include "TempDirectory.h"
#include "TextPrinting.h"
#include "WideUnits.h"

#include <orvi/core/File.h>
#include <orvi/core/MemoryFile.h>
#include <orvi/core/MemoryStream.h>
#include <orvi/core/Text.h>

#include <deque>
#include <random>
#include <string>
#include <vector>

using orvi::Handle_T;
using orvi::Input;
using orvi::String;
using orvi::String_T;
using orvi::StringHelper;
using orvi::TextReader;
using orvi::TextWriter;

using Utf8 = String_T<char>;
using Ansi = String_T<unsigned char>;

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

const unsigned char* ansi(const char* bytes) { return reinterpret_cast<const unsigned char*>(bytes); }

template <class T>
std::string hexOfText(const String_T<T>& text)
{
    return hexOf(std::string(reinterpret_cast<const char*>(text.getBuffer()),
                             static_cast<std::size_t>(text.getBufferLength()) - sizeof(T)));
}

std::string hexOfUnits(const Wide& units)
{
    return hexOf(std::string(reinterpret_cast<const char*>(units.data()), 2 * units.size()));
}

/** Reads by the rules, one character after the other. */
class SlowReader {
public:
    SlowReader(Input* input, TextReader::CharacterSet set)
        : _input(input)
        , _set(set)
    {}

    /** False when there is none. */
    bool readLine(std::vector<int>& line)
    {
        line.clear();
        if (available() < 1)
            return false;
        const int taken = _taken;
        while (available() >= 1) {
            const int ch = getChar();
            if (ch < 0 || ch == '\n')
                break;
            if (ch != 0 && ch != '\r')
                line.push_back(ch);
        }
        return _taken != taken;
    }
    int ahead() const { return static_cast<int>(_ahead.size()); }

private:
    int available() const { return _ahead.empty() ? _input->available() : ahead(); }
    int take()
    {
        unsigned char byte = 0;
        if (!_ahead.empty()) {
            byte = _ahead.front();
            _ahead.pop_front();
        } else if (_input->read(&byte, 1) != 1) {
            return -1;
        }
        ++_taken;
        return byte;
    }
    static bool isTail(int byte) { return byte >= 0 && (byte & 0xC0) == 0x80; }

    int getChar()
    {
        const int first = take();
        if (first < 0)
            return -1;
        if (_set == TextReader::WIDE) {
            const int second = take();
            return second < 0 ? -1 : first | second << 8;
        }
        if (_set == TextReader::ANSI) {
            unsigned char bytes[3] = {static_cast<unsigned char>(first)};
            if (first >= 0x80) {
                const int second = take();
                if (second < 0)
                    return 0;
                bytes[1] = static_cast<unsigned char>(second);
            }
            return *StringHelper::ansiToWide(bytes).getBuffer();
        }
        return getUtf8(first);
    }
    int getUtf8(int first)
    {
        Utf8 kept(first);
        std::string bytes(1, static_cast<char>(first));
        if (first >= 0xF0 && first <= 0xF4)
            return getFour(first);
        if (first >= 0xC0 && first < 0xF0) {
            int next = take();
            if (isTail(next)) {
                bytes += static_cast<char>(next);
                if (first >= 0xE0 && isTail(next = take()))
                    bytes += static_cast<char>(next);
            }
        }
        int ch = 0;
        orvi::stringChar(bytes.c_str(), ch);
        return ch;
    }
    int getFour(int first)
    {
        std::string bytes(1, static_cast<char>(first));
        while (bytes.size() < 4) {
            const int next = take();
            if (next < 0)
                break;
            bytes += static_cast<char>(next);
        }
        const String wide = StringHelper::utf8ToWide(bytes.c_str()); // U+FFFD for what is malformed
        if (bytes.size() == 4 && wide.getLength() == 2 && (wide[0] & 0xFC00) == 0xD800)
            return 0x10000 + ((wide[0] & 0x3FF) << 10 | (wide[1] & 0x3FF));
        _ahead.insert(_ahead.begin(), bytes.begin() + 1, bytes.end());
        _taken -= static_cast<int>(bytes.size()) - 1;
        return first & 0x7F;
    }

    Handle_T<Input> _input;
    TextReader::CharacterSet _set;
    std::deque<unsigned char> _ahead;
    int _taken = 0;
};

void encode(const std::vector<int>& characters, String& text)
{
    Wide units;
    for (const int ch : characters) {
        if (ch > 0xFFFF)
            units.push_back(static_cast<wchar_t>(0xD800 + ((ch - 0x10000) >> 10)));
        units.push_back(static_cast<wchar_t>(ch > 0xFFFF ? 0xDC00 | (ch & 0x3FF) : ch));
    }
    text.setBuffer(units.data(), static_cast<int>(2 * units.size()));
}

void encode(const std::vector<int>& characters, Utf8& text)
{
    std::string bytes;
    for (const int ch : characters) {
        char buffer[4];
        if (ch > 0xFFFF)
            bytes += StringHelper::wideToUtf8(String(0xD800 + ((ch - 0x10000) >> 10)) +
                                              String(0xDC00 | (ch & 0x3FF)));
        else
            bytes.append(buffer, static_cast<std::size_t>(orvi::charToString(buffer, ch)));
    }
    text.setBuffer(bytes.data(), static_cast<int>(bytes.size()));
}

/** Ways to offer the same bytes. */
struct Offer {
    const char* what;
    Handle_T<Input> (*make)(const std::string& bytes);
    bool isHonest = true;
};

template <class Change>
Handle_T<Input> faulty(Handle_T<FaultyIO> io, const Change& change)
{
    change(*io);
    return io;
}

const Offer offers[] = {
    {"bytes", [](const std::string& bytes) -> Handle_T<Input> { return ByteIO::create(bytes); }},
    {"one byte at a time",
     [](const std::string& bytes) {
         return faulty(FaultyIO::create(bytes), [](FaultyIO& io) { io.piece = 1; });
     }},
    {"three bytes at a time",
     [](const std::string& bytes) {
         return faulty(FaultyIO::create(bytes), [](FaultyIO& io) { io.piece = 3; });
     }},
    {"announces one",
     [](const std::string& bytes) {
         return faulty(FaultyIO::create(bytes), [](FaultyIO& io) { io.claimed = 1; });
     },
     false},
    {"announces more than there is",
     [](const std::string& bytes) {
         return faulty(FaultyIO::create(bytes), [](FaultyIO& io) { io.claimed = noLimit; });
     },
     false},
    {"fails in the middle",
     [](const std::string& bytes) {
         return faulty(FaultyIO::create(bytes),
                       [&](FaultyIO& io) { io.readsUntil = static_cast<int>(bytes.size() / 2); });
     },
     false},
    {"cannot peek", [](const std::string& bytes) -> Handle_T<Input> { return new BlindIO(bytes, noLimit); }},
    {"cannot peek, two bytes at a time",
     [](const std::string& bytes) -> Handle_T<Input> { return new BlindIO(bytes, 2); }},
    {"stream in memory",
     [](const std::string& bytes) -> Handle_T<Input> {
         const Handle_T<orvi::MemoryStream> stream = orvi::MemoryStream::createInstance();
         stream->write(bytes.data(), static_cast<int>(bytes.size()));
         return stream;
     }},
    {"file in memory",
     [](const std::string& bytes) -> Handle_T<Input> {
         const Handle_T<orvi::MemoryFile> file = orvi::MemoryFile::createInstance();
         file->write(bytes.data(), static_cast<int>(bytes.size()));
         file->setPosition(0);
         return file;
     }},
};

/** Bytes that mean something to one of the decoders, among runs of plain ones. */
std::string nastyBytes(std::mt19937& random, int count)
{
    static const std::string alphabet =
        bytesOf("00 09 0A 0A 0D 0E 1B 20 41 7F 80 8A 8D 90 9F A0 BF C0 C1 C3 D8 "
                "DC DF E0 E2 ED EF F0 F0 F1 F4 F4 F5 FF F0 9F 98 80 E2 82 AC");
    std::string bytes;
    for (int i = 0; i < count; ++i) {
        if (random() % 8 == 0)
            bytes.append(random() % 60, static_cast<char>('a' + random() % 26));
        bytes += alphabet[random() % alphabet.size()];
    }
    return bytes;
}

template <class T>
void checkLines(const Offer& offer, const std::string& bytes, TextReader::CharacterSet set)
{
    const Handle_T<Input> fastInput = offer.make(bytes);
    const Handle_T<Input> slowInput = offer.make(bytes);
    TextReader fast(fastInput, set);
    SlowReader slow(slowInput, set);
    std::vector<int> characters;
    String_T<T> line;
    bool more = true;
    while (more) {
        more = slow.readLine(characters);
        REQUIRE(fast.readLine(line) == more);
        if (!more)
            break;
        String_T<T> expected;
        encode(characters, expected);
        REQUIRE(hexOfText(line) == hexOfText(expected));
        // It stands behind the line.
        unsigned char byte = 0;
        if (offer.isHonest && fastInput->peek(&byte, 1) == 1)
            REQUIRE(fastInput->available() == slowInput->available() + slow.ahead());
    }
}

template <class Text>
std::vector<Text> linesOf(TextReader& reader)
{
    std::vector<Text> lines;
    for (Text line; lines.size() < 1000 && reader.readLine(line);)
        lines.push_back(line);
    return lines;
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
}

TEST_CASE("a whole text")
{
    const std::string bytes = "a\r\n\xC3\xA9\xE2\x82\xAC" + std::string(1, '\0') + "\xF0\x9F\x98\x80!";
    String text = L"old";
    CHECK(TextReader(ByteIO::create(bytes), TextReader::UTF8).read(text));
    CHECK(text == L"a\r\n\u00E9\u20AC\U0001F600!");
    CHECK(text.getLength() == 8);
    Utf8 narrow;
    CHECK(TextReader(ByteIO::create(bytes), TextReader::UTF8).read(narrow));
    CHECK(narrow == "a\r\n\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80!");
    Ansi page;
    CHECK(TextReader(ByteIO::create(bytes), TextReader::UTF8).read(page));
    CHECK(page == ansi("a\r\n\xE9\x80?"
                       "?!"));
    CHECK(TextReader(ByteIO::create(), TextReader::UTF8).read(text));
    CHECK(text.isEmpty());
    CHECK(!TextReader(ByteIO::create(), TextReader::UTF8).readLine(text));
}

TEST_CASE("opening and closing")
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
        if (round == 0) {
            CHECK(!reader.open(nullptr, TextReader::UTF8));
            CHECK(!writer.open(nullptr, TextWriter::UTF8));
        } else if (round == 1) {
            CHECK(!reader.open(io, static_cast<TextReader::CharacterSet>(3)));
            CHECK(!writer.open(io, static_cast<TextWriter::CharacterSet>(3)));
        } else {
            reader.close();
            writer.close();
        }
        CHECK(io->getReferenceCount() == 1);
    }
}

TEST_CASE("the character sets, read")
{
    const struct {
        const char* what;
        TextReader::CharacterSet set;
        int page;
        const char* bytes;
        Wide units;
        const char* utf8;
        const char* ansi;
    } rows[] = {
        {"units", TextReader::WIDE, 1252, "41 00 E9 00 AC 20", wide(L"A\u00E9\u20AC"), "41 C3 A9 E2 82 AC",
         "41 E9 80"},
        {"a loose byte", TextReader::WIDE, 1252, "41 00 42", wide(L"A"), "41", "41"},
        {"a pair, a NUL inside", TextReader::WIDE, 1252, "3D D8 00 00 00 DE", wide(L"\U0001F600"),
         "F0 9F 98 80", "3F 3F"},
        {"lone surrogates",
         TextReader::WIDE,
         1252,
         "00 DE 3D D8 41 00",
         {0xDE00, 0xD83D, L'A'},
         "ED B8 80 ED A0 BD 41",
         "3F 3F 41"},
        {"a pair in the page of UTF-8", TextReader::WIDE, 65001, "3D D8 00 DE", wide(L"\U0001F600"),
         "F0 9F 98 80", "F0 9F 98 80"},
        {"a byte that takes another", TextReader::ANSI, 1252, "E9 61 62", wide(L"\u00E9b"), "C3 A9 62",
         "E9 62"},
        {"a byte that takes nothing", TextReader::ANSI, 1252, "61 E9", wide(L"a"), "61", "61"},
        {"two bytes", TextReader::ANSI, 932, "82 A0 41", wide(L"\u3042A"), "E3 81 82 41", "82 A0 41"},
        {"no such page", TextReader::ANSI, 12345, "41 82 A0", {}, "", ""},
        {"six bytes for one character", TextReader::UTF8, 1252, "ED A0 BD ED B8 80", wide(L"\U0001F600"),
         "ED A0 BD ED B8 80", "3F 3F"},
        {"overlong, and above the last", TextReader::UTF8, 1252, "F0 8F BF BF C1 81 F4 90 80 80",
         wide(L"p\x0F??At\x10"), "70 0F 3F 3F 41 74 10", "70 0F 3F 3F 41 74 10"},
        {"leads without the rest",
         TextReader::UTF8,
         1252,
         "E2 41 E2 82 42 C3 43 F0 9F 44 E2 82",
         {L'b', 0x82, L'C', L'p', 0x1F, L'D', 0x82},
         "",
         nullptr},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        const CodePage page(row.page);
        for (const Offer& offer : offers) {
            if (std::string(offer.what) == "fails in the middle")
                continue;
            CAPTURE(offer.what);
            String text;
            Utf8 utf8;
            Ansi narrow;
            CHECK(TextReader(offer.make(bytesOf(row.bytes)), row.set).read(text));
            CHECK(TextReader(offer.make(bytesOf(row.bytes)), row.set).read(utf8));
            CHECK(TextReader(offer.make(bytesOf(row.bytes)), row.set).read(narrow));
            CHECK(hexOfText(text) == hexOfUnits(row.units));
            if (row.ansi == nullptr)
                continue;
            CHECK(hexOfText(utf8) == row.utf8);
            CHECK(hexOfText(narrow) == row.ansi);
        }
    }
}

TEST_CASE("malformed text comes as character by character, from every kind of source")
{
    std::mt19937 random(20261124);
    for (int round = 0; round < 220; ++round) {
        const std::string bytes = nastyBytes(random, static_cast<int>(random() % (round < 200 ? 30 : 3000)));
        CAPTURE(hexOf(bytes));
        for (const Offer& offer : offers) {
            CAPTURE(offer.what);
            checkLines<wchar_t>(offer, bytes, TextReader::UTF8);
            checkLines<char>(offer, bytes, TextReader::UTF8);
            checkLines<wchar_t>(offer, bytes, TextReader::WIDE);
            checkLines<wchar_t>(offer, bytes, TextReader::ANSI);
            const CodePage page(932);
            checkLines<wchar_t>(offer, bytes, TextReader::ANSI);
        }
    }
}

TEST_CASE("a long text comes whole, in all sets and widths, whatever stands at the ends of blocks")
{
    std::string bytes;
    for (int i = 0; i < 40000; ++i)
        bytes += i % 7 == 0   ? "\xF0\x9F\x98\x80"
                 : i % 5 == 0 ? "\xE2\x82\xAC"
                 : i % 3 == 0 ? "\xC3\xA9"
                              : "plain text ";
    const Utf8 utf8(bytes.c_str());
    const String all = StringHelper::utf8ToWide(utf8);
    String text;
    Utf8 narrow;
    Ansi page;
    for (const Offer& offer : offers) {
        if (std::string(offer.what) == "fails in the middle")
            continue;
        CAPTURE(offer.what);
        CHECK((TextReader(offer.make(bytes), TextReader::UTF8).read(text) && text == all));
        CHECK((TextReader(offer.make(bytes), TextReader::UTF8).readLine(narrow) && narrow == utf8));
        CHECK((TextReader(offer.make(bytes), TextReader::UTF8).read(page) &&
               page == StringHelper::wideToAnsi(all)));
        const std::string units(reinterpret_cast<const char*>(all.getBuffer()),
                                static_cast<std::size_t>(all.getBufferLength()) - 2);
        CHECK((TextReader(offer.make(units), TextReader::WIDE).readLine(text) && text == all));
        CHECK((TextReader(offer.make(units), TextReader::WIDE).read(narrow) && narrow == utf8));
    }
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
    reader.open(failing, TextReader::UTF8);
    CHECK(linesOf<String>(reader) == std::vector<String>{L"ab", L"c"});

    const auto few = FaultyIO::create("ab\ncd");
    few->claimed = 0;
    reader.open(few, TextReader::UTF8);
    CHECK((reader.read(text) && text.isEmpty()));
    few->claimed = -1;
    CHECK((reader.read(text) && text.isEmpty()));
    CHECK(!reader.readLine(text));
}

TEST_CASE("many short lines cost what they are long")
{
    const TempDirectory directory;
    const orvi::Handle_T<orvi::File> file = orvi::File::createInstance();
    const int both = orvi::File::permitRead | orvi::File::permitWrite;
    REQUIRE(file->open(directory.name("lines"), orvi::File::readWrite | orvi::File::create, both));
    TextWriter writer(file, TextWriter::UTF8);
    constexpr int lineCount = 200000;
    for (int i = 0; i < lineCount; ++i)
        REQUIRE(writer.print(L"line %d\r\n", i) > 0);
    file->setPosition(0);
    TextReader reader(file, TextReader::UTF8);
    String line;
    int count = 0;
    while (reader.readLine(line))
        ++count;
    CHECK(count == lineCount);
    CHECK(line == L"line 199999");
    CHECK(file->setPosition(0) == 0);
    CHECK(reader.read(line));
    CHECK(line.getLength() == file->getArchiveSize());
}

TEST_CASE("the character sets, written")
{
    const String text = L"A\u00E9\U0001F600";
    const struct {
        TextWriter::CharacterSet set;
        const char* bytes;
    } rows[] = {
        {TextWriter::UTF8, "41 C3 A9 F0 9F 98 80"},
        {TextWriter::WIDE, "41 00 E9 00 3D D8 00 DE"},
        {TextWriter::ANSI, "41 E9 3F 3F"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.bytes);
        const auto io = ByteIO::create();
        TextWriter writer(io, row.set);
        CHECK(writer.write(text));
        CHECK(hexOf(io->bytes) == row.bytes);
        io->bytes.clear();
        CHECK(writer.write(StringHelper::wideToUtf8(text)));
        CHECK(hexOf(io->bytes) == row.bytes);
        io->bytes.clear();
        CHECK(writer.write(Ansi(ansi("A\xE9\n"))));
        const std::string end = row.set == TextWriter::WIDE ? "0A 00" : "0A";
        CHECK(hexOf(io->bytes).substr(hexOf(io->bytes).size() - end.size()) == end); // no line end is changed
        io->bytes.clear();
        CHECK(writer.print(L"%s-%d", L"ab", 7) == 4);
        CHECK(io->bytes.size() == (row.set == TextWriter::WIDE ? 8 : 4));
        CHECK(writer.print(L"%s", L"") == 0);
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
