#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/JsonValue.h>
#include <orvi/core/String.h>

namespace orvi {

class Input;
class Output;

/** JSON text (RFC 8259) to values and back; on streams and files it is UTF-8 without a byte order mark.

    Reading is more forgiving than the standard: comments of both forms between the pieces, leading zeros,
    unknown escapes, raw control characters in strings, a key that comes twice (the last one counts). Surrogate
    escapes that make no pair and NULs are dropped. Containers nest 1024 deep. What is malformed fails as a
    whole: the target keeps its value.

    Nothing throws, except std::bad_alloc. Any thread; a value that is read must not change meanwhile. */
class ORVI_API Json {
public:
    Json() = delete;

    /** Parses one value behind white space and comments. Gives the place behind it, what stands there is not
        looked at; null when the text is malformed or null. */
    static const wchar_t* parseValue(const wchar_t* text, JsonValue& value);

    /** The text, compact on one line or, with `pretty`, indented by four spaces; no line feed at the end. A
        double has 16 digits at most. The empty string when the text would be too long for a String. */
    static String convertToString(const JsonValue& value, bool pretty);

    /** Reads all that `input` has, as UTF-8, and parses the first value in it. False when `input` is null or
        the text malformed. */
    static bool read(JsonValue& value, Input* input);
    /** False when `output` is null or does not take the text in one write. */
    static bool write(const JsonValue& value, Output* output, bool pretty);

    /** Writes UTF-16 units, low byte first; false at the first short write. */
    static bool writeValue(const JsonValue& value, Output* output, bool pretty);

    /** Loads from a file or another archive URL (see ArchiveFactory), which is let go of before the parse. */
    static bool load(JsonValue& value, const String& path);
    /** Replaces the file, or makes it. At every moment, also where the program is killed or the power fails, the
        old document or the new one stands there whole: the text goes into a file beside it, which takes the name
        when it is on the disc. False, with a line in the log and the old document in place, when the file may
        not be opened for reading and writing, when its directory does not allow new files, or when the text does
        not fit. The new file has the old one's permissions, and its owner and group where this user may give
        them. Symbolic links to it stay; another hard link keeps the old document. A program that is killed may
        leave the file beside it, named ".orvi-" and 16 digits. A device or pipe is written as it is. */
    static bool save(const JsonValue& value, const String& path, bool pretty);
};

} // namespace orvi
