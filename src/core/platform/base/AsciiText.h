#pragma once
#include <cstddef>

namespace orvi::platform {

/** Copies the characters at the start of `source` that are above `floor` and below 128, and gives their number.
    `floor` is a control character or 0, which stops at NULs alone. Runs at memory speed. */
std::size_t copyAsciiAbove(unsigned char floor, const unsigned char* source, std::size_t size,
                           wchar_t* target);
std::size_t copyAsciiAbove(unsigned char floor, const unsigned char* source, std::size_t size, char* target);

} // namespace orvi::platform
