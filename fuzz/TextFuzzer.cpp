#include "Input.h"

#include <orvi/core/MemoryFile.h>
#include <orvi/core/Text.h>

#include <algorithm>

using namespace orvi;
using fuzz::expect;

namespace {

/** A source that delivers pieces, and maybe cannot look ahead. */
class Pieces final : public orvi::Input {
public:
    Pieces(const std::string& bytes, int piece, bool isBlind)
        : _bytes(bytes)
        , _piece(piece)
        , _isBlind(isBlind)
    {}

    int available() const override { return static_cast<int>(_bytes.size() - _position); }
    int peek(void* buffer, int size) const override { return _isBlind ? 0 : copy(buffer, size); }
    int read(void* buffer, int size) override
    {
        const int count = copy(buffer, size);
        _position += static_cast<std::size_t>(count);
        return count;
    }

private:
    int copy(void* buffer, int size) const
    {
        const int count = std::min({size, _piece, available()});
        std::memcpy(buffer, _bytes.data() + _position, static_cast<std::size_t>(count));
        return count;
    }

    const std::string _bytes;
    std::size_t _position = 0;
    const int _piece;
    const bool _isBlind;
};

/** All elements, NULs included: a comparison of texts would end at the first one. */
template <class T>
std::string bytesOf(const String_T<T>& text)
{
    const auto* bytes = reinterpret_cast<const char*>(text.getBuffer());
    return std::string(bytes, static_cast<std::size_t>(text.getBufferLength()) - sizeof(T));
}

template <class Text>
std::string readAll(Handle_T<orvi::Input> source, TextReader::CharacterSet set)
{
    Text text;
    expect(TextReader(source, set).read(text), "an open reader gives a text");
    return bytesOf(text);
}

template <class Text>
std::vector<std::string> readLines(Handle_T<orvi::Input> source, TextReader::CharacterSet set)
{
    std::vector<std::string> lines;
    TextReader reader(source, set);
    for (Text line; reader.readLine(line);)
        lines.push_back(bytesOf(line));
    return lines;
}

/** A text at once and in pieces, whole and by lines. */
template <class Text, class T>
void checkRead(const std::string& bytes, TextReader::CharacterSet set, int piece)
{
    const auto open = [&](int size, bool isBlind) {
        return Handle_T<orvi::Input>(new Pieces(bytes, size, isBlind));
    };
    const std::string whole = readAll<Text>(open(1, true), set); // a character after the other
    const std::vector<std::string> lines = readLines<Text>(open(1, true), set);
    const auto file = MemoryFile::createInstance();
    file->write(bytes.data(), static_cast<int>(bytes.size()));
    for (const Handle_T<orvi::Input>& source :
         {Handle_T<orvi::Input>(file), open(piece, false), open(piece, true)}) {
        file->setPosition(0);
        expect(readAll<Text>(source, set) == whole, "a text does not depend on the pieces in which it comes");
    }
    for (const Handle_T<orvi::Input>& source :
         {Handle_T<orvi::Input>(file), open(piece, false), open(piece, true)}) {
        file->setPosition(0);
        expect(readLines<Text>(source, set) == lines, "lines do not depend on the pieces in which they come");
    }

    std::string joined, kept;
    for (const std::string& line : lines)
        joined += line;
    for (std::size_t i = 0; i < whole.size(); i += sizeof(T)) {
        T element;
        std::memcpy(&element, whole.data() + i, sizeof element);
        if (element != '\n' && element != '\r')
            kept.append(whole, i, sizeof element);
    }
    expect(joined == kept, "lines are the text without line ends");
}

template <class Text>
std::string write(const Text& text, TextWriter::CharacterSet set)
{
    const auto file = MemoryFile::createInstance();
    TextWriter(file, set).write(text);
    std::string bytes(static_cast<std::size_t>(file->getArchiveSize()), 0);
    file->setPosition(0);
    file->read(bytes.data(), static_cast<int>(bytes.size()));
    return bytes;
}

std::string bytesBack(const std::string& bytes, TextReader::CharacterSet set)
{
    return readAll<String>(new Pieces(bytes, 4096, false), set);
}

/** The text up to its first NUL, without halves of surrogate pairs. */
String validPart(const String& text)
{
    std::vector<wchar_t> units;
    for (const wchar_t* p = text.getBuffer(); *p != 0; ++p) {
        const bool isPair = (*p & 0xFC00) == 0xD800 && (p[1] & 0xFC00) == 0xDC00;
        if (isPair)
            units.push_back(*p++);
        if (isPair || (*p & 0xF800) != 0xD800)
            units.push_back(*p);
    }
    return String(units.data(), static_cast<int>(units.size()));
}

void checkWrite(const String& given)
{
    write(given, TextWriter::ANSI);
    const std::string units = write(given, TextWriter::WIDE);
    expect(units == bytesOf(given), "units are written as they are");
    const String text = validPart(given);
    const std::string utf8 = write(text, TextWriter::UTF8);
    expect(bytesBack(utf8, TextReader::UTF8) == bytesOf(text), "UTF-8 comes back");
    expect(bytesBack(write(text, TextWriter::WIDE), TextReader::WIDE) == bytesOf(text), "units come back");
    expect(write(StringHelper::wideToUtf8(text), TextWriter::UTF8) == utf8,
           "narrow and wide texts give one UTF-8");
    expect(write(StringHelper::wideToUtf8(text), TextWriter::WIDE) == bytesOf(text),
           "narrow text is converted");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    checkWrite(fuzz::Input(data, size).takeText());

    static constexpr int pages[] = {1252, 932, 936, 949, 950, 65001, 1251, 1};
    fuzz::Input input(data, size);
    const std::uint8_t choice = input.takeByte();
    const int piece = input.takeByte() + 1;
    setCodePage(pages[choice >> 5]);
    const std::size_t most = 1024; // each byte is read several times, alone
    const std::string bytes(reinterpret_cast<const char*>(input.data()), std::min(input.size(), most));
    const auto set = static_cast<TextReader::CharacterSet>(choice % 3);
    checkRead<String, wchar_t>(bytes, set, piece);
    checkRead<String_T<char>, char>(bytes, set, piece);
    if (set == TextReader::ANSI)
        readAll<String_T<unsigned char>>(new Pieces(bytes, piece, false), set);
    else
        checkRead<String_T<unsigned char>, unsigned char>(bytes, set, piece);
    return 0;
}
