#pragma once
#include "platform/base/WideScan.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

/** The few functions on NUL-terminated text that the library needs at every width. Those of the C library
    take a wchar_t of 32 bits, so none of them is used. */
namespace orvi::text {

template <class T>
std::size_t length(const T* text)
{
    if constexpr (sizeof(T) == 1)
        return std::strlen(reinterpret_cast<const char*>(text));
    else
        return platform::scanWide(text, 0, 0, SIZE_MAX);
}

/** -1, 0 or 1 by unsigned elements up to the first NUL. */
template <class T>
int compare(const T* a, const T* b)
{
    if constexpr (sizeof(T) == 1) {
        const int order = std::strcmp(reinterpret_cast<const char*>(a), reinterpret_cast<const char*>(b));
        return (order > 0) - (order < 0);
    } else {
        while (*a != 0 && *a == *b)
            ++a, ++b;
        return (*a > *b) - (*a < *b);
    }
}

template <class T>
constexpr int toLower(T element)
{
    const int value = static_cast<int>(static_cast<std::make_unsigned_t<T>>(element));
    return value >= 'A' && value <= 'Z' ? value + ('a' - 'A') : value;
}

template <class T>
int compareNoCase(const T* a, const T* b)
{
    while (*a != 0 && toLower(*a) == toLower(*b))
        ++a, ++b;
    return toLower(*a) - toLower(*b);
}

/** The white space of isspace in the C locale; elements above 0x7F never are. */
template <class T>
constexpr bool isSpace(T element)
{
    return element == ' ' || (element >= 9 && element <= 13);
}

/** Leading white space, a sign, digits up to the first other character; no digits give 0. Numbers out of
    range become the nearest one in range. */
template <class Integer, class T>
Integer parseInteger(const T* text)
{
    while (isSpace(*text))
        ++text;
    const bool negative = *text == '-';
    if (*text == '-' || *text == '+')
        ++text;
    constexpr Integer lowest = std::numeric_limits<Integer>::min();
    Integer value = 0; // counted downwards, where the range is larger
    for (; *text >= '0' && *text <= '9'; ++text) {
        const Integer digit = static_cast<Integer>(*text - '0');
        if (value < (lowest + digit) / 10)
            return negative ? lowest : std::numeric_limits<Integer>::max();
        value = static_cast<Integer>(value * 10 - digit);
    }
    if (negative)
        return value;
    return value == lowest ? std::numeric_limits<Integer>::max() : static_cast<Integer>(-value);
}

} // namespace orvi::text
