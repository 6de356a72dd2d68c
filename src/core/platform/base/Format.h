#pragma once
#include <cstdarg>
#include <cstddef>

namespace orvi::platform {

/** The result where a text in a code page came in whose tables cannot be had now. */
inline constexpr auto formatLacksTables = std::size_t(-1);

/** Formats with the printf conventions of Windows' runtime library, for the three widths of our strings.

    Writes at most `capacity` elements to `target`, which may be null when `capacity` is 0, and no terminator.
    The result is the number of elements that the whole text has, so one call with capacity 0 measures, and a
    result above `capacity` says that the text was cut; where a converted text argument is cut, between its
    characters, NULs fill up. `arguments` is copied, not consumed.

    Text arguments: `%s` and `%c` take text of the format's own kind, `%S` and `%C` of the other kind, an `L`
    changes nothing about that; `%hs`, `%hS`, `%hc` always narrow, `%ls`, `%lS`, `%ws`, `%lc` always wide.
    Narrow text is UTF-8, in a format of `unsigned char` it is text in the current code page. A null text
    prints "(null)". A precision counts elements of the argument and never reads beyond them. Numbers: `d i u o
    x X` with `hh h l ll I I32 I64 j z t w`; plain and `l` follow the C types of this platform (`long` has 64
    bits); `e E f F g G a A` with an optional `L`; `p` is upper-case hexadecimal at pointer width, with `#`
    behind "0x" unless it is null. The decimal point is "." whatever the locale. `%n` writes nothing and
    consumes its argument. An unknown conversion is copied as it stands. Sizes beyond what an int holds
    saturate. A null `format` is an empty one.

    Only a format of `unsigned char` with wide arguments may give `formatLacksTables`; `target` is garbage then. */
template <class T>
std::size_t formatText(T* target, std::size_t capacity, const T* format, std::va_list arguments);

extern template std::size_t formatText(wchar_t*, std::size_t, const wchar_t*, std::va_list);
extern template std::size_t formatText(char*, std::size_t, const char*, std::va_list);
extern template std::size_t formatText(unsigned char*, std::size_t, const unsigned char*, std::va_list);

} // namespace orvi::platform
