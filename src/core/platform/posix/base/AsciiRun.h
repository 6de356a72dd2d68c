#pragma once
#include <cstddef>
#include <cstdint>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

/** The stretch of ASCII at the start of a text, sixteen characters at a step.

    Most text is ASCII, and it is the same in UTF-8 and in all our code pages. */
namespace orvi::platform {

inline bool isAscii(unsigned char element) { return element < 0x80; }
inline bool isAscii(wchar_t element) { return element < 0x80; }

inline constexpr std::size_t asciiBlock = 16;

#if defined(__SSE2__)
inline __m128i loadBlock(const void* source) { return _mm_loadu_si128(static_cast<const __m128i*>(source)); }
inline void storeBlock(void* target, __m128i block)
{
    _mm_storeu_si128(static_cast<__m128i*>(target), block);
}

inline bool isAsciiBlock(const unsigned char* source) { return _mm_movemask_epi8(loadBlock(source)) == 0; }

inline bool isAsciiBlock(const wchar_t* source)
{
    const __m128i all = _mm_or_si128(loadBlock(source), loadBlock(source + 8));
    const __m128i high = _mm_and_si128(all, _mm_set1_epi16(short(0xFF80)));
    return _mm_movemask_epi8(_mm_cmpeq_epi16(high, _mm_setzero_si128())) == 0xFFFF;
}

inline void copyAsciiBlock(const unsigned char* source, wchar_t* target)
{
    const __m128i bytes = loadBlock(source);
    storeBlock(target, _mm_unpacklo_epi8(bytes, _mm_setzero_si128()));
    storeBlock(target + 8, _mm_unpackhi_epi8(bytes, _mm_setzero_si128()));
}

inline void copyAsciiBlock(const wchar_t* source, unsigned char* target)
{
    storeBlock(target, _mm_packus_epi16(loadBlock(source), loadBlock(source + 8)));
}
#else
inline bool isAsciiBlock(const unsigned char* source)
{
    std::uint64_t words[2];
    std::memcpy(words, source, sizeof words);
    return ((words[0] | words[1]) & 0x8080808080808080u) == 0;
}

inline bool isAsciiBlock(const wchar_t* source)
{
    std::uint64_t words[4];
    std::memcpy(words, source, sizeof words);
    return ((words[0] | words[1] | words[2] | words[3]) & 0xFF80FF80FF80FF80u) == 0;
}

template <class Source, class Target>
void copyAsciiBlock(const Source* source, Target* target)
{
    for (std::size_t i = 0; i < asciiBlock; ++i)
        target[i] = Target(source[i]);
}
#endif

/** The number of ASCII characters at the start of `source`. */
template <class Source>
std::size_t asciiLength(const Source* source, std::size_t size)
{
    std::size_t at = 0;
    while (size - at >= asciiBlock && isAsciiBlock(source + at))
        at += asciiBlock;
    while (at < size && isAscii(source[at]))
        ++at;
    return at;
}

/** Copies the ASCII characters at the start of `source` and gives their number. */
template <class Source, class Target>
std::size_t copyAscii(const Source* source, std::size_t size, Target* target)
{
    std::size_t at = 0;
    for (; size - at >= asciiBlock && isAsciiBlock(source + at); at += asciiBlock)
        copyAsciiBlock(source + at, target + at);
    for (; at < size && isAscii(source[at]); ++at)
        target[at] = Target(source[at]);
    return at;
}

} // namespace orvi::platform
