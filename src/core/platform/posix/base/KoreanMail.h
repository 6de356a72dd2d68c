#pragma once
#include "CodeTables.h"

#include <cstddef>

namespace orvi::platform {

/** ISO-2022-KR (page 50225): ASCII, and characters of two 7-bit bytes between "shift out" and "shift in".
    `tables` are those of page 949, which has the same characters with the top bits set. Else as
    codePageToWide and wideToCodePage.

    The announcement ESC $ ) C is written before the first Korean character, so that ASCII stays as it is, and
    skipped wherever it is read. */
std::size_t koreanMailToWide(const DoubleByteTables& tables, const unsigned char* source, std::size_t size,
                             wchar_t* target, std::size_t capacity);
std::size_t wideToKoreanMail(const DoubleByteTables& tables, const wchar_t* source, std::size_t size,
                             unsigned char* target, std::size_t capacity);

} // namespace orvi::platform
