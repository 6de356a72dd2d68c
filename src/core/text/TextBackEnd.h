#pragma once
#include <orvi/core/Stream.h>
#include <orvi/core/Text.h>

#include <algorithm>

namespace orvi {

enum class TextExtent { All, Line };

/** What a back end made of a block of bytes. */
struct TextBlock {
    std::size_t used; // bytes; what is left over is the beginning of a character, at most three bytes
    std::size_t produced;
    bool lineEnded; // with the last byte used
};

/** The source of a reader, and how bytes become characters.

    Bytes that were taken and turn out to belong to a later character wait here, in front of the source. */
class TextReader::IReader : public Unknown {
public:
    explicit IReader(Input* input);

    /** Delivers the next character as a code value: a UTF-16 unit, or from UTF-8 a code point. -1 at the end
        of the input and on a failure. */
    virtual int getChar() = 0;
    /** Decodes the whole characters of a block into `text`, which has room for `size` units, without NULs; of a
        line up to its end, and without carriage returns. */
    virtual TextBlock decode(const unsigned char* bytes, std::size_t size, wchar_t* text,
                             TextExtent extent) = 0;

    /** As of Input. */
    int available();
    bool hasAhead() const { return _aheadSize > 0; }

    /** 0 instead of a failure, as of a count that cannot be. */
    int peek(unsigned char* bytes, int size) const { return valid(_input->peek(bytes, size), size); }
    int fetch(unsigned char* bytes, int size);
    /** The next byte, whether or not the source announces one. */
    bool take(unsigned char& byte);
    /** Puts at most three bytes that were taken in front of all others. */
    void giveBack(const unsigned char* bytes, std::size_t size);

    /** How many bytes were ever taken, to be compared. */
    unsigned int taken() const { return _taken; }

protected:
    /** The next bytes, as far as they can be seen without taking them. */
    int lookAhead(unsigned char* bytes, int size) const;
    /** Whether so many bytes are all that there is. */
    bool isAll(int count) const { return _input->available() <= count - std::min(_aheadSize, count); }

private:
    static int valid(int count, int size) { return count > 0 && count <= size ? count : 0; }

    static constexpr int aheadCapacity = 4;

    Handle_T<Input> _input;
    const bool _isFile;
    int _announced = 0; // by a file, and not taken since
    unsigned int _taken = 0;
    int _aheadSize = 0;
    unsigned char _ahead[aheadCapacity];
};

/** Decodes to UTF-8 too, which is not a copy: malformed text comes out as what it was taken for. */
class Utf8Reader final : public TextReader::IReader {
public:
    using IReader::IReader;

    int getChar() override;
    TextBlock decode(const unsigned char* bytes, std::size_t size, wchar_t* text, TextExtent extent) override;
    TextBlock decode(const unsigned char* bytes, std::size_t size, char* text, TextExtent extent);
};

class WideReader final : public TextReader::IReader {
public:
    using IReader::IReader;

    int getChar() override;
    TextBlock decode(const unsigned char* bytes, std::size_t size, wchar_t* text, TextExtent extent) override;
};

class AnsiReader final : public TextReader::IReader {
public:
    using IReader::IReader;

    int getChar() override;
    TextBlock decode(const unsigned char* bytes, std::size_t size, wchar_t* text, TextExtent extent) override;
};

} // namespace orvi
