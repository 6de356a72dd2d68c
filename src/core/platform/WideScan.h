#pragma once
#include <cstddef>

namespace orvi::platform {

/** The number of units of `text` before the first one that is 0 or `other`, at most `limit`; nothing behind
    that unit is used. Runs at memory speed. */
std::size_t scanWide(const wchar_t* text, wchar_t other, std::size_t limit);

} // namespace orvi::platform
