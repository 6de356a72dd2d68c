#pragma once
#include <cstddef>
#include <memory>
#include <string_view>

namespace orvi::platform {

/** The text of the absolute value of a number by one of the conversions e E f F g G a A, in pieces.

    The whole text: `mantissa`, a point if `point` is set, `zeros` zeros, `suffix`. Exact at any precision and
    independent of the locale. The pieces belong to the object. */
class FloatText {
public:
    struct Style {
        char conversion;
        int precision;  // negative: none given
        bool alternate; // keep the point and the zeros at the end
    };

    FloatText(double value, Style style);
    FloatText(long double value, Style style);
    FloatText(const FloatText&) = delete;
    FloatText& operator=(const FloatText&) = delete;

    bool negative = false;
    bool finite = true;
    std::string_view mantissa;
    bool point = false;
    std::size_t zeros = 0;
    std::string_view suffix; // the exponent

private:
    template <class T>
    void make(T value, Style style);
    template <class T>
    std::size_t print(T value, Style style);
    template <class T>
    std::size_t printGeneral(T value, int precision);
    template <class T, class... Arguments>
    std::size_t toChars(T value, Arguments... arguments);

    char _small[1500]; // the longest double, and the usual long double
    std::unique_ptr<char[]> _large;
};

} // namespace orvi::platform
