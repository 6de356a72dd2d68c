#include "platform/base/AsciiText.h"

#include "AsciiRun.h"

namespace orvi::platform {
namespace {

bool isAbove(unsigned char floor, unsigned char byte) { return byte > floor && isAscii(byte); }

/** Whether all of a block is above the floor and ASCII: bytes from 128 on are negative. */
bool isBlockAbove(unsigned char floor, const unsigned char* source)
{
#if defined(__SSE2__)
    const __m128i above = _mm_cmpgt_epi8(loadBlock(source), _mm_set1_epi8(static_cast<char>(floor)));
    return _mm_movemask_epi8(above) == 0xFFFF;
#else
    for (std::size_t i = 0; i < asciiBlock; ++i)
        if (!isAbove(floor, source[i]))
            return false;
    return true;
#endif
}

void copyBlock(const unsigned char* source, wchar_t* target) { copyAsciiBlock(source, target); }
void copyBlock(const unsigned char* source, char* target) { std::memcpy(target, source, asciiBlock); }

template <class T>
std::size_t copyAbove(unsigned char floor, const unsigned char* source, std::size_t size, T* target)
{
    std::size_t at = 0;
    for (; size - at >= asciiBlock && isBlockAbove(floor, source + at); at += asciiBlock)
        copyBlock(source + at, target + at);
    for (; at < size && isAbove(floor, source[at]); ++at)
        target[at] = static_cast<T>(source[at]);
    return at;
}

} // namespace

std::size_t copyAsciiAbove(unsigned char floor, const unsigned char* source, std::size_t size,
                           wchar_t* target)
{
    return copyAbove(floor, source, size, target);
}

std::size_t copyAsciiAbove(unsigned char floor, const unsigned char* source, std::size_t size, char* target)
{
    return copyAbove(floor, source, size, target);
}

} // namespace orvi::platform
