#include "FloatText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

namespace orvi::platform {
namespace {

/** More digits than these behind the point are zeros in every value, so they need no buffer. */
template <class T>
struct Limits {
    using Numbers = std::numeric_limits<T>;

    static constexpr int decimal = Numbers::digits - Numbers::min_exponent; // 1074 for a double
    static constexpr int hex = (Numbers::digits + 3) / 4;
    static constexpr std::size_t longest = std::size_t(decimal) + Numbers::max_exponent10 + 16;
};

static_assert(Limits<double>::longest <= 1500);

char* upperCase(char* text, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i)
        if (text[i] >= 'a' && text[i] <= 'z')
            text[i] = char(text[i] - 'a' + 'A');
    return text;
}

/** The exponent at the end of a number in scientific notation. */
int exponentOf(std::string_view text)
{
    const std::string_view digits = text.substr(text.rfind('e') + 1);
    int exponent = 0;
    std::from_chars(digits.data() + (digits[0] == '+'), digits.data() + digits.size(), exponent);
    return exponent;
}

void stripZeros(std::string_view& mantissa)
{
    if (mantissa.find('.') == mantissa.npos)
        return;
    mantissa.remove_suffix(mantissa.size() - 1 - mantissa.find_last_not_of('0'));
    if (mantissa.back() == '.')
        mantissa.remove_suffix(1);
}

} // namespace

FloatText::FloatText(double value, Style style) { make(value, style); }
FloatText::FloatText(long double value, Style style) { make(value, style); }

/** Prints into the small buffer or, if that cannot hold the text, into a large one; gives the length. */
template <class T, class... Arguments>
std::size_t FloatText::toChars(T value, Arguments... arguments)
{
    const auto result = std::to_chars(_small, _small + sizeof _small, value, arguments...);
    if (result.ec == std::errc()) {
        _large.reset();
        return std::size_t(result.ptr - _small);
    }
    _large.reset(new char[Limits<T>::longest]);
    return std::size_t(
        std::to_chars(_large.get(), _large.get() + Limits<T>::longest, value, arguments...).ptr -
        _large.get());
}

template <class T>
std::size_t FloatText::printGeneral(T value, int precision)
{
    const int significant = std::max(precision, 1);
    const int behind = std::min(significant - 1, Limits<T>::decimal);
    const std::size_t length = toChars(value, std::chars_format::scientific, behind);
    const int exponent = exponentOf({_large ? _large.get() : _small, length});
    if (exponent < -4 || exponent >= significant) {
        zeros = std::size_t(significant - 1 - behind);
        return length;
    }
    const long long wanted = significant - 1LL - exponent;
    const int given = int(std::min<long long>(wanted, Limits<T>::decimal));
    zeros = std::size_t(wanted - given);
    return toChars(value, std::chars_format::fixed, given);
}

template <class T>
std::size_t FloatText::print(T value, Style style)
{
    const char kind = char(style.conversion | 0x20);
    if (kind == 'a' && style.precision < 0)
        return toChars(value, std::chars_format::hex);
    const int precision = style.precision < 0 ? 6 : style.precision;
    if (kind == 'g')
        return printGeneral(value, precision);

    const bool isFixed = kind == 'f';
    const int limit = kind == 'a' ? Limits<T>::hex : Limits<T>::decimal;
    const auto format = kind == 'a' ? std::chars_format::hex
                        : isFixed   ? std::chars_format::fixed
                                    : std::chars_format::scientific;
    const int given = std::min(precision, limit);
    zeros = std::size_t(precision - given);
    return toChars(value, format, given);
}

template <class T>
void FloatText::make(T value, Style style)
{
    const bool isUpper = style.conversion < 'a';
    negative = std::signbit(value);
    finite = std::isfinite(value);
    if (!finite) {
        if (std::isnan(value))
            mantissa = isUpper ? "NAN" : "nan";
        else
            mantissa = isUpper ? "INF" : "inf";
        return;
    }
    const std::size_t length = print(std::fabs(value), style);
    char* const buffer = _large ? _large.get() : _small;
    const std::string_view text(buffer, length);
    const bool isHex = (style.conversion | 0x20) == 'a';
    const std::size_t end = std::min(text.find(isHex ? 'p' : 'e'), length);
    if (isUpper)
        upperCase(buffer, length);
    mantissa = text.substr(0, end);
    suffix = text.substr(end);
    if ((style.conversion | 0x20) == 'g' && !style.alternate) {
        zeros = 0;
        stripZeros(mantissa);
    }
    point = style.alternate && mantissa.find('.') == mantissa.npos;
}

} // namespace orvi::platform
