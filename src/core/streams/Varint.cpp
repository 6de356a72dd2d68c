#include <orvi/core/Varint.h>

#include <orvi/core/Exception.h>
#include <orvi/core/Stream.h>

namespace orvi {

namespace {

constexpr int bitsPerByte = 7;
constexpr unsigned char moreFollows = 0x80;

/** The bytes that a number of `bits` bits may take. */
constexpr int maxBytes(int bits) { return (bits + bitsPerByte - 1) / bitsPerByte; }

std::uint64_t readGroups(InputStream& is, int limit)
{
    std::uint64_t groups = 0;
    for (int i = 0; i < limit; ++i) {
        unsigned char byte = 0;
        is >> byte;
        groups |= static_cast<std::uint64_t>(byte & ~moreFollows) << (i * bitsPerByte);
        if ((byte & moreFollows) == 0)
            return groups;
    }
    THROW_EXCEPTION(-1, L"Tyis& operator >>(Tyis &is, Varint_T &v)");
}

void writeGroups(OutputStream& os, std::uint64_t groups)
{
    unsigned char bytes[maxBytes(64)];
    int size = 0;
    for (; groups >= moreFollows; groups >>= bitsPerByte)
        bytes[size++] = static_cast<unsigned char>(groups | moreFollows);
    bytes[size++] = static_cast<unsigned char>(groups);
    if (os.write(bytes, size) != size)
        THROW_EXCEPTION(-1, L"Tyos& operator <<(Tyos &os, const Varint_T &v)");
}

// Zig-zag keeps small negative numbers short: 0, -1, 1, -2 become 0, 1, 2, 3.
template <class Unsigned, class Signed>
Unsigned toZigZag(Signed value)
{
    const auto bits = static_cast<Unsigned>(value);
    return static_cast<Unsigned>((bits << 1) ^ (value < 0 ? ~Unsigned(0) : Unsigned(0)));
}

template <class Signed, class Unsigned>
Signed fromZigZag(Unsigned bits)
{
    return static_cast<Signed>((bits >> 1) ^ (Unsigned(0) - (bits & 1)));
}

} // namespace

InputStream& operator>>(InputStream& is, Varint& value)
{
    // What the fifth byte has beyond 32 bits is dropped.
    value = fromZigZag<std::int32_t>(static_cast<std::uint32_t>(readGroups(is, maxBytes(32))));
    return is;
}

OutputStream& operator<<(OutputStream& os, const Varint& value)
{
    writeGroups(os, toZigZag<std::uint32_t>(value._value));
    return os;
}

InputStream& operator>>(InputStream& is, Varint64& value)
{
    value = fromZigZag<std::int64_t>(readGroups(is, maxBytes(64)));
    return is;
}

OutputStream& operator<<(OutputStream& os, const Varint64& value)
{
    writeGroups(os, toZigZag<std::uint64_t>(value._value));
    return os;
}

} // namespace orvi
