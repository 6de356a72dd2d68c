#pragma once
#include <climits>
#include <cstdarg>

namespace orvi::platform {

/** The arguments of a call, copied from the caller's. */
struct FormatArguments {
    explicit FormatArguments(std::va_list source) { va_copy(list, source); }
    FormatArguments(const FormatArguments&) = delete;
    FormatArguments& operator=(const FormatArguments&) = delete;
    ~FormatArguments() { va_end(list); }

    std::va_list list;
};

/** What stands between a per cent sign and the conversion. */
struct FormatSpec {
    enum class Length { None, Char, Short, Long, LongLong, Bits32, Pointer, Wide, LongDouble };

    bool left = false;
    bool plus = false;
    bool space = false;
    bool alternate = false;
    bool zero = false;
    int width = 0;
    int precision = -1; // none given
    Length length = Length::None;

    bool hasPrecision() const { return precision >= 0; }

    /** Parses behind the per cent sign and gives the place of the conversion. */
    template <class T>
    const T* parse(const T* at, FormatArguments& arguments)
    {
        at = parseFlags(at);
        at = parseNumber(at, arguments, width);
        if (width < 0) {
            left = true;
            width = width == INT_MIN ? INT_MAX : -width;
        }
        if (*at == '.')
            at = parseNumber(at + 1, arguments, precision = 0);
        return parseLength(at);
    }

private:
    template <class T>
    const T* parseFlags(const T* at)
    {
        for (;; ++at) {
            switch (*at) {
            case '-':
                left = true;
                break;
            case '+':
                plus = true;
                break;
            case ' ':
                space = true;
                break;
            case '#':
                alternate = true;
                break;
            case '0':
                zero = true;
                break;
            default:
                return at;
            }
        }
    }

    template <class T>
    static const T* parseNumber(const T* at, FormatArguments& arguments, int& number)
    {
        if (*at == '*') {
            number = va_arg(arguments.list, int);
            return at + 1;
        }
        for (; *at >= '0' && *at <= '9'; ++at) {
            const int digit = int(*at) - '0';
            number = number > (INT_MAX - digit) / 10 ? INT_MAX : number * 10 + digit;
        }
        return at;
    }

    template <class T>
    const T* parseLength(const T* at)
    {
        switch (*at) {
        case 'h':
            length = at[1] == 'h' ? Length::Char : Length::Short;
            return at + (at[1] == 'h' ? 2 : 1);
        case 'l':
            length = at[1] == 'l' ? Length::LongLong : Length::Long;
            return at + (at[1] == 'l' ? 2 : 1);
        case 'j':
            length = Length::LongLong;
            return at + 1;
        case 'z':
        case 't':
            length = Length::Pointer;
            return at + 1;
        case 'w':
            length = Length::Wide;
            return at + 1;
        case 'L':
            length = Length::LongDouble;
            return at + 1;
        case 'I':
            return parseBits(at + 1);
        default:
            return at;
        }
    }

    /** Behind an I. */
    template <class T>
    const T* parseBits(const T* at)
    {
        if (at[0] == '6' && at[1] == '4') {
            length = Length::LongLong;
            return at + 2;
        }
        if (at[0] == '3' && at[1] == '2') {
            length = Length::Bits32;
            return at + 2;
        }
        length = Length::Pointer;
        return at;
    }
};

} // namespace orvi::platform
