#pragma once
#include <cstddef>

namespace orvi::platform {

inline constexpr int utf8CodePage = 65001;

/** Results in place of a length. The tables of the pages for Chinese, Japanese and Korean are made on the first
    question, which fails without memory or descriptors; a later one tries again, and once they are made they stay. */
inline constexpr std::ptrdiff_t unknownCodePage = -1;
inline constexpr std::ptrdiff_t codePageLacksTables = -2;

/** Converts `size` bytes of text in `codePage` to UTF-16 and gives the number of units that the whole result
    has.

    Writes at most `capacity` units to `target` and no terminator; a null `target` with capacity 0 measures,
    in one pass without writing. A result above `capacity` says that the text was cut (between characters). A
    byte or a pair of bytes that the page does not define becomes one "?", so does a first byte without its
    second; 0x80 to 0x9F, where one of 874 and 1250 to 1258 leaves them free, are the control characters of
    these numbers. Malformed UTF-8 becomes U+FFFD (one for each maximal ill-formed part). NULs are characters like
    others, never half of one. Negative, as above, without a conversion. Code page 0 is 1252. Any number of
    threads. */
std::ptrdiff_t codePageToWide(int codePage, const char* source, std::size_t size, wchar_t* target,
                              std::size_t capacity);

/** Converts `size` units of UTF-16 to `codePage`, as above. A unit that the page lacks becomes "?", with no
    best fit (a surrogate pair: two of them); in UTF-8 a lone surrogate becomes U+FFFD. */
std::ptrdiff_t wideToCodePage(int codePage, const wchar_t* source, std::size_t size, char* target,
                              std::size_t capacity);

} // namespace orvi::platform
