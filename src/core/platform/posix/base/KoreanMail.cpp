#include "KoreanMail.h"

#include <cstring>

namespace orvi::platform {
namespace {

constexpr unsigned char announcement[] = {0x1B, '$', ')', 'C'};
constexpr unsigned char shiftOut = 0x0E;
constexpr unsigned char shiftIn = 0x0F;

/** Takes whole characters as long as they fit, and counts on behind that. */
template <class T>
class Cutter {
public:
    Cutter(T* target, std::size_t capacity)
        : _target(target)
        , _capacity(capacity)
    {}

    void put(const T* text, std::size_t size)
    {
        if (_total <= _capacity && size <= _capacity - _total)
            std::memcpy(_target + _total, text, size * sizeof(T));
        else
            _capacity = 0;
        _total += size;
    }

    std::size_t total() const { return _total; }

private:
    T* _target;
    std::size_t _capacity;
    std::size_t _total = 0;
};

bool isHalf(unsigned char byte) { return byte > 0x20 && byte < 0x7F; }

bool startsWithAnnouncement(const unsigned char* source, std::size_t size)
{
    return size >= sizeof announcement && std::memcmp(source, announcement, sizeof announcement) == 0;
}

wchar_t koreanUnit(const DoubleByteTables& tables, unsigned char first, unsigned char second)
{
    const std::uint8_t row = tables.rows[first | 0x80];
    return row == 0 ? L'?' : tables.units[row][second | 0x80];
}

/** The code of a character that ISO-2022-KR has, else 0: page 949 has more, with other second bytes. */
unsigned koreanCode(const DoubleByteTables& tables, wchar_t unit)
{
    const unsigned code = tables.codes[unit];
    return code >= 0xA1A1 && (code & 0xFF) >= 0xA1 ? code : 0;
}

} // namespace

std::size_t koreanMailToWide(const DoubleByteTables& tables, const unsigned char* source, std::size_t size,
                             wchar_t* target, std::size_t capacity)
{
    Cutter<wchar_t> out(target, capacity);
    bool shifted = false;
    for (std::size_t at = 0; at < size; ++at) {
        const unsigned char byte = source[at];
        if (byte == shiftOut || byte == shiftIn) {
            shifted = byte == shiftOut;
            continue;
        }
        if (startsWithAnnouncement(source + at, size - at)) {
            at += sizeof announcement - 1;
            continue;
        }
        wchar_t unit = byte < 0x80 ? wchar_t(byte) : L'?';
        if (shifted && isHalf(byte)) {
            const bool isPair = at + 1 < size && isHalf(source[at + 1]);
            unit = isPair ? koreanUnit(tables, byte, source[++at]) : L'?';
        }
        out.put(&unit, 1);
    }
    return out.total();
}

std::size_t wideToKoreanMail(const DoubleByteTables& tables, const wchar_t* source, std::size_t size,
                             unsigned char* target, std::size_t capacity)
{
    Cutter<unsigned char> out(target, capacity);
    bool announced = false;
    bool shifted = false;
    for (std::size_t at = 0; at < size; ++at) {
        unsigned char text[sizeof announcement + 3];
        std::size_t length = 0;
        const unsigned code = koreanCode(tables, source[at]);
        if (code != 0 && !announced) {
            std::memcpy(text, announcement, sizeof announcement);
            length = sizeof announcement;
            announced = true;
        }
        if ((code != 0) != shifted) {
            shifted = !shifted;
            text[length++] = shifted ? shiftOut : shiftIn;
        }
        if (code != 0) {
            text[length++] = static_cast<unsigned char>(code >> 8 & 0x7F);
            text[length++] = static_cast<unsigned char>(code & 0x7F);
        } else {
            text[length++] = source[at] < 0x80 ? static_cast<unsigned char>(source[at]) : '?';
        }
        out.put(text, length);
    }
    if (shifted)
        out.put(&shiftIn, 1);
    return out.total();
}

} // namespace orvi::platform
