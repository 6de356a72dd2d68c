#include "TextBackEnd.h"

#include <orvi/core/Encoding.h>
#include <orvi/core/File.h>

#include "base/Utf8Char.h"
#include "platform/base/AsciiText.h"
#include "platform/base/CodePage.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <typeinfo>

namespace orvi {

namespace {

enum class Role { Text, Nothing, LineEnd };

/** What a character does in a text. */
Role roleOf(int value, TextExtent extent)
{
    if (value == 0)
        return Role::Nothing;
    if (extent == TextExtent::All || value > '\r')
        return Role::Text;
    return value == '\n' ? Role::LineEnd : value == '\r' ? Role::Nothing : Role::Text;
}

/** The characters above are text, whatever they are. */
unsigned char floorOf(TextExtent extent) { return extent == TextExtent::Line ? '\r' : 0; }

/** Runs `next`, which decodes one character, over a block; `floor` as for copyAsciiAbove. */
template <class T, class Next>
TextBlock decodeBlock(const unsigned char* bytes, std::size_t size, T* text, TextExtent extent,
                      unsigned char floor, const Next& next)
{
    T* end = text;
    std::size_t at = 0;
    while (at < size) {
        if (bytes[at] < 0x80 && bytes[at] > floor) {
            const std::size_t count = platform::copyAsciiAbove(floor, bytes + at, size - at, end);
            at += count;
            end += count;
            continue;
        }
        const DecodedChar character = next(bytes + at, size - at);
        if (character.used == 0)
            break;
        at += character.used;
        const Role role = roleOf(character.value, extent);
        if (role == Role::LineEnd)
            return {at, static_cast<std::size_t>(end - text), true};
        if (role == Role::Text)
            end = putChar(end, character.value);
    }
    return {at, static_cast<std::size_t>(end - text), false};
}

DecodedChar nextUtf8(const unsigned char* bytes, std::size_t size)
{
    return decodeUtf8Char(bytes, size, Utf8Rest::MayCome);
}

constexpr int lacksTables = -2;

/** The first unit of one or two bytes; 0 when the code page does not exist, `lacksTables` when it cannot be had now. */
int ansiUnit(int codePage, const unsigned char* bytes, std::size_t size)
{
    wchar_t units[2] = {};
    const auto text = reinterpret_cast<const char*>(bytes);
    const std::ptrdiff_t result = platform::codePageToWide(codePage, text, size, units, 2);
    return result == platform::codePageLacksTables ? lacksTables : units[0];
}

/** Whether every ASCII byte is the character of its number: not so in a page with shift codes, nor in one that
    does not exist. Throws std::bad_alloc when the page cannot be had now; once it answers it is there for good. */
bool keepsAscii(int codePage)
{
    const unsigned char shiftOut = 0x0E;
    const int unit = ansiUnit(codePage, &shiftOut, 1);
    if (unit == lacksTables)
        throw std::bad_alloc();
    return unit == shiftOut;
}

} // namespace

TextReader::IReader::IReader(Input* input)
    : _input(input)
    , _isFile(typeid(*input) == typeid(File) || typeid(*input) == typeid(TempFile))
{}

int TextReader::IReader::available()
{
    if (_aheadSize > 0)
        return _aheadSize;
    // A file's answer is a system call, which would be most of what a short line costs. An old answer does no
    // harm: a file that has less by now delivers nothing, which ends a text as well.
    if (!_isFile)
        return _input->available();
    if (_announced <= 0)
        _announced = _input->available();
    return _announced;
}

int TextReader::IReader::fetch(unsigned char* bytes, int size)
{
    const int count = valid(_input->read(bytes, size), size);
    _taken += static_cast<unsigned int>(count);
    _announced -= std::min(_announced, count);
    return count;
}

bool TextReader::IReader::take(unsigned char& byte)
{
    if (_aheadSize == 0)
        return fetch(&byte, 1) == 1;
    byte = _ahead[0];
    --_aheadSize;
    std::memmove(_ahead, _ahead + 1, static_cast<std::size_t>(_aheadSize));
    ++_taken;
    return true;
}

int TextReader::IReader::lookAhead(unsigned char* bytes, int size) const
{
    const int waiting = std::min(_aheadSize, size);
    std::memcpy(bytes, _ahead, static_cast<std::size_t>(waiting));
    return waiting < size ? waiting + peek(bytes + waiting, size - waiting) : waiting;
}

void TextReader::IReader::giveBack(const unsigned char* bytes, std::size_t size)
{
    // More than that only from a source that peeks other bytes than it reads.
    const int count = static_cast<int>(std::min<std::size_t>(size, std::size_t(aheadCapacity - _aheadSize)));
    std::memmove(_ahead + count, _ahead, static_cast<std::size_t>(_aheadSize));
    std::memcpy(_ahead, bytes, static_cast<std::size_t>(count));
    _aheadSize += count;
}

int Utf8Reader::getChar()
{
    unsigned char bytes[4];
    if (!take(bytes[0]))
        return -1;
    if (isUtf8FourByteLead(bytes[0])) {
        // A lead without the rest is taken alone: what follows stays in the source if that lets us see it.
        const int known = lookAhead(bytes + 1, 3);
        const Utf8Rest rest = known < 3 && isAll(known) ? Utf8Rest::IsNone : Utf8Rest::MayCome;
        const DecodedChar alone = decodeUtf8Char(bytes, 1 + static_cast<std::size_t>(known), rest);
        if (known > 0 && alone.used == 1)
            return alone.value;
    }
    std::size_t size = 1;
    DecodedChar character = nextUtf8(bytes, size);
    while (character.used == 0) {
        const bool came = take(bytes[size]);
        size += came ? 1 : 0;
        character = decodeUtf8Char(bytes, size, came ? Utf8Rest::MayCome : Utf8Rest::IsNone);
    }
    giveBack(bytes + character.used, size - character.used);
    return character.value;
}

TextBlock Utf8Reader::decode(const unsigned char* bytes, std::size_t size, wchar_t* text, TextExtent extent)
{
    return decodeBlock(bytes, size, text, extent, floorOf(extent), nextUtf8);
}

TextBlock Utf8Reader::decode(const unsigned char* bytes, std::size_t size, char* text, TextExtent extent)
{
    return decodeBlock(bytes, size, text, extent, floorOf(extent), nextUtf8);
}

int WideReader::getChar()
{
    unsigned char low = 0;
    unsigned char high = 0;
    return take(low) && take(high) ? low | high << 8 : -1;
}

TextBlock WideReader::decode(const unsigned char* bytes, std::size_t size, wchar_t* text, TextExtent extent)
{
    wchar_t* end = text;
    std::size_t at = 0;
    while (size - at >= 2) {
        const int unit = bytes[at] | bytes[at + 1] << 8;
        at += 2;
        const Role role = roleOf(unit, extent);
        if (role == Role::LineEnd)
            return {at, static_cast<std::size_t>(end - text), true};
        if (role == Role::Text)
            *end++ = static_cast<wchar_t>(unit);
    }
    return {at, static_cast<std::size_t>(end - text), false};
}

int AnsiReader::getChar()
{
    unsigned char bytes[2];
    if (!take(bytes[0]))
        return -1;
    const bool isPair = bytes[0] >= 0x80;
    if (isPair && !take(bytes[1]))
        return 0;
    const std::size_t size = isPair ? 2 : 1;
    const int unit = ansiUnit(getCodePage(), bytes, size);
    if (unit == lacksTables) {
        giveBack(bytes, size);
        throw std::bad_alloc();
    }
    return unit;
}

TextBlock AnsiReader::decode(const unsigned char* bytes, std::size_t size, wchar_t* text, TextExtent extent)
{
    const int codePage = getCodePage();
    const unsigned char floor = keepsAscii(codePage) ? floorOf(extent) : 0x7F;
    const auto next = [codePage](const unsigned char* p, std::size_t rest) -> DecodedChar {
        const std::size_t length = *p < 0x80 ? 1 : 2;
        return length > rest ? DecodedChar{0, 0} : DecodedChar{length, ansiUnit(codePage, p, length)};
    };
    return decodeBlock(bytes, size, text, extent, floor, next);
}

} // namespace orvi
