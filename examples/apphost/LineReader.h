#pragma once
#include <orvi/core/String.h>

#include <cstddef>
#include <string>

namespace apphost {

/** Lines of UTF-8 from a terminal, a pipe or a file, as far as they are there. */
class LineReader {
public:
    static constexpr std::size_t mostBytes = 65536;

    enum class Result {
        Line,
        NothingYet,
        TooLong, // a line of more than mostBytes, which is skipped
        End,
        Failed // errno has the reason
    };

    /** Borrows the open file; 0 is the standard input. */
    explicit LineReader(int descriptor)
        : _descriptor(descriptor)
    {}

    bool isTerminal() const;
    int getDescriptor() const { return _descriptor; }
    /** The next line, without its end. Does not wait. */
    Result next(orvi::String& line);

private:
    bool takeLine(Result& result, orvi::String& line);
    Result takeRest(orvi::String& line);
    Result hand(std::size_t length, orvi::String& line);

    int _descriptor;
    std::string _text; // read and not yet handed out: from _begin on
    std::size_t _begin = 0;
    std::size_t _searched = 0; // no line feed in front of this place
    bool _skipping = false;    // in a line that is too long
};

} // namespace apphost
