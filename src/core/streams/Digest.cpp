#include <orvi/core/Digest.h>

#include <algorithm>
#include <bit>
#include <utility>

namespace orvi {

namespace {

constexpr std::size_t blockSize = 64;
constexpr int digestSize = 16;

// The integer part of 2^32 * |sin(i + 1)|.
constexpr std::uint32_t sines[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391,
};

constexpr int rotations[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

// Byte by byte, which the compilers make one load of: no question of alignment or order.
std::uint32_t loadWord(const unsigned char* p)
{
    return static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8 |
           static_cast<std::uint32_t>(p[2]) << 16 | static_cast<std::uint32_t>(p[3]) << 24;
}

void storeWord(unsigned char* p, std::uint32_t word)
{
    p[0] = static_cast<unsigned char>(word);
    p[1] = static_cast<unsigned char>(word >> 8);
    p[2] = static_cast<unsigned char>(word >> 16);
    p[3] = static_cast<unsigned char>(word >> 24);
}

/** One of the 64 steps. Its number picks the function, the word and the roles of the four registers, all at
    compile time: what is left is straight code. */
template <std::size_t i>
inline void step(std::uint32_t (&registers)[4], const unsigned char* block)
{
    constexpr std::size_t round = i / 16;
    constexpr std::size_t words[4] = {i, 5 * i + 1, 3 * i + 5, 7 * i};
    std::uint32_t& a = registers[(64 - i) % 4];
    const std::uint32_t b = registers[(65 - i) % 4];
    const std::uint32_t c = registers[(66 - i) % 4];
    const std::uint32_t d = registers[(67 - i) % 4];
    a += loadWord(block + words[round] % 16 * 4) + sines[i];
    if constexpr (round == 0)
        a += d ^ (b & (c ^ d));
    else if constexpr (round == 1)
        a += (c & ~d) + (b & d); // the halves share no bit; only the second waits for b
    else if constexpr (round == 2)
        a += b ^ c ^ d;
    else
        a += c ^ (b | ~d);
    a = b + std::rotl(a, rotations[round][i % 4]);
}

template <std::size_t... i>
inline void steps(std::uint32_t (&registers)[4], const unsigned char* block, std::index_sequence<i...>)
{
    (step<i>(registers, block), ...);
}

void transformBlocks(std::uint32_t* state, const unsigned char* data, std::size_t blocks)
{
    std::uint32_t registers[4] = {state[0], state[1], state[2], state[3]};
    for (; blocks > 0; --blocks, data += blockSize) {
        const std::uint32_t a = registers[0], b = registers[1], c = registers[2], d = registers[3];
        steps(registers, data, std::make_index_sequence<64>());
        registers[0] += a;
        registers[1] += b;
        registers[2] += c;
        registers[3] += d;
    }
    std::copy_n(registers, 4, state);
}

} // namespace

void MD5Init(MD5Context* context)
{
    *context = {{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476}, {0, 0}, {}};
}

void MD5Update(MD5Context* context, const void* data, unsigned int size)
{
    const auto* bytes = static_cast<const unsigned char*>(data);
    std::size_t left = size;
    const std::size_t filled = context->count[0] / 8 % blockSize;
    const std::uint64_t bits = (static_cast<std::uint64_t>(context->count[1]) << 32 | context->count[0]) +
                               static_cast<std::uint64_t>(size) * 8;
    context->count[0] = static_cast<std::uint32_t>(bits);
    context->count[1] = static_cast<std::uint32_t>(bits >> 32);
    if (filled > 0) {
        const std::size_t part = std::min(left, blockSize - filled);
        std::copy_n(bytes, part, context->buffer + filled);
        if (filled + part < blockSize)
            return;
        transformBlocks(context->state, context->buffer, 1);
        bytes += part;
        left -= part;
    }
    transformBlocks(context->state, bytes, left / blockSize);
    std::copy_n(bytes + left / blockSize * blockSize, left % blockSize, context->buffer);
}

void MD5Final(unsigned char digest[16], MD5Context* context)
{
    constexpr std::size_t lengthPlace = blockSize - 8;
    static constexpr unsigned char padding[blockSize] = {0x80};
    unsigned char length[8];
    storeWord(length, context->count[0]);
    storeWord(length + 4, context->count[1]);
    const std::size_t filled = context->count[0] / 8 % blockSize;
    const std::size_t pad = (filled < lengthPlace ? lengthPlace : blockSize + lengthPlace) - filled;
    MD5Update(context, padding, static_cast<unsigned int>(pad));
    MD5Update(context, length, sizeof length);
    for (std::size_t i = 0; i < 4; ++i)
        storeWord(digest + 4 * i, context->state[i]);
}

void MD5Final(MD5Checksum* checksum, MD5Context* context)
{
    if (checksum->setBufferSize(digestSize) == digestSize)
        MD5Final(static_cast<unsigned char*>(checksum->getBuffer()), context);
}

void MD5Transform(unsigned int state[4], const unsigned char block[64]) { transformBlocks(state, block, 1); }

String MD5Checksum::convertToString() const
{
    return getBufferSize() == digestSize ? convertToHex() : String(L"00000000000000000000000000000000");
}

bool MD5Checksum::convertFromString(const String& text)
{
    if (text.getLength() == 2 * digestSize && convertFromHex(text))
        return true;
    setBufferSize(0);
    return false;
}

} // namespace orvi
