#include <orvi/core/Encoding.h>

#include "CodePageNames.h"
#include "StringAccess.h"
#include "WholeTexts.h"
#include "WideText.h"
#include "platform/base/CodePage.h"
#include "platform/base/ErrorText.h"

#include <atomic>
#include <charconv>
#include <ostream>

namespace orvi {

namespace {

std::atomic<int> g_codePage = 0;

std::ptrdiff_t convert(int codePage, const char* source, std::size_t size, wchar_t* target,
                       std::size_t capacity)
{
    return platform::codePageToWide(codePage, source, size, target, capacity);
}

std::ptrdiff_t convert(int codePage, const wchar_t* source, std::size_t size, char* target,
                       std::size_t capacity)
{
    return platform::wideToCodePage(codePage, source, size, target, capacity);
}

/** Measures, makes the block of exactly that size, and converts into it. */
template <class Target, class Source>
String_T<Target> convertText(int codePage, const Source* source)
{
    // Bytes are bytes to the platform, UTF-8 or not.
    using RawSource = std::conditional_t<sizeof(Source) == 1, char, wchar_t>;
    using RawTarget = std::conditional_t<sizeof(Target) == 1, char, wchar_t>;
    String_T<Target> result;
    if (source == nullptr || *source == 0)
        return result;
    const auto* text = reinterpret_cast<const RawSource*>(source);
    const std::size_t size = text::length(source);
    RawTarget* const measure = nullptr;
    const std::ptrdiff_t needed = convert(codePage, text, size, measure, 0);
    if (needed == platform::codePageLacksTables)
        missText(size * sizeof(Source));
    if (needed < 1)
        return result;
    const auto elements = static_cast<std::size_t>(needed);
    if (Target* room = StringAccess<Target>::prepare(result, elements))
        convert(codePage, text, size, reinterpret_cast<RawTarget*>(room), elements);
    return result;
}

template <class Number>
String numberText(Number value)
{
    char digits[24] = {};
    const char* end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    String text;
    if (wchar_t* room = StringAccess<wchar_t>::prepare(text, static_cast<std::size_t>(end - digits)))
        for (const char* p = digits; p < end; ++p)
            *room++ = static_cast<wchar_t>(*p);
    return text;
}

} // namespace

int getCodePage() { return g_codePage.load(std::memory_order_relaxed); }

bool setCodePage(int codePage)
{
    g_codePage.store(codePage, std::memory_order_relaxed);
    return true;
}

bool setCodePage(const char* name)
{
    const String_T<char> wanted = String_T<char>(name).toLowerCase();
    for (const CodePageName& row : codePageNames) {
        if (wanted == row.name)
            return setCodePage(row.codePage);
    }
    return false;
}

String StringHelper::ansiToWide(const unsigned char* text)
{
    return convertText<wchar_t>(getCodePage(), text);
}

String_T<unsigned char> StringHelper::wideToAnsi(const wchar_t* text)
{
    return convertText<unsigned char>(getCodePage(), text);
}

String StringHelper::utf8ToWide(const char* text)
{
    return convertText<wchar_t>(platform::utf8CodePage, text);
}

String_T<char> StringHelper::wideToUtf8(const wchar_t* text)
{
    return convertText<char>(platform::utf8CodePage, text);
}

String_T<char> StringHelper::ansiToUtf8(const unsigned char* text) { return wideToUtf8(ansiToWide(text)); }

String_T<unsigned char> StringHelper::utf8ToAnsi(const char* text) { return wideToAnsi(utf8ToWide(text)); }

StringConvert::operator String_T<unsigned char>() const
{
    if (_utf8 != nullptr)
        return StringHelper::utf8ToAnsi(_utf8);
    return _wide != nullptr ? StringHelper::wideToAnsi(_wide) : String_T<unsigned char>(_ansi);
}

StringConvert::operator String_T<char>() const
{
    if (_ansi != nullptr)
        return StringHelper::ansiToUtf8(_ansi);
    return _wide != nullptr ? StringHelper::wideToUtf8(_wide) : String_T<char>(_utf8);
}

StringConvert::operator String() const
{
    if (_ansi != nullptr)
        return StringHelper::ansiToWide(_ansi);
    return _utf8 != nullptr ? StringHelper::utf8ToWide(_utf8) : String(_wide);
}

String convertToString(bool value) { return value ? L"true" : L"false"; }

String convertToString(float value)
{
    String text;
    text.format(L"%.8g", static_cast<double>(value));
    return text;
}

String convertToString(double value)
{
    String text;
    text.format(L"%.16g", value);
    return text;
}

String convertToString(signed char value) { return numberText(static_cast<int>(value)); }

String convertToString(unsigned char value) { return numberText(static_cast<int>(value)); }

String convertToString(short value) { return numberText(value); }

String convertToString(unsigned short value) { return numberText(value); }

String convertToString(int value) { return numberText(value); }

String convertToString(unsigned int value) { return numberText(value); }

String convertToString(long value) { return numberText(value); }

String convertToString(unsigned long value) { return numberText(value); }

String convertToString(long long value) { return numberText(value); }

String convertToString(unsigned long long value) { return numberText(value); }

String convertToString(const wchar_t* text) { return text; }

String convertToString(const char* text) { return StringHelper::utf8ToWide(text); }

String convertToString(const unsigned char* text) { return StringHelper::ansiToWide(text); }

String convertToString(const String& text) { return text; }

String convertToString(const String_T<char>& text) { return StringHelper::utf8ToWide(text); }

String convertToString(const String_T<unsigned char>& text) { return StringHelper::ansiToWide(text); }

String getErrorString(int code)
{
    char text[512];
    platform::errorText(code, text, sizeof text);
    return StringHelper::utf8ToWide(text).trimRight();
}

String getLastErrorString() { return getErrorString(platform::lastError()); }

std::ostream& operator<<(std::ostream& stream, const String& text)
{
    return stream << StringHelper::wideToUtf8(text).getBuffer();
}

} // namespace orvi
