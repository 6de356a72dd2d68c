#include "platform/base/Format.h"

#include "FloatText.h"
#include "FormatSink.h"
#include "FormatSpec.h"
#include "platform/base/WideScan.h"

#include <charconv>
#include <cstdint>
#include <orvi/core/Export.h>
#include <type_traits>

namespace orvi {

ORVI_API int getCodePage(); // this layer includes no public header of the library's families

} // namespace orvi

namespace orvi::platform {
namespace {

using Length = FormatSpec::Length;

/** The next per cent sign, or the end. */
const wchar_t* findConversion(const wchar_t* at) { return at + scanWide(at, L'%', L'%', SIZE_MAX); }

const char* findConversion(const char* at)
{
    const char* found = std::strchr(at, '%');
    return found ? found : at + std::strlen(at);
}

const unsigned char* findConversion(const unsigned char* at)
{
    return reinterpret_cast<const unsigned char*>(findConversion(reinterpret_cast<const char*>(at)));
}

/** The length of a text that ends at a NUL or, if a precision is given, there: nothing behind is read. */
std::size_t textLength(const wchar_t* text, int precision)
{
    return scanWide(text, 0, 0, precision < 0 ? SIZE_MAX : std::size_t(precision));
}

std::size_t textLength(const char* text, int precision)
{
    return precision < 0 ? std::strlen(text) : strnlen(text, std::size_t(precision));
}

/** A number ready to be written, in the order of its members. */
struct NumberText {
    std::string_view prefix; // sign, 0x
    std::size_t leadingZeros = 0;
    std::string_view digits;
    bool point = false;
    std::size_t trailingZeros = 0;
    std::string_view suffix;
    bool padWithZeros = false;
};

char signOf(const FormatSpec& spec, bool negative)
{
    if (negative)
        return '-';
    if (spec.plus)
        return '+';
    return spec.space ? ' ' : '\0';
}

/** Sign and base mark of a number. */
class Prefix {
public:
    void add(char character)
    {
        if (character != 0)
            _text[_size++] = character;
    }
    operator std::string_view() const { return {_text, _size}; }

private:
    char _text[3];
    std::size_t _size = 0;
};

std::intmax_t signedArgument(Length length, FormatArguments& arguments)
{
    switch (length) {
    case Length::Char:
        return static_cast<signed char>(va_arg(arguments.list, int));
    case Length::Short:
        return static_cast<short>(va_arg(arguments.list, int));
    case Length::Long:
        return va_arg(arguments.list, long);
    case Length::LongLong:
    case Length::LongDouble:
        return va_arg(arguments.list, long long);
    case Length::Pointer:
        return va_arg(arguments.list, std::ptrdiff_t);
    default:
        return va_arg(arguments.list, int);
    }
}

std::uintmax_t unsignedArgument(Length length, FormatArguments& arguments)
{
    const auto value = std::uintmax_t(signedArgument(length, arguments));
    switch (length) {
    case Length::Char:
        return static_cast<unsigned char>(value);
    case Length::Short:
        return static_cast<unsigned short>(value);
    case Length::Long:
        return static_cast<unsigned long>(value);
    case Length::LongLong:
    case Length::LongDouble:
        return static_cast<unsigned long long>(value);
    case Length::Pointer:
        return static_cast<std::size_t>(value);
    default:
        return static_cast<unsigned int>(value);
    }
}

void upperCase(char* text, char* end)
{
    for (; text < end; ++text)
        if (*text >= 'a' && *text <= 'z')
            *text = char(*text - 'a' + 'A');
}

template <class T>
class Formatter {
public:
    Formatter(T* target, std::size_t capacity, std::va_list arguments)
        : _sink(target, capacity)
        , _arguments(arguments)
    {}

    std::size_t format(const T* at)
    {
        for (;;) {
            const T* const sign = findConversion(at);
            _sink.put(at, std::size_t(sign - at));
            if (*sign == 0)
                return _sink.total();
            FormatSpec spec;
            at = spec.parse(sign + 1, _arguments);
            if (convert(spec, *at))
                ++at;
            else
                at = copyUnknown(sign, at);
        }
    }

private:
    /** False for a conversion that does not exist. */
    bool convert(const FormatSpec& spec, T conversion)
    {
        switch (conversion) {
        case '%':
            _sink.fill('%', 1);
            return true;
        case 'd':
        case 'i':
            putSigned(spec);
            return true;
        case 'u':
            putUnsigned(spec, 10, false);
            return true;
        case 'o':
            putUnsigned(spec, 8, false);
            return true;
        case 'x':
        case 'X':
            putUnsigned(spec, 16, conversion == 'X');
            return true;
        case 'p':
            putPointer(spec);
            return true;
        case 'e':
        case 'E':
        case 'f':
        case 'F':
        case 'g':
        case 'G':
        case 'a':
        case 'A':
            putFloat(spec, char(conversion));
            return true;
        case 'c':
        case 'C':
            putCharacter(spec, isWide(spec, conversion == 'C'));
            return true;
        case 's':
        case 'S':
            putText(spec, isWide(spec, conversion == 'S'));
            return true;
        case 'n':
            static_cast<void>(va_arg(_arguments.list, void*));
            return true;
        default:
            return false;
        }
    }

    const T* copyUnknown(const T* sign, const T* conversion)
    {
        const T* const end = *conversion == 0 ? conversion : conversion + 1;
        _sink.put(sign, std::size_t(end - sign));
        return end;
    }

    static bool isWide(const FormatSpec& spec, bool otherKind)
    {
        switch (spec.length) {
        case Length::Char:
        case Length::Short:
            return false;
        case Length::Long:
        case Length::LongLong:
        case Length::Wide:
            return true;
        default:
            return std::is_same_v<T, wchar_t> != otherKind;
        }
    }

    void putSigned(const FormatSpec& spec)
    {
        const std::intmax_t value = signedArgument(spec.length, _arguments);
        const std::uintmax_t magnitude = value < 0 ? 0 - std::uintmax_t(value) : std::uintmax_t(value);
        Prefix prefix;
        prefix.add(signOf(spec, value < 0));
        putInteger(spec, magnitude, 10, false, prefix);
    }

    void putUnsigned(const FormatSpec& spec, int base, bool upper)
    {
        const std::uintmax_t value = unsignedArgument(spec.length, _arguments);
        Prefix prefix;
        if (base == 16 && spec.alternate && value != 0) {
            prefix.add('0');
            prefix.add(upper ? 'X' : 'x');
        }
        putInteger(spec, value, base, upper, prefix);
    }

    void putPointer(FormatSpec spec)
    {
        spec.precision = 2 * int(sizeof(void*));
        const auto address = reinterpret_cast<std::uintptr_t>(va_arg(_arguments.list, void*));
        Prefix prefix;
        if (spec.alternate && address != 0) {
            prefix.add('0');
            prefix.add('X'); // as tall as the digits
        }
        putInteger(spec, address, 16, true, prefix);
    }

    void putInteger(const FormatSpec& spec, std::uintmax_t value, int base, bool upper,
                    std::string_view prefix)
    {
        char digits[24]; // 64 bits in octal
        char* end = digits;
        if (value != 0 || spec.precision != 0)
            end = std::to_chars(digits, digits + sizeof digits, value, base).ptr;
        if (upper)
            upperCase(digits, end);

        NumberText number;
        number.prefix = prefix;
        number.digits = {digits, std::size_t(end - digits)};
        if (spec.hasPrecision() && std::size_t(spec.precision) > number.digits.size())
            number.leadingZeros = std::size_t(spec.precision) - number.digits.size();
        const bool startsWithZero = number.leadingZeros != 0 || number.digits.substr(0, 1) == "0";
        if (base == 8 && spec.alternate && !startsWithZero)
            number.leadingZeros = 1;
        number.padWithZeros = spec.zero && !spec.hasPrecision();
        putNumber(spec, number);
    }

    void putFloat(const FormatSpec& spec, char conversion)
    {
        const FloatText::Style style{conversion, spec.precision, spec.alternate};
        if (spec.length == Length::LongDouble)
            putFloat(spec, FloatText(va_arg(_arguments.list, long double), style), conversion);
        else
            putFloat(spec, FloatText(va_arg(_arguments.list, double), style), conversion);
    }

    void putFloat(const FormatSpec& spec, const FloatText& text, char conversion)
    {
        Prefix prefix;
        prefix.add(signOf(spec, text.negative));
        if (text.finite && (conversion == 'a' || conversion == 'A')) {
            prefix.add('0');
            prefix.add(conversion == 'a' ? 'x' : 'X');
        }
        NumberText number;
        number.prefix = prefix;
        number.digits = text.mantissa;
        number.point = text.point;
        number.trailingZeros = text.zeros;
        number.suffix = text.suffix;
        number.padWithZeros = spec.zero && text.finite;
        putNumber(spec, number);
    }

    void putNumber(const FormatSpec& spec, const NumberText& number)
    {
        const std::size_t size = number.prefix.size() + number.leadingZeros + number.digits.size() +
                                 number.point + number.trailingZeros + number.suffix.size();
        const std::size_t padding = paddingFor(spec, size);
        const bool zeros = number.padWithZeros && !spec.left;
        if (!zeros && !spec.left)
            _sink.fill(' ', padding);
        _sink.putAscii(number.prefix);
        _sink.fill('0', number.leadingZeros + (zeros ? padding : 0));
        _sink.putAscii(number.digits);
        if (number.point)
            _sink.fill('.', 1);
        _sink.fill('0', number.trailingZeros);
        _sink.putAscii(number.suffix);
        if (spec.left)
            _sink.fill(' ', padding);
    }

    void putCharacter(const FormatSpec& spec, bool wide)
    {
        const int argument = va_arg(_arguments.list, int);
        if (wide) {
            const auto character = wchar_t(argument);
            putPadded(spec, &character, 1);
        } else {
            const auto character = char(argument);
            putPadded(spec, &character, 1);
        }
    }

    void putText(const FormatSpec& spec, bool wide)
    {
        if (wide) {
            const auto text = va_arg(_arguments.list, const wchar_t*);
            putText(spec, text ? text : L"(null)");
        } else {
            const auto text = va_arg(_arguments.list, const char*);
            putText(spec, text ? text : "(null)");
        }
    }

    template <class Source>
    void putText(const FormatSpec& spec, const Source* text)
    {
        putPadded(spec, text, textLength(text, spec.precision));
    }

    template <class Source>
    void putPadded(const FormatSpec& spec, const Source* text, std::size_t size)
    {
        constexpr bool sameWidth = sizeof(Source) == sizeof(T);
        const int codePage = std::is_same_v<T, unsigned char> ? getCodePage() : utf8CodePage;
        std::size_t padding = 0;
        if constexpr (sameWidth)
            padding = paddingFor(spec, size);
        else if (spec.width != 0)
            padding = paddingFor(spec, _sink.measure(text, size, codePage));

        if (!spec.left)
            _sink.fill(spec.zero ? '0' : ' ', padding);
        if constexpr (sameWidth)
            _sink.put(reinterpret_cast<const T*>(text), size);
        else
            _sink.convert(text, size, codePage);
        if (spec.left)
            _sink.fill(' ', padding);
    }

    static std::size_t paddingFor(const FormatSpec& spec, std::size_t size)
    {
        const auto width = std::size_t(spec.width);
        return width > size ? width - size : 0;
    }

    FormatSink<T> _sink;
    FormatArguments _arguments;
};

} // namespace

template <class T>
std::size_t formatText(T* target, std::size_t capacity, const T* format, std::va_list arguments)
{
    return format != nullptr ? Formatter<T>(target, capacity, arguments).format(format) : 0;
}

template std::size_t formatText(wchar_t*, std::size_t, const wchar_t*, std::va_list);
template std::size_t formatText(char*, std::size_t, const char*, std::va_list);
template std::size_t formatText(unsigned char*, std::size_t, const unsigned char*, std::va_list);

} // namespace orvi::platform
