#pragma once
#include <cstddef>

/** UTF-8 as the text readers take it: malformed bytes give characters, not marks of an error. */
namespace orvi {

struct DecodedChar {
    std::size_t used; // bytes; 0 when more are needed to tell
    int value;
};

enum class Utf8Rest {
    MayCome, // behind the bytes given
    IsNone
};

inline bool isUtf8Continuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }
inline bool isUtf8FourByteLead(unsigned char byte) { return byte >= 0xF0 && byte <= 0xF4; }

/** A sequence of four bytes that is well-formed; else its lead is a character of its own, and the bytes behind
    it are looked at afresh. */
inline DecodedChar decodeUtf8Four(const unsigned char* bytes, std::size_t size, Utf8Rest rest)
{
    const unsigned char lowest[] = {static_cast<unsigned char>(bytes[0] == 0xF0 ? 0x90 : 0x80), 0x80, 0x80};
    const unsigned char highest[] = {static_cast<unsigned char>(bytes[0] == 0xF4 ? 0x8F : 0xBF), 0xBF, 0xBF};
    int value = bytes[0] & 0x07;
    for (std::size_t i = 1; i < 4; ++i) {
        if (i == size && rest == Utf8Rest::MayCome)
            return {0, 0};
        if (i == size || bytes[i] < lowest[i - 1] || bytes[i] > highest[i - 1])
            return {1, bytes[0] & 0x7F};
        value = value << 6 | (bytes[i] & 0x3F);
    }
    return {4, value};
}

/** The first character of `size` bytes, at least 1. A lead byte of a sequence of two or three takes the next
    byte, and of three one more if that continued it; the first byte that does not is dropped. What remains of
    the sequence is decoded as one of its length, and a byte alone by its low seven bits. */
inline DecodedChar decodeUtf8Char(const unsigned char* bytes, std::size_t size, Utf8Rest rest)
{
    const unsigned char lead = bytes[0];
    if (isUtf8FourByteLead(lead))
        return decodeUtf8Four(bytes, size, rest);
    if (lead < 0xC0 || lead >= 0xF0)
        return {1, lead & 0x7F};
    if (size < 2)
        return {rest == Utf8Rest::IsNone ? 1u : 0u, lead & 0x7F};
    if (!isUtf8Continuation(bytes[1]))
        return {2, lead & 0x7F};
    const int two = (lead & 0x1F) << 6 | (bytes[1] & 0x3F);
    if (lead < 0xE0)
        return {2, two};
    if (size < 3)
        return {rest == Utf8Rest::IsNone ? 2u : 0u, two};
    if (!isUtf8Continuation(bytes[2]))
        return {3, two};
    return {3, ((lead & 0x0F) << 6 | (bytes[1] & 0x3F)) << 6 | (bytes[2] & 0x3F)};
}

/** Writes the character and gives the end; `text` has room for as many elements as the bytes it came from. */
inline wchar_t* putChar(wchar_t* text, int value)
{
    if (value > 0xFFFF) {
        *text++ = static_cast<wchar_t>(0xD800 + ((value - 0x10000) >> 10));
        value = 0xDC00 | (value & 0x3FF);
    }
    *text++ = static_cast<wchar_t>(value);
    return text;
}

inline char* putChar(char* text, int value)
{
    if (value < 0x80) {
        *text++ = static_cast<char>(value);
        return text;
    }
    if (value < 0x800) {
        *text++ = static_cast<char>(0xC0 | value >> 6);
    } else {
        if (value > 0xFFFF)
            *text++ = static_cast<char>(0xF0 | value >> 18);
        *text++ = static_cast<char>(value > 0xFFFF ? 0x80 | (value >> 12 & 0x3F) : 0xE0 | value >> 12);
        *text++ = static_cast<char>(0x80 | (value >> 6 & 0x3F));
    }
    *text++ = static_cast<char>(0x80 | (value & 0x3F));
    return text;
}

} // namespace orvi
