#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/String.h>

#include <cstdint>

namespace orvi {

/** Splits a command line at blanks and tabs outside of double quotes.

    The first argument is the program's name: quotes are dropped, backslashes mean nothing. In the others a
    backslash in front of a quote takes its meaning away, and two backslashes there stand for one; backslashes
    elsewhere are themselves. A doubled quote inside quotes gives one quote and ends the quoted part. There is
    always a first argument, even in an empty line; null is an empty line.

    Fills `argv` with pointers into `args` and a null at the end, and `args` with the arguments, each with its
    NUL. Either may be null. `*argCount` becomes the number of entries of `argv`, the null included,
    `*charCount` the number of elements of `args`: so a first call with two nulls tells how much room is
    needed. */
ORVI_API void parseArguments(const wchar_t* commandLine, wchar_t** argv, wchar_t* args, int* argCount,
                             int* charCount);

/** The same into one block, for the caller to release by `std::free(argv)`. `argc` is the number of
    arguments. Without memory `argv` is null and `argc` 0. */
ORVI_API void parseArguments(const wchar_t* commandLine, wchar_t**& argv, int& argc);

/** What follows "name=" in the first argument that begins so, or `defaultValue`. Upper and lower case differ.
    Inside quotes there may be blanks and tabs in front of the "=". A line of 512 characters
    or more needs memory: without it these three give the default, and a line in the log. */
ORVI_API String parseArgumentString(const wchar_t* commandLine, const wchar_t* name,
                                    const wchar_t* defaultValue);

/** The same as a number: white space, a sign, digits up to the first other character; without digits 0,
    beyond the range its end. An empty value gives `defaultValue`. */
ORVI_API int parseArgumentInt(const wchar_t* commandLine, const wchar_t* name, int defaultValue);
ORVI_API std::int64_t parseArgumentInt64(const wchar_t* commandLine, const wchar_t* name,
                                         std::int64_t defaultValue);

// Scanning a text: each of these takes what it consumes off the front. That copies the rest once.

/** Removes ASCII white space. */
ORVI_API void skipSpaces(String& text);
/** Removes the rest of the line with its line feed; everything when there is none. */
ORVI_API void skipLine(String& text);
/** Removes white space and all lines that begin with "#" behind it. */
ORVI_API void skipComments(String& text);
/** Removes the ASCII letters, digits and "_" at the front and returns them; the empty string when there are
    none. */
ORVI_API String readToken(String& text);

} // namespace orvi
