#include <orvi/core/Text.h>

#include <orvi/core/Encoding.h>

#include "TextBackEnd.h"
#include "base/TextBuilder.h"
#include "base/Utf8Char.h"
#include "platform/base/CodePage.h"

#include <algorithm>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>

namespace orvi {

namespace {

/** Reads one text. Bytes come in blocks, never more than the source announces, and a line's no further than to
    its end, so that the result is that of reading character by character. */
template <class Reader, class T>
class TextPass {
public:
    TextPass(Reader& reader, TextExtent extent)
        : _reader(reader)
        , _extent(extent)
    {}

    /** False when the text is too long; `text` stays then. Throws std::bad_alloc without memory. */
    bool run(int available, String_T<T>& text)
    {
        if (_extent == TextExtent::All) {
            _text.expect(static_cast<std::size_t>(std::max(available, 0)) + blockSize);
            // What decoding lacks is noticed before bytes are taken.
            _reader.decode(_bytes, 0, static_cast<T*>(nullptr), _extent);
        }
        State state = State::More;
        while (state == State::More && available > 0) {
            state = step(available);
            if (state == State::More)
                available = _reader.available();
        }
        if (state != State::Failed && _text.finish(text))
            return true;
        if (!_text.isTooLong())
            throw std::bad_alloc();
        return false;
    }

private:
    enum class State { More, Ended, Failed };

    static constexpr int blockSize = 16384;
    static constexpr int firstLook = 256; // most lines are shorter

    State step(int available)
    {
        if (_reader.hasAhead())
            return readChar();
        return _extent == TextExtent::All ? readBlock(std::min(available, blockSize))
                                          : readPart(std::min(available, _look));
    }

    State readBlock(int size)
    {
        const int count = _reader.fetch(_bytes, size);
        return count > 0 ? decode(count) : State::Ended;
    }

    /** Decodes bytes that were taken from the source. */
    State decode(int count)
    {
        const auto size = static_cast<std::size_t>(count);
        T* room = _text.room(size);
        if (room == nullptr)
            return State::Failed;
        const TextBlock block = _reader.decode(_bytes, size, room, _extent);
        _text.add(block.produced);
        _reader.giveBack(_bytes + block.used, size - block.used);
        return block.lineEnded ? State::Ended : State::More;
    }

    /** Looks at the bytes first, and takes those up to the end of the line. */
    State readPart(int size)
    {
        const int known = _reader.peek(_bytes, size);
        if (known == 0)
            return readChar();
        T* room = _text.room(static_cast<std::size_t>(known));
        if (room == nullptr)
            return State::Failed;
        const TextBlock block = _reader.decode(_bytes, static_cast<std::size_t>(known), room, _extent);
        if (block.used == 0)
            return readChar();
        const int count = _reader.fetch(_bytes, static_cast<int>(block.used));
        if (count == 0)
            return State::Ended;
        if (count < static_cast<int>(block.used))
            return decode(count);
        _text.add(block.produced);
        _look = std::min(2 * _look, blockSize);
        return block.lineEnded ? State::Ended : State::More;
    }

    State readChar()
    {
        constexpr std::size_t mostElements = 4;
        T* room = _text.room(mostElements);
        if (room == nullptr)
            return State::Failed;
        const int value = _reader.getChar();
        if (value < 0)
            return State::Ended;
        if (_extent == TextExtent::Line && value == '\n')
            return State::Ended;
        if (value != 0 && (_extent == TextExtent::All || value != '\r'))
            _text.add(static_cast<std::size_t>(putChar(room, value) - room));
        return State::More;
    }

    Reader& _reader;
    const TextExtent _extent;
    int _look = firstLook;
    TextBuilder<T> _text;
    unsigned char _bytes[blockSize];
};

/** False, and `text` stays, when a line has no beginning or the text does not fit into a string. */
template <class Reader, class T>
bool readAs(Reader& reader, TextExtent extent, String_T<T>& text)
{
    const int available = reader.available();
    if (extent == TextExtent::Line && available < 1)
        return false;
    const unsigned int taken = reader.taken();
    String_T<T> fresh;
    if (!TextPass<Reader, T>(reader, extent).run(available, fresh))
        return false;
    // A source that announces bytes and delivers none would give empty lines for ever.
    if (extent == TextExtent::Line && reader.taken() == taken)
        return false;
    text = std::move(fresh);
    return true;
}

/** Calls `put` with each character: a code point for two surrogates that belong together. */
template <class Put>
void forEachChar(const String& text, const Put& put)
{
    const wchar_t* p = text.getBuffer();
    const wchar_t* const end = p + StringAccess<wchar_t>::length(text);
    while (p < end) {
        int value = *p++;
        if ((value & 0xFC00) == 0xD800 && (*p & 0xFC00) == 0xDC00)
            value = 0x10000 + ((value & 0x3FF) << 10 | (*p++ & 0x3FF));
        put(value);
    }
}

/** Room for a narrow text; null when it would be too long. */
template <class T>
T* prepare(String_T<T>& text, std::size_t size)
{
    T* const room = StringAccess<T>::prepare(text, size);
    if (room == nullptr && size < std::numeric_limits<int>::max())
        throw std::bad_alloc();
    return room;
}

/** A lone surrogate keeps its own three bytes. */
bool convert(const String& wide, String_T<char>& text)
{
    std::size_t size = 0;
    forEachChar(wide, [&](int value) {
        size += value < 0x80 ? 1 : value < 0x800 ? 2 : value < 0x10000 ? 3 : 4;
    });
    char* room = prepare(text, size);
    if (room != nullptr && size > 0)
        forEachChar(wide, [&](int value) { room = putChar(room, value); });
    return room != nullptr;
}

bool convert(const String& wide, String_T<unsigned char>& text)
{
    const int codePage = getCodePage();
    const std::size_t units = StringAccess<wchar_t>::length(wide);
    const std::ptrdiff_t needed = platform::wideToCodePage(codePage, wide, units, nullptr, 0);
    if (needed == platform::codePageLacksTables)
        throw std::bad_alloc();
    const auto size = static_cast<std::size_t>(std::max<std::ptrdiff_t>(needed, 0));
    unsigned char* room = prepare(text, size);
    if (room != nullptr && size > 0)
        platform::wideToCodePage(codePage, wide, units, reinterpret_cast<char*>(room), size);
    return room != nullptr;
}

bool readText(TextReader::IReader& reader, TextExtent extent, String& text)
{
    return readAs(reader, extent, text);
}

template <class T>
bool readText(TextReader::IReader& reader, TextExtent extent, String_T<T>& text)
{
    if constexpr (std::is_same_v<T, char>) {
        if (auto* utf8 = dynamic_cast<Utf8Reader*>(&reader))
            return readAs(*utf8, extent, text);
    }
    String wide;
    return readAs(reader, extent, wide) && convert(wide, text);
}

template <class T>
bool readAll(TextReader::IReader* reader, String_T<T>& text)
{
    if (reader == nullptr)
        return false;
    text = String_T<T>();
    return readText(*reader, TextExtent::All, text);
}

template <class T>
bool readOneLine(TextReader::IReader* reader, String_T<T>& line)
{
    return reader != nullptr && readText(*reader, TextExtent::Line, line);
}

TextReader::IReader* createReader(Input* input, TextReader::CharacterSet set)
{
    switch (set) {
    case TextReader::UTF8:
        return new Utf8Reader(input);
    case TextReader::WIDE:
        return new WideReader(input);
    case TextReader::ANSI:
        return new AnsiReader(input);
    }
    return nullptr;
}

} // namespace

TextReader::TextReader() noexcept = default;

TextReader::TextReader(Input* input, CharacterSet set) { open(input, set); }

TextReader::TextReader(const TextReader& other) noexcept = default;

TextReader& TextReader::operator=(const TextReader& other) noexcept = default;

TextReader::~TextReader() = default;

bool TextReader::open(Input* input, CharacterSet set)
{
    const Handle_T<Input> held = input; // the old back end may be all that keeps it alive
    close();
    if (input != nullptr)
        _reader = createReader(input, set);
    return !_reader.isNull();
}

void TextReader::close() { _reader.setNull(); }

bool TextReader::read(String& text) { return readAll<wchar_t>(_reader, text); }

bool TextReader::read(String_T<char>& text) { return readAll<char>(_reader, text); }

bool TextReader::read(String_T<unsigned char>& text) { return readAll<unsigned char>(_reader, text); }

bool TextReader::readLine(String& line) { return readOneLine<wchar_t>(_reader, line); }

bool TextReader::readLine(String_T<char>& line) { return readOneLine<char>(_reader, line); }

bool TextReader::readLine(String_T<unsigned char>& line) { return readOneLine<unsigned char>(_reader, line); }

} // namespace orvi
