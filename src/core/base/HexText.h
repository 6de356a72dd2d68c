#pragma once

/** Bytes as pairs of hexadecimal digits. */
namespace orvi::text {

/** -1 for what is no digit. */
constexpr int hexValue(wchar_t digit)
{
    if (digit >= L'0' && digit <= L'9')
        return digit - L'0';
    const int lower = digit | 0x20;
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

/** Reads two digits; the second only behind a first. */
constexpr bool parseHexByte(const wchar_t* text, unsigned char& byte)
{
    const int high = hexValue(text[0]);
    const int low = high >= 0 ? hexValue(text[1]) : -1;
    if (low < 0)
        return false;
    byte = static_cast<unsigned char>(high << 4 | low);
    return true;
}

/** Writes two lower-case digits; gives the place behind them. */
constexpr wchar_t* printHexByte(wchar_t* target, unsigned char byte)
{
    constexpr char digits[] = "0123456789abcdef";
    target[0] = static_cast<wchar_t>(digits[byte >> 4]);
    target[1] = static_cast<wchar_t>(digits[byte & 0x0F]);
    return target + 2;
}

} // namespace orvi::text
