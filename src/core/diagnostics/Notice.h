#pragma once
#include <orvi/core/Console.h>

namespace orvi {

/** Puts a line about something set up twice on the console, in yellow. `format` takes the name by "%s". */
inline void printNotice(const wchar_t* format, const wchar_t* name)
{
    constexpr unsigned int yellow = 14, grey = 7;
    Console::setTextAttribute(yellow);
    Console::output(format, name);
    Console::setTextAttribute(grey);
}

} // namespace orvi
