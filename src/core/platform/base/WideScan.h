#pragma once
#include <cstddef>

namespace orvi::platform {

/** The number of units of `text` before the first one that is 0, `one` or `two`, at most `limit`; nothing
    behind that unit is used. Runs at memory speed. */
std::size_t scanWide(const wchar_t* text, wchar_t one, wchar_t two, std::size_t limit);

} // namespace orvi::platform
