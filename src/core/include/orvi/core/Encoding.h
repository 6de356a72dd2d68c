#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/String.h>

namespace orvi {

/** The process-wide code page of ANSI text, read at every conversion; 0, the start value, stands for 1252.
    Set it when the program starts: there is no lock, a conversion under way sees the old or the new value. */
ORVI_API int getCodePage();
/** Stores any number and gives true. With a page that does not exist ANSI conversions give empty strings. */
ORVI_API bool setCodePage(int codePage);
/** By a name such as "latin1", "Shift-JIS" or "windows-1252", in any case; false, changing nothing, for an
    unknown one. */
ORVI_API bool setCodePage(const char* name);

/** Conversions between the three widths. Null and empty texts give the empty string, and so does a code page
    that does not exist. A character that a page lacks becomes "?", as does a byte or a pair of bytes that it
    does not define; but 0x80 to 0x9F, where one of 874 and 1250 to 1258 leaves them free, are the control
    characters of these numbers. Malformed UTF-8 becomes U+FFFD. */
class ORVI_API StringHelper {
public:
    StringHelper() = delete;

    static String ansiToWide(const unsigned char* text);
    static String_T<unsigned char> wideToAnsi(const wchar_t* text);
    static String utf8ToWide(const char* text);
    static String_T<char> wideToUtf8(const wchar_t* text);
    static String_T<char> ansiToUtf8(const unsigned char* text);
    static String_T<unsigned char> utf8ToAnsi(const char* text);
};

/** Carries a text of any width until a string of the wanted width is asked for. Borrows the text. */
class ORVI_API StringConvert {
public:
    StringConvert(const unsigned char* text) noexcept
        : _ansi(text)
    {}
    StringConvert(const char* text) noexcept
        : _utf8(text)
    {}
    StringConvert(const wchar_t* text) noexcept
        : _wide(text)
    {}

    operator String_T<unsigned char>() const;
    operator String_T<char>() const;
    operator String() const;

private:
    const unsigned char* _ansi = nullptr;
    const char* _utf8 = nullptr;
    const wchar_t* _wide = nullptr;
};

/** Values as text. Bytes and shorts are numbers, not characters; narrow texts are converted. */
ORVI_API String convertToString(bool value);
ORVI_API String convertToString(float value);
ORVI_API String convertToString(double value);
ORVI_API String convertToString(signed char value);
ORVI_API String convertToString(unsigned char value);
ORVI_API String convertToString(short value);
ORVI_API String convertToString(unsigned short value);
ORVI_API String convertToString(int value);
ORVI_API String convertToString(unsigned int value);
ORVI_API String convertToString(long value);
ORVI_API String convertToString(unsigned long value);
ORVI_API String convertToString(long long value);
ORVI_API String convertToString(unsigned long long value);
ORVI_API String convertToString(const wchar_t* text);
ORVI_API String convertToString(const char* text);
ORVI_API String convertToString(const unsigned char* text);
ORVI_API String convertToString(const String& text);
ORVI_API String convertToString(const String_T<char>& text);
ORVI_API String convertToString(const String_T<unsigned char>& text);

/** The system's text for an error code, without a line end; empty for an unknown code. */
ORVI_API String getErrorString(int code);
/** The text for the calling thread's last error (errno). */
ORVI_API String getLastErrorString();

} // namespace orvi
