#include <orvi/core/Base64.h>

#include <orvi/core/Encoding.h>

#include "base/StringAccess.h"

#include <algorithm>
#include <array>
#include <limits>

namespace orvi {

namespace {

constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned char notInAlphabet = 0x80;

constexpr std::array<unsigned char, 128> makeValues()
{
    std::array<unsigned char, 128> values{};
    values.fill(notInAlphabet);
    for (unsigned char i = 0; i < 64; ++i)
        values[static_cast<unsigned char>(alphabet[i])] = i;
    return values;
}

constexpr std::array<unsigned char, 128> values = makeValues();

unsigned int valueOf(wchar_t character)
{
    return character < values.size() ? values[character] : notInAlphabet;
}

wchar_t letter(unsigned int value) { return static_cast<wchar_t>(alphabet[value & 0x3F]); }

wchar_t* encodeGroup(wchar_t* target, unsigned int bits)
{
    target[0] = letter(bits >> 18);
    target[1] = letter(bits >> 12);
    target[2] = letter(bits >> 6);
    target[3] = letter(bits);
    return target + 4;
}

/** Writes the first `size` bytes of a group of 24 bits, as far as there is room. */
void storeBytes(unsigned char* target, std::size_t room, unsigned int bits, std::size_t size)
{
    for (std::size_t i = 0; i < std::min(size, room); ++i, bits <<= 8)
        target[i] = static_cast<unsigned char>(bits >> 16);
}

/** The last group: what stands in front of the first character outside the alphabet. */
std::size_t decodeRest(const wchar_t* text, const wchar_t* end, unsigned char* target, std::size_t room)
{
    unsigned int bits = 0;
    std::size_t count = 0;
    for (; text + count < end && valueOf(text[count]) != notInAlphabet; ++count)
        bits |= valueOf(text[count]) << (18 - 6 * count);
    if (count == 0)
        return 0;
    storeBytes(target, room, bits, count - 1);
    return count - 1;
}

/** Decodes `length` characters, whole groups of 4. Gives all bytes of the text, also those beyond `capacity`.
 */
std::size_t decode(const wchar_t* text, int length, unsigned char* target, std::size_t capacity)
{
    const wchar_t* end = text + length;
    std::size_t size = 0;
    for (; text < end; text += 4, size += 3) {
        const unsigned int a = valueOf(text[0]), b = valueOf(text[1]), c = valueOf(text[2]),
                           d = valueOf(text[3]);
        const std::size_t written = std::min(size, capacity);
        const std::size_t room = capacity - written;
        if (((a | b | c | d) & notInAlphabet) != 0)
            return size + decodeRest(text, end, target + written, room);
        const unsigned int bits = a << 18 | b << 12 | c << 6 | d;
        if (room >= 3) {
            target[size] = static_cast<unsigned char>(bits >> 16);
            target[size + 1] = static_cast<unsigned char>(bits >> 8);
            target[size + 2] = static_cast<unsigned char>(bits);
        } else {
            storeBytes(target + written, room, bits, 3);
        }
    }
    return size;
}

} // namespace

String base64_encode(const void* data, int size)
{
    String text;
    if (size < 1)
        return text;
    const auto groups = (static_cast<std::size_t>(size) + 2) / 3;
    wchar_t* target = StringAccess<wchar_t>::prepare(text, groups * 4);
    if (target == nullptr)
        return text;
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (; size >= 3; size -= 3, bytes += 3)
        target = encodeGroup(target, static_cast<unsigned int>(bytes[0] << 16 | bytes[1] << 8 | bytes[2]));
    if (size > 0) {
        const int second = size > 1 ? bytes[1] : 0;
        target = encodeGroup(target, static_cast<unsigned int>(bytes[0] << 16 | second << 8));
        target[-1] = L'=';
        if (size == 1)
            target[-2] = L'=';
    }
    return text;
}

String base64_encode(const String& text)
{
    const String_T<char> utf8 = StringHelper::wideToUtf8(text);
    return base64_encode(utf8.getBuffer(), utf8.getBufferLength() - 1);
}

int base64_datasize(const String& text)
{
    const int length = text.getLength();
    int size = length / 4 * 3;
    for (const wchar_t* p = text.getBuffer() + length; size > 0 && *--p == L'=';)
        --size;
    return size;
}

int base64_decode(const String& text, void* data)
{
    return base64_decode(text, data, std::numeric_limits<int>::max());
}

int base64_decode(const String& text, void* data, int capacity)
{
    const int length = text.getLength();
    if (length % 4 != 0)
        return 0;
    const auto room = static_cast<std::size_t>(std::max(capacity, 0));
    return static_cast<int>(decode(text.getBuffer(), length, static_cast<unsigned char*>(data), room));
}

String base64_decode(const String& text)
{
    const int room = text.getLength() / 4 * 3;
    String_T<char> utf8;
    char* target = StringAccess<char>::prepare(utf8, static_cast<std::size_t>(room));
    if (room == 0 || target == nullptr)
        return String();
    target[base64_decode(text, target, room)] = 0;
    return StringHelper::utf8ToWide(target);
}

} // namespace orvi
