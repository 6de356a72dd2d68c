#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/String.h>
#include <orvi/core/Unknown.h>

#include <cstdarg>

namespace orvi {

class Input;
class Output;

/** Reads text from a byte source in a character set that the caller names: nothing is detected, and a byte
    order mark is a character, U+FEFF.

    A value of one pointer that keeps its source alive. Copies share the place in the text. Only what belongs
    to the text that is delivered is taken from the source, but for up to three bytes behind malformed UTF-8
    of a source that cannot peek. One thread at a time, copies included.

    Nothing throws but std::bad_alloc, whenever a text or what reads it lacks memory: so where a read says "no
    more", the text has ended. What of a text was taken from the source by then is lost. An error of the source
    ends the text, as its end does. NULs are left out. UTF-8 holds characters of up to four bytes; in malformed
    text a lead byte takes the bytes that it announces as far as they continue it, and one that does not is
    dropped with it. In the process's code page a byte above 127 always takes the next one with it.

        TextReader reader(file, TextReader::UTF8);
        for (String line; reader.readLine(line);)
            show(line); */
class ORVI_API TextReader {
public:
    enum CharacterSet : int {
        UTF8 = 0,
        WIDE = 1, // units of 16 bits, low byte first
        ANSI = 2  // the process's code page, see setCodePage
    };

    /** Closed. */
    TextReader() noexcept;
    /** Opens. */
    TextReader(Input* input, CharacterSet set);
    TextReader(const TextReader& other) noexcept;
    TextReader& operator=(const TextReader& other) noexcept;
    ~TextReader();

    /** Goes over to `input`; false, and the reader is closed, for null or a set that is none. */
    bool open(Input* input, CharacterSet set);
    /** Lets go of the source. */
    void close();

    /** Reads all that the source announces, maybe nothing. False when the reader is closed, and `text` stays;
        also, with an empty `text` and the reason in the log, when it is too long for a string. */
    bool read(String& text);
    bool read(String_T<char>& text);
    bool read(String_T<unsigned char>& text);

    /** Reads up to a line feed, which is not stored, or to the end; carriage returns are left out wherever
        they are. False, and `line` stays, when the reader is closed, when the source announces or delivers
        nothing, and when the line is too long for a string. */
    bool readLine(String& line);
    bool readLine(String_T<char>& line);
    bool readLine(String_T<unsigned char>& line);

    class IReader; // the reading itself, one class for each character set

private:
    Unknown::Handle_T<IReader> _reader; // null when closed
};

/** Writes text to a byte sink in a character set that the caller names. No byte order mark is written, and
    line ends go as they are.

    A value of one pointer that keeps its sink alive; copies share it. One thread at a time. Only opening throws,
    std::bad_alloc; a write that lacks memory has failed. */
class ORVI_API TextWriter {
public:
    enum CharacterSet : int {
        UTF8 = 0,
        WIDE = 1, // units of 16 bits, low byte first
        ANSI = 2  // the process's code page, see setCodePage
    };

    /** Closed. */
    TextWriter() noexcept;
    /** Opens. */
    TextWriter(Output* output, CharacterSet set);
    TextWriter(const TextWriter& other) noexcept;
    TextWriter& operator=(const TextWriter& other) noexcept;
    ~TextWriter();

    /** Goes over to `output`; false, and the writer is closed, for null or a set that is none. */
    bool open(Output* output, CharacterSet set);
    /** Lets go of the sink. */
    void close();

    /** Writes the text without its terminator, in one step. False when the writer is closed, when the sink
        did not take all of it, which is not tried again, or when the text could not be converted. Text that
        has to be converted ends at its first NUL. */
    bool write(const String& text);
    bool write(const String_T<char>& text);
    bool write(const String_T<unsigned char>& text);

    /** Formats as String::format does, and writes. Gives the number of characters, -1 as above. */
    int vprintf(const wchar_t* format, std::va_list arguments);
    int print(const wchar_t* format, ...);

    class IWriter; // the writing itself, one class for each character set

private:
    Unknown::Handle_T<IWriter> _writer; // null when closed
};

} // namespace orvi
