#pragma once
#include <doctest/doctest.h>

#include <orvi/core/Encoding.h>

/** Lets a failed check show strings, literals and labels as text. */
namespace doctest {

template <>
struct StringMaker<orvi::String> {
    static doctest::String convert(const orvi::String& text)
    {
        return orvi::StringHelper::wideToUtf8(text).getBuffer();
    }
};
template <>
struct StringMaker<orvi::String_T<char>> {
    static doctest::String convert(const orvi::String_T<char>& text) { return text.getBuffer(); }
};
template <std::size_t N>
struct StringMaker<wchar_t[N]> {
    static doctest::String convert(const wchar_t* text)
    {
        return orvi::StringHelper::wideToUtf8(text).getBuffer();
    }
};
template <>
struct StringMaker<const char*> { // else the label of a row would be shown as an address
    static doctest::String convert(const char* text) { return text; }
};
template <>
struct StringMaker<const wchar_t*> {
    static doctest::String convert(const wchar_t* text)
    {
        return orvi::StringHelper::wideToUtf8(text).getBuffer();
    }
};

} // namespace doctest
