#include "Utf8.h"

#include "Transcode.h"

namespace orvi::platform {
namespace {

constexpr wchar_t replacement = 0xFFFD;

bool isContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }
bool isHighSurrogate(wchar_t unit) { return (unit & 0xFC00) == 0xD800; }
bool isLowSurrogate(wchar_t unit) { return (unit & 0xFC00) == 0xDC00; }
bool isSurrogate(wchar_t unit) { return (unit & 0xF800) == 0xD800; }

/** What may follow `lead` of a sequence of three or four bytes: no overlong form, no surrogate, nothing above
    U+10FFFF. */
bool isSecondByte(unsigned char lead, unsigned char byte)
{
    switch (lead) {
    case 0xE0:
        return byte >= 0xA0 && byte <= 0xBF;
    case 0xED:
        return byte >= 0x80 && byte <= 0x9F;
    case 0xF0:
        return byte >= 0x90 && byte <= 0xBF;
    case 0xF4:
        return byte >= 0x80 && byte <= 0x8F;
    default:
        return isContinuation(byte);
    }
}

Step<wchar_t> malformed(std::size_t consumed) { return Step<wchar_t>::make(consumed, replacement); }

struct Utf8Decoder {
    Step<wchar_t> operator()(const unsigned char* source, std::size_t size) const
    {
        const unsigned char lead = source[0];
        if (lead < 0x80)
            return Step<wchar_t>::make(1, lead);
        if (lead < 0xC2 || lead > 0xF4 || size < 2)
            return malformed(1);
        if (lead < 0xE0)
            return isContinuation(source[1]) ? twoBytes(source) : malformed(1);
        if (!isSecondByte(lead, source[1]))
            return malformed(1);
        if (size < 3 || !isContinuation(source[2]))
            return malformed(2);
        if (lead < 0xF0)
            return threeBytes(source);
        if (size < 4 || !isContinuation(source[3]))
            return malformed(3);
        return fourBytes(source);
    }

private:
    static Step<wchar_t> twoBytes(const unsigned char* source)
    {
        return Step<wchar_t>::make(2, wchar_t((source[0] & 0x1F) << 6 | (source[1] & 0x3F)));
    }

    static Step<wchar_t> threeBytes(const unsigned char* source)
    {
        return Step<wchar_t>::make(
            3, wchar_t((source[0] & 0x0F) << 12 | (source[1] & 0x3F) << 6 | (source[2] & 0x3F)));
    }

    static Step<wchar_t> fourBytes(const unsigned char* source)
    {
        const int above = ((source[0] & 0x07) << 18 | (source[1] & 0x3F) << 12 | (source[2] & 0x3F) << 6 |
                           (source[3] & 0x3F)) -
                          0x10000;
        return Step<wchar_t>::make(4, wchar_t(0xD800 | above >> 10), wchar_t(0xDC00 | (above & 0x3FF)));
    }
};

struct Utf8Encoder {
    Step<unsigned char> operator()(const wchar_t* source, std::size_t size) const
    {
        const wchar_t unit = source[0];
        if (unit < 0x80)
            return Step<unsigned char>::make(1, byte(unit));
        if (unit < 0x800)
            return Step<unsigned char>::make(1, byte(0xC0 | unit >> 6), tail(unit));
        if (!isSurrogate(unit))
            return threeBytes(unit);
        if (isHighSurrogate(unit) && size > 1 && isLowSurrogate(source[1]))
            return fourBytes(0x10000 + ((unit & 0x3FF) << 10 | (source[1] & 0x3FF)));
        return threeBytes(replacement);
    }

private:
    static unsigned char byte(int value) { return static_cast<unsigned char>(value); }
    static unsigned char tail(int value) { return byte(0x80 | (value & 0x3F)); }

    static Step<unsigned char> threeBytes(wchar_t unit)
    {
        return Step<unsigned char>::make(1, byte(0xE0 | unit >> 12), tail(unit >> 6), tail(unit));
    }

    static Step<unsigned char> fourBytes(int ch)
    {
        return Step<unsigned char>::make(2, byte(0xF0 | ch >> 18), tail(ch >> 12), tail(ch >> 6), tail(ch));
    }
};

constexpr wchar_t strayByte = 0xDC00;

struct PathDecoder {
    Step<wchar_t> operator()(const unsigned char* source, std::size_t size) const
    {
        const Step<wchar_t> step = Utf8Decoder()(source, size);
        const bool isText = step.element(0) != replacement || (source[0] == 0xEF && step.consumed == 3);
        return isText ? step : Step<wchar_t>::make(1, wchar_t(strayByte | source[0]));
    }
};

struct PathEncoder {
    Step<unsigned char> operator()(const wchar_t* source, std::size_t size) const
    {
        // The second half of a pair does not get here: it goes with the first.
        if (source[0] >= (strayByte | 0x80) && source[0] <= (strayByte | 0xFF))
            return Step<unsigned char>::make(1, static_cast<unsigned char>(source[0] & 0xFF));
        return Utf8Encoder()(source, size);
    }
};

} // namespace

std::size_t utf8ToWide(const unsigned char* source, std::size_t size, wchar_t* target, std::size_t capacity)
{
    return convertText(source, size, target, capacity, Utf8Decoder());
}

std::size_t wideToUtf8(const wchar_t* source, std::size_t size, unsigned char* target, std::size_t capacity)
{
    return convertText(source, size, target, capacity, Utf8Encoder());
}

std::size_t pathToWide(const unsigned char* source, std::size_t size, wchar_t* target, std::size_t capacity)
{
    return convertText(source, size, target, capacity, PathDecoder());
}

std::size_t wideToPath(const wchar_t* source, std::size_t size, unsigned char* target, std::size_t capacity)
{
    return convertText(source, size, target, capacity, PathEncoder());
}

} // namespace orvi::platform
