#pragma once
#include <doctest/doctest.h>

#include <orvi/core/Encoding.h>
#include <orvi/core/Exception.h>

/** Lets a failed check show strings, literals and labels as text. */
namespace doctest {

inline String shown(const wchar_t* text) { return orvi::StringHelper::wideToUtf8(text).getBuffer(); }

template <>
struct StringMaker<orvi::String> {
    static String convert(const orvi::String& text) { return shown(text); }
};
template <>
struct StringMaker<orvi::String_T<char>> {
    static String convert(const orvi::String_T<char>& text) { return text.getBuffer(); }
};
template <std::size_t N>
struct StringMaker<wchar_t[N]> {
    static String convert(const wchar_t* text) { return shown(text); }
};
template <>
struct StringMaker<const char*> { // else the label of a row would be shown as an address
    static String convert(const char* text) { return text; }
};
template <>
struct StringMaker<const wchar_t*> {
    static String convert(const wchar_t* text) { return shown(text); }
};

} // namespace doctest

REGISTER_EXCEPTION_TRANSLATOR(const orvi::Exception& exception)
{
    return doctest::shown(exception.description());
}
