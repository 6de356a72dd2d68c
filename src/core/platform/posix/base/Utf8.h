#pragma once
#include <cstddef>

namespace orvi::platform {

/** UTF-8 to UTF-16 and back, with the contract of codePageToWide and wideToCodePage. */
std::size_t utf8ToWide(const unsigned char* source, std::size_t size, wchar_t* target, std::size_t capacity);
std::size_t wideToUtf8(const wchar_t* source, std::size_t size, unsigned char* target, std::size_t capacity);

/** The same for paths, which may be any bytes: one that is no UTF-8 is the lone surrogate U+DC80..U+DCFF that
    ends in it, and back. */
std::size_t pathToWide(const unsigned char* source, std::size_t size, wchar_t* target, std::size_t capacity);
std::size_t wideToPath(const wchar_t* source, std::size_t size, unsigned char* target, std::size_t capacity);

} // namespace orvi::platform
