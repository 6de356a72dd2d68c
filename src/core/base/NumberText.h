#pragma once
#include <cstdint>

/** Numbers as wide text and back, with "." as the point in every locale. */
namespace orvi::text {

inline constexpr int numberRoom = 40; // elements that any of the functions below may write

/** Write no terminator; give the length. */
int printInteger(wchar_t* target, std::int64_t value);
int printInteger(wchar_t* target, std::uint64_t value);
/** As the format "%.16g". */
int printDouble(wchar_t* target, double value);

/** The decimal number at `text`: an optional sign, digits with or without a point, an optional exponent. The
    nearest double; beyond the range an infinity or 0. `end` is the place behind it, or `text`, with 0, when
    there is no digit. */
double parseDecimal(const wchar_t* text, const wchar_t*& end);

/** As the C library's conversion: leading white space, then a decimal number as above, or an infinity or NaN
    by name. 0 for any other text. */
double parseDouble(const wchar_t* text);

} // namespace orvi::text
