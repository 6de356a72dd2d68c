#include "NumberText.h"

#include <orvi/core/String.h>

#include "WideText.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string>

namespace orvi::text {

namespace {

__extension__ using Wide = unsigned __int128;

// 10^k as mantissa * 2^exponent, the mantissa with its top bit set and rounded to the nearest.

constexpr int lowestPower = -324; // of the smallest double, 4.9e-324,
constexpr int highestPower = 340; // which has 16 digits in front of the point times 10^339

struct PowersOfTen {
    std::array<std::uint64_t, highestPower - lowestPower + 1> mantissas{};
};

constexpr Wide topBit = Wide(1) << 127;

constexpr std::uint64_t roundToHalf(Wide mantissa)
{
    const auto high = static_cast<std::uint64_t>(mantissa >> 64);
    return static_cast<std::uint64_t>(mantissa) >> 63 != 0 && high != UINT64_MAX ? high + 1 : high;
}

/** In steps of 10 with 128 bits: after 340 steps the error is still below 2^-118. */
constexpr PowersOfTen computePowersOfTen()
{
    PowersOfTen powers;
    Wide mantissa = topBit;
    for (int k = 0; k <= highestPower; ++k) {
        powers.mantissas[static_cast<std::size_t>(k - lowestPower)] = roundToHalf(mantissa);
        // Times 10 is times 5/4 and an exponent: mantissa / 4 * 5 may need one bit more.
        const Wide quarter = mantissa >> 2;
        mantissa += quarter;
        if ((mantissa & topBit) == 0) // the sum went beyond 128 bits
            mantissa = (mantissa >> 1) | topBit;
    }
    mantissa = topBit;
    for (int k = -1; k >= lowestPower; --k) {
        // Divided by 10 is times 4/5: the quotient of the upper bits and then of what is left.
        Wide quotient = mantissa / 5;
        Wide rest = mantissa % 5;
        while ((quotient & topBit) == 0) {
            rest <<= 1;
            quotient = (quotient << 1) | (rest / 5);
            rest %= 5;
        }
        mantissa = quotient;
        powers.mantissas[static_cast<std::size_t>(k - lowestPower)] = roundToHalf(mantissa);
    }
    return powers;
}

constexpr PowersOfTen powersOfTen = computePowersOfTen();

constexpr std::uint64_t powerOfTen(int k)
{
    return powersOfTen.mantissas[static_cast<std::size_t>(k - lowestPower)];
}

/** floor(k * log2(10)), right for all k of the table. */
constexpr int binaryExponent(int k) { return (k * 217706) >> 16; }
/** floor(e * log10(2)), right for all exponents of a double. */
constexpr int decimalExponent(int e) { return (e * 78913) >> 18; }

constexpr std::uint64_t tenTo15 = 1'000'000'000'000'000;
constexpr std::uint64_t tenTo16 = tenTo15 * 10;
constexpr int significantDigits = 16;

struct Digits {
    std::uint64_t number; // 16 digits
    int exponent;         // of the first digit
};

/** Rounds a finite positive number, given by its bits, to 16 digits. False when the error of the table leaves
    open how. */
bool roundToDigits(std::uint64_t bits, Digits& digits)
{
    std::uint64_t mantissa = bits & ((std::uint64_t(1) << 52) - 1);
    int exponent = static_cast<int>(bits >> 52);
    if (exponent == 0)
        exponent = 1;
    else
        mantissa |= std::uint64_t(1) << 52;
    const int shift = __builtin_clzll(mantissa);
    mantissa <<= shift;
    exponent -= 1075 + shift; // value = mantissa * 2^exponent, with the top bit set

    // The exponent alone leaves two powers of ten to choose from: the mantissa decides.
    const int lower = decimalExponent(exponent + 63);
    const int above = binaryExponent(lower + 1) - 63;
    const bool reachesNext = (exponent > above) | ((exponent == above) & (mantissa >= powerOfTen(lower + 1)));
    digits.exponent = lower + reachesNext;

    const int power = significantDigits - 1 - digits.exponent;
    const Wide product = Wide(mantissa) * powerOfTen(power);
    const auto high = static_cast<std::uint64_t>(product >> 64);
    const int drop = -1 - exponent - binaryExponent(power); // 9 to 13 bits
    const std::uint64_t half = std::uint64_t(1) << (drop - 1);
    const std::uint64_t rest = high & (2 * half - 1);
    if (rest == half || rest == half - 1)
        return false; // too close: half a unit of the table makes less than one of `high`
    digits.number = (high >> drop) + (rest > half);
    if (digits.number == tenTo16) {
        digits.number = tenTo15;
        ++digits.exponent;
    }
    return true;
}

constexpr wchar_t digitPairs[] = L"00010203040506070809101112131415161718192021222324252627282930313233343536"
                                 L"37383940414243444546474849505152535455565758596061626364656667686970717273"
                                 L"7475767778798081828384858687888990919293949596979899";

wchar_t* copyPair(wchar_t* target, std::uint64_t pair)
{
    target[0] = digitPairs[pair * 2];
    target[1] = digitPairs[pair * 2 + 1];
    return target + 2;
}

int countDigits(std::uint64_t value)
{
    static constexpr std::uint64_t powers[] = {0,
                                               1'0,
                                               1'00,
                                               1'000,
                                               1'0000,
                                               1'00000,
                                               1'000000,
                                               1'0000000,
                                               1'00000000,
                                               1'000000000,
                                               1'0000000000,
                                               1'00000000000,
                                               1'000000000000,
                                               1'0000000000000,
                                               1'00000000000000,
                                               1'000000000000000,
                                               1'0000000000000000,
                                               1'00000000000000000,
                                               1'000000000000000000,
                                               10'000000000000000000u};
    const int bits = 64 - __builtin_clzll(value | 1);
    const int digits = bits * 1233 >> 12; // log10(2) is 1233 / 4096
    return digits + (value >= powers[digits] ? 1 : 0);
}

/** Writes the digits in front of `end`. */
void printBackwards(wchar_t* end, std::uint64_t value)
{
    for (; value >= 100; value /= 100)
        copyPair(end -= 2, value % 100);
    if (value >= 10)
        copyPair(end - 2, value);
    else
        end[-1] = static_cast<wchar_t>('0' + value);
}

wchar_t* copy(wchar_t* target, const wchar_t* source, int count)
{
    std::memcpy(target, source, static_cast<std::size_t>(count) * sizeof(wchar_t));
    return target + count;
}

wchar_t* printExponent(wchar_t* target, int exponent)
{
    *target++ = 'e';
    *target++ = exponent < 0 ? '-' : '+';
    const int size = exponent < 0 ? -exponent : exponent;
    if (size >= 100)
        *target++ = static_cast<wchar_t>('0' + size / 100);
    return copyPair(target, static_cast<std::uint64_t>(size % 100));
}

/** Eight digits as eight bytes, the first one lowest: the number is split in halves three times, in all parts
    at once. */
std::uint64_t splitDigits(std::uint32_t value)
{
    const std::uint64_t fours = value / 10000 | std::uint64_t(value % 10000) << 32;
    const std::uint64_t hundreds = ((fours * 10486) >> 20) & 0x0000007F'0000007F;
    const std::uint64_t pairs = hundreds | (fours - hundreds * 100) << 16;
    const std::uint64_t tens = ((pairs * 103) >> 10) & 0x000F000F'000F000F;
    return tens | (pairs - tens * 10) << 8;
}

constexpr int textRoom = 2 * significantDigits; // so that pieces can be copied by a fixed size

/** Four bytes of digits as four wide characters. */
std::uint64_t widenDigits(std::uint64_t digits)
{
    digits = (digits | digits << 16) & 0x0000FFFF'0000FFFF;
    digits = (digits | digits << 8) & 0x00FF00FF'00FF00FF;
    return digits + 0x0030'0030'0030'0030;
}

/** Prints 16 digits and as many zeros; gives their number without the zeros at the end. */
int printDigits(wchar_t* text, std::uint64_t number)
{
    constexpr std::uint64_t half = 100'000'000;
    const std::uint64_t first = splitDigits(static_cast<std::uint32_t>(number / half));
    const std::uint64_t last = splitDigits(static_cast<std::uint32_t>(number % half));
    const std::uint64_t units[textRoom / 4] = {widenDigits(first & UINT32_MAX),
                                               widenDigits(first >> 32),
                                               widenDigits(last & UINT32_MAX),
                                               widenDigits(last >> 32),
                                               widenDigits(0),
                                               widenDigits(0),
                                               widenDigits(0),
                                               widenDigits(0)};
    std::memcpy(text, units, sizeof units);
    // Without a branch, which would depend on the data: the bytes up to the last digit that is not 0.
    const bool hasLast = last != 0;
    return (hasLast ? 16 : 8) - __builtin_clzll(hasLast ? last : first) / 8;
}

void copySixteen(wchar_t* target, const wchar_t* source)
{
    std::memcpy(target, source, significantDigits * sizeof(wchar_t));
}

/** Lays 16 digits out as %g does. May write beyond the text that it makes. */
wchar_t* layOut(wchar_t* target, const Digits& digits)
{
    wchar_t text[textRoom];
    const int count = printDigits(text, digits.number);
    const int exponent = digits.exponent;
    if (exponent < -4 || exponent >= significantDigits) {
        target[0] = text[0];
        target[1] = '.';
        copySixteen(target + 2, text + 1);
        return printExponent(target + (count > 1 ? count + 1 : 1), exponent);
    }
    if (exponent < 0) {
        std::memcpy(target, L"0.000", 5 * sizeof(wchar_t));
        copySixteen(target + 1 - exponent, text);
        return target + 1 - exponent + count;
    }
    const int whole = exponent + 1;
    copySixteen(target, text);
    if (count <= whole)
        return target + whole;
    target[whole] = '.';
    copySixteen(target + whole + 1, text + whole);
    return target + count + 1;
}

constexpr double exactPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                  1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr int highestExactPower = 22;
constexpr std::uint64_t highestExactInteger = std::uint64_t(1) << 53;

bool isDigit(wchar_t ch) { return ch >= '0' && ch <= '9'; }

/** A decimal number as it stands in a text, without its sign. */
struct Decimal {
    const wchar_t* end;        // null: there is no digit
    std::uint64_t number = 0;  // the digits, if they are not too many
    std::int64_t exponent = 0; // of the last digit
    std::int64_t first = 0;    // of the first digit that is not 0
    bool fits = true;          // `number` holds all digits

    explicit Decimal(const wchar_t* text)
    {
        const wchar_t* p = readDigits(text);
        std::int64_t digits = p - text;
        if (*p == '.') {
            const wchar_t* fraction = p + 1;
            p = readDigits(fraction);
            digits += p - fraction;
            exponent = -(p - fraction);
        }
        end = digits != 0 ? readExponent(p) : nullptr;
        fits = _significant <= 19;
        first = exponent + _significant - 1;
    }

private:
    const wchar_t* readDigits(const wchar_t* p)
    {
        for (; isDigit(*p); ++p) {
            if (_significant == 0 && *p == '0')
                continue;
            if (++_significant <= 19)
                number = number * 10 + static_cast<std::uint64_t>(*p - '0');
        }
        return p;
    }
    const wchar_t* readExponent(const wchar_t* p)
    {
        if (*p != 'e' && *p != 'E')
            return p;
        const bool negative = p[1] == '-';
        const wchar_t* digits = p + (negative || p[1] == '+' ? 2 : 1);
        if (!isDigit(*digits))
            return p;
        std::int64_t given = 0;
        for (p = digits; isDigit(*p); ++p)
            if (given < 1'000'000'000'000)
                given = given * 10 + (*p - '0');
        exponent += negative ? -given : given;
        return p;
    }

    std::int64_t _significant = 0;
};

/** The text up to `end` through the standard library, which wants it narrow. */
double parseExactly(const wchar_t* text, const wchar_t* end, double beyond)
{
    const auto length = static_cast<std::size_t>(end - text);
    char small[64];
    std::string large;
    char* narrow = small;
    if (length > sizeof small) {
        large.resize(length);
        narrow = large.data();
    }
    for (std::size_t i = 0; i < length; ++i)
        narrow[i] = static_cast<char>(text[i]);
    double value = 0;
    const auto result = std::from_chars(narrow, narrow + length, value);
    return result.ec == std::errc::result_out_of_range ? beyond : value;
}

double parseUnsigned(const wchar_t* text, const wchar_t*& end)
{
    const Decimal decimal(text);
    if (decimal.end == nullptr)
        return 0;
    end = decimal.end;
    if (decimal.number == 0)
        return 0;
    if (decimal.fits && decimal.number <= highestExactInteger && decimal.exponent >= -highestExactPower &&
        decimal.exponent <= highestExactPower) {
        const auto number = static_cast<double>(decimal.number); // both exact: one rounding
        return decimal.exponent < 0 ? number / exactPowers[-decimal.exponent]
                                    : number * exactPowers[decimal.exponent];
    }
    return parseExactly(text, end, decimal.first > 0 ? HUGE_VAL : 0);
}

bool startsNoCase(const wchar_t* text, const char* lower)
{
    for (; *lower != 0; ++text, ++lower)
        if (toLower(*text) != *lower)
            return false;
    return true;
}

} // namespace

int printInteger(wchar_t* target, std::uint64_t value)
{
    const int count = countDigits(value);
    printBackwards(target + count, value);
    return count;
}

int printInteger(wchar_t* target, std::int64_t value)
{
    if (value >= 0)
        return printInteger(target, static_cast<std::uint64_t>(value));
    *target = '-';
    return 1 + printInteger(target + 1, -static_cast<std::uint64_t>(value));
}

int printDouble(wchar_t* target, double value)
{
    constexpr std::uint64_t infinity = std::uint64_t(0x7FF) << 52;
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    *target = '-';
    const auto sign = static_cast<int>(bits >> 63);
    wchar_t* const digitsAt = target + sign;
    bits &= ~(std::uint64_t(1) << 63);
    Digits digits{};
    if (bits == 0) {
        *digitsAt = '0';
        return sign + 1;
    }
    if (bits < infinity && roundToDigits(bits, digits))
        return static_cast<int>(layOut(digitsAt, digits) - target);
    String text;
    text.format(L"%.16g", std::fabs(value));
    return static_cast<int>(copy(digitsAt, text, text.getLength()) - target);
}

double parseDecimal(const wchar_t* text, const wchar_t*& end)
{
    end = text;
    const bool negative = *text == '-';
    if (negative || *text == '+')
        ++text;
    const double value = parseUnsigned(text, end);
    return negative ? -value : value;
}

double parseDouble(const wchar_t* text)
{
    while (isSpace(*text))
        ++text;
    const wchar_t* digits = *text == '-' || *text == '+' ? text + 1 : text;
    double value = 0;
    if (startsNoCase(digits, "inf"))
        value = HUGE_VAL;
    else if (startsNoCase(digits, "nan"))
        value = NAN;
    else
        value = parseUnsigned(digits, digits);
    return *text == '-' ? -value : value;
}

} // namespace orvi::text
